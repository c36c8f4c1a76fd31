// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLText.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <system_error>

namespace KFL {

void toLowerInPlace(std::string& text) {
  for (char& c : text)
    c = toLower(c);
}

void toUpperInPlace(std::string& text) {
  for (char& c : text)
    c = toUpper(c);
}

std::string toLower(const std::string& text) {
  std::string copy = text;
  toLowerInPlace(copy);
  return copy;
}

std::string toUpper(const std::string& text) {
  std::string copy = text;
  toUpperInPlace(copy);
  return copy;
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (toLower(a[i]) != toLower(b[i])) return false;
  }
  return true;
}

getToken::getToken(const char* text, const char* delimiters, std::size_t position)
    : at_(text == nullptr ? "" : text + strnlen(text, position)) {
  if (delimiters == nullptr) return;
  for (; *delimiters != '\0'; ++delimiters) {
    const auto byte = static_cast<unsigned char>(*delimiters);
    delimiters_[byte >> 6] |= std::uint64_t{1} << (byte & 63U);
  }
}

bool getToken::next(std::string_view& token) {
  while (*at_ != '\0' && isDelimiter(*at_))
    ++at_;
  if (*at_ == '\0') return false;
  const char* const first = at_;
  while (*at_ != '\0' && !isDelimiter(*at_))
    ++at_;
  token = std::string_view(first, static_cast<std::size_t>(at_ - first));
  return true;
}

const char* getToken::get(std::size_t* length) {
  std::string_view token;
  if (!next(token)) return nullptr;
  if (length != nullptr) *length = token.size();
  // The last token of the text has its NUL already.
  if (*at_ == '\0') return token.data();
  token_ = token;
  return token_.c_str();
}

long long strToLonglong(const std::string& text) {
  const char* first = text.data();
  const char* const end = first + text.size();
  while (first != end && isSpace(*first))
    ++first;
  const bool negative = first != end && *first == '-';
  // from_chars takes a minus sign, but no plus sign.
  if (first != end && *first == '+') {
    ++first;
    if (first != end && *first == '-') return 0;
  }
  long long value = 0;
  if (std::from_chars(first, end, value).ec == std::errc::result_out_of_range) {
    return negative ? std::numeric_limits<long long>::min() : std::numeric_limits<long long>::max();
  }
  return value;
}

int parseDouble(std::string_view text, double& value) {
  double parsed = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, parsed);
  if (error != std::errc() || stop != end || !std::isfinite(parsed)) return -1;
  value = parsed;
  return 0;
}

std::string doubleToStr(double value) {
  constexpr double kLeastPlain = 1e-5;
  constexpr double kFirstScientific = 1e17;
  const double size = std::fabs(value);
  const bool plain = size == 0 || (size >= kLeastPlain && size < kFirstScientific);
  std::array<char, 32> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value,
                                 plain ? std::chars_format::fixed : std::chars_format::scientific)
                       .ptr;
  return {digits.data(), static_cast<std::size_t>(end - digits.data())};
}

namespace {

// The bytes that a lead byte announces, and the range of the byte behind it; a length of 0 is no lead byte.
struct Utf8Lead {
  unsigned char first;
  unsigned char last;
  unsigned char length;
  unsigned char secondFirst;
  unsigned char secondLast;
};

constexpr std::array<Utf8Lead, 8> kUtf8Leads = {{
    {0xC2, 0xDF, 2, 0x80, 0xBF},
    {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF},
    {0xED, 0xED, 3, 0x80, 0x9F},
    {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF},
    {0xF1, 0xF3, 4, 0x80, 0xBF},
    {0xF4, 0xF4, 4, 0x80, 0x8F},
}};

// The length of the sequence of two or more bytes that begins here; 0 when it is ill-formed.
std::size_t utf8Sequence(const unsigned char* at, std::size_t left) {
  for (const Utf8Lead& lead : kUtf8Leads) {
    if (at[0] < lead.first || at[0] > lead.last) continue;
    if (left < lead.length || at[1] < lead.secondFirst || at[1] > lead.secondLast) return 0;
    for (std::size_t i = 2; i < lead.length; ++i) {
      if ((at[i] & 0xC0U) != 0x80) return 0;
    }
    return lead.length;
  }
  return 0;
}

}  // namespace

bool isUtf8(std::string_view text, std::size_t* badOffset) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
  std::size_t i = 0;
  while (i < text.size()) {
    std::uint64_t word = 0;
    if (text.size() - i >= sizeof word) {
      std::memcpy(&word, bytes + i, sizeof word);
      if ((word & 0x8080808080808080U) == 0) {
        i += sizeof word;
        continue;
      }
    }
    const std::size_t length = bytes[i] < 0x80 ? 1 : utf8Sequence(bytes + i, text.size() - i);
    if (length == 0) {
      if (badOffset != nullptr) *badOffset = i;
      return false;
    }
    i += length;
  }
  return true;
}

}  // namespace KFL
