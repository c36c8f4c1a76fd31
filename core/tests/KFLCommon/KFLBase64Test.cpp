// SPDX-License-Identifier: Apache-2.0
// The texts that are taken are exactly those that are given: every group of four characters is read as the arithmetic
// of six-bit digits says, or refused.
#include <KFLCommon/KFLBase64.h>

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>

namespace KFL::test {

namespace {

// What four characters stand for, by arithmetic on the number that they spell.
std::optional<std::string> valueOf(const std::string& four) {
  static const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::size_t used = four.find('=') == std::string::npos ? 4 : four.find('=');
  if (used < 2 || four.find_first_not_of('=', used) != std::string::npos) return std::nullopt;
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t digit = i < used ? digits.find(four[i]) : 0;
    if (digit == std::string::npos) return std::nullopt;
    number = number * 64 + static_cast<std::uint32_t>(digit);
  }
  std::string bytes;
  for (const std::uint32_t weight : {65536U, 256U, 1U})
    bytes += static_cast<char>(number / weight % 256);
  const std::string dropped = bytes.substr(used - 1);
  bytes.resize(used - 1);
  return dropped.find_first_not_of('\0') == std::string::npos ? std::optional(bytes) : std::nullopt;
}

TEST(KFLBase64, ReadsWhatTheDigitsSpellAndRefusesTheRest) {
  const std::string some = std::string("AQgwZ/+9=-_ \n") + '\0' + '\xff';
  for (const std::string& front : {std::string(), std::string("Zm9v"), std::string("Zm8=")}) {
    const std::optional<std::string> before = front.empty() ? std::optional<std::string>("") : valueOf(front);
    for (const char a : some)
      for (const char b : some)
        for (const char c : some)
          for (const char d : some) {
            const std::string four{a, b, c, d};
            const auto last = valueOf(four);
            const bool isRight = last && !front.ends_with('=');
            std::string bytes = "kept";
            ASSERT_EQ(fromBase64(front + four, bytes), isRight ? 0 : -1) << front << four;
            ASSERT_EQ(bytes, isRight ? *before + *last : "kept") << front << four;
            if (isRight) {
              ASSERT_EQ(toBase64(bytes), front + four);
            }
          }
  }
  std::string bytes;
  for (const std::string_view cut : {"Z", "Zg", "Zm8", "Zm9vZ", "===="})
    EXPECT_EQ(fromBase64(cut, bytes), -1) << cut;
}

TEST(KFLBase64, GivesBackAnyBytes) {
  std::mt19937 random(1);
  for (std::size_t length = 0; length < 300; ++length) {
    std::string bytes(length, '\0'), read;
    for (char& byte : bytes)
      byte = static_cast<char>(random());
    EXPECT_EQ(fromBase64(toBase64(bytes), read), 0) << getErrorMessage();
    EXPECT_EQ(read, bytes);
  }
}

}  // namespace

}  // namespace KFL::test
