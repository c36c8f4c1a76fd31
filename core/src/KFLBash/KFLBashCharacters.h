// SPDX-License-Identifier: Apache-2.0
// Not installed. The first stage: what characters mean to bash, and the cursor with which every other stage reads.
#ifndef KFLBASH_KFLBASHCHARACTERS_H
#define KFLBASH_KFLBASHCHARACTERS_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include <KFLCommon/KFLText.h>

namespace KFL {

constexpr std::array<bool, 256> makeNameCharacters() {
  std::array<bool, 256> characters{};
  for (std::size_t c = 1; c < 128; ++c)
    characters[c] = isAlnum(static_cast<char>(c)) || c == '_';
  return characters;
}

inline constexpr std::array<bool, 256> kNameCharacters = makeNameCharacters();

constexpr bool isNameCharacter(char c) {
  return kNameCharacters[static_cast<unsigned char>(c)];
}

// Whether the character ends a word unless it is quoted; so does the end of the text.
constexpr bool isBashMeta(char c) {
  switch (c) {
    case '\0':
    case ' ':
    case '\t':
    case '\n':
    case ';':
    case '&':
    case '|':
    case '(':
    case ')':
    case '<':
    case '>':
      return true;
    default:
      return false;
  }
}

// Whether bash marks its own quotes with the character. Within quotes and braces it looks through one.
constexpr bool isBashMark(char c) {
  return c == '\x01' || c == '\x7f';
}

constexpr bool isOneOf(char c, std::string_view characters) {
  return characters.find(c) != std::string_view::npos;
}

// A place in a text that it can neither leave nor read beyond: outside there are NULs, and steps end at the end.
class KFLBashCursor {
 public:
  explicit KFLBashCursor(std::string_view text, std::size_t position = 0)
      : text_(text), at_(std::min(position, text.size())) {}

  std::size_t position() const { return at_; }
  bool isAtEnd() const { return at_ == text_.size(); }

  char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }
  char peek(std::size_t ahead) const { return ahead < text_.size() - at_ ? text_[at_ + ahead] : '\0'; }
  char previous() const { return at_ > 0 ? text_[at_ - 1] : '\0'; }
  bool startsWith(std::string_view prefix) const { return text_.substr(at_).starts_with(prefix); }

  void advance(std::size_t count = 1) { at_ += std::min(count, text_.size() - at_); }
  // To the next such character, or to the end.
  void advanceTo(char c) { at_ = std::min(text_.find(c, at_), text_.size()); }
  void skipBlanks() {
    while (isBlank(peek()))
      advance();
  }
  // Over a letter or an underscore and what of these and digits follows; nothing where no name begins.
  void skipName() {
    if (isDigit(peek())) return;
    while (isNameCharacter(peek()))
      advance();
  }

  // A cursor of its own further on, and what stands between a former place and this one, or ahead.
  KFLBashCursor ahead(std::size_t count) const {
    KFLBashCursor cursor = *this;
    cursor.advance(count);
    return cursor;
  }
  KFLBashCursor at(std::size_t position) const { return KFLBashCursor(text_, position); }
  std::string_view since(std::size_t begin) const {
    return text_.substr(std::min(begin, at_), at_ - std::min(begin, at_));
  }
  std::string_view next(std::size_t length) const { return text_.substr(at_, length); }

 private:
  std::string_view text_;
  std::size_t at_;
};

}  // namespace KFL

#endif
