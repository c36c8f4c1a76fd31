// SPDX-License-Identifier: Apache-2.0
// Tells which processor architectures the node accepts. A predicate without state, for any thread.
#ifndef KFAFUNCTIONALITY_TEMPLATES_KFAARCHITECTURESELECTOR_H
#define KFAFUNCTIONALITY_TEMPLATES_KFAARCHITECTURESELECTOR_H

#include <array>
#include <string>
#include <string_view>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAArchitectureSelector {
 public:
  // The names that are accepted, and no other spelling of them.
  static constexpr std::array<std::string_view, 3> SUPPORTED{"ia64", "x86", "x86_64"};

  // A null name is not accepted.
  bool operator()(const char* name) const;
  bool operator()(const std::string& name) const;
};

}  // namespace KFA

#endif
