// SPDX-License-Identifier: Apache-2.0
// What a person may have meant by a word that does not exist.
#ifndef KFACTL_HINT_H
#define KFACTL_HINT_H

#include <string>
#include <string_view>
#include <vector>

namespace kfactl {

// "did you mean 'NAME'?" for a name near the word (case aside), else "expected NAME, NAME or NAME" when the names are
// few, else empty.
std::string hintFor(std::string_view word, const std::vector<std::string>& names);

// The name near the word (case and leading dashes aside); empty when none is.
std::string nearestTo(std::string_view word, const std::vector<std::string>& names);

}  // namespace kfactl

#endif
