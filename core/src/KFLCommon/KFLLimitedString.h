// SPDX-License-Identifier: Apache-2.0
// A string of fixed capacity that holds its text in itself, as records in files and shared memory need it.
//
// limited_length_string<N> is exactly N bytes: the text, then zeros to the end, so the last byte is always 0
// and a text has at most N - 1 characters. When the text is empty, byte 1 tells whether it was specified (1)
// or not (0). Measure what comes from outside with fits() first: making one of a longer text, or assigning it,
// is a programming error and aborts. Nothing makes one unasked; look-ups take views.
#ifndef KFLCOMMON_KFLLIMITEDSTRING_H
#define KFLCOMMON_KFLLIMITEDSTRING_H

#include <compare>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include <KFLCommon/KFLCheck.h>

namespace KFL {

template <std::size_t N>
class limited_length_string {
  static_assert(N >= 2, "the text and the specified mark need two bytes");

 public:
  static constexpr std::size_t kMaxLength = N - 1;
  static constexpr bool fits(std::string_view text) {
    return text.size() <= kMaxLength && text.find('\0') == std::string_view::npos;
  }

  // Empty and unspecified.
  limited_length_string() = default;
  explicit limited_length_string(const char* text) { *this = text; }
  explicit limited_length_string(std::string_view text) { *this = text; }
  explicit limited_length_string(const std::string& text) { *this = text; }

  // A null pointer gives the empty, unspecified string.
  limited_length_string& operator=(const char* text) {
    if (text != nullptr) return *this = std::string_view(text);
    std::memset(bytes_, 0, N);
    return *this;
  }
  limited_length_string& operator=(const std::string& text) { return *this = std::string_view(text); }
  // Specifies the string. The text may be a part of this one.
  limited_length_string& operator=(std::string_view text) {
    KFL_CHECK(fits(text), "KFLCommon", "KFLLimitedString");
    if (!text.empty()) std::memmove(bytes_, text.data(), text.size());
    std::memset(bytes_ + text.size(), 0, N - text.size());
    if (text.empty()) bytes_[1] = 1;
    return *this;
  }

  const char* c_str() const { return bytes_; }
  std::size_t size() const { return strnlen(bytes_, kMaxLength); }
  bool empty() const { return bytes_[0] == '\0'; }
  bool isSpecified() const { return bytes_[0] != '\0' || bytes_[1] != '\0'; }
  std::string_view view() const { return {bytes_, size()}; }
  operator std::string_view() const { return view(); }  // NOLINT(google-explicit-constructor)
  std::string str() const { return {bytes_, size()}; }

  // By the text alone, byte by byte.
  friend bool operator==(const limited_length_string& a, const limited_length_string& b) {
    return std::strncmp(a.bytes_, b.bytes_, N) == 0;
  }
  friend std::strong_ordering operator<=>(const limited_length_string& a, const limited_length_string& b) {
    return std::strncmp(a.bytes_, b.bytes_, N) <=> 0;
  }

 private:
  char bytes_[N] = {};
};

}  // namespace KFL

#endif
