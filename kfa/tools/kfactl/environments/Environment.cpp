// SPDX-License-Identifier: Apache-2.0
#include "environments/Environment.h"

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/node/KFAEnvironmentText.h>

#include "terminal/Session.h"
#include "terminal/Trouble.h"

namespace kfactl {

KFA::KFAEnvConfig readEnvironment(Session& session, const Input& input, const std::string& veid) {
  const auto parser = session.environmentParser();
  KFA::KFAEnvConfig config;
  must(KFA::readEnvironment(*parser, input.text, input.name, config));
  int number = 0;
  if (!veid.empty() && (KFL::parseInteger(veid, number) != 0 || number < 0))
    throw Trouble("--veid: '" + veid + "' is no number of an environment; write for example 101");
  if (!veid.empty()) config.setVeid(number);
  return config;
}

KFL::KFLMessage messageOf(const KFA::KFAEnvConfig& config) {
  KFL::KFLMessage message;
  KFL::KFLMessageIterator it = message.getIterator();
  must(it.putObject(config, KFA::KFAEnvConfig::Writer()));
  return message;
}

}  // namespace kfactl
