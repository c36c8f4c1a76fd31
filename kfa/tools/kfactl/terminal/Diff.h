// SPDX-License-Identifier: Apache-2.0
// The difference of two texts in the unified format.
#ifndef KFACTL_DIFF_H
#define KFACTL_DIFF_H

#include <string>

#include "terminal/Output.h"

namespace kfactl {

// The difference of the texts of one file, with three lines around each change; empty when they are equal.
std::string unifiedDiff(const std::string& name, const std::string& before, const std::string& after);

// Prints the difference of the texts of one file, with three lines around each change; nothing when they are equal.
void printUnifiedDiff(Output& out, const std::string& name, const std::string& before,
                      const std::string& after);

}  // namespace kfactl

#endif
