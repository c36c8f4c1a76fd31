// SPDX-License-Identifier: Apache-2.0
#include <KFLBash/KFLBashStr.h>

#include <cstddef>
#include <cstring>
#include <span>

#include <KFLCommon/KFLError.h>

#include "KFLBashJudge.h"
#include "KFLBashPieces.h"

namespace KFL {

namespace {

// Where the results of parseBashStr go; positions are of the unaltered line.
struct Destination {
  std::span<char> line;  // its NUL included
  char** name;
  char** value;
  unsigned int* valueFirst;
  unsigned int* valueLast;

  // The character at the beginning of a piece of the line.
  char* at(std::string_view piece) const {
    return &line[static_cast<std::size_t>(piece.data() - line.data())];
  }
  void setValue(std::size_t first, std::size_t end) const {
    if (valueFirst != nullptr) *valueFirst = static_cast<unsigned int>(first);
    if (valueLast != nullptr) *valueLast = static_cast<unsigned int>(end) - 1;
  }
};

void endText(char* text, std::size_t length) {
  std::span(text, length + 1)[length] = '\0';
}

void deliver(const KFLBashPlainLine& plain, const Destination& to) {
  to.setValue(plain.first, plain.end);
  *to.name = to.at(plain.name);
  *to.value = to.at(plain.value);
  endText(*to.name, plain.name.size());
  endText(*to.value, plain.value.size());
}

int deliver(const KFLBashJudgement& judged, const Destination& to) {
  if (judged.line.kind == KFLBashLine::Kind::Nothing) return kBashNothing;
  if (judged.line.kind == KFLBashLine::Kind::Malformed) {
    setErrorMessage("%s", judged.line.describe().c_str());
    return kBashMalformed;
  }
  to.setValue(judged.pieces.begin(), judged.pieces.end());
  *to.name = to.at(judged.line.name);
  endText(*to.name, judged.line.name.size());
  to.line[unquoteBashValue(to.line, judged.pieces)] = '\0';
  *to.value = &to.line[judged.pieces.begin()];
  return kBashAssignment;
}

}  // namespace

int parseBashStr(char* line, char** name, char** value, unsigned int* valueFirst, unsigned int* valueLast) {
  const std::string_view text(line);
  const Destination to{{line, text.size() + 1}, name, value, valueFirst, valueLast};
  KFLBashPlainLine plain;
  if (!readPlainBashLine(text, plain) || plain.length != text.size()) return deliver(judgeBashLine(text), to);
  if (plain.name.empty()) return kBashNothing;
  deliver(plain, to);
  return kBashAssignment;
}

}  // namespace KFL
