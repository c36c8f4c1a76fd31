// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLNumberNames.h>

#include <vector>

namespace KFL {

std::string KFLNumberNames::listNames() const {
  std::vector<std::string_view> names;
  for (const KFLNumberName& row : rows_)
    if (*row.name != '\0') names.emplace_back(row.name);
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i != 0) text += i + 1 == names.size() ? " or " : ", ";
    text += names[i];
  }
  return text;
}

}  // namespace KFL
