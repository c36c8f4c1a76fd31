// SPDX-License-Identifier: Apache-2.0
// The edits that cure findings which have one right answer: line ends of other systems, a byte order mark, blanks round
// "=", `KEY: value`, quotes and blanks of word processors, `true` for `yes`, several assignments on one line, and lines that
// another line of the same key makes idle. Nothing else of a text changes, and no value that was taken before: a line that
// would come to overrule it stays as it is, and so does an idle one that a shell may read before it comes to the other.
// Within a command of several lines, and behind one, only line ends change. Any thread.
#ifndef KFAFUNCTIONALITY_NODE_KFACONFIGFIX_H
#define KFAFUNCTIONALITY_NODE_KFACONFIGFIX_H

#include <cstddef>
#include <string>
#include <vector>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/files/KFAConfigRules.h>

namespace KFA {

struct KFAConfigFix {
  std::size_t line;  // of the text as it was, from 1
  std::string what;
};

// Makes the edits: the text afterwards, with a line for each of them in their order.
std::string fixConfig(const KFAConfigRules& rules, const std::string& text, std::vector<KFAConfigFix>& fixes);

}  // namespace KFA

#endif
