// SPDX-License-Identifier: Apache-2.0
// Checks against our own mistakes: active in every build, they print one line to standard error and abort.
//
// Nothing that comes from outside the process may reach one: files, messages and arguments are measured first
// and refused with an error text.
#ifndef KFLCOMMON_KFLCHECK_H
#define KFLCOMMON_KFLCHECK_H

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

// Prints one line that holds everything it was given, and aborts. Allocates nothing.
[[noreturn]] void abortCheck(const char* module, const char* unit, int line, const char* function,
                             const char* signature, const char* conditionText);

}  // namespace KFL

// For checks whose line number is part of what they promise.
#define KFL_CHECK_AT(condition, module, unit, line)  \
  (__builtin_expect(static_cast<bool>(condition), 1) \
       ? static_cast<void>(0)                        \
       : ::KFL::abortCheck(module, unit, line, __func__, __PRETTY_FUNCTION__, #condition))

// module: the library's name; unit: the header or source file without its extension.
#define KFL_CHECK(condition, module, unit) KFL_CHECK_AT(condition, module, unit, __LINE__)

#endif
