// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstddef>

#include <KFLBash/KFLBashStr.h>

#include "KFLBashCharacters.h"

namespace KFL {

namespace {

constexpr std::string_view kWelcomeName = "VEID";

constexpr std::array<bool, 256> makeSuspects() {
  std::array<bool, 256> suspects{};
  for (std::size_t c = 0; c < 128; ++c)
    suspects[c] = (isControl(static_cast<char>(c)) && c != '\t') || isOneOf(static_cast<char>(c), "\"`\\$");
  return suspects;
}

constexpr std::array<bool, 256> kSuspects = makeSuspects();

// Why bash would not keep the text behind a dollar sign as it stands; null when it would, or when it is $VEID.
const char* dollarFault(std::string_view rest) {
  if (rest.empty()) return nullptr;
  const std::size_t length = kWelcomeName.size();
  if (rest.front() == '{') {
    const bool welcome = rest.substr(1, length) == kWelcomeName && rest.substr(1 + length, 1) == "}";
    return welcome ? nullptr : "a ${ that bash would expand";
  }
  if (isNameCharacter(rest.front())) {
    const bool welcome =
        rest.substr(0, length) == kWelcomeName && (rest.size() == length || !isNameCharacter(rest[length]));
    return welcome ? nullptr : "a variable that bash would expand";
  }
  if (rest.front() == '(') return "a command or sum that bash would run";
  if (rest.front() == '[') return "a sum that bash would work out";
  if (isOneOf(rest.front(), "@*#?$!-")) return "a special parameter that bash would expand";
  return nullptr;
}

// Why bash would read the suspect character at the beginning of the rest otherwise than it stands.
const char* fault(std::string_view rest) {
  switch (rest.front()) {
    case '\0':
      return "a NUL, which no shell text can hold";
    case '\n':
      return "a newline, which a value on one line cannot hold";
    case '"':
      return "a double quote, which would end the value";
    case '`':
      return "a backquote, behind which bash would run a command";
    case '$':
      return dollarFault(rest.substr(1));
    case '\\':
      break;
    default:
      return "a control character, which bash may drop and no one sees";
  }
  if (rest.size() == 1) return "a backslash at the end, which would take the closing quote into the value";
  return isOneOf(rest[1], "$`\"\\\n") ? "a backslash that bash would take away" : nullptr;
}

}  // namespace

bool isBashSafe(std::string_view value, std::string* reason) {
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (!kSuspects[static_cast<unsigned char>(value[i])]) continue;
    const char* const why = fault(value.substr(i));
    if (why == nullptr) continue;
    if (reason != nullptr) *reason = "character " + std::to_string(i + 1) + ": " + why;
    return false;
  }
  return true;
}

}  // namespace KFL
