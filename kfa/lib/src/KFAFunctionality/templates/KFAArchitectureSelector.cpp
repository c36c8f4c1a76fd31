// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/templates/KFAArchitectureSelector.h>

#include <algorithm>

namespace KFA {

bool KFAArchitectureSelector::operator()(const char* name) const {
  return name != nullptr && std::find(SUPPORTED.begin(), SUPPORTED.end(), name) != SUPPORTED.end();
}

bool KFAArchitectureSelector::operator()(const std::string& name) const {
  return std::find(SUPPORTED.begin(), SUPPORTED.end(), name) != SUPPORTED.end();
}

}  // namespace KFA
