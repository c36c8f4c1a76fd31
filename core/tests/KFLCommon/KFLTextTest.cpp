// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLText.h>

#include <clocale>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace KFL::test {

namespace {

std::vector<std::string> tokensOf(const char* text, const char* delimiters, std::size_t position = 0) {
  std::vector<std::string> tokens;
  getToken splitter(text, delimiters, position);
  std::size_t length = 0;
  while (const char* const token = splitter.get(&length)) {
    tokens.emplace_back(token);
    EXPECT_EQ(tokens.back().size(), length);
  }
  EXPECT_EQ(splitter.get(nullptr), nullptr);
  return tokens;
}

TEST(KFLText, TokensAreNeverEmpty) {
  using Tokens = std::vector<std::string>;
  EXPECT_EQ(tokensOf("  a \t b  ", " \t"), (Tokens{"a", "b"}));
  EXPECT_EQ(tokensOf("a;b c;", ";"), (Tokens{"a", "b c"}));
  EXPECT_EQ(tokensOf("a\xffz", "\xff"), (Tokens{"a", "z"}));
  EXPECT_EQ(tokensOf("ab cd", " ", 1), (Tokens{"b", "cd"}));
  for (const char* const none : {"", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(tokensOf("abc", none), Tokens{"abc"});
    EXPECT_EQ(tokensOf(none, ";"), Tokens{});
  }
  EXPECT_EQ(tokensOf(";;;", ";"), Tokens{});
  for (const std::size_t position : {2, 99})
    EXPECT_EQ(tokensOf("ab", " ", position), Tokens{});
}

TEST(KFLText, ReadsTheNumberAtTheBeginning) {
  constexpr long long kMost = std::numeric_limits<long long>::max();
  const std::pair<long long, std::vector<const char*>> rows[] = {
      {42, {"42", "+42", " \t\n\v\f\r42", "42abc", "00042", "42 7"}},
      {-42, {"-42"}},
      {1, {"1e3"}},
      {0, {"0", "0x10", "", "abc", "-", "+", "+-5", "--5", "- 5", "\xa0\x35"}},
      {kMost, {"9223372036854775807", "9223372036854775808", "99999999999999999999999999"}},
      {-kMost - 1, {"-9223372036854775808", "-9223372036854775809x"}},
  };
  for (const auto& [value, texts] : rows) {
    for (const char* const text : texts)
      EXPECT_EQ(strToLonglong(text), value) << text;
  }
}

TEST(KFLText, StrictNumbersTakeTheWholeText) {
  int number = 7;
  EXPECT_EQ(parseInteger("-2147483648", number), 0);
  for (const char* const text : {"", " 1", "1 ", "+1", "1x", "x", "-", "2147483648", "1.0", "0x1", "--1"})
    EXPECT_EQ(parseInteger(text, number), -1) << text;
  EXPECT_EQ(number, std::numeric_limits<int>::min()) << "a refused text changed the value";
  double real = 7;
  EXPECT_EQ(parseDouble("-1.25e2", real), 0);
  for (const char* const text : {"", " 1", "1,5", "1e", "inf", "nan", "1e999", "0x1p3x"})
    EXPECT_EQ(parseDouble(text, real), -1) << text;
  EXPECT_EQ(real, -125.0);
}

TEST(KFLText, DoublesHaveTheShortestPlainForm) {
  const double values[] = {0,    -0.0, 1.5,  150,     -0.1,         100000, 1e16,
                           1e17, 1e-5, 1e-6, 1.0 / 3, 4294967296.0, 5e-324};
  std::string texts;
  for (const double value : values)
    texts += doubleToStr(value) + " ";
  EXPECT_EQ(
      texts,
      "0 -0 1.5 150 -0.1 100000 10000000000000000 1e+17 0.00001 1e-06 0.3333333333333333 4294967296 5e-324 ");
  std::mt19937_64 random(1);
  for (int i = 0; i < 20000; ++i) {
    const double value = std::ldexp(static_cast<double>(random()), static_cast<int>(random() % 2000) - 1064);
    double read = 0;
    if (!std::isfinite(value)) continue;
    ASSERT_EQ(parseDouble(doubleToStr(value), read), 0) << doubleToStr(value);
    ASSERT_EQ(read, value);
  }
}

TEST(KFLText, CaseIsThatOfTheCLocale) {
  EXPECT_EQ(toLower("OnBoot_\xc3\x84Z[@"), "onboot_\xc3\x84z[@");
  EXPECT_EQ(toUpper("OnBoot_\xc3\xa4z{`"), "ONBOOT_\xc3\xa4Z{`");
  EXPECT_TRUE(equalsIgnoreCase("X86", "x86"));
  EXPECT_FALSE(equalsIgnoreCase("x86", "x86_64"));
  EXPECT_FALSE(equalsIgnoreCase("[", "{"));
}

// Whichever locale of the machine has another decimal sign; without one there is nothing that could differ.
TEST(KFLText, IgnoresTheHostsLocale) {
  for (const char* const name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "fr_FR.UTF-8", "tr_TR.UTF-8"}) {
    if (std::setlocale(LC_ALL, name) == nullptr) continue;
    EXPECT_EQ(doubleToStr(1.5), "1.5");
    EXPECT_EQ(strToLonglong("1234"), 1234);
    EXPECT_EQ(toLower("TITI"), "titi");
    std::setlocale(LC_ALL, "C");
    return;
  }
  GTEST_SKIP() << "no locale with a decimal comma is installed";
}

TEST(KFLText, FindsIllFormedUtf8) {
  constexpr std::size_t kGood = std::string::npos;
  const std::pair<std::size_t, std::vector<std::string>> rows[] = {
      {kGood,
       {"", "plain ASCII of more than one word", std::string("a\0b", 3),
        "\xc2\x80 \xdf\xbf \xe0\xa0\x80 \xed\x9f\xbf \xee\x80\x80 \xef\xbf\xbf \xf0\x90\x80\x80 "
        "\xf4\x8f\xbf\xbf"}},
      {0,
       {"\x80", "\xc0\x80", "\xc1\xbf", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xf0\x8f\xbf\xbf",
        "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff", "\xc3\xc3"}},
      {1, {"a\xe2\x82", "a\xe2\x82z", "a\xf0\x90\x80"}},
      {8, {"12345678\xbf"}},
      {9, {"1234567\xc3\xa9\xc3"}},
  };
  for (const auto& [place, texts] : rows) {
    for (const std::string& text : texts) {
      std::size_t bad = kGood;
      EXPECT_EQ(isUtf8(text, &bad), place == kGood) << text;
      EXPECT_EQ(bad, place) << text;
    }
  }
}

}  // namespace

}  // namespace KFL::test
