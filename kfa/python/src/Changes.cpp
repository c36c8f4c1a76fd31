// SPDX-License-Identifier: Apache-2.0
#include "Changes.h"

#include <KFLCommon/KFLText.h>

#include "Convert.h"

namespace kfapy {

namespace {

py::object toObject(const std::optional<std::string>& text) {
  return text ? py::object(toStr(*text)) : py::object(py::none());
}

}  // namespace

py::list toList(const KFA::KFAChangeList& changes) {
  py::list list;
  for (const KFA::KFAChange& change : changes)
    list.append(valuesAttribute("KeyChange")(toStr(change.key), toObject(change.value),
                                             toObject(change.before), change.wasUnset,
                                             toStr(change.toString())));
  return list;
}

KFA::KFAChangeList changesFrom(const py::object& changes) {
  KFA::KFAChangeList list;
  for (const py::handle pair : itemsOf(changes, {nullptr, "changes"})) {
    const auto [key, value] = pair.cast<std::pair<py::object, py::object>>();
    KFA::KFAChange change;
    change.key = KFL::toLower(textOf(key, {nullptr, "changes"}));
    if (!value.is_none()) change.value = textOf(value, {nullptr, change.key});
    list.push_back(std::move(change));
  }
  return list;
}

}  // namespace kfapy
