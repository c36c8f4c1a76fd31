// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAEnvironmentText.h>

#include <sstream>
#include <utility>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFABashLines.h>
#include <KFAFunctionality/files/KFABashParse.h>
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

// What NETIF of a file would hold; empty when the record has no devices. One without a text, as venet0 is, leaves nothing.
std::string devicesOf(const KFAEnvConfigBashParser& parser, const KFAEnvConfig& config) {
  std::string value, devices;
  if (KFAEnvConfigBashParser::ParameterParserGet(config, parser).get("netif", value) != kParameterDone)
    return devices;
  KFL::getToken tokens(value.c_str(), ";", 0);
  for (std::string_view device; tokens.next(device);)
    devices.append(devices.empty() ? "" : ";").append(device);
  return devices;
}

// Whether a file gives the devices back: a network whose name has a comma becomes another one.
int refuseOtherDevices(const KFAEnvConfigBashParser& parser, const KFAEnvConfig& config,
                       const std::string& name) {
  const std::string written = devicesOf(parser, config);
  KFAEnvConfig read;
  if (readEnvironment(parser, "NETIF=\"" + written + "\"\n", name, read) != 0) return -1;
  const std::string given = devicesOf(parser, read);
  if (given == written) return 0;
  setErrorMessage("%s: NETIF: %s would be read as %s", name.c_str(), quoteText(written).c_str(),
                  quoteText(given).c_str());
  return -1;
}

// Whether each text of a list is one word, as a file holds it.
template <class Record, class Property>
int refuseOtherWords(const KFAEnvConfig& config, int (Record::*get)(Property&) const, const char* key,
                     const std::string& name) {
  Property words;
  if ((config.*get)(words) != 0) return 0;
  for (const std::string& word : words.getValue()) {
    if (!word.empty() && word.find_first_of(spaceDelimiterProvider::delimiterLine) == std::string::npos)
      continue;
    setErrorMessage("%s: %s: %s would be read otherwise; each is one word", name.c_str(), key,
                    quoteText(word).c_str());
    return -1;
  }
  return 0;
}

int refuseOtherLists(const KFAEnvConfig& config, const std::string& name) {
  using R = KFAEnvConfig;
  const bool isRefused = refuseOtherWords(config, &R::getNameservers, "NAMESERVER", name) != 0 ||
                         refuseOtherWords(config, &R::getSearchDomains, "SEARCHDOMAIN", name) != 0 ||
                         refuseOtherWords(config, &R::getIPTables, "IPTABLES", name) != 0 ||
                         refuseOtherWords(config, &R::getServerRoles, "ROLES", name) != 0 ||
                         refuseOtherWords(config, &R::getOfflineServices, "OFFLINE_SERVICE", name) != 0;
  return isRefused ? -1 : 0;
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
  if (options.allowUnsafe) return 0;
  return refuseOtherLists(config, name) != 0 ? -1 : refuseOtherDevices(parser, config, name);
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
