// SPDX-License-Identifier: Apache-2.0
// What names mean to bash.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include <KFLBash/KFLBashStr.h>

#include "KFLBashCharacters.h"
#include "KFLBashJudge.h"

namespace KFL {

namespace {

constexpr std::array<std::string_view, 6> kReadOnlyNames = {"BASHOPTS", "BASH_VERSINFO", "EUID",
                                                            "PPID",     "SHELLOPTS",     "UID"};
constexpr std::array<std::string_view, 18> kIgnoredNames = {
    "BASHPID",       "BASH_ARGC", "BASH_ARGV",     "BASH_COMMAND", "BASH_LINENO", "BASH_SOURCE",
    "BASH_SUBSHELL", "DIRSTACK",  "EPOCHREALTIME", "EPOCHSECONDS", "FUNCNAME",    "GROUPS",
    "HISTCMD",       "LINENO",    "PIPESTATUS",    "RANDOM",       "SRANDOM",     "_"};

// For the first letter of such a name, a bit for each length that one has.
constexpr std::array<std::uint32_t, 256> makeLengths() {
  std::array<std::uint32_t, 256> lengths{};
  for (const std::string_view name : kReadOnlyNames)
    lengths[static_cast<unsigned char>(name.front())] |= 1U << name.size();
  for (const std::string_view name : kIgnoredNames)
    lengths[static_cast<unsigned char>(name.front())] |= 1U << name.size();
  return lengths;
}

constexpr std::array<std::uint32_t, 256> kLengths = makeLengths();

}  // namespace

bool isBashName(std::string_view text) {
  KFLBashCursor cursor(text);
  cursor.skipName();
  return !text.empty() && cursor.isAtEnd();
}

bool isReadOnlyBashName(std::string_view name) {
  return std::ranges::find(kReadOnlyNames, name) != kReadOnlyNames.end();
}

bool isIgnoredBashName(std::string_view name) {
  return std::ranges::find(kIgnoredNames, name) != kIgnoredNames.end();
}

bool isSpecialBashName(std::string_view name) {
  if (name.empty()) return false;
  const std::uint32_t lengths = kLengths[static_cast<unsigned char>(name.front())];
  if (name.size() >= 32 || ((lengths >> name.size()) & 1U) == 0) return false;
  return isReadOnlyBashName(name) || isIgnoredBashName(name);
}

}  // namespace KFL
