// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAConfigRules.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string_view>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLIPAddress.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>
#include <KFAFunctionality/network/KFANetVEth.h>

#include "KFABashLines.h"
#include "KFAKeyRules.h"

namespace KFA {

namespace {

using Parser = KFAEnvConfigBashParser;

constexpr const char* kDHCP = "dhcp";
constexpr const char* kHostRoutedDevice = "venet0";

int refuse(const std::string& key, const std::string& what) {
  KFL::setErrorMessage("%s: %s", KFL::toUpper(key).c_str(), what.c_str());
  return -1;
}

// Why a value that a shell reads as it stands is written back as one that it does not; a backslash that comes last, say.
std::string findHazard(const std::string& asked, const std::string& given) {
  std::string reason;
  if (!KFL::isBashSafe(asked, &reason) || KFL::isBashSafe(given, &reason)) return {};
  return quoteText(asked) + " would be written back as " + quoteText(given) + ", with " + reason;
}

// What the record does not give back of the value; empty when it gives all of it.
std::string findLoss(const Parser& parser, const KeyRule& rule, const std::string& key,
                     const std::string& value, const KFAEnvConfig& record) {
  if (value.find('\0') != std::string::npos) return quoteText(value) + " is not taken";
  Parser::ParameterParserGet reader(record, parser);
  std::string given;
  const int result = reader.get(rule.reader != nullptr ? rule.reader : key, given);
  if (result == kParameterDone) {
    const std::string loss = rule.compare(value, given);
    return loss.empty() ? findHazard(value, given) : loss;
  }
  return value.empty() && rule.emptyIsUnset ? std::string() : quoteText(value) + " is not taken";
}

// The host-routed device whose addresses IP_ADDRESS has once the record is written, where they are others than now.
const KFANetVEth* findOverruling(const KFAEnvConfig::NetVEths& devices,
                                 const KFAEnvConfig::Addresses& addresses) {
  if (!addresses.isSpecified()) return nullptr;
  const auto& all = devices.getValue();
  const auto routed = std::find_if(all.begin(), all.end(), std::mem_fn(&KFANetVEth::getHostRouted));
  if (routed == all.end() || routed->getIPAddresses() == addresses.getValue()) return nullptr;
  // The device that stands for IP_ADDRESS itself says dhcp by a flag.
  const bool isItself = routed->getName() == kHostRoutedDevice && routed->getDHCP();
  const auto& list = addresses.getValue();
  return isItself && std::find(list.begin(), list.end(), kDHCP) != list.end() ? nullptr : &*routed;
}

// Whether a shell, sourcing NAME="", gives a variable of this name its value.
bool isAssignable(const std::string& name) {
  const std::string line = name + "=\"\"";
  const KFL::KFLBashLine judged = KFL::examineBashLine(line.c_str());
  return judged.kind == KFL::KFLBashLine::Kind::Assignment && judged.name == name;
}

}  // namespace

int refuseOverruling(const std::string& key, const KFAEnvConfig& record) {
  KFAEnvConfig::NetVEths devices;
  KFAEnvConfig::Addresses addresses;
  record.getNetVEths(devices);
  record.getAddresses(addresses);
  const KFANetVEth* const device = findOverruling(devices, addresses);
  if (device == nullptr) return 0;
  std::string list;
  for (const KFL::KFLIPAddress& address : device->getIPAddresses())
    list.append(list.empty() ? "" : " ").append(address.toString());
  return refuse(key, "the host-routed " + device->getName() + " of NETIF makes IP_ADDRESS " +
                         quoteText(list) + "; the same addresses are wanted in both");
}

KFAConfigRules::~KFAConfigRules() = default;

bool KFARawConfigRules::isKey(const std::string&) const {
  return true;
}

// The first line with a key is the one that is read.
bool KFARawConfigRules::firstLineCounts(const std::string&) const {
  return true;
}

int KFARawConfigRules::accept(const std::string& key, const std::string&) const {
  if (isAssignable(key)) return 0;
  if (isAssignableKey(key))
    return refuse(key, "a variable that bash itself sets and no file can; another name is wanted");
  return refuse(
      key, "not a name that a shell takes; letters, digits and underscores are wanted, and no digit first");
}

void KFARawConfigRules::order(KFAConfigChanges& changes) const {
  std::sort(changes.begin(), changes.end());
}

int KFARawConfigRules::readsBack(const std::string& text, const KFAConfigChanges& changes) const {
  KFAMemoryStream stream(text);
  std::map<std::string, std::string> values;
  const int result = KFARawConfigBashParser::getInstance()->getConfig(stream, values);
  for (const auto& [key, value] : changes) {
    const auto found = values.find(key);
    if (result != 0) continue;
    if (found == values.end()) return refuse(key, "would not be read back");
    const std::string loss = compareTexts(value, found->second);
    if (!loss.empty()) return refuse(key, loss);
  }
  return result;
}

KFAEnvConfigRules::KFAEnvConfigRules(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser)
    : parser_(parser) {}

bool KFAEnvConfigRules::isKey(const std::string& key) const {
  return parser_->isKey(key);
}

bool KFAEnvConfigRules::firstLineCounts(const std::string& key) const {
  const KeyRule* const rule = findKeyRule(*parser_, key);
  return rule != nullptr && rule->counts == KeyRule::Line::First;
}

std::string KFAEnvConfigRules::getAcceptedForm(const std::string& key) const {
  const KeyRule* const rule = findKeyRule(*parser_, key);
  return rule == nullptr ? std::string() : rule->form;
}

int KFAEnvConfigRules::accept(const std::string& key, const std::string& value) const {
  const KeyRule* const rule = findKeyRule(*parser_, key);
  if (rule == nullptr) {
    return refuse(
        key,
        "not a key of an environment file; ONBOOT, IP_ADDRESS or a resource parameter, for example, "
        "is wanted");
  }
  KFAEnvConfig record;
  record.initMsg();
  Parser::ParameterParserPut writer(record, *parser_);
  writer.put(key, value.c_str());
  if (!writer.getQoSes().getValue().empty()) {
    writer.getQoSes().setSpecified(true);
    record.setQoSes(writer.getQoSes());
  }
  std::string loss = rule->findFault != nullptr ? rule->findFault(value) : std::string();
  if (loss.empty()) loss = findLoss(*parser_, *rule, key, value, record);
  if (loss.empty()) return 0;
  return refuse(key, loss.ends_with(" is wanted") ? loss : loss + "; " + rule->form + " is wanted");
}

bool KFAEnvConfigRules::passesOver(const std::string& key, const std::string& value) const {
  KFAEnvConfig record;
  record.initMsg();
  if (Parser::ParameterParserPut(record, *parser_).put(key, value.c_str()) != kParameterDone) return true;
  KFAEnvConfig::Text architecture;
  record.getArchitecture(architecture);
  return key == "technologies" && !architecture.isSpecified();
}

// As the parser hands its keys out.
void KFAEnvConfigRules::order(KFAConfigChanges& changes) const {
  std::map<std::string, std::string> left(changes.begin(), changes.end());
  changes.clear();
  const KFAEnvConfig none;
  Parser::ParameterParserGet keys(none, *parser_);
  for (std::string key; keys.getNext(std::string(), key) == kParameterDone;) {
    if (auto change = left.extract(key))
      changes.emplace_back(std::move(change.key()), std::move(change.mapped()));
  }
  changes.insert(changes.end(), left.begin(), left.end());
}

int KFAEnvConfigRules::readsBack(const std::string& text, const KFAConfigChanges& changes) const {
  KFAMemoryStream stream(text);
  KFAEnvConfig record;
  record.initMsg();
  if (parser_->getConfig(stream, record) != 0) return -1;
  for (const auto& [key, value] : changes) {
    const KeyRule* const rule = findKeyRule(*parser_, key);
    if (rule == nullptr) return refuse(key, "not a key of an environment file");
    const std::string loss = findLoss(*parser_, *rule, key, value, record);
    const bool isDecided = key == "arch";
    if (!loss.empty()) {
      return refuse(
          key, loss + (isDecided ? ", since TECHNOLOGIES decides it; TECHNOLOGIES is to be set too" : ""));
    }
    const bool sharesAddresses = key == "ip_address" || key == "netif";
    if (sharesAddresses && refuseOverruling(key, record) != 0) return -1;
  }
  return 0;
}

}  // namespace KFA
