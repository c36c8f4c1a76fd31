// SPDX-License-Identifier: Apache-2.0
// Takes the quoting off the pieces of a value. Where a piece ends is decided: nothing here looks beyond it.
#include <algorithm>
#include <cstdint>
#include <string_view>

#include "KFLBashCharacters.h"
#include "KFLBashPieces.h"

namespace KFL {

namespace {

std::uint32_t digitValue(char c) {
  return static_cast<std::uint32_t>(isDigit(c) ? c - '0' : toLower(c) - 'a' + 10);
}

// Writes the value over the text that it is read from; what is written never overtakes what is read.
class Unquoter {
 public:
  Unquoter(std::span<char> line, std::size_t begin) : line_(line), out_(begin) {}

  void take(KFLBashPiece::Kind kind, std::string_view text);
  std::size_t end() const { return out_; }

 private:
  void put(char c) { line_[out_++] = c; }
  void putAll(std::string_view text);
  void putUtf8(std::uint32_t code);
  void escaped(std::string_view text, std::string_view escapable);
  void ansi(std::string_view text);
  bool ansiEscape(KFLBashCursor& in);
  bool ansiHex(KFLBashCursor& in);
  bool ansiUnicode(KFLBashCursor& in, std::size_t most);
  bool ansiControl(KFLBashCursor& in);

  std::span<char> line_;
  std::size_t out_;
};

void Unquoter::take(KFLBashPiece::Kind kind, std::string_view text) {
  using Kind = KFLBashPiece::Kind;
  switch (kind) {
    case Kind::Mark:
      return;
    case Kind::Single:
    case Kind::Expansion:
      return putAll(text);
    case Kind::Literal:
      return escaped(text, {});
    case Kind::Double:
      return escaped(text, "$`\"\\\n");
    case Kind::Ansi:
      return ansi(text);
    case Kind::Blanks:
      return put(' ');
  }
}

void Unquoter::putAll(std::string_view text) {
  std::ranges::copy(text, line_.begin() + static_cast<std::ptrdiff_t>(out_));
  out_ += text.size();
}

// A backslash takes each of these characters as it is, or any when none is named; a newline goes with it.
void Unquoter::escaped(std::string_view text, std::string_view escapable) {
  for (KFLBashCursor in(text); !in.isAtEnd(); in.advance()) {
    const bool escapes =
        in.peek() == '\\' && in.peek(1) != '\0' && (escapable.empty() || isOneOf(in.peek(1), escapable));
    if (escapes) in.advance();
    if (!escapes || in.peek() != '\n') put(in.peek());
  }
}

// Behind a NUL that it makes, the rest of it is dropped.
void Unquoter::ansi(std::string_view text) {
  bool kept = true;
  for (KFLBashCursor in(text); kept && !in.isAtEnd();) {
    const std::size_t before = out_;
    const char c = in.peek();
    in.advance();
    if (c == '\\') {
      kept = ansiEscape(in);
    } else {
      put(c);
    }
    if (!kept) out_ = before;
  }
}

// Up to that many digits; false when there is none.
bool readDigits(KFLBashCursor& in, unsigned int base, std::size_t most, std::uint32_t& number) {
  const std::size_t first = in.position();
  for (number = 0; in.position() - first < most; in.advance()) {
    if (!isHexDigit(in.peek()) || digitValue(in.peek()) >= base) break;
    number = number * base + digitValue(in.peek());
  }
  return in.position() != first;
}

// An escape behind its backslash; false when it makes a NUL.
bool Unquoter::ansiEscape(KFLBashCursor& in) {
  constexpr std::string_view kNames = "abeEfnrtv\\'\"?";
  constexpr std::string_view kMeanings = "\a\b\033\033\f\n\r\t\v\\'\"?";
  const char c = in.peek();
  if (const std::size_t i = kNames.find(c); i != std::string_view::npos) {
    in.advance();
    put(kMeanings[i]);
    return true;
  }
  if (c >= '0' && c <= '7') {
    std::uint32_t number = 0;
    readDigits(in, 8, 3, number);
    put(static_cast<char>(number));
    return static_cast<char>(number) != '\0';
  }
  switch (c) {
    case 'x':
      return ansiHex(in);
    case 'u':
      return ansiUnicode(in, 4);
    case 'U':
      return ansiUnicode(in, 8);
    case 'c':
      return ansiControl(in);
    default:
      put('\\');
      return true;
  }
}

// \xHH, or \x{H...}, of which the last two digits count and whose brace may be missing.
bool Unquoter::ansiHex(KFLBashCursor& in) {
  std::uint32_t number = 0;
  const bool braced = in.peek(1) == '{';
  in.advance(braced ? 2 : 1);
  const bool any = readDigits(in, 16, braced ? std::string_view::npos : 2, number);
  if (!any && !braced) {
    putAll("\\x");
    return true;
  }
  if (braced && in.peek() == '}') in.advance();
  put(static_cast<char>(number));
  return static_cast<char>(number) != '\0';
}

bool Unquoter::ansiUnicode(KFLBashCursor& in, std::size_t most) {
  std::uint32_t code = 0;
  const char letter = in.peek();
  in.advance();
  if (!readDigits(in, 16, most, code)) {
    put('\\');
    put(letter);
    return true;
  }
  putUtf8(code);
  return code != 0;
}

// \cX. A backslash may stand there doubled.
bool Unquoter::ansiControl(KFLBashCursor& in) {
  const char c = in.peek(1);
  if (c == '\0') {
    put('\\');
    return true;
  }
  in.advance(c == '\\' && in.peek(2) == '\\' ? 3 : 2);
  const char made = c == '?' ? '\x7f' : static_cast<char>(toUpper(c) & 0x1f);
  put(made);
  return made != '\0';
}

// As bash does it: up to 31 bits, in up to six bytes, and nothing beyond.
void Unquoter::putUtf8(std::uint32_t code) {
  constexpr std::uint32_t kLimits[] = {0x80, 0x800, 0x10000, 0x200000, 0x4000000, 0x80000000};
  constexpr std::uint32_t kLeads[] = {0x00, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
  unsigned int more = 0;
  while (more < 6 && code >= kLimits[more])
    ++more;
  if (more == 6) return;
  put(static_cast<char>(kLeads[more] | (code >> (6 * more))));
  while (more-- > 0)
    put(static_cast<char>(0x80 | ((code >> (6 * more)) & 0x3F)));
}

}  // namespace

std::size_t unquoteBashValue(std::span<char> line, const KFLBashPieces& pieces) {
  Unquoter unquoter(line, pieces.begin());
  std::size_t begin = pieces.begin();
  for (const KFLBashPiece& piece : pieces.list()) {
    unquoter.take(piece.kind, {line.data() + begin, piece.end - begin});
    begin = piece.end;
  }
  return unquoter.end();
}

}  // namespace KFL
