// SPDX-License-Identifier: Apache-2.0
#include "KFLBashUnquote.h"

#include <cstdint>
#include <cstring>
#include <string_view>

#include <KFLCommon/KFLText.h>

namespace KFL {

namespace {

using Spans = std::vector<std::pair<const char*, const char*>>;

std::uint32_t digitValue(char c) {
  return static_cast<std::uint32_t>(isDigit(c) ? c - '0' : toLower(c) - 'a' + 10);
}

// Reads and writes one text; what is written never overtakes what is read.
class Unquoter {
 public:
  Unquoter(char* text, std::size_t length, const Spans& spans)
      : in_(text), end_(text + length), out_(text), spans_(spans) {}

  void run();
  char* end() const { return out_; }

 private:
  void put(char c) { *out_++ = c; }
  void putUtf8(std::uint32_t code);
  bool copySpan();
  void singleQuoted();
  void doubleQuoted();
  void ansiQuoted();
  bool ansiEscape();
  bool ansiNumber(unsigned int base, std::size_t most, std::uint32_t& number);
  bool ansiHex();
  bool ansiUnicode(std::size_t most);
  bool ansiControl();

  const char* in_;
  const char* const end_;
  char* out_;
  const Spans& spans_;
  std::size_t span_ = 0;
};

void Unquoter::run() {
  while (in_ < end_) {
    if (copySpan()) continue;
    const char c = *in_++;
    switch (c) {
      case '\\':
        if (*in_ != '\n') put(*in_);
        ++in_;
        break;
      case '\'':
        singleQuoted();
        break;
      case '"':
        doubleQuoted();
        break;
      case '$':
        if (*in_ == '\'' && in_ < end_) {
          ansiQuoted();
        } else if (*in_ != '"' || in_ == end_) {
          put(c);
        }
        break;
      default:
        put(c);
    }
  }
}

bool Unquoter::copySpan() {
  if (span_ == spans_.size() || spans_[span_].first != in_) return false;
  const auto length = static_cast<std::size_t>(spans_[span_].second - in_);
  std::memmove(out_, in_, length);
  out_ += length;
  in_ += length;
  ++span_;
  return true;
}

void Unquoter::singleQuoted() {
  for (; *in_ != '\''; ++in_)
    put(*in_);
  ++in_;
}

void Unquoter::doubleQuoted() {
  while (*in_ != '"') {
    if (copySpan()) continue;
    const char c = *in_++;
    if (c != '\\' || std::string_view("$`\"\\\n").find(*in_) == std::string_view::npos) {
      put(c);
    } else if (*in_++ != '\n') {
      put(in_[-1]);
    }
  }
  ++in_;
}

// $'...', in_ at its quote. Behind a NUL that it makes, the rest of it is dropped.
void Unquoter::ansiQuoted() {
  bool kept = true;
  for (++in_; *in_ != '\'';) {
    char* const before = out_;
    if (*in_ != '\\') {
      put(*in_++);
    } else {
      ++in_;
      kept = ansiEscape() && kept;
    }
    if (!kept) out_ = before;
  }
  ++in_;
}

// An escape, in_ behind its backslash; false when it makes a NUL.
bool Unquoter::ansiEscape() {
  constexpr std::string_view kNames = "abeEfnrtv\\'\"?";
  constexpr std::string_view kMeanings = "\a\b\033\033\f\n\r\t\v\\'\"?";
  const char c = *in_;
  if (const std::size_t i = kNames.find(c); i != std::string_view::npos) {
    ++in_;
    put(kMeanings[i]);
    return true;
  }
  if (c >= '0' && c <= '7') {
    std::uint32_t number = 0;
    ansiNumber(8, 3, number);
    put(static_cast<char>(number));
    return static_cast<char>(number) != '\0';
  }
  switch (c) {
    case 'x':
      return ansiHex();
    case 'u':
      return ansiUnicode(4);
    case 'U':
      return ansiUnicode(8);
    case 'c':
      return ansiControl();
    default:
      put('\\');
      return true;
  }
}

// Up to that many digits; false when there is none.
bool Unquoter::ansiNumber(unsigned int base, std::size_t most, std::uint32_t& number) {
  const char* const first = in_;
  for (number = 0; static_cast<std::size_t>(in_ - first) < most; ++in_) {
    if (!isHexDigit(*in_) || digitValue(*in_) >= base) break;
    number = number * base + digitValue(*in_);
  }
  return in_ != first;
}

// \xHH, or \x{H...}, of which the last two digits count and whose brace may be missing.
bool Unquoter::ansiHex() {
  std::uint32_t number = 0;
  const bool braced = in_[1] == '{';
  in_ += braced ? 2 : 1;
  const bool any = ansiNumber(16, braced ? static_cast<std::size_t>(end_ - in_) : 2, number);
  if (!any && !braced) {
    put('\\');
    put('x');
    return true;
  }
  if (braced && *in_ == '}') ++in_;
  put(static_cast<char>(number));
  return static_cast<char>(number) != '\0';
}

bool Unquoter::ansiUnicode(std::size_t most) {
  std::uint32_t code = 0;
  const char letter = *in_++;
  if (!ansiNumber(16, most, code)) {
    put('\\');
    put(letter);
    return true;
  }
  putUtf8(code);
  return code != 0;
}

// \cX. A backslash stands there doubled.
bool Unquoter::ansiControl() {
  const char c = in_[1];
  if (c == '\'') {
    put('\\');
    return true;
  }
  in_ += c == '\\' && in_[2] == '\\' ? 3 : 2;
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

char* unquoteBashValue(char* text, std::size_t length, const Spans& expansions) {
  // KEY="value", the usual form, needs no copying.
  if (length >= 2 && text[0] == '"' && text[length - 1] == '"') {
    const std::string_view inner(text + 1, length - 2);
    if (inner.find('"') == std::string_view::npos && inner.find('\\') == std::string_view::npos) {
      text[length - 1] = '\0';
      return text + 1;
    }
  }
  Unquoter unquoter(text, length, expansions);
  unquoter.run();
  *unquoter.end() = '\0';
  return text;
}

}  // namespace KFL
