// SPDX-License-Identifier: Apache-2.0
// The class kfa.Configuration.
#ifndef KFAPYTHON_CONFIGURATION_H
#define KFAPYTHON_CONFIGURATION_H

#include <memory>
#include <string>

#include <KFAFunctionality/environment/KFAEnvConfig.h>

#include "Failure.h"

namespace kfapy {

using ConfigurationPtr = std::unique_ptr<KFA::KFAEnvConfig>;

void addConfiguration(py::module_& module);

}  // namespace kfapy

#endif
