// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: whether two NETIF entries say the same.
#ifndef KFAFUNCTIONALITY_FILES_KFANETIFWORDS_H
#define KFAFUNCTIONALITY_FILES_KFANETIFWORDS_H

#include <string>

#include <KFAFunctionality/KFATypes.h>

#pragma GCC visibility push(hidden)

namespace KFA {

// What an entry asks for and a device, written anew, does not give back, or no device can have; empty when there is no
// such thing. The order of the fields does not matter, nor do empty texts and flags that have their default.
std::string findLostNetifWord(const std::string& asked, const std::string& given);

}  // namespace KFA

#pragma GCC visibility pop

#endif
