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

}  // namespace kfactl
