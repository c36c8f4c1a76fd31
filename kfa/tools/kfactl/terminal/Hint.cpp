// SPDX-License-Identifier: Apache-2.0
#include "terminal/Hint.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

#include <KFLCommon/KFLText.h>

namespace kfactl {

namespace {

// The number of characters to insert, remove or replace, case aside.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t change = diagonal + (KFL::toLower(a[i]) == KFL::toLower(b[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({change, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

std::string listOf(const std::vector<std::string>& names) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? " or " : ", ";
    text += names[i];
  }
  return text;
}

}  // namespace

std::string hintFor(std::string_view word, const std::vector<std::string>& names) {
  constexpr std::size_t kLongestWord = 64;
  constexpr std::size_t kFew = 8;
  const std::string* nearest = nullptr;
  std::size_t least = 1 + word.size() / 3;
  for (const std::string& name : names) {
    if (word.size() > kLongestWord) break;
    const std::size_t steps = distance(word, name);
    if (steps > least || (nearest != nullptr && steps == least)) continue;
    nearest = &name;
    least = steps;
  }
  if (nearest != nullptr) return "did you mean '" + *nearest + "'?";
  if (names.empty() || names.size() > kFew) return {};
  return "expected " + listOf(names);
}

}  // namespace kfactl
