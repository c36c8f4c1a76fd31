// SPDX-License-Identifier: Apache-2.0
#include "KFAKeyRules.h"

#include <algorithm>
#include <vector>

#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLIPAddress.h>
#include <KFLFunctionality/KFLInterfaceRate.h>

#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/templates/KFAArchitectureSelector.h>

#include "KFABashLines.h"
#include "KFAFraction.h"
#include "KFANetifWords.h"

namespace KFA {

std::string compareTexts(const std::string& asked, const std::string& given) {
  return asked == given ? std::string() : quoteText(asked) + " would be read as " + quoteText(given);
}

namespace {

using Words = std::vector<std::string>;

constexpr const char* kBlanks = " \t\n";

Words wordsOf(const std::string& text, const char* delimiters) {
  Words words;
  KFL::getToken tokens(text.c_str(), delimiters, 0);
  for (std::string_view token; tokens.next(token);)
    words.emplace_back(token);
  return words;
}

// --- Comparisons ------------------------------------------------------------------------------------------------------

std::string compareLists(const std::string& asked, const std::string& given) {
  const bool same = wordsOf(asked, kBlanks) == wordsOf(given, kBlanks);
  return same ? std::string() : compareTexts(asked, given);
}

std::string compareSets(const std::string& asked, const std::string& given) {
  Words words = wordsOf(asked, kBlanks);
  std::sort(words.begin(), words.end());
  words.erase(std::unique(words.begin(), words.end()), words.end());
  return words == wordsOf(given, kBlanks) ? std::string() : compareTexts(asked, given);
}

// i386 and x86 are one word.
std::string compareArchitectures(const std::string& asked, const std::string& given) {
  return compareTexts(asked == "i386" ? "x86" : asked, given);
}

// The architecture is what a record keeps of the words; the line, which no record is written over, keeps the others.
std::string compareTechnologies(const std::string& asked, const std::string& given) {
  for (const std::string& word : wordsOf(asked, " \t\n\v\f\r")) {
    if (KFAArchitectureSelector()(word) && word != given) return compareTexts(asked, given);
  }
  return {};
}

std::string compareDevices(const std::string& asked, const std::string& given) {
  const Words askedEntries = wordsOf(asked, ";");
  const Words givenEntries = wordsOf(given, ";");
  if (askedEntries.size() != givenEntries.size()) {
    return "a host-routed venet0 is not taken, since its addresses stand in IP_ADDRESS";
  }
  for (std::size_t i = 0; i < askedEntries.size(); ++i) {
    std::string lost = findLostNetifWord(askedEntries[i], givenEntries[i]);
    if (!lost.empty()) return lost;
  }
  return {};
}

// --- Faults -----------------------------------------------------------------------------------------------------------

template <class Value>
std::string findInvalidWord(const std::string& list) {
  for (const std::string& word : wordsOf(list, kBlanks)) {
    if (!Value(word).isValid()) return quoteText(word) + " is not taken";
  }
  return {};
}

std::string findBadAddress(const std::string& list) {
  const bool isDynamic = wordsOf(list, kBlanks) == Words{"dhcp"};
  return isDynamic ? std::string() : findInvalidWord<KFL::KFLIPAddress>(list);
}

// No device without a name can be read, and with it the whole list is lost.
std::string findNamelessDevice(const std::string& list) {
  for (const std::string& entry : wordsOf(list, ";")) {
    KFANetVEth device;
    device.fromString(entry);
    if (device.getName().empty()) return quoteText(entry) + " has no ifname";
  }
  return {};
}

constexpr const char* kAnyText = "any text";
constexpr const char* kWords = "words separated by spaces";
constexpr const char* kYesNo = "yes or no";
constexpr const char* kTextOrUnset = "any text; empty means unset";

constexpr KeyRule kRules[] = {
    {"arch", "an architecture, such as x86_64", &compareArchitectures, nullptr, false, nullptr,
     KeyRule::Line::First},
    {"description", kTextOrUnset, &compareTexts, nullptr, true},
    {"disabled", kYesNo, &compareTexts},
    {"distribution", "NAME or NAME-VERSION with a version that begins with a digit", &compareTexts},
    {"hostname", kTextOrUnset, &compareTexts, nullptr, true},
    {"ip_address", "IP addresses with or without /PREFIX or /NETMASK, separated by spaces, or dhcp alone",
     &compareLists, &findBadAddress},
    {"iptables", kWords, &compareSets},
    {"name", kTextOrUnset, &compareTexts, nullptr, true},
    {"nameserver", kWords, &compareLists},
    {"netif", "devices separated by semicolons, such as ifname=eth0,network=,mac=,nettype=bridged,dhcp=no",
     &compareDevices, &findNamelessDevice},
    {"offline_management", kYesNo, &compareTexts},
    {"offline_service", kWords, &compareSets},
    {"onboot", kYesNo, &compareTexts},
    {"origin_sample", kAnyText, &compareTexts},
    {"ostemplate", "NAME or NAME/VERSION with a version that begins with a digit", &compareTexts},
    {"platform", kAnyText, &compareTexts},
    {"rate", "DEVICE:CLASS:RATE, several separated by spaces", &compareLists,
     &findInvalidWord<KFL::KFLInterfaceRate>},
    {"ratebound", kYesNo, &compareTexts},
    {"roles", kWords, &compareSets},
    {"searchdomain", kWords, &compareSets},
    {"slmmode", kAnyText, &compareTexts},
    {"technologies", "one of ia64, x86 and x86_64, alone or among other words", &compareTechnologies, nullptr,
     false, "arch"},
    {"templates", "templates as NAME or NAME/VERSION, separated by spaces", &compareLists},
    {"uuid", kAnyText, &compareTexts},
    {"ve_private", kAnyText, &compareTexts},
    {"ve_root", kAnyText, &compareTexts},
    {"ve_type", "regular, repair:VEID or repaired:VEID", &compareTexts},
};

constexpr KeyRule kPairRule = {"", "BARRIER:LIMIT or LIMIT, whole numbers", &compareTexts};
constexpr KeyRule kNumberRule = {"", "a whole number", &compareTexts};
constexpr KeyRule kFractionRule = {
    "", "a number with at most two decimals (held in hundredths, read in single precision)",
    &compareFractions};
constexpr KeyRule kNothingRule = {"", "nothing: the vocabulary gives it a kind that files do not have",
                                  &compareTexts};

const KeyRule& ruleOf(const KFAEnvConfigBashParser::QoSDefinition& definition) {
  if (definition.kind == 2 && definition.valueType == 1) return kPairRule;
  if (definition.kind == 1 && definition.valueType == 1) return kNumberRule;
  if (definition.kind == 1 && definition.valueType == 0) return kFractionRule;
  return kNothingRule;
}

}  // namespace

const KeyRule* findKeyRule(const KFAEnvConfigBashParser& parser, const std::string& key) {
  const KeyRule* const rule =
      std::lower_bound(std::begin(kRules), std::end(kRules), key,
                       [](const KeyRule& a, const std::string& b) { return a.key < b; });
  if (rule != std::end(kRules) && rule->key == key) return rule;
  const auto qos = parser.getQoSMap().find(key);
  return qos == parser.getQoSMap().end() ? nullptr : &ruleOf(qos->second);
}

}  // namespace KFA
