// SPDX-License-Identifier: Apache-2.0
// What every unit of the library shares: the namespaces of its messages and the names of its technology.
#ifndef KFAFUNCTIONALITY_KFATYPES_H
#define KFAFUNCTIONALITY_KFATYPES_H

#include <KFLCommon/KFLLanguage.h>

namespace KFL {}

namespace KFA {

// The library extends the core's types and speaks of them without a prefix.
using namespace KFL;

// Namespaces of the library's messages.
inline constexpr const char* kTypesURI = "http://kelvarium.internal/webservices/kfa/4.0.0/kfatypes";
inline constexpr const char* kUp2dateURI = "http://kelvarium.internal/webservices/kfa/4.0.0/kfaup2date";
inline constexpr const char* kRelocatorURI = "http://kelvarium.internal/webservices/kfa/4.0.0/kfarelocator";

// The container technology, and the type name of its environments.
inline constexpr const char* kTechnology = "kelvarium";

// The module name in log messages and checks.
inline constexpr const char* kModule = "KFAFunctionality";

}  // namespace KFA

#endif
