// SPDX-License-Identifier: Apache-2.0
// The functions of the module on environment files, on many of them, and on resource parameters.
#ifndef KFAPYTHON_FILES_H
#define KFAPYTHON_FILES_H

#include "Failure.h"

namespace kfapy {

void addFiles(py::module_& module);
void addNode(py::module_& module);
void addResources(py::module_& module);
void addCache(py::module_& module);

}  // namespace kfapy

#endif
