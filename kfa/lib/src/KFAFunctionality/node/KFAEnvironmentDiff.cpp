// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAEnvironmentDiff.h>

#include <string>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/templates/KFAArchitectureSelector.h>

namespace KFA {

namespace {

// Without devices NETIF says the same whether it is there or not.
bool hasValue(const KFAEnvironmentKeys& keys, const std::string& key, std::string& value) {
  return keys.getOrText(key, value) && (key != "netif" || !value.empty());
}

bool hasSameText(const KFAEnvironmentKeys& before, const KFAEnvironmentKeys& after, const std::string& key) {
  const std::string* const old = before.getText(key);
  const std::string* const text = after.getText(key);
  return old == nullptr || text == nullptr ? old == text : *old == *text;
}

// Whether TECHNOLOGIES gives the architecture, and no line of ARCH says the same beside it.
bool isDecidedByTechnologies(const KFAEnvironmentKeys& keys) {
  const std::string* const technologies = keys.getText("technologies");
  const std::string* const arch = keys.getText("arch");
  std::string value;
  if (technologies == nullptr || (arch != nullptr && keys.get("arch", value) && value == *arch)) return false;
  KFL::getToken words(technologies->c_str(), " \t\n\v\f\r", 0);
  while (const char* const word = words.get(nullptr))
    if (KFAArchitectureSelector()(word)) return true;
  return false;
}

// The architecture that TECHNOLOGIES gives goes with it.
bool isLost(const KFAEnvironmentKeys& before, const KFAEnvironmentKeys& after, const std::string& key) {
  return key == "arch" && after.getText(key) != nullptr && !hasSameText(before, after, key) &&
         !hasSameText(before, after, "technologies") && isDecidedByTechnologies(before);
}

}  // namespace

KFAChangeList compareEnvironments(const KFAEnvironmentKeys& before, const KFAEnvironmentKeys& after) {
  KFAChangeList changes;
  KFAChangeList gone;
  const KFAEnvConfig empty;
  KFAEnvConfigBashParser::ParameterParserGet order(empty, before.getParser());
  for (std::string key; order.getNext(key, key) == kParameterDone;) {
    std::string old;
    std::string value;
    const bool had = hasValue(before, key, old) && !isLost(before, after, key);
    const bool has = hasValue(after, key, value);
    KFAChange change{key, {}, {}, !had};
    if (had) change.before = old;
    if (has) change.value = value;
    if (has && (!had || old != value)) {
      changes.push_back(std::move(change));
    } else if (had && !has) {
      gone.push_back(std::move(change));
    } else if (key == "ip_address") {
      change.before = before.getEffectiveAddresses();
      change.value = after.getEffectiveAddresses();
      change.wasUnset = false;
      if (change.value != change.before) changes.push_back(std::move(change));
    }
  }
  changes.insert(changes.end(), gone.begin(), gone.end());
  return changes;
}

}  // namespace KFA
