// SPDX-License-Identifier: Apache-2.0
// The extension module kfa._kfa. What people import is the package kfa, which stands on it.
#include <pybind11/pybind11.h>

#include "Configuration.h"
#include "Files.h"
#include "Vocabulary.h"

namespace kfapy {

namespace {

void translate(std::exception_ptr thrown) {
  try {
    if (thrown) std::rethrow_exception(std::move(thrown));
  } catch (const Failure& failure) {
    try {
      const py::object error = py::module_::import("kfa.errors")
                                   .attr("error_of")(toStr(failure.text), failure.code, toStr(failure.file));
      PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    } catch (py::error_already_set& other) {
      other.restore();
    }
  }
}

}  // namespace

}  // namespace kfapy

PYBIND11_MODULE(_kfa, module) {
  namespace py = pybind11;
  module.doc() = "The library's functions as the package kfa needs them.";
  py::register_exception_translator(&kfapy::translate);
  kfapy::Unlocked::awaitAtExit();
  kfapy::addConfiguration(module);
  kfapy::addFiles(module);
  kfapy::addNode(module);
  kfapy::addResources(module);
  kfapy::addCache(module);
  module.def("use_vocabulary", &kfapy::useVocabulary, py::arg("path"),
             "Takes resource parameters and formulas from this file from now on; the default one for \"\".");
}
