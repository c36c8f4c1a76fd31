// SPDX-License-Identifier: Apache-2.0
#include "Convert.h"

#include <vector>

namespace kfapy {

py::str toStr(const std::string& text) {
  PyObject* const str =
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
  if (str == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(str);
}

bool takeStr(py::handle object, std::string& text) {
  if (!PyUnicode_Check(object.ptr())) return false;
  const auto bytes =
      py::reinterpret_steal<py::object>(PyUnicode_AsEncodedString(object.ptr(), "utf-8", "surrogateescape"));
  if (!bytes) throw py::error_already_set();
  text.assign(PyBytes_AS_STRING(bytes.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr())));
  return true;
}

std::string Place::toString() const {
  std::string text = outer == nullptr ? std::string() : outer->toString();
  if (name.empty()) return text + "[" + std::to_string(index) + "]";
  return text + (text.empty() ? "" : ".") + std::string(name);
}

void refuse(const Place& place, const std::string& wanted, py::handle given) {
  const std::string kind = Py_TYPE(given.ptr())->tp_name;
  throw py::type_error(place.toString() + ": " + wanted + " is wanted, not " +
                       (given.is_none() ? "None" : "this " + kind));
}

py::object valuesAttribute(const char* name) {
  return py::module_::import("kfa.values").attr(name);
}

py::object addressOf(const std::string& text) {
  if (!KFL::KFLIPAddress(text).isValid()) return toStr(text);
  return valuesAttribute("address")(toStr(text));
}

std::string addressText(py::handle object, const Place& place) {
  std::string text;
  if (takeStr(object, text)) return text;
  if (!py::isinstance(object, valuesAttribute("ADDRESS_TYPES"))) refuse(place, "a str or an address", object);
  return textOf(py::str(object), place);
}

long long integerOf(py::handle object, const Place& place, long long least, long long most) {
  if (!PyLong_Check(object.ptr()) || PyBool_Check(object.ptr())) refuse(place, "an int", object);
  int overflow = 0;
  const long long value = PyLong_AsLongLongAndOverflow(object.ptr(), &overflow);
  if (overflow != 0 || value < least || value > most)
    throw py::value_error(place.toString() + ": a number from " + std::to_string(least) + " to " +
                          std::to_string(most) + " is wanted");
  return value;
}

std::string textOf(py::handle object, const Place& place) {
  std::string text;
  if (!takeStr(object, text)) refuse(place, "a str", object);
  return text;
}

Path pathOf(py::handle object, const Place& place) {
  py::detail::make_caster<Path> path;
  if (!path.load(object, true)) refuse(place, "a path", object);
  return py::detail::cast_op<Path>(std::move(path));
}

py::iterator itemsOf(py::handle object, const Place& place) {
  const bool isText = PyUnicode_Check(object.ptr()) || PyBytes_Check(object.ptr());
  if (isText || PyMapping_Check(object.ptr()) > PySequence_Check(object.ptr()) ||
      PyDict_Check(object.ptr()) || !py::isinstance<py::iterable>(object))
    refuse(place, "a list", object);
  return py::iter(object);
}

}  // namespace kfapy
