// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLRootName.h>

#include <KFLCommon/KFLText.h>

namespace KFL {

namespace {

bool isUpper(char c) {
  return c >= 'A' && c <= 'Z';
}

// Words whose capitals do not begin one.
constexpr std::string_view kMixedWords[] = {"QoS", "IPv4", "IPv6"};

// The length of the word that a class name begins with: "CPU" of "CPULoad", "Load" of "Load".
std::size_t wordLength(std::string_view name) {
  for (const std::string_view word : kMixedWords)
    if (name.starts_with(word)) return word.size();
  std::size_t end = 1;
  while (end < name.size() && isUpper(name[end - 1]) && isUpper(name[end]))
    ++end;
  const bool isAcronym = end > 1;
  if (isAcronym) return end < name.size() && !isUpper(name[end]) ? end - 1 : end;
  while (end < name.size() && !isUpper(name[end]))
    ++end;
  return end;
}

// "UGIDQuotaInfo" as ugid_quota_info.
std::string wordsOf(std::string_view name) {
  std::string words;
  while (!name.empty()) {
    const std::size_t length = wordLength(name);
    if (!words.empty()) words += '_';
    words += toLower(std::string(name.substr(0, length)));
    name.remove_prefix(length);
  }
  return words;
}

}  // namespace

std::string rootNameOf(std::string_view className) {
  if (const std::size_t scope = className.rfind("::"); scope != std::string_view::npos)
    className.remove_prefix(scope + 2);
  if (className.starts_with("KFL") || className.starts_with("KFA")) className.remove_prefix(3);
  return wordsOf(className);
}

}  // namespace KFL
