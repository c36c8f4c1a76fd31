// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: values that a record takes as texts, and that cannot work.
#ifndef KFAFUNCTIONALITY_NODE_KFAVALUECHECK_H
#define KFAFUNCTIONALITY_NODE_KFAVALUECHECK_H

#include <string>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAEnvironmentKeys;

// Why the value of a key, in lower case, cannot work; empty when nothing speaks against it. What the rules of the file
// refuse is not judged here.
std::string findUnworkable(const KFAEnvironmentKeys& keys, const std::string& key, const std::string& value);

// A MAC address in lower case with colons; empty when the text is none.
std::string normalMac(const std::string& text);
// An address without its network part, in the one form of those that mean it; empty when the text is none.
std::string normalAddress(const std::string& text);

}  // namespace KFA

#endif
