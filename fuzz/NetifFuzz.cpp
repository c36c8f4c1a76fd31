// SPDX-License-Identifier: Apache-2.0
// NETIF values: what a device writes it reads as the same, as long as its addresses look like some, and a value that is
// accepted can be set and reads back.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLIPv6.h>
#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/network/KFANetVEth.h>

namespace {

void require(bool holds, const char* law) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", law, KFL::getErrorMessage().c_str());
  std::abort();
}

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  KFA::KFANetVEth device;
  device.fromString(text);
  const std::string written = device.toString();
  KFA::KFANetVEth again;
  again.fromString(written);
  require(hasTextsThatFallApart(device) || written.empty() || again.toString() == written,
          "a device reads what it writes");

  std::string result;
  if (rules().accept("netif", text) != 0 || !KFL::isBashSafe(text, nullptr)) return 0;
  require(KFA::setConfigValues(rules(), {{"NETIF", text}}, {}, "", "f", result) == 0,
          "what is accepted can be set");
  require(result == "NETIF=\"" + text + "\"\n", "what is set is written as it stands");
  return 0;
}
