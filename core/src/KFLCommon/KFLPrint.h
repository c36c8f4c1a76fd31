// SPDX-License-Identifier: Apache-2.0
// Not installed: printf-style text of any length, numbers in the C locale.
#ifndef KFLCOMMON_KFLPRINT_H
#define KFLCOMMON_KFLPRINT_H

#include <cstdarg>
#include <string>

#pragma GCC visibility push(hidden)

namespace KFL {

// The arguments must not point into the result's own text, since it is replaced by assignment only at the
// end.
std::string printText(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));

}  // namespace KFL

#pragma GCC visibility pop

#endif
