// SPDX-License-Identifier: Apache-2.0
#include "KFAValueCheck.h"

#include <algorithm>
#include <string_view>

#include <KFLCommon/KFLGUID.h>
#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLIPAddress.h>

#include <KFAFunctionality/node/KFAEnvironmentKeys.h>

namespace KFA {

namespace {

constexpr std::size_t kLongestLabel = 63;
constexpr std::size_t kLongestName = 253;

bool isLabel(std::string_view label) {
  return !label.empty() && label.size() <= kLongestLabel && label.front() != '-' && label.back() != '-' &&
         std::all_of(label.begin(), label.end(), [](char c) { return KFL::isAlnum(c) || c == '-'; });
}

bool isHostName(std::string_view name) {
  if (name.ends_with('.')) name.remove_suffix(1);
  if (name.size() > kLongestName) return false;
  for (;;) {
    const std::size_t dot = name.find('.');
    if (!isLabel(name.substr(0, dot))) return false;
    if (dot == std::string_view::npos) return true;
    name.remove_prefix(dot + 1);
  }
}

std::string quoted(std::string_view word) {
  return "\"" + std::string(word) + "\"";
}

template <class IsFine>
std::string findWord(const std::string& list, IsFine isFine, const char* what) {
  KFL::getToken words(list.c_str(), " \t\n", 0);
  for (std::string_view word; words.next(word);)
    if (!isFine(std::string(word))) return quoted(word) + what;
  return {};
}

bool isPlainAddress(const std::string& word) {
  return word.find('/') == std::string::npos && KFL::KFLIPAddress(word).isValid();
}

std::string findInDevices(const KFAEnvironmentKeys& keys) {
  KFAEnvConfig::NetVEths devices;
  keys.getRecord().getNetVEths(devices);
  for (const KFANetVEth& device : devices.getValue())
    if (!device.getMAC().empty() && normalMac(device.getMAC()).empty())
      return quoted("mac=" + device.getMAC()) + " of " + device.getName() +
             " is no MAC address; six bytes such as 02:00:5e:10:00:01 are wanted";
  return {};
}

bool isArchitecture(const std::string& name) {
  constexpr std::string_view kKnown[] = {"x86",   "i386",  "i686", "x86_64",  "amd64",   "ia64", "aarch64",
                                         "arm64", "armhf", "arm",  "ppc64le", "riscv64", "s390x"};
  return std::find(std::begin(kKnown), std::end(kKnown), name) != std::end(kKnown);
}

std::string findInPair(const std::string& value) {
  const std::size_t colon = value.find(':');
  const long long soft = KFL::strToLonglong(value);
  const long long hard = colon == std::string::npos ? soft : KFL::strToLonglong(value.substr(colon + 1));
  if (soft < 0 || hard < 0) return quoted(value) + " is negative; a number from 0 on is wanted";
  if (soft > hard)
    return quoted(value) +
           " has its barrier above its limit; BARRIER:LIMIT with the smaller number first is wanted";
  return {};
}

}  // namespace

std::string normalMac(const std::string& text) {
  std::string digits;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isSeparator = i % 3 == 2;
    if (isSeparator ? text[i] != ':' && text[i] != '-' : !KFL::isHexDigit(text[i])) return {};
    digits += isSeparator ? ':' : KFL::toLower(text[i]);
  }
  return digits.size() == 17 ? digits : std::string();
}

std::string normalAddress(const std::string& text) {
  const KFL::KFLIPAddress address(text);
  if (!address.isValid()) return {};
  const auto v4 = address.getIPv4();
  return v4 ? v4->toString() : address.getIPv6()->toString();
}

std::string findUnworkable(const KFAEnvironmentKeys& keys, const std::string& key, const std::string& value) {
  if (value.empty()) return {};
  if (key == "netif") return findInDevices(keys);
  if (key == "uuid" && !KFL::KFLGUID(std::string_view(value)).isValid())
    return quoted(value) + " is no UUID; hexadecimal digits in groups of 8-4-4-4-12 are wanted";
  if (key == "arch" && !isArchitecture(value))
    return quoted(value) + " is no architecture that is known; x86_64, for example, is";
  if (key == "nameserver")
    return findWord(value, isPlainAddress, " is no address; the resolver takes nothing else");
  if (key == "searchdomain")
    return findWord(value, isHostName, " is no domain; letters, digits and hyphens between dots are wanted");
  if (key == "hostname" && !isHostName(value))
    return quoted(value) +
           " is no name that a resolver takes; letters, digits and hyphens between dots are wanted";
  const auto& resources = keys.getParser().getQoSMap();
  return resources.count(key) != 0 ? findInPair(value) : std::string();
}

}  // namespace KFA
