// SPDX-License-Identifier: Apache-2.0
// What two environments say differently, as a list of changes that makes the one of the other. Any thread.
#ifndef KFAFUNCTIONALITY_NODE_KFAENVIRONMENTDIFF_H
#define KFAFUNCTIONALITY_NODE_KFAENVIRONMENTDIFF_H

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/node/KFAChangeList.h>
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>

namespace KFA {

// Keys with new values in the order of the record, then those that only the first has. Both must have been read for all
// keys. Values are in the form in which they are written; IP_ADDRESS is what host-routed devices make of it.
KFAChangeList compareEnvironments(const KFAEnvironmentKeys& before, const KFAEnvironmentKeys& after);

}  // namespace KFA

#endif
