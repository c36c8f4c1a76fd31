// SPDX-License-Identifier: Apache-2.0
// The short way: lines in which nothing quotes, expands or commands, in one pass and without the grammar. Texts are looked
// at in blocks, since a step for each character would take longer than everything else that is done with a line.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include <KFLBash/KFLBashStr.h>

#include "KFLBashCharacters.h"
#include "KFLBashJudge.h"

namespace KFL {

namespace {

// Sixteen characters at once; a comparison gives 0xff where it holds.
constexpr std::size_t kBlockSize = 16;
using Block = unsigned char __attribute__((vector_size(kBlockSize)));
using Halves = std::uint64_t __attribute__((vector_size(kBlockSize)));

// The characters from there on, with NULs behind the end of the text.
Block load(std::string_view text, std::size_t at) {
  Block block{};
  const std::size_t rest = text.size() - at;
  if (rest >= kBlockSize) {
    std::memcpy(&block, text.data() + at, kBlockSize);
  } else {
    std::memcpy(&block, text.data() + at, rest);
  }
  return block;
}

// The place of the first character from there on for which the test holds; it must hold for a NUL.
template <class Test>
std::size_t findFirst(std::string_view text, std::size_t at, Test test) {
  for (;; at += kBlockSize) {
    const auto found = reinterpret_cast<Halves>(test(load(text, at)));
    if ((found[0] | found[1]) == 0) continue;
    const bool isInSecond = found[0] == 0;
    const std::uint64_t half = isInSecond ? found[1] : found[0];
    const int bit =
        std::endian::native == std::endian::little ? std::countr_zero(half) : std::countl_zero(half);
    return at + (isInSecond ? kBlockSize / 2 : 0) + static_cast<std::size_t>(bit) / 8;
  }
}

// The tests are objects, so that each search has its own in it.
constexpr auto isNoNameCharacter = [](Block c) {
  const Block letter = (c | 0x20) - 'a';
  const Block digit = c - '0';
  return (letter >= 26) & (digit >= 10) & (c != '_');
};

// What ends a text between double quotes, or needs the grammar there.
constexpr auto isQuotedStop = [](Block c) {
  return (c == '"') | (c == '\\') | (c == '$') | (c == '`') | (c == '\n') | (c == '\0');
};

// The like of a text outside quotes: & and ', ( and ) are pairs that differ in one bit, < and > differ in another.
constexpr auto isWordStop = [](Block c) {
  return isQuotedStop(c) | (c == ' ') | (c == '\t') | ((c & 0xFE) == '&') | ((c & 0xFE) == '(') | (c == '|') |
         (c == ';') | ((c & 0xFD) == '<');
};

// Goes to the end of the value that begins there: what it stands on then is no part of it. $NAME is text as any other.
template <class Test>
void skipText(std::string_view text, Test isStop, std::size_t& at) {
  for (;; ++at) {
    at = findFirst(text, at, isStop);
    if (at + 1 >= text.size() || text[at] != '$' || !isNameCharacter(text[at + 1])) return;
  }
}

std::size_t skipBlanks(std::string_view text, std::size_t at) {
  while (at < text.size() && isBlank(text[at]))
    ++at;
  return at;
}

// Whether the line ends there, or with a comment that begins there.
bool endLine(std::string_view text, std::size_t at, KFLBashPlainLine& plain) {
  plain.length = at;
  if (at >= text.size() || text[at] == '\n') return true;
  if (text[at] != '#') return false;
  plain.length = std::min(text.find('\n', at), text.size());
  return true;
}

bool readValue(std::string_view text, std::size_t at, KFLBashPlainLine& plain) {
  const bool isQuoted = at < text.size() && text[at] == '"';
  plain.first = at;
  at += isQuoted ? 1 : 0;
  const std::size_t begin = at;
  isQuoted ? skipText(text, isQuotedStop, at) : skipText(text, isWordStop, at);
  if (isQuoted && (at >= text.size() || text[at] != '"')) return false;
  plain.value = text.substr(begin, at - begin);
  plain.end = at + (isQuoted ? 1 : 0);
  const std::size_t rest = skipBlanks(text, plain.end);
  return endLine(text, rest, plain) && (rest > plain.end || plain.length == rest);
}

}  // namespace

bool readPlainBashLine(std::string_view text, KFLBashPlainLine& plain) {
  const std::size_t begin = skipBlanks(text, 0);
  plain.name = {};
  if (endLine(text, begin, plain)) return true;
  if (isDigit(text[begin])) return false;
  const std::size_t end = findFirst(text, begin, isNoNameCharacter);
  if (end == begin || end >= text.size() || text[end] != '=') return false;
  plain.name = text.substr(begin, end - begin);
  return !isSpecialBashName(plain.name) && readValue(text, end + 1, plain);
}

}  // namespace KFL
