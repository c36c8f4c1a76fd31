// SPDX-License-Identifier: Apache-2.0
// Text and numbers in the C locale, whatever the host program has set: case, character classes, tokens,
// UTF-8, numbers.
//
// Nothing here is shared between calls. Case and character classes treat bytes from 0x80 on as letters of no
// class.
#ifndef KFLCOMMON_KFLTEXT_H
#define KFLCOMMON_KFLTEXT_H

#include <array>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
constexpr bool isUpper(char c) {
  return c >= 'A' && c <= 'Z';
}
constexpr bool isLower(char c) {
  return c >= 'a' && c <= 'z';
}
constexpr bool isAlpha(char c) {
  return isUpper(c) || isLower(c);
}
constexpr bool isAlnum(char c) {
  return isAlpha(c) || isDigit(c);
}
constexpr bool isBlank(char c) {
  return c == ' ' || c == '\t';
}
constexpr bool isSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr bool isHexDigit(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
constexpr bool isControl(char c) {
  return (c >= 0 && c < ' ') || c == '\x7f';
}

constexpr char toLower(char c) {
  return isUpper(c) ? static_cast<char>(c + ('a' - 'A')) : c;
}
constexpr char toUpper(char c) {
  return isLower(c) ? static_cast<char>(c - ('a' - 'A')) : c;
}

std::string toLower(const std::string& text);
std::string toUpper(const std::string& text);
void toLowerInPlace(std::string& text);
void toUpperInPlace(std::string& text);

// Equal but for the case of ASCII letters.
bool equalsIgnoreCase(std::string_view a, std::string_view b);

// Yields the tokens of a text one after the other. Runs of delimiters separate like one, so no token is ever
// empty.
//
//   KFL::getToken tokens(text, " \t", 0);
//   while (const char* token = tokens.get(0)) ...
//
// The text and the delimiters must stay as they are while tokens are taken; a null text has no tokens.
class getToken {
 public:
  // position: the offset at which the search begins; one beyond the end finds nothing.
  getToken(const char* text, const char* delimiters, std::size_t position = 0);

  // The next token, NUL-terminated, or null when there is none. It stays valid until the next call. The
  // token's length is stored in *length when that is not null.
  const char* get(std::size_t* length);

  // The next token as a piece of the text itself; false when there is none. Copies nothing.
  bool next(std::string_view& token);

 private:
  bool isDelimiter(char c) const {
    const auto byte = static_cast<unsigned char>(c);
    return (delimiters_[byte >> 6] >> (byte & 63U)) & 1U;
  }

  const char* at_;
  std::array<std::uint64_t, 4> delimiters_{};
  std::string token_;
};

// The number at the beginning of the text: leading white space, a sign, digits as far as they go. 0 when
// there is no number; the nearest limit when it is out of range.
long long strToLonglong(const std::string& text);

// The whole text as a decimal number: 0 when it is one and in range, else -1 with the value left alone. No
// white space, no plus sign.
template <std::integral T>
requires(!std::same_as<T, bool> && !std::same_as<T, char>) int parseInteger(std::string_view text, T& value) {
  T parsed{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, parsed);
  if (error != std::errc() || stop != end) return -1;
  value = parsed;
  return 0;
}

// The same for floating point numbers, with an optional exponent; infinities and NaN are refused.
int parseDouble(std::string_view text, double& value);

// The shortest text that reads back to the same number: 1.5 gives "1.5", 150 "150"; an exponent only below
// 1e-5 and from 1e17 on.
std::string doubleToStr(double value);

// Whether the text is well-formed UTF-8 (no overlong form, no surrogate, nothing past U+10FFFF). When it is
// not and badOffset is not null, the offset of the first ill-formed sequence is stored there.
bool isUtf8(std::string_view text, std::size_t* badOffset = nullptr);

}  // namespace KFL

#endif
