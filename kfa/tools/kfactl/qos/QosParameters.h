// SPDX-License-Identifier: Apache-2.0
// What of an environment's file is held against formulas.
#ifndef KFACTL_QOSPARAMETERS_H
#define KFACTL_QOSPARAMETERS_H

#include <set>

#include <KFLFunctionality/KFLQoS.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>

#include "terminal/Input.h"

namespace kfactl {

class Session;

struct Resources {
  KFA::KFAEnvConfig config;  // nothing but the memory mode
  std::set<KFL::KFLQoS> qoses;

  KFA::KFAQoSMemoryMode mode() const { return judgeMemoryMode(config, qoses); }
};

// A memory mode in documents, and for people what one decides that leaves the formulas out.
const char* wordFor(KFA::KFAQoSMemoryMode mode);
const char* textOf(KFA::KFAQoSMemoryMode mode);

// Reads them. A file with a value that would be read as another one is refused, and so is one that is none.
Resources readResources(Session& session, const Input& input);

}  // namespace kfactl

#endif
