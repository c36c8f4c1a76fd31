// SPDX-License-Identifier: Apache-2.0
#include "report/Markup.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "terminal/Output.h"

namespace kfactl {

namespace {

constexpr std::string_view kSpecial = "&<>\"'";

// Characters that stand for themselves on a page and in printable().
constexpr std::array<bool, 256> kPlain = [] {
  std::array<bool, 256> plain{};
  for (unsigned char c = ' '; c <= '~'; ++c)
    plain[c] = kSpecial.find(static_cast<char>(c)) == std::string_view::npos;
  return plain;
}();

void appendEscaped(std::string& page, std::string_view text) {
  constexpr std::array<std::string_view, 5> kEntities = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"};
  for (;;) {
    const std::size_t at = text.find_first_of(kSpecial);
    page += text.substr(0, at);
    if (at == std::string_view::npos) return;
    page += kEntities.at(kSpecial.find(text[at]));
    text.remove_prefix(at + 1);
  }
}

}  // namespace

// Most texts are nothing but letters and digits; one look at each character tells.
Markup& Markup::text(std::string_view text) {
  const bool isPlain =
      std::all_of(text.begin(), text.end(), [](char c) { return kPlain[static_cast<unsigned char>(c)]; });
  if (isPlain)
    page_ += text;
  else
    appendEscaped(page_, printable(text));
  return *this;
}

Markup& Markup::length(double number) {
  std::array<char, 32> digits{};
  const double kept = std::clamp(std::isfinite(number) ? number : 0.0, 0.0, 1e6);
  const auto end =
      std::to_chars(digits.data(), digits.data() + digits.size(), std::round(kept * 100) / 100).ptr;
  page_.append(digits.data(), end);
  return *this;
}

std::string shortened(std::string_view text, std::size_t most) {
  std::string shown = printable(text);
  std::size_t count = 0;
  for (std::size_t at = 0; at < shown.size(); ++at) {
    if ((static_cast<unsigned char>(shown[at]) & 0xc0) == 0x80) continue;
    if (++count > most) {
      shown.resize(at);
      return shown + "\xe2\x80\xa6";
    }
  }
  return shown;
}

}  // namespace kfactl
