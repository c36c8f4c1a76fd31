// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLGUID.h>

#include <algorithm>
#include <exception>

#include <boost/uuid/random_generator.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

namespace KFL {

namespace {

constexpr std::size_t kTextLength = 36;

constexpr bool isHyphenAt(std::size_t i) {
  return i == 8 || i == 13 || i == 18 || i == 23;
}

std::uint8_t nibble(char digit) {
  return static_cast<std::uint8_t>(isDigit(digit) ? digit - '0' : toLower(digit) - 'a' + 10);
}

}  // namespace

KFLGUID::KFLGUID(std::string_view text) {
  read(text);
}

KFLGUID KFLGUID::generate() {
  KFLGUID guid;
  try {
    const boost::uuids::uuid random = boost::uuids::random_generator()();
    std::copy(random.begin(), random.end(), guid.bytes_.begin());
  } catch (const std::exception& failure) {
    setErrorMessage("no random numbers for a GUID: %s", failure.what());
  }
  return guid;
}

bool KFLGUID::read(std::string_view text) {
  if (text.size() == kTextLength + 2 && text.front() == '{' && text.back() == '}')
    text = text.substr(1, kTextLength);
  if (text.size() != kTextLength) return false;
  Bytes bytes{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < kTextLength; ++i) {
    if (isHyphenAt(i) ? text[i] != '-' : !isHexDigit(text[i])) return false;
    if (isHyphenAt(i)) continue;
    bytes[digits / 2] = static_cast<std::uint8_t>(bytes[digits / 2] << 4 | nibble(text[i]));
    ++digits;
  }
  bytes_ = bytes;
  return true;
}

int KFLGUID::fromString(std::string_view text) {
  if (read(text)) return 0;
  const std::string shown(text.substr(0, kTextLength + 2));
  setErrorMessage("\"%s\" is no GUID: 8-4-4-4-12 hexadecimal digits are wanted", shown.c_str());
  return -1;
}

std::string KFLGUID::toString() const {
  constexpr std::string_view kHex = "0123456789abcdef";
  std::string text;
  text.reserve(kTextLength);
  for (const std::uint8_t byte : bytes_) {
    if (isHyphenAt(text.size())) text += '-';
    text += kHex[byte >> 4];
    text += kHex[byte & 15U];
  }
  return text;
}

}  // namespace KFL
