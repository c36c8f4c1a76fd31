// SPDX-License-Identifier: Apache-2.0
// The last error text of each thread.
//
// A function that returns a negative code records here what was wrong, where, and what would be right; its
// caller reads the text before it calls anything else that may fail. Every thread has its own text; nothing
// is shared.
#ifndef KFLCOMMON_KFLERROR_H
#define KFLCOMMON_KFLERROR_H

#include <cstddef>
#include <string>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

// Replaces the thread's error text; printf-style, of any length, numbers in the C locale. The arguments may
// point into texts that were derived from the previous one.
void setErrorMessage(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The thread's last error text; empty when none was recorded.
std::string getErrorMessage();

// How many texts the thread has recorded so far: where two numbers differ, a text was recorded between them.
std::size_t countErrorMessages();

}  // namespace KFL

#endif
