// SPDX-License-Identifier: Apache-2.0
// Values of the library as Python objects, and back: plain values, lists, what may be unspecified, and records as the
// classes of kfa.values, field by field. What has the wrong type raises TypeError or ValueError with the place.
#ifndef KFAPYTHON_CONVERT_H
#define KFAPYTHON_CONVERT_H

#include <cctype>
#include <concepts>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include <KFLCommon/KFLGUID.h>
#include <KFLCommon/KFLProperty.h>
#include <KFLFunctionality/KFLIPAddress.h>
#include <KFLFunctionality/KFLInterfaceRate.h>

#include "Failure.h"

namespace kfapy {

// Where a value stands, for the text of an exception: "net_devices[1].mac".
struct Place {
  const Place* outer = nullptr;
  std::string_view name;
  std::size_t index = 0;  // where there is no name

  std::string toString() const;
};

[[noreturn]] void refuse(const Place& place, const std::string& wanted, py::handle given);

// An attribute of the module kfa.values.
py::object valuesAttribute(const char* name);
// An address as kfa.values.address() makes it of a text; the text itself when it is no address.
py::object addressOf(const std::string& text);
// The text of a str or an address.
std::string addressText(py::handle object, const Place& place);
long long integerOf(py::handle object, const Place& place, long long least, long long most);
std::string textOf(py::handle object, const Place& place);
Path pathOf(py::handle object, const Place& place);
// The items of an iterable that is neither a text nor a mapping.
py::iterator itemsOf(py::handle object, const Place& place);

// Says of a std::string that it is an address; the empty text is None.
struct AddressText {};

template <class T, class Leaf = void>
struct Convert;

template <>
struct Convert<bool> {
  static py::object to(bool value) { return py::bool_(value); }
  static bool from(py::handle object, const Place& place) {
    if (!PyBool_Check(object.ptr())) refuse(place, "a bool", object);
    return object.ptr() == Py_True;
  }
};

template <class T>
requires(std::integral<T> && !std::same_as<T, bool>) struct Convert<T> {
  static py::object to(T value) { return py::int_(value); }
  static T from(py::handle object, const Place& place) {
    using Limits = std::numeric_limits<T>;
    return static_cast<T>(integerOf(object, place, Limits::min(), Limits::max()));
  }
};

template <>
struct Convert<std::string> {
  static py::object to(const std::string& value) { return toStr(value); }
  static std::string from(py::handle object, const Place& place) { return textOf(object, place); }
};

template <>
struct Convert<std::string, AddressText> {
  static py::object to(const std::string& value) { return value.empty() ? py::none() : addressOf(value); }
  static std::string from(py::handle object, const Place& place) {
    return object.is_none() ? std::string() : addressText(object, place);
  }
};

template <>
struct Convert<KFL::KFLIPAddress> {
  static py::object to(const KFL::KFLIPAddress& value) { return addressOf(value.toString()); }
  static KFL::KFLIPAddress from(py::handle object, const Place& place) { return addressText(object, place); }
};

template <>
struct Convert<KFL::KFLInterfaceRate> {
  static py::object to(const KFL::KFLInterfaceRate& value) { return toStr(value.toString()); }
  static KFL::KFLInterfaceRate from(py::handle object, const Place& place) {
    return KFL::KFLInterfaceRate(textOf(object, place));
  }
};

// An identifier that is not given is None.
template <class T>
requires std::derived_from<T, KFL::KFLGUID>
struct Convert<T> {
  static py::object to(const T& value) {
    if (!value.isValid()) return py::none();
    return py::module_::import("uuid").attr("UUID")(value.toString());
  }
  static T from(py::handle object, const Place& place) {
    if (object.is_none()) return T();
    const bool isUUID = py::isinstance(object, py::module_::import("uuid").attr("UUID"));
    if (!isUUID && !py::isinstance<py::str>(object)) refuse(place, "a uuid.UUID or None", object);
    const std::string text = textOf(py::str(object), place);
    T value{std::string_view(text)};
    if (!value.isValid()) throw py::value_error(place.toString() + ": the text of a UUID is wanted");
    return value;
  }
};

template <class T, class Leaf>
struct Convert<KFL::KFLOptionalProperty<T>, Leaf> {
  using Property = KFL::KFLOptionalProperty<T>;
  static py::object to(const Property& value) {
    return value.isSpecified() ? Convert<T, Leaf>::to(value.getValue()) : py::none();
  }
  static Property from(py::handle object, const Place& place) {
    Property property;
    if (!object.is_none()) property.setValue(Convert<T, Leaf>::from(object, place));
    return property;
  }
};

template <class T>
bool isEmptyText(const T& value) {
  if constexpr (std::same_as<T, std::string>)
    return value.empty();
  else if constexpr (std::same_as<T, KFL::KFLIPAddress>)
    return value.toString().empty();
  else
    return false;
}

template <class Container, class Leaf>
requires(requires(Container c) {
  typename Container::value_type;
  c.insert(c.end(), *c.begin());
} && !std::same_as<Container, std::string>) struct Convert<Container, Leaf> {
  using Item = typename Container::value_type;
  static py::object to(const Container& items) {
    py::list list;
    for (const Item& item : items)
      list.append(Convert<Item, Leaf>::to(item));
    return list;
  }
  static Container from(py::handle object, const Place& place) {
    Container items;
    std::size_t index = 0;
    for (const py::handle item : itemsOf(object, place)) {
      const Place here{&place, {}, index++};
      Item value = Convert<Item, Leaf>::from(item, here);
      // Messages have no form for an empty text in a list, which would be lost.
      if (isEmptyText(value)) throw py::value_error(here.toString() + ": a text that is not empty is wanted");
      items.insert(items.end(), std::move(value));
    }
    return items;
  }
};

// A field of a record: its name in Python, and the record's accessors.
template <class Leaf, class Get, class Set>
struct FieldRow {
  using LeafType = Leaf;
  const char* name;
  Get get;
  Set set;
};
template <class Leaf = void, class Get, class Set>
constexpr FieldRow<Leaf, Get, Set> field(const char* name, Get get, Set set) {
  return {name, get, set};
}

// Specialised for each record: `name` of its class in kfa.values, and `rows`, a tuple of fields.
template <class Record>
struct Fields;

template <class Record>
requires(requires { Fields<Record>::rows; }) struct Convert<Record> {
  static py::object to(const Record& record) {
    py::dict values;
    const auto put = [&]<class Leaf, class Get, class Set>(const FieldRow<Leaf, Get, Set>& row) {
      using Value = std::remove_cvref_t<std::invoke_result_t<Get, const Record&>>;
      values[row.name] = Convert<Value, Leaf>::to(std::invoke(row.get, record));
    };
    std::apply([&](const auto&... row) { (put(row), ...); }, Fields<Record>::rows);
    return valuesAttribute(Fields<Record>::name)(**values);
  }
  static Record from(py::handle object, const Place& place) {
    if (!py::isinstance(object, valuesAttribute(Fields<Record>::name)))
      refuse(place, std::string("a ") + Fields<Record>::name, object);
    Record record;
    const auto take = [&]<class Leaf, class Get, class Set>(const FieldRow<Leaf, Get, Set>& row) {
      using Value = std::remove_cvref_t<std::invoke_result_t<Get, const Record&>>;
      std::invoke(row.set, record, Convert<Value, Leaf>::from(object.attr(row.name), {&place, row.name}));
    };
    std::apply([&](const auto&... row) { (take(row), ...); }, Fields<Record>::rows);
    return record;
  }
};

}  // namespace kfapy

#endif
