// SPDX-License-Identifier: Apache-2.0
#include "KFAFraction.h"

#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include <KFLCommon/KFLText.h>

#include "KFABashLines.h"
#include "KFAKeyRules.h"

namespace KFA {

namespace {

constexpr double kLimit = 9.2e18;

// A decimal number as its digits and the power of ten of the last one: "12.50" is 125 and -1. Zero has no digits.
struct Decimal {
  bool isNegative = false;
  std::string digits;
  long long exponent = 0;

  friend bool operator==(const Decimal&, const Decimal&) = default;
};

// The digits with a point or without one.
bool takeDigits(std::string_view text, Decimal& number) {
  bool isBehindPoint = false;
  bool hasDigit = false;
  for (const char c : text) {
    if (c == '.' && !std::exchange(isBehindPoint, true)) continue;
    if (!KFL::isDigit(c)) return false;
    hasDigit = true;
    if (isBehindPoint) --number.exponent;
    if (c != '0' || !number.digits.empty()) number.digits += c;
  }
  return hasDigit;
}

// Nothing for a text that is no decimal number, with an exponent or without one.
std::optional<Decimal> parseDecimal(std::string_view text) {
  constexpr int kMostPower = 1000;
  Decimal number;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    number.isNegative = text.front() == '-';
    text.remove_prefix(1);
  }
  const std::size_t end = std::min(text.find_first_of("eE"), text.size());
  if (!takeDigits(text.substr(0, end), number)) return std::nullopt;
  if (end != text.size()) {
    text.remove_prefix(end + 1);
    if (text.starts_with('+')) text.remove_prefix(1);
    int power = 0;
    if (KFL::parseInteger(text, power) != 0 || std::abs(static_cast<long long>(power)) > kMostPower)
      return std::nullopt;
    number.exponent += power;
  }
  if (number.digits.empty()) return Decimal();
  for (; number.digits.back() == '0'; ++number.exponent)
    number.digits.pop_back();
  return number;
}

double valueOf(const Decimal& number) {
  const std::string text =
      (number.isNegative ? "-0" : "0") + number.digits + "e" + std::to_string(number.exponent);
  double value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

// Gathers the candidate that lies nearest to a number.
class Nearest {
 public:
  explicit Nearest(double asked) : asked_(asked) {}

  // A candidate counts when its text is read as that candidate again.
  void consider(double hundredths) {
    if (!(std::abs(hundredths) < kLimit)) return;
    const double away = std::abs(hundredths / 100.0 - asked_);
    if (!text_.empty() && away >= distance_) return;
    const auto wanted = static_cast<long long>(hundredths);
    std::string text = writeFraction(wanted);
    long long read = 0;
    if (!readFraction(text.c_str(), read) || read != wanted) return;
    text_ = std::move(text);
    distance_ = away;
  }
  const std::string& text() const { return text_; }

 private:
  double asked_;
  double distance_ = 0;
  std::string text_;
};

// Looks among the hundredths around the number, and among the numbers in single precision around it, which stand
// further apart than hundredths where numbers are large.
std::string findNearest(double asked) {
  constexpr int kReach = 32;
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  Nearest nearest(asked);
  const double middle = std::nearbyint(asked * 100.0);
  auto low = static_cast<float>(asked);
  float high = low;
  nearest.consider(middle);
  for (int step = 1; step <= kReach; ++step) {
    nearest.consider(middle - step);
    nearest.consider(middle + step);
    nearest.consider(std::trunc(low * 100.0));
    nearest.consider(std::trunc(high * 100.0));
    low = std::nextafter(low, -kInfinity);
    high = std::nextafter(high, kInfinity);
  }
  return nearest.text();
}

}  // namespace

// As sscanf's %f does in the C locale.
bool readFraction(const char* text, long long& hundredths) {
  static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  char* end = nullptr;
  const double product = strtof_l(text, &end, cLocale) * 100.0;
  if (end == text || !(std::abs(product) < kLimit)) return false;
  hundredths = static_cast<long long>(product);
  return true;
}

std::string writeFraction(long long hundredths) {
  return KFL::doubleToStr(static_cast<double>(hundredths) / 100.0);
}

std::string compareFractions(const std::string& asked, const std::string& given) {
  const std::optional<Decimal> number = parseDecimal(asked);
  if (!number) return quoteText(asked) + " is no decimal number";
  if (number == parseDecimal(given)) return {};
  const std::string nearest = findNearest(valueOf(*number));
  return compareTexts(asked, given) +
         (nearest.empty() ? "" : ", and " + nearest + " is the nearest that is held");
}

}  // namespace KFA
