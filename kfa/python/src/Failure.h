// SPDX-License-Identifier: Apache-2.0
// What the library refused, on its way to becoming the exception kfa.Error, and the texts that come from outside.
#ifndef KFAPYTHON_FAILURE_H
#define KFAPYTHON_FAILURE_H

#include <pybind11/pybind11.h>

#include <string>
#include <utility>

#include <KFLCommon/KFLError.h>

#include "Unlocked.h"

namespace kfapy {

namespace py = pybind11;

// Thrown with or without the interpreter's lock; the translator in Module.cpp makes kfa.Error of it.
struct Failure {
  std::string text;
  int code = -1;
  std::string file;  // the name that the text begins with, where it is about a file
};

[[noreturn]] inline void fail(const std::string& file, int code = -1) {
  throw Failure{KFL::getErrorMessage(), code, file};
}
inline void must(int result, const std::string& file = {}) {
  if (result < 0) fail(file, result);
}

// An object that was made without __init__() raises TypeError where it is used.
template <class Class>
void refuseUnmade() {
  py::detail::get_type_info(typeid(Class))->operator_new = [](std::size_t) -> void* {
    throw py::type_error("an object whose __init__() was never called");
  };
}

// Any bytes, as a str in which those that are not UTF-8 are lone surrogates. Taken from str, never from bytes.
struct Text : std::string {
  using std::string::string;
  Text() = default;
  Text(std::string text) : std::string(std::move(text)) {}  // NOLINT(google-explicit-constructor)
};

// A path as the system has it: taken from str, bytes and os.PathLike.
struct Path : std::string {
  using std::string::string;
  Path() = default;
  explicit Path(std::string text) : std::string(std::move(text)) {}
};

// The content of a file or a message: taken from str and bytes.
struct Content : std::string {
  using std::string::string;
  Content() = default;
  explicit Content(std::string text) : std::string(std::move(text)) {}
};

py::str toStr(const std::string& text);
// False, without a Python error, when the object is no str or holds surrogates that stand for no byte.
bool takeStr(py::handle object, std::string& text);

}  // namespace kfapy

namespace pybind11::detail {

template <>
struct type_caster<kfapy::Text> {
  PYBIND11_TYPE_CASTER(kfapy::Text, const_name("str"));
  bool load(handle source, bool) { return kfapy::takeStr(source, value); }
  static handle cast(const kfapy::Text& text, return_value_policy, handle) {
    return kfapy::toStr(text).release();
  }
};

template <>
struct type_caster<kfapy::Content> {
  PYBIND11_TYPE_CASTER(kfapy::Content, const_name("str | bytes"));
  bool load(handle source, bool) {
    if (!PyBytes_Check(source.ptr())) return kfapy::takeStr(source, value);
    value.assign(PyBytes_AS_STRING(source.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(source.ptr())));
    return true;
  }
};

template <>
struct type_caster<kfapy::Path> {
  PYBIND11_TYPE_CASTER(kfapy::Path, const_name("str | bytes | os.PathLike"));
  bool load(handle source, bool) {
    PyObject* bytes = nullptr;
    if (PyUnicode_FSConverter(source.ptr(), &bytes) == 0) {
      // What is a path in kind and cannot be one, such as a text with a NUL, says so itself.
      if (PyErr_ExceptionMatches(PyExc_TypeError) == 0) throw error_already_set();
      PyErr_Clear();
      return false;
    }
    value.assign(PyBytes_AS_STRING(bytes), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes)));
    Py_DECREF(bytes);
    return true;
  }
  static handle cast(const kfapy::Path& path, return_value_policy, handle) {
    return PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size()));
  }
};

}  // namespace pybind11::detail

#endif
