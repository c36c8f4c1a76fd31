// SPDX-License-Identifier: Apache-2.0
// Findings as every `check` shows them.
#ifndef KFACTL_FINDINGS_H
#define KFACTL_FINDINGS_H

#include <cstddef>
#include <string>
#include <vector>

#include <KFAFunctionality/node/KFANodeCheck.h>

#include "terminal/Document.h"

namespace kfactl {

class Output;

// FILE:LINE:COLUMN, what is wrong, the line, and a caret below the place.
void printFinding(Output& out, const KFA::KFANodeFinding& finding);
Document describeFinding(const KFA::KFANodeFinding& finding);
// "3 errors, 2 warnings in 2 of 114 files".
std::string summaryOf(const std::vector<KFA::KFANodeFinding>& findings, std::size_t files);

}  // namespace kfactl

#endif
