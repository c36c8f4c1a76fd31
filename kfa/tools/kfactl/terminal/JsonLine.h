// SPDX-License-Identifier: Apache-2.0
// JSON for output that never ends: each document is one line.
#ifndef KFACTL_JSONLINE_H
#define KFACTL_JSONLINE_H

#include <string>

#include "terminal/Document.h"

namespace kfactl {

// With texts that are not UTF-8 as printDocument() shows them.
std::string jsonLineOf(const Document& document);

}  // namespace kfactl

#endif
