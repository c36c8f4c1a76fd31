// SPDX-License-Identifier: Apache-2.0
// Not installed. The last stage, by the grammar alone: what the line as a whole means. Plain lines need none of it, and the
// tests hold it against the short way that those take.
#ifndef KFLBASH_KFLBASHJUDGE_H
#define KFLBASH_KFLBASHJUDGE_H

#include <string_view>

#include <KFLBash/KFLBashStr.h>

#include "KFLBashPieces.h"

namespace KFL {

struct KFLBashJudgement {
  KFLBashLine line;
  KFLBashPieces pieces;  // of the value, when it is an assignment
};

KFLBashJudgement judgeBashLine(std::string_view line);

// Names that bash does not let be set, and those that it computes: it takes an assignment to these without a word and does
// not keep its text.
bool isReadOnlyBashName(std::string_view name);
bool isIgnoredBashName(std::string_view name);

}  // namespace KFL

#endif
