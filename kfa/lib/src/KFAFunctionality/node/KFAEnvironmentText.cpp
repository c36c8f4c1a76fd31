// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAEnvironmentText.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFABashLines.h>
#include <KFAFunctionality/files/KFAKeyRules.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>
#include <KFAFunctionality/node/KFAConfigLines.h>

namespace KFA {

namespace {

bool isCompletion(const KFANetVEth& device) {
  return device.getName() == "venet0" && device.getHostRouted();
}

// Whether two records have the same network devices; they have nothing else afterwards.
bool hasSameDevices(const KFAEnvConfig& left, const KFAEnvConfig& right) {
  const auto devicesOf = [](const KFAEnvConfig& config) {
    KFAEnvConfig::NetVEths devices;
    config.getNetVEths(devices);
    KFAEnvConfig alone;
    alone.setNetVEths(devices);
    return alone;
  };
  return devicesOf(left).getIterator().isEqualTree(devicesOf(right).getIterator());
}

// What follows a line that is left open may not be a key.
int refuseOpenLines(const std::string& name, std::string_view text) {
  for (ConfigLines lines(text); lines.next();) {
    const KFL::KFLBashLine& judged = lines.line().judged();
    if (judged.kind != KFL::KFLBashLine::Kind::Malformed && !judged.continues) continue;
    const std::string fault = judged.describe();
    setErrorMessage("%s:%zu: %s; mend the line, or force the writing", name.c_str(), lines.number(),
                    fault.empty() ? "the next line belongs to it" : fault.c_str());
    return -1;
  }
  return 0;
}

const std::string& textOf(const std::string& word) {
  return word;
}
const std::string& textOf(const KFL::KFLIPAddress& address) {
  return address.toString();
}
template <class Value>
std::string textOf(const Value& value) {
  return value.toString();
}

constexpr const char* kWords = "each is one word";
constexpr const char* kTemplates =
    "NAME or NAME/VERSION is wanted, one word, and a version begins with a digit";
constexpr const char* kDistribution = "NAME or NAME-VERSION is wanted, and a version begins with a digit";

// What was written into a file, and what was read from it.
struct Copies {
  const KFAEnvConfig& written;
  const KFAEnvConfig& read;
  const std::string& name;
};

template <class Record, class Property>
int refuseOtherList(const Copies& copies, int (Record::*get)(Property&) const, const char* key,
                    const char* form = kWords) {
  Property sent, given;
  if ((copies.written.*get)(sent) != 0) return 0;
  (copies.read.*get)(given);
  if (sent.getValue() == given.getValue()) return 0;
  std::set<std::string> there;
  for (const auto& item : given.getValue())
    there.insert(textOf(item));
  for (const auto& item : sent.getValue()) {
    if (there.count(textOf(item)) != 0) continue;
    setErrorMessage("%s: %s: %s would be read otherwise; %s", copies.name.c_str(), key,
                    quoteText(textOf(item)).c_str(), form);
    return -1;
  }
  setErrorMessage("%s: %s would be read as another list", copies.name.c_str(), key);
  return -1;
}

template <class Record, class Property>
int refuseOtherValue(const Copies& copies, int (Record::*get)(Property&) const, const char* key,
                     const char* form) {
  Property sent, given;
  if ((copies.written.*get)(sent) != 0 || !sent.isSpecified()) return 0;
  (copies.read.*get)(given);
  if (given.isSpecified() && sent.getValue() == given.getValue()) return 0;
  setErrorMessage("%s: %s: %s would be read otherwise; %s", copies.name.c_str(), key,
                  quoteText(textOf(sent.getValue())).c_str(), form);
  return -1;
}

int refuseOtherValues(const Copies& copies) {
  using R = KFAEnvConfig;
  const bool isRefused = refuseOtherList(copies, &R::getAddresses, "IP_ADDRESS") != 0 ||
                         refuseOtherList(copies, &R::getRatesList, "RATE") != 0 ||
                         refuseOtherList(copies, &R::getNameservers, "NAMESERVER") != 0 ||
                         refuseOtherList(copies, &R::getSearchDomains, "SEARCHDOMAIN") != 0 ||
                         refuseOtherList(copies, &R::getIPTables, "IPTABLES") != 0 ||
                         refuseOtherList(copies, &R::getServerRoles, "ROLES") != 0 ||
                         refuseOtherList(copies, &R::getTemplates, "TEMPLATES", kTemplates) != 0 ||
                         refuseOtherValue(copies, &R::getOsTemplate, "OSTEMPLATE", kTemplates) != 0 ||
                         refuseOtherValue(copies, &R::getDistribution, "DISTRIBUTION", kDistribution) != 0 ||
                         refuseOtherList(copies, &R::getOfflineServices, "OFFLINE_SERVICE") != 0;
  return isRefused ? -1 : 0;
}

// The addresses of a device that a file holds, IPv4 before IPv6; none where DHCP gives them.
std::vector<std::string> addressesOf(const KFANetVEth& device) {
  std::vector<std::string> all;
  if (device.getDHCP()) return all;
  for (const KFL::KFLIPAddress& address : device.getIPAddresses())
    all.push_back(address.toString());
  std::stable_partition(all.begin(), all.end(),
                        [](const std::string& text) { return !KFL::KFLIPv6::isResembling(text); });
  return all;
}

bool isSameDevice(const KFANetVEth& a, const KFANetVEth& b) {
  return a.getName() == b.getName() && a.getNetwork() == b.getNetwork() && a.getMAC() == b.getMAC() &&
         a.getHostRouted() == b.getHostRouted() && a.getGateway() == b.getGateway() &&
         a.getGatewayV6() == b.getGatewayV6() && a.getDHCP() == b.getDHCP() &&
         a.getDHCPv6() == b.getDHCPv6() && addressesOf(a) == addressesOf(b);
}

// The devices of a record, those first that NETIF holds.
std::vector<KFANetVEth> devicesOf(const KFAEnvConfig& config) {
  KFAEnvConfig::NetVEths devices;
  config.getNetVEths(devices);
  std::vector<KFANetVEth>& all = devices.value();
  std::stable_partition(all.begin(), all.end(), [](const auto& device) { return !isCompletion(device); });
  return std::move(all);
}

// Each device must come back as it was sent. That a file always gives a venet0 does not matter.
int refuseOtherDevices(const Copies& copies) {
  const std::vector<KFANetVEth> sent = devicesOf(copies.written);
  const std::vector<KFANetVEth> given = devicesOf(copies.read);
  for (std::size_t i = 0; i < sent.size(); ++i) {
    if (i < given.size() && isSameDevice(sent[i], given[i])) continue;
    if (isCompletion(sent[i])) {
      setErrorMessage(
          "%s: the host-routed venet0 has no text but IP_ADDRESS, which would not give it back; "
          "its addresses alone are wanted, the same as those of any other host-routed device",
          copies.name.c_str());
    } else {
      const std::string asked = sent[i].toString();
      const std::string there = i < given.size() ? given[i].toString() : std::string();
      const std::string how =
          asked == there ? "otherwise; an address has no comma" : "as " + quoteText(there);
      setErrorMessage("%s: NETIF: %s would be read %s", copies.name.c_str(), quoteText(asked).c_str(),
                      how.c_str());
    }
    return -1;
  }
  const auto isOther = [](const KFANetVEth& device) { return !isCompletion(device); };
  const bool isMore = sent.size() < given.size() && isOther(given[sent.size()]);
  if (isMore) setErrorMessage("%s: NETIF would be read as more devices", copies.name.c_str());
  return isMore ? -1 : 0;
}

// Whether a file gives back each list, template and device, and does so again when what it gives is written.
int refuseOtherRecord(const KFAEnvConfigBashParser& parser, const KFAEnvConfig& config,
                      const std::string& name) {
  std::string text;
  KFAEnvConfig written(config);
  KFAEnvConfig read;
  if (writeEnvironment(parser, config, {}, nullptr, name, text) != 0) return -1;
  if (readEnvironment(parser, text, name, read) != 0) return -1;
  KFAEnvConfigBashParser::updateIp(&written);
  const Copies copies{written, read, name};
  if (refuseOtherValues(copies) != 0 || refuseOtherDevices(copies) != 0) return -1;
  if (refuseOverruling("ip_address", config) == 0 && refuseOverruling("ip_address", read) == 0) return 0;
  const std::string reason = KFL::getErrorMessage();
  setErrorMessage("%s: %s", name.c_str(), reason.c_str());
  return -1;
}

}  // namespace

int readEnvironment(const KFAEnvConfigBashParser& parser, std::string_view text, const std::string& name,
                    KFAEnvConfig& config) {
  KFAEnvConfig read;
  read.initMsg();
  if (readConfigText(text, name, [&](std::istream& in) { return parser.getConfig(in, read); }) != 0)
    return -1;
  int veid = 0;
  if (getVeidOfPath(name, veid) == 0) read.setVeid(veid);
  config = std::move(read);
  return 0;
}

KFAEnvConfig withoutCompletion(const KFAEnvConfigBashParser& parser, const KFAEnvConfig& config) {
  KFAEnvConfig::NetVEths devices;
  config.getNetVEths(devices);
  if (std::erase_if(devices.value(), isCompletion) == 0) return config;
  devices.setSpecified(!devices.getValue().empty());
  KFAEnvConfig shorter(config);
  shorter.setNetVEths(devices);
  KFAEnvConfig completed(shorter);
  KFAMemoryStream nothing("");
  const bool isSame = parser.getConfig(nothing, completed) == 0 && hasSameDevices(completed, config);
  return isSame ? shorter : config;
}

int checkWritable(const KFAEnvConfigBashParser& parser, const KFAEnvConfig& config,
                  const KFASetOptions& options, const std::string& name) {
  KFAEnvConfig written(config);
  KFAEnvConfigBashParser::updateIp(&written);
  KFAEnvConfigBashParser::ParameterParserGet keys(written, parser);
  std::string value;
  std::string reason;
  for (std::string key; keys.getNext(key, key) == kParameterDone;) {
    if (keys.get(key, value) != kParameterDone || KFL::isBashSafe(value, &reason)) continue;
    if (options.allowUnsafe && value.find('\n') == std::string::npos) continue;
    setErrorMessage("%s: %s: %s; a text that a shell reads back as it stands is wanted", name.c_str(),
                    KFL::toUpper(key).c_str(), reason.c_str());
    return -1;
  }
  return options.allowUnsafe ? 0 : refuseOtherRecord(parser, config, name);
}

int writeEnvironment(const KFAEnvConfigBashParser& parser, const KFAEnvConfig& config,
                     const KFASetOptions& options, const std::string* existing, const std::string& name,
                     std::string& result) {
  if (existing != nullptr && !options.force && refuseOpenLines(name, *existing) != 0) return -1;
  std::ostringstream out;
  KFAMemoryStream before(existing == nullptr ? std::string_view() : std::string_view(*existing));
  const int written = existing == nullptr ? parser.putConfig(config, out, nullptr, false)
                                          : parser.putConfig(config, out, &before, true);
  if (written != 0) return -1;
  result = std::move(out).str();
  return 0;
}

}  // namespace KFA
