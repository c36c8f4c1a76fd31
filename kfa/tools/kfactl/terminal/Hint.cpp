// SPDX-License-Identifier: Apache-2.0
#include "terminal/Hint.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

#include <KFLCommon/KFLText.h>

namespace kfactl {

namespace {

// The number of characters to insert, remove, replace or swap with their neighbour, case aside.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before(b.size() + 1);
  std::vector<std::size_t> last(b.size() + 1);
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  const auto same = [](char left, char right) { return KFL::toLower(left) == KFL::toLower(right); };
  for (std::size_t i = 0; i < a.size(); ++i) {
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      row[j + 1] = std::min({last[j] + (same(a[i], b[j]) ? 0 : 1), last[j + 1] + 1, row[j] + 1});
      if (i > 0 && j > 0 && same(a[i], b[j - 1]) && same(a[i - 1], b[j]))
        row[j + 1] = std::min(row[j + 1], before[j - 1] + 1);
    }
    before.swap(last);
    last.swap(row);
  }
  return last.back();
}

std::string_view withoutDashes(std::string_view word) {
  return word.substr(std::min(word.find_first_not_of('-'), word.size()));
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

std::string nearestTo(std::string_view word, const std::vector<std::string>& names) {
  constexpr std::size_t kLongestWord = 64;
  const std::string_view bare = withoutDashes(word);
  if (bare.size() > kLongestWord) return {};
  const std::string* nearest = nullptr;
  std::size_t least = (bare.size() + 1) / 3;
  for (const std::string& name : names) {
    const std::size_t steps = distance(bare, withoutDashes(name));
    if (steps > least || (nearest != nullptr && steps == least)) continue;
    nearest = &name;
    least = steps;
  }
  return nearest == nullptr ? std::string() : *nearest;
}

std::string hintFor(std::string_view word, const std::vector<std::string>& names) {
  constexpr std::size_t kFew = 16;
  const std::string nearest = nearestTo(word, names);
  if (!nearest.empty()) return "did you mean '" + nearest + "'?";
  if (names.empty() || names.size() > kFew) return {};
  return "expected " + listOf(names);
}

}  // namespace kfactl
