// SPDX-License-Identifier: Apache-2.0
// Not installed: what the units of the environment classes share.
#ifndef KFAFUNCTIONALITY_ENVIRONMENT_KFAENVINTERNAL_H
#define KFAFUNCTIONALITY_ENVIRONMENT_KFAENVINTERNAL_H

#include <KFLCommon/KFLLock.h>

namespace KFL {
class KFLVEnvConfig;
}

#pragma GCC visibility push(hidden)

namespace KFA {

// Held by the thread that publishes the positions of a configuration's elements.
extern KFL::KFLLock configLock;

// The VEID in any virtual configuration: 0, or -1 when there is none or no configuration.
int readVeid(const KFL::KFLVEnvConfig* config, int& veid);

}  // namespace KFA

#pragma GCC visibility pop

#endif
