// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAEnvironmentSummary.h>

namespace KFA {

const std::set<std::string>& KFAEnvironmentSummary::keys() {
  static const std::set<std::string> all = {"name",       "hostname",   "ve_type", "onboot",
                                            "ostemplate", "ip_address", "netif"};
  return all;
}

KFAEnvironmentSummary::KFAEnvironmentSummary(const KFAEnvironmentKeys& keys, int veid) {
  if (!keys.get("name", title) && !keys.get("hostname", title) && veid >= 0)
    title = "#" + std::to_string(veid);
  keys.get("ve_type", type);
  keys.get("ostemplate", osTemplate);
  if (std::string text; keys.get("onboot", text)) onBoot = text == "yes";
  addresses = keys.getAddresses();
}

}  // namespace KFA
