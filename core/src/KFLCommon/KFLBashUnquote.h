// SPDX-License-Identifier: Apache-2.0
// Not installed: takes the quoting off a value, in place, as bash would; expansions stay as they are.
#ifndef KFLCOMMON_KFLBASHUNQUOTE_H
#define KFLCOMMON_KFLBASHUNQUOTE_H

#include <cstddef>
#include <utility>
#include <vector>

namespace KFL {

// text: a value whose quotes are known to be closed, with at least one byte behind its length. expansions: the stretches
// of it that are copied as they stand, in order. Returns where the unquoted, NUL-terminated value begins.
char* unquoteBashValue(char* text, std::size_t length,
                       const std::vector<std::pair<const char*, const char*>>& expansions);

}  // namespace KFL

#endif
