// SPDX-License-Identifier: Apache-2.0
#include "Environments.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>

namespace kfl_fuzz {

namespace {

using Parser = KFA::KFAEnvConfigBashParser;

const boost::shared_ptr<Parser>& sharedParser() {
  constexpr const char* kVocabulary =
      "<vocabulary version='1'><category words='qos'><parameter id='numproc'/>"
      "<parameter id='cpuweight' kind='1'/><parameter id='cpulimit' kind='1' value_type='0'/>"
      "</category></vocabulary>";
  static const boost::shared_ptr<Parser> parser =
      Parser::getInstance(KFL::KFLVocMap::loadFromText(kVocabulary, "vocabulary"));
  return parser;
}

// A key, the words of its values, and what stands between two of them.
struct KeyForm {
  const char* key;
  const char* words;
  const char* between;
};

constexpr KeyForm kForms[] = {
    {"ARCH", "x86_64|x86|i386|ia64|arm", ""},
    {"DESCRIPTION", "web shop|it's #1|  |a=b|$VEID|%s|\xc3\xa4|&<>]]>", " "},
    {"DISABLED", "yes|no|maybe|", ""},
    {"DISTRIBUTION", "centos-7|debian-12.4|suse|a-b-1|-1|a-", ""},
    {"HOSTNAME", "web1.example.com|localhost|a b", ""},
    {"IP_ADDRESS", "10.0.0.1|10.0.0.5/24|10.0.0.6/255.255.255.0|fe80::1/64|dhcp|1::|300.1.1.1|10.0.0.1", " "},
    {"IPTABLES", "ip_tables|ipt_REJECT|ip_tables", " "},
    {"NAME", "web|101|", ""},
    {"NAMESERVER", "10.0.0.2|ns.example.com|2001:db8::2", " "},
    {"NETIF",
     "ifname=eth0|mac=00:11:22:33:44:55|network=net1|nettype=bridged|nettype=host-routed|gw=10.0.0.1|dhcp="
     "yes|"
     "dhcp6=no|gw6=fe80::2|ip=10.0.0.5/24:10.0.1.5|ip6=fe80::1/64|ifname=venet0|;ifname=eth1|unknown=1",
     ","},
    {"OFFLINE_MANAGEMENT", "yes|no", ""},
    {"OFFLINE_SERVICE", "vzpp|vzpp-plesk|", " "},
    {"ONBOOT", "yes|no|true|YES", ""},
    {"ORIGIN_SAMPLE", "basic|slm.256MB|", ""},
    {"OSTEMPLATE", "centos-7-x86_64|debian/12|a/b|/1", ""},
    {"PLATFORM", "linux|windows|", ""},
    {"RATE", "eth0:1:1024|*:2:64|eth1:x:1", " "},
    {"RATEBOUND", "yes|no", ""},
    {"ROLES", "web|db|web", " "},
    {"SEARCHDOMAIN", "example.com|example.org", " "},
    {"SLMMODE", "all|slm|ubc", ""},
    {"TECHNOLOGIES", "x86_64|x86|ia64|nptl|sysfs", " "},
    {"TEMPLATES", "php|mysql/5|perl/5.36", " "},
    {"UUID", "7f3c1d52-9a5b-4d3e-8a17-0c9f6f1b2e3d|x", ""},
    {"VE_PRIVATE", "/srv/private/$VEID|/p/${VEID}|$(x)", ""},
    {"VE_ROOT", "/srv/root/$VEID|/r", ""},
    {"VE_TYPE", "regular|repair:5|repaired:6|temporary|repair", ""},
    {"NUMPROC", "100:200|100|1:x|-1:9223372036854775807", ""},
    {"CPUWEIGHT", "1000|1:2|99999999999999999999", ""},
    {"CPULIMIT", "12.5|0.25|-1.75|1.234", ""},
    {"FOREIGN_KEY", "any|thing|it's `x`", " "},
};

std::string valueOf(const KeyForm& form, Choices& choices) {
  std::string value = choices.wordOf(form.words);
  for (std::size_t more = choices.below(4); *form.between != '\0' && more > 0; --more)
    value += form.between + choices.wordOf(form.words);
  if (choices.oneIn(16)) value += choices.bytes(8);
  value.erase(std::remove(value.begin(), value.end(), '\0'), value.end());
  return value;
}

}  // namespace

const Parser& environmentParser() {
  return *sharedParser();
}

const KFA::KFAEnvConfigRules& environmentRules() {
  static const KFA::KFAEnvConfigRules rules(sharedParser());
  return rules;
}

KeyAndValue keyAndValue(Choices& choices) {
  const KeyForm& form = kForms[choices.below(std::size(kForms))];
  return {form.key, valueOf(form, choices)};
}

// Most files have each key once, with a value that it takes: what is wrong is one thing among many that are right.
std::string environmentFile(Choices& choices) {
  std::string text;
  std::set<std::string> keys;
  while (!choices.isAtEnd()) {
    const auto [key, value] = keyAndValue(choices);
    const bool isSound = !environmentRules().isKey(KFL::toLower(key)) ||
                         environmentRules().accept(KFL::toLower(key), value) == 0;
    if ((!isSound || !keys.insert(key).second) && !choices.oneIn(16)) continue;
    const bool isOdd = choices.oneIn(32);
    const std::string quote = isOdd ? choices.oneOf({"'", "", "$'"}) : "\"";
    text += isOdd ? choices.oneOf({"", "export ", "  ", "#", "A=1; "}) : "";
    text.append(key).append("=").append(quote).append(value).append(quote == "$'" ? "'" : quote);
    text += isOdd ? choices.oneOf({"", "  # why", ";", "\r", " B=2"}) : "";
    text += "\n";
  }
  return text;
}

std::string writtenFile(const KFA::KFAEnvConfig& record) {
  std::ostringstream out;
  require(environmentParser().putConfig(record, out, nullptr, false) == 0, "a record is written");
  return out.str();
}

std::string mergedFile(const KFA::KFAEnvConfig& record, const std::string& existing) {
  KFA::KFAMemoryStream in(existing);
  std::ostringstream out;
  require(environmentParser().putConfig(record, out, &in, true) == 0, "a record is merged", existing);
  return out.str();
}

std::string differences(const KFA::KFAEnvConfig& before, const KFA::KFAEnvConfig& after) {
  std::vector<std::pair<std::string, std::string>> changes;
  environmentParser().diffConfig(before, after, changes);
  std::string text;
  for (const auto& [key, value] : changes)
    text.append(key).append("=").append(value).append("\n");
  return text;
}

bool isFaultless(const std::string& text) {
  const auto findings = KFA::checkConfig(environmentRules(), text);
  return std::all_of(findings.begin(), findings.end(), [](const KFA::KFAConfigFinding& finding) {
    return finding.severity == KFA::KFAConfigFinding::Severity::Note;
  });
}

}  // namespace kfl_fuzz
