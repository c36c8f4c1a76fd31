// SPDX-License-Identifier: Apache-2.0
// NETIF values: what a device writes it reads as the same, as long as its addresses look like some, and a value that is
// accepted can be set and reads back. A value that the input's bytes make gives a device with the fields that were put
// into it.
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <KFLBash/KFLBashStr.h>
#include <KFLFunctionality/KFLIPv6.h>
#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/network/KFANetVEth.h>

#include "Fuzzing.h"

namespace {

using kfl_fuzz::Choices;
using kfl_fuzz::require;

const KFA::KFAEnvConfigRules& rules() {
  constexpr const char* kVocabulary =
      "<vocabulary version='1'><category words='qos'><parameter id='numproc'/></category></vocabulary>";
  static const KFA::KFAEnvConfigRules instance(
      KFA::KFAEnvConfigBashParser::getInstance(KFL::KFLVocMap::loadFromText(kVocabulary, "vocabulary")));
  return instance;
}

// A text with a colon that is no IPv6 address is written among the IPv4 addresses, which a colon separates.
bool hasTextsThatFallApart(const KFA::KFANetVEth& device) {
  for (const KFL::KFLIPAddress& address : device.getIPAddresses()) {
    const std::string& text = address.toString();
    if (!KFL::KFLIPv6::isResembling(text) && text.find(':') != std::string::npos) return true;
  }
  return false;
}

// What was put into a value: of most fields the last counts, of addresses all.
struct Fields {
  std::map<std::string, std::string> texts;
  std::vector<std::string> addresses;

  std::string operator[](const std::string& name) const {
    const auto found = texts.find(name);
    return found == texts.end() ? "" : found->second;
  }
};

void addAddresses(Choices& choices, const char* words, char separator, std::string& text, Fields& fields) {
  for (std::size_t more = choices.below(4); more > 0; --more) {
    const std::string address = choices.wordOf(words);
    text += address + (more > 1 || choices.oneIn(2) ? std::string(1, separator) : "");
    if (!address.empty()) fields.addresses.push_back(address);
  }
}

std::string valueFrom(Choices& choices, Fields& fields) {
  static const std::map<std::string, const char*> kValues = {
      {"ifname", "eth0|eth1|venet0|br0:1|"},
      {"mac", "00:11:22:33:44:55|ff:FF:00:00:00:01|x|"},
      {"network", "net1|a b|a=b|"},
      {"gw", "10.0.0.1|192.0.2.254|none|"},
      {"gw6", "fe80::ff|2001:db8::1|"},
      {"dhcp", "yes|no|y|ye|yess|YES|"},
      {"dhcp6", "yes|no|y|ye|yess|n|"},
      {"nettype", "host-routed|bridged|host|h|host-routedx|"},
      {"unknown", "1|"},
      {"IFNAME", "eth7"}};
  std::string text;
  for (std::size_t more = choices.below(8) + 1; more > 0; --more) {
    const std::string name = choices.wordOf("ifname|mac|network|gw|gw6|ip|dhcp|dhcp6|nettype|unknown|IFNAME");
    text += choices.wordOf("|| |\t") + name + "=";
    if (name == "ip") {
      addAddresses(choices, "10.0.0.5/24|10.0.1.5|192.0.2.7/255.255.255.0|x|", ':', text, fields);
    } else {
      text += fields.texts[name] = choices.wordOf(kValues.at(name));
    }
    text += choices.wordOf(",|,|,,|, ,");
  }
  if (choices.oneIn(2)) {
    text += "ip6=";
    addAddresses(choices, "fe80::1/64|2001:db8::5|::1/128|10.0.0.9|", ',', text, fields);
  }
  return text;
}

void checkFields(const std::string& text, const Fields& fields) {
  KFA::KFANetVEth device;
  device.fromString(text);
  const auto isYes = [&](const char* name, const std::string& word) {
    return fields.texts.count(name) != 0 && word.substr(0, fields[name].size()) == fields[name];
  };
  require(device.getName() == fields["ifname"] && device.getMAC() == fields["mac"] &&
              device.getNetwork() == fields["network"] && device.getGateway() == fields["gw"] &&
              device.getGatewayV6() == fields["gw6"],
          "a device has the texts of its fields", text);
  require(device.getDHCP() == isYes("dhcp", "yes") && device.getDHCPv6() == isYes("dhcp6", "yes") &&
              device.getHostRouted() == isYes("nettype", "host-routed"),
          "every beginning of a word is the word", text);
  const auto& addresses = device.getIPAddresses();
  require(std::equal(addresses.begin(), addresses.end(), fields.addresses.begin(), fields.addresses.end(),
                     [](const KFL::KFLIPAddress& a, const std::string& b) { return a.toString() == b; }),
          "a device has its addresses in their order", text);
}

std::vector<std::string> addressesOf(const KFA::KFANetVEth& device, bool isV6) {
  std::vector<std::string> addresses;
  for (const KFL::KFLIPAddress& address : device.getIPAddresses())
    if (KFL::KFLIPv6::isResembling(address.toString()) == isV6) addresses.push_back(address.toString());
  return addresses;
}

// A device that gets its addresses from elsewhere writes none.
void requireSame(const KFA::KFANetVEth& device, const KFA::KFANetVEth& again, const std::string& text) {
  require(again.toString() == device.toString(), "a device reads what it writes", text);
  require(again.getName() == device.getName() && again.getMAC() == device.getMAC() &&
              again.getNetwork() == device.getNetwork() && again.getGateway() == device.getGateway() &&
              again.getGatewayV6() == device.getGatewayV6() && again.getDHCP() == device.getDHCP() &&
              again.getDHCPv6() == device.getDHCPv6() && again.getHostRouted() == device.getHostRouted(),
          "a device writes each field", text);
  for (const bool isV6 : {false, true})
    require(addressesOf(again, isV6) ==
                (device.getDHCP() ? std::vector<std::string>() : addressesOf(device, isV6)),
            "a device writes each address", text);
}

void check(const std::string& text) {
  KFA::KFANetVEth device;
  device.fromString(text);
  const std::string written = device.toString();
  KFA::KFANetVEth again;
  again.fromString(written);
  if (!hasTextsThatFallApart(device) && !written.empty()) requireSame(device, again, text);

  std::string result;
  if (rules().accept("netif", text) != 0 || !KFL::isBashSafe(text, nullptr)) return;
  require(KFA::setConfigValues(rules(), {{"NETIF", text}}, {}, "", "f", result) == 0,
          "what is accepted can be set", text);
  require(result == "NETIF=\"" + text + "\"\n", "what is set is written as it stands", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Choices choices(kfl_fuzz::viewOf(data, size));
  Fields fields;
  const std::string made = valueFrom(choices, fields);
  checkFields(made, fields);
  check(std::string(kfl_fuzz::viewOf(data, size)));
  check(made);
  return 0;
}
