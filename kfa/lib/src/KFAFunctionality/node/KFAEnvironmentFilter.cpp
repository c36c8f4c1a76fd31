// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAEnvironmentFilter.h>

#include <fnmatch.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <span>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLIPAddress.h>

namespace KFA {

namespace {

// A property that is no key of the file, and the keys that it is made from.
struct Property {
  const char* name;
  std::set<std::string> keys;
  std::vector<std::string> (*values)(const KFAEnvironmentKeys& keys, int veid);
};

template <class Get>
std::vector<std::string> ofDevices(const KFAEnvironmentKeys& keys, Get get) {
  KFAEnvConfig::NetVEths devices;
  keys.getRecord().getNetVEths(devices);
  std::vector<std::string> values;
  for (const KFANetVEth& device : devices.getValue())
    values.push_back((device.*get)());
  return values;
}

std::vector<std::string> numberOf(const KFAEnvironmentKeys&, int veid) {
  return {veid < 0 ? std::string() : std::to_string(veid)};
}

std::vector<std::string> titleOf(const KFAEnvironmentKeys& keys, int veid) {
  std::string title;
  if (!keys.get("name", title) && !keys.get("hostname", title) && veid >= 0)
    title = "#" + std::to_string(veid);
  return {title};
}

const std::vector<Property>& properties() {
  static const std::vector<Property> all = {
      {"veid", {}, &numberOf},
      {"title", {"name", "hostname"}, &titleOf},
      {"address",
       {"ip_address", "netif"},
       [](const KFAEnvironmentKeys& keys, int) { return keys.getAddresses(); }},
      {"network",
       {"netif"},
       [](const KFAEnvironmentKeys& keys, int) { return ofDevices(keys, &KFANetVEth::getNetwork); }},
      {"mac",
       {"netif"},
       [](const KFAEnvironmentKeys& keys, int) { return ofDevices(keys, &KFANetVEth::getMAC); }},
  };
  return all;
}

const Property* findProperty(const std::string& name) {
  const auto& all = properties();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const Property& property) { return property.name == name; });
  return found == all.end() ? nullptr : &*found;
}

// The length of the key in front of "=" or "!="; 0 when there is none.
std::size_t keyLength(std::string_view word) {
  std::size_t length = 0;
  while (length < word.size() && (KFL::isAlnum(word[length]) || word[length] == '_'))
    ++length;
  const std::string_view rest = word.substr(length);
  const bool isCondition = rest.starts_with('=') || rest.starts_with("!=");
  return isCondition && length > 0 && !KFL::isDigit(word.front()) ? length : 0;
}

// The length up to the next comma that no backslash precedes.
std::size_t conditionLength(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size() && text[at] != ',')
    at += text[at] == '\\' && at + 1 < text.size() ? 2 : 1;
  return std::min(at, text.size());
}

bool matchesPattern(const std::string& pattern, const std::string& value) {
  return fnmatch(pattern.c_str(), value.c_str(), FNM_CASEFOLD) == 0;
}

// The whole text, or one of its words.
bool matchesTextOrWord(const std::string& pattern, const std::string& value) {
  if (matchesPattern(pattern, value)) return true;
  KFL::getToken words(value.c_str(), " \t\n", 0);
  for (std::string_view word; words.next(word);)
    if (word.size() != value.size() && matchesPattern(pattern, std::string(word))) return true;
  return false;
}

bool isSameUpTo(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b, int bits) {
  for (std::size_t i = 0; bits > 0; ++i, bits -= 8) {
    const unsigned mask = bits >= 8 ? 0xffU : 0xffU & (0xff00U >> bits);
    if (((a[i] ^ b[i]) & mask) != 0) return false;
  }
  return true;
}

}  // namespace

bool isInNetwork(const std::string& address, const std::string& network) {
  const KFL::KFLIPAddress one(address);
  const KFL::KFLIPAddress all(network);
  const int bits = all.getPrefixLength();
  if (bits < 0) return false;
  const auto v4 = one.getIPv4();
  const auto v4All = all.getIPv4();
  if (v4 && v4All) return isSameUpTo(v4->bytes(), v4All->bytes(), bits);
  const auto v6 = one.getIPv6();
  const auto v6All = all.getIPv6();
  return v6 && v6All && isSameUpTo(v6->bytes(), v6All->bytes(), bits);
}

bool KFAEnvironmentFilter::isResembling(std::string_view word) {
  return keyLength(word) != 0;
}

bool KFAEnvironmentFilter::hasCapitalKey(std::string_view word) {
  while (!word.empty()) {
    const std::string key(word.substr(0, keyLength(word)));
    if (key != KFL::toLower(key)) return true;
    word.remove_prefix(std::min(conditionLength(word) + 1, word.size()));
  }
  return false;
}

int KFAEnvironmentFilter::parse(const KFAEnvConfigBashParser& parser, const std::string& text) {
  conditions_.clear();
  keys_.clear();
  for (std::string_view rest = text;;) {
    const std::string_view one = rest.substr(0, conditionLength(rest));
    const std::size_t length = keyLength(one);
    if (length == 0) {
      KFL::setErrorMessage("'%s': '%s' is no condition; write KEY=PATTERN, such as onboot=no", text.c_str(),
                           std::string(one).c_str());
      return -1;
    }
    Condition condition;
    condition.key = KFL::toLower(std::string(one.substr(0, length)));
    condition.isNegated = one[length] == '!';
    condition.pattern = one.substr(length + (condition.isNegated ? 2 : 1));
    const Property* const property = findProperty(condition.key);
    if (property != nullptr) {
      keys_.insert(property->keys.begin(), property->keys.end());
    } else if (parser.isKey(condition.key)) {
      keys_.insert(condition.key);
    } else {
      KFL::setErrorMessage(
          "'%s': '%s' is no key of an environment file, nor veid, title, address, network or mac",
          text.c_str(), condition.key.c_str());
      return -1;
    }
    conditions_.push_back(std::move(condition));
    if (one.size() == rest.size()) return 0;
    rest.remove_prefix(one.size() + 1);
  }
}

bool KFAEnvironmentFilter::holds(const Condition& condition, const KFAEnvironmentKeys& keys, int veid) {
  const bool isAddress = condition.key == "address" || condition.key == "ip_address";
  if (const Property* const property = findProperty(condition.key); property != nullptr) {
    std::vector<std::string> values = property->values(keys, veid);
    if (values.empty()) values.emplace_back();
    return std::any_of(values.begin(), values.end(), [&](const std::string& value) {
      return matchesPattern(condition.pattern, value) ||
             (isAddress &&
              (isInNetwork(value, condition.pattern) ||
               matchesPattern(condition.pattern, KFL::KFLIPAddress(value).toStringWithoutNetwork())));
    });
  }
  std::string value;
  const bool has = keys.getOrText(condition.key, value);
  if (!has && condition.key == "ve_type") value = "regular";
  return matchesTextOrWord(condition.pattern, value);
}

bool KFAEnvironmentFilter::matches(const KFAEnvironmentKeys& keys, int veid) const {
  return std::all_of(conditions_.begin(), conditions_.end(), [&](const Condition& condition) {
    return holds(condition, keys, veid) != condition.isNegated;
  });
}

}  // namespace KFA
