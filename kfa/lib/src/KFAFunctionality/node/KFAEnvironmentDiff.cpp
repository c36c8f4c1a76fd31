// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAEnvironmentDiff.h>

#include <string>

#include <KFAFunctionality/files/KFABashConfig.h>

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

// The architecture that TECHNOLOGIES gives, whatever a line of ARCH says beside it, goes with it.
bool isLost(const KFAEnvironmentKeys& before, const KFAEnvironmentKeys& after, const std::string& key) {
  return key == "arch" && after.getText(key) != nullptr && !hasSameText(before, after, key) &&
         !hasSameText(before, after, "technologies");
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
