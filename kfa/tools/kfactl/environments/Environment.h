// SPDX-License-Identifier: Apache-2.0
// Environment files as records.
#ifndef KFACTL_ENVIRONMENT_H
#define KFACTL_ENVIRONMENT_H

#include <string>

#include <KFLMessage/KFLMessage.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>

#include "terminal/Input.h"

namespace kfactl {

class Session;

// The record of a file, with the number given (as text), or else that of the file's name where it has one.
KFA::KFAEnvConfig readEnvironment(Session& session, const Input& input, const std::string& veid);

// A message that holds the configuration and nothing else.
KFL::KFLMessage messageOf(const KFA::KFAEnvConfig& config);

}  // namespace kfactl

#endif
