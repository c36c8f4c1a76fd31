// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLBase64.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include <KFLCommon/KFLError.h>

namespace KFL {

namespace {

constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The value of each character; 64 for one that is no digit.
constexpr std::array<std::uint8_t, 256> kValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(64);
  for (std::size_t i = 0; i < kDigits.size(); ++i)
    values[static_cast<unsigned char>(kDigits[i])] = static_cast<std::uint8_t>(i);
  return values;
}();

// Appends a group of up to three bytes as four characters.
void putGroup(std::string_view bytes, std::string& text) {
  std::uint32_t group = 0;
  for (std::size_t i = 0; i < 3; ++i)
    group = group << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
  for (std::size_t i = 0; i < 4; ++i)
    text += i <= bytes.size() ? kDigits[group >> (18 - 6 * i) & 63U] : '=';
}

int refuse(std::size_t offset, const char* why) {
  setErrorMessage("the text is no base64: %s at the offset %zu", why, offset);
  return -1;
}

}  // namespace

std::string toBase64(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3)
    putGroup(bytes.substr(at, 3), text);
  return text;
}

int fromBase64(std::string_view text, std::string& bytes) {
  if (text.size() % 4 != 0) return refuse(text.size(), "its last group is not of four characters");
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  const std::size_t digits = text.size() - padding;
  std::string read;
  read.reserve(text.size() / 4 * 3);
  std::uint32_t group = 0;
  std::uint32_t bits = 0;
  for (std::size_t at = 0; at < digits; ++at) {
    const std::uint8_t value = kValues[static_cast<unsigned char>(text[at])];
    if (value == 64) return refuse(at, "a character is no digit of it");
    group = group << 6 | value;
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    read += static_cast<char>(group >> bits & 255U);
  }
  if ((group & ((1U << bits) - 1)) != 0) return refuse(digits - 1, "bits beyond the last byte are set");
  bytes = std::move(read);
  return 0;
}

}  // namespace KFL
