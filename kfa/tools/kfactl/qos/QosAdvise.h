// SPDX-License-Identifier: Apache-2.0
// The command `kfactl qos advise`, and advice in words.
#ifndef KFACTL_QOSADVISE_H
#define KFACTL_QOSADVISE_H

#include <string>
#include <vector>

#include <KFAFunctionality/node/KFAChangeList.h>

namespace kfactl {

class Session;

int adviseQos(Session& session);

// The command that makes the changes in a file.
std::string commandFor(const std::string& name, const KFA::KFAChangeList& changes);
// "1, 2".
std::string numbersOf(const std::vector<int>& numbers);

}  // namespace kfactl

#endif
