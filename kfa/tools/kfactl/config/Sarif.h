// SPDX-License-Identifier: Apache-2.0
// Findings in the form that editors and code hosts read: SARIF 2.1.0.
#ifndef KFACTL_SARIF_H
#define KFACTL_SARIF_H

#include <vector>

#include <KFAFunctionality/node/KFANodeCheck.h>

namespace kfactl {

class Session;

void printSarif(Session& session, const std::vector<KFA::KFANodeFinding>& findings);

}  // namespace kfactl

#endif
