// SPDX-License-Identifier: Apache-2.0
#include "environments/Environment.h"

#include <vector>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>

#include "terminal/Session.h"
#include "terminal/Trouble.h"

namespace kfactl {

KFA::KFAEnvConfig readEnvironment(Session& session, const Input& input, const std::string& veid) {
  const auto parser = session.environmentParser();
  KFA::KFAEnvConfig config;
  must(KFA::readConfigText(input.text, input.name,
                           [&](std::istream& in) { return parser->getConfig(in, config); }));
  int number = 0;
  if (!veid.empty() && (KFL::parseInteger(veid, number) != 0 || number < 0))
    throw Trouble("--veid: '" + veid + "' is no number of an environment; write for example 101");
  if (!veid.empty() || KFA::getVeidOfPath(input.name, number) == 0) config.setVeid(number);
  return config;
}

KFL::KFLMessage messageOf(const KFA::KFAEnvConfig& config) {
  KFL::KFLMessage message;
  KFL::KFLMessageIterator it = message.getIterator();
  must(it.putObject(config, KFA::KFAEnvConfig::Writer()));
  return message;
}

namespace {

// The network devices alone, as a message.
KFL::KFLMessage devicesOf(const KFA::KFAEnvConfig& config) {
  KFA::KFAEnvConfig::NetVEths devices;
  config.getNetVEths(devices);
  KFA::KFAEnvConfig alone;
  alone.setNetVEths(devices);
  return messageOf(alone);
}

bool isCompletion(const KFA::KFANetVEth& device) {
  return device.getName() == "venet0" && device.getHostRouted();
}

}  // namespace

KFA::KFAEnvConfig withoutCompletion(const KFA::KFAEnvConfigBashParser& parser,
                                    const KFA::KFAEnvConfig& config) {
  KFA::KFAEnvConfig::NetVEths devices;
  config.getNetVEths(devices);
  if (std::erase_if(devices.value(), isCompletion) == 0) return config;
  devices.setSpecified(!devices.getValue().empty());
  KFA::KFAEnvConfig shorter(config);
  shorter.setNetVEths(devices);
  KFA::KFAEnvConfig completed(shorter);
  KFA::KFAMemoryStream nothing("");
  must(parser.getConfig(nothing, completed));
  const bool isSame = devicesOf(completed).getIterator().isEqualTree(devicesOf(config).getIterator());
  return isSame ? shorter : config;
}

namespace {

// Puts keys into the record, and keeps their texts.
struct KeyPut {
  KFA::KFAEnvConfigBashParser::ParameterParserPut put_;
  std::map<std::string, std::string>& texts;

  int put(const std::string& key, const char* value) {
    texts[key] = value;
    return put_.put(key, value);
  }
};

bool getKey(const KFA::KFAEnvConfigBashParser& parser, const KFA::KFAEnvConfig& record,
            const std::string& key, std::string& value) {
  return KFA::KFAEnvConfigBashParser::ParameterParserGet(record, parser).get(key, value) ==
         KFA::kParameterDone;
}

}  // namespace

EnvironmentKeys::EnvironmentKeys(const KFA::KFAEnvConfigBashParser& parser, const Input& input)
    : parser_(parser) {
  record_.initMsg();
  must(KFA::readConfigText(input.text, input.name, [&](std::istream& in) {
    KeyPut put{{record_, parser}, texts_};
    const int result = KFA::parseBashLikeConfig(put, in);
    put.put_.getQoSes().setSpecified(true);
    record_.setQoSes(put.put_.getQoSes());
    return result;
  }));
}

bool EnvironmentKeys::get(const std::string& key, std::string& value) const {
  return getKey(parser_, record_, key, value);
}

bool EnvironmentKeys::getOrText(const std::string& key, std::string& value) const {
  if (get(key, value)) return true;
  const auto text = texts_.find(key);
  if (text == texts_.end() || text->second.empty() || !parser_.isKey(key)) return false;
  value = text->second;
  return true;
}

std::string EnvironmentKeys::effectiveAddresses() const {
  KFA::KFAEnvConfig copy(record_);
  KFA::KFAEnvConfigBashParser::updateIp(&copy);
  std::string value;
  getKey(parser_, copy, "ip_address", value);
  return value;
}

}  // namespace kfactl
