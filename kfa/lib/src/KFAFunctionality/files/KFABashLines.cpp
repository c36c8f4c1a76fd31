// SPDX-License-Identifier: Apache-2.0
#include "KFABashLines.h"

#include <KFLCommon/KFLText.h>

namespace KFA {

std::string describeFault(const KFL::KFLBashLine& line) {
  const std::string text = line.describe();
  const std::size_t column = text.find(": ");
  return column == std::string::npos ? text : text.substr(column + 2);
}

std::string quoteText(const std::string& text) {
  constexpr std::size_t kMost = 100;
  constexpr const char* kDigits = "0123456789abcdef";
  std::string quoted = "\"";
  for (const char c : text.substr(0, kMost)) {
    const auto byte = static_cast<unsigned char>(c);
    if (KFL::isControl(c)) {
      quoted.append("\\x").append({kDigits[byte >> 4], kDigits[byte & 15]});
    } else {
      quoted += c;
    }
  }
  return quoted + (text.size() > kMost ? "...\"" : "\"");
}

}  // namespace KFA
