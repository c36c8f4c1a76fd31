// SPDX-License-Identifier: Apache-2.0
// What a list shows of an environment.
#ifndef KFAFUNCTIONALITY_NODE_KFAENVIRONMENTSUMMARY_H
#define KFAFUNCTIONALITY_NODE_KFAENVIRONMENTSUMMARY_H

#include <optional>
#include <set>
#include <string>
#include <vector>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>

namespace KFA {

struct KFAEnvironmentSummary {
  std::string title;  // the name, or else the host name, or else "#VEID"
  std::string type = "regular";
  std::optional<bool> onBoot;
  std::string osTemplate;
  std::vector<std::string> addresses;

  KFAEnvironmentSummary() = default;
  // veid: negative for none. The keys must have been read for keys(), at least.
  KFAEnvironmentSummary(const KFAEnvironmentKeys& keys, int veid);

  // The keys that a summary is made from, in lower case.
  static const std::set<std::string>& keys();
  // "yes", "no", or nothing.
  const char* onBootText() const { return !onBoot ? "" : *onBoot ? "yes" : "no"; }
};

}  // namespace KFA

#endif
