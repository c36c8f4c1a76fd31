// SPDX-License-Identifier: Apache-2.0
#include "RecordMessages.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string_view>
#include <vector>

#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLNumberNames.h>
#include <KFLMessage/KFLTagVocabulary.h>

namespace kfl_fuzz {

namespace {

using KFL::KFLField;
using KFL::KFLFieldShape;
using KFL::KFLFieldTable;
using KFL::KFLMessageIterator;

constexpr int kDeepest = 6;

std::string valueOf(const KFLField& row, Choices& choices) {
  if (choices.oneIn(32)) return choices.bytes(12);
  if (row.names != nullptr) {
    std::vector<std::string> names;
    for (const KFL::KFLNumberName& name : *row.names)
      names.emplace_back(name.name);
    return names.empty() ? "" : names[choices.below(names.size())];
  }
  if (row.valueType == "boolean") return choices.oneOf({"true", "false", "1", "0"});
  if (row.valueType == "string")
    return choices.oneOf({"text", "", "10.0.0.1/24", "eth0:1:2", "a b", "$VEID", "<&>\"'", "\n", " x ",
                          "centos/7", "7f3c1d52-9a5b-4d3e-8a17-0c9f6f1b2e3d", "00:11:22:33:44:55",
                          "\xc3\xa4"});
  return choices.oneOf({"1", "0", "-1", "2147483647", "-2147483648", "4", "5", "101", "9223372036854775807"});
}

void setType(KFLMessageIterator& it, const KFLFieldTable& base, Choices& choices) {
  std::vector<KFL::KFLDerivedTypeInfo> fitting = KFL::listDerivedTypes();
  std::erase_if(fitting, [&](const auto& info) { return info.base != base.record(); });
  if (fitting.empty()) return;
  const KFL::KFLDerivedTypeInfo& chosen = fitting[choices.below(fitting.size())];
  it.setTypeByName(chosen.namespaceUri, chosen.tag);
}

void fill(KFLMessageIterator& it, const KFLFieldTable& table, Choices& choices, int depth);

// What the element that was added last holds.
void fillElement(KFLMessageIterator& it, const KFLField& row, Choices& choices, int depth) {
  if (row.shape == KFLFieldShape::Presence && !choices.oneIn(32)) return;
  if (!row.valueType.empty() || row.names != nullptr || row.table == nullptr) {
    it.putValue(valueOf(row, choices));
    return;
  }
  const KFLFieldTable* table = &row.table();
  if (row.isPolymorphic) {
    setType(it, *table, choices);
    const KFL::KFLRecordType* const derived = KFL::findRecordType(it.getTypeNamespace(), it.getTypeTag());
    if (derived != nullptr && derived->elements() != nullptr) table = derived->elements();
  }
  if (depth > 0) fill(it, *table, choices, depth - 1);
}

void addElement(KFLMessageIterator& it, const KFLField& row, KFL::KFLElementID id, Choices& choices,
                int depth) {
  if (id.isEmpty()) return;
  it.addChild(id);
  fillElement(it, row, choices, depth);
  it.leaveChild();
}

void addRow(KFLMessageIterator& it, const KFLField& row, Choices& choices, int depth) {
  switch (row.shape) {
    case KFLFieldShape::Container:
      it.addChild(row.id);
      for (std::size_t more = choices.below(4); more > 0; --more)
        addElement(it, row, row.itemId, choices, depth);
      it.leaveChild();
      break;
    case KFLFieldShape::Map:
      it.addChild(row.id);
      it.putValue(std::string(choices.oneOf({"key", "b", "a", ""})), row.keyId);
      if (row.itemId.isEmpty())
        fillElement(it, row, choices, depth);
      else
        addElement(it, row, row.itemId, choices, depth);
      it.leaveChild();
      break;
    default:
      if (!row.noneMarker.isEmpty() && choices.oneIn(4))
        it.addEmptyChild(row.noneMarker);
      else
        addElement(it, row, row.id, choices, depth);
  }
}

void fill(KFLMessageIterator& it, const KFLFieldTable& table, Choices& choices, int depth) {
  for (const KFLField& row : table.rows()) {
    if (row.shape == KFLFieldShape::Inline) {
      if (row.table != nullptr) fill(it, row.table(), choices, depth);
      continue;
    }
    if (row.id.isEmpty() || choices.oneIn(row.needsElement() ? 32 : 4)) continue;
    for (std::size_t more = row.maxElements == 1 ? 1 : choices.below(4); more > 0; --more)
      addRow(it, row, choices, depth);
  }
}

// --- The judge ------------------------------------------------------------------------------------------------------

void addRows(const KFLFieldTable& table, std::vector<const KFLField*>& rows) {
  for (const KFLField& row : table.rows()) {
    if (row.shape != KFLFieldShape::Inline)
      rows.push_back(&row);
    else if (row.table != nullptr)
      addRows(row.table(), rows);
  }
}

std::string_view nameOf(KFL::KFLElementID id) {
  return id.number() != 0 ? KFL::tagName(id.number()) : id.name();
}

bool isInteger(std::string_view text, bool isLong) {
  const std::string copy(text);
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(copy.c_str(), &end, 10);
  if (copy.empty() || *end != '\0' || errno != 0 || copy.front() == ' ' || copy.front() == '+') return false;
  return isLong || (value >= INT32_MIN && value <= INT32_MAX);
}

bool isValue(const KFLField& row, std::string_view text) {
  if (row.names != nullptr)
    return std::any_of(row.names->begin(), row.names->end(),
                       [&](const auto& name) { return text == name.name; });
  if (row.valueType == "boolean") return text == "true" || text == "false" || text == "1" || text == "0";
  if (row.valueType == "int" || row.valueType == "long") return isInteger(text, row.valueType == "long");
  return true;
}

std::string faultOfElement(const KFLMessageIterator& it, const KFLField& row) {
  const std::string path = it.getPath() + ": ";
  const bool isMarker =
      it.getName() == nameOf(row.noneMarker) || (row.emptyItemIsNone && it.isEmptyElement());
  if (isMarker || row.shape == KFLFieldShape::Presence)
    return it.isEmptyElement() ? "" : path + "is not empty";
  if (row.shape == KFLFieldShape::Container || row.shape == KFLFieldShape::Map ||
      row.shape == KFLFieldShape::Special)
    return {};
  if (!row.valueType.empty() || row.names != nullptr)
    return isValue(row, it.getText()) ? "" : path + "has no value of its type";
  return row.table == nullptr || row.isPolymorphic ? "" : schemaFault(it, row.table());
}

}  // namespace

KFL::KFLMessage randomMessage(const KFL::KFLRecordType& record, Choices& choices) {
  KFL::KFLMessage message(record.rootName());
  KFLMessageIterator it = message.getIterator();
  it.setName(record.rootName(), record.namespaceUri());
  it.setTypeByName(record.namespaceUri(), record.typeTag());
  if (record.elements() != nullptr)
    fill(it, *record.elements(), choices, kDeepest);
  else
    it.putValue(choices.bytes(40));
  return message;
}

std::string schemaFault(const KFLMessageIterator& element, const KFLFieldTable& table) {
  std::vector<const KFLField*> rows;
  addRows(table, rows);
  std::map<const KFLField*, int> counts;
  std::set<const KFLField*> withoutItems;
  std::size_t reached = 0;
  const KFLMessageIterator it = element;
  for (int left = it.firstChild(); left == 0; left = it.nextSibling()) {
    const auto isHere = [&](const KFLField* row) {
      return it.getName() == row->elementName() ||
             (!row->noneMarker.isEmpty() && it.getName() == nameOf(row->noneMarker));
    };
    auto found = std::find_if(rows.begin() + static_cast<std::ptrdiff_t>(table.isInAnyOrder() ? 0 : reached),
                              rows.end(), isHere);
    if (found == rows.end()) return it.getPath() + ": is unknown, or out of its order";
    reached = static_cast<std::size_t>(found - rows.begin());
    const KFLField& row = **found;
    if (++counts[&row] > row.maxElements && row.maxElements != 0 && !table.isInAnyOrder())
      return it.getPath() + ": stands too often";
    if (!row.noneMarker.isEmpty() && it.getName() == nameOf(row.noneMarker)) withoutItems.insert(&row);
    if (withoutItems.count(&row) != 0 && counts[&row] > 1)
      return it.getPath() + ": says that there are none, and does not stand alone";
    if (std::string fault = faultOfElement(it, row); !fault.empty()) return fault;
  }
  for (const KFLField* const row : rows) {
    if (row->needsElement() && counts[row] == 0)
      return element.getPath() + ": lacks " + std::string(row->elementName());
  }
  return {};
}

}  // namespace kfl_fuzz
