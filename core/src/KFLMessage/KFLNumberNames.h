// SPDX-License-Identifier: Apache-2.0
// Tables of numbers and their names, for values that are numbers in a program and names in a message.
//
// A table refers to its rows, which are constant and outlive it; any thread may use it.
//
//   constexpr KFLNumberName kColors[] = {{1, "red"}, {2, "green"}, {0, ""}};
//   constinit const KFLNumberNames KFAThing::colorIdToName{kColors};
#ifndef KFLMESSAGE_KFLNUMBERNAMES_H
#define KFLMESSAGE_KFLNUMBERNAMES_H

#include <span>
#include <string>
#include <string_view>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

struct KFLNumberName {
  int number;
  const char* name;  // empty for a number that stands for nothing
};

class KFLNumberNames {
 public:
  constexpr explicit KFLNumberNames(std::span<const KFLNumberName> rows) : rows_(rows) {}

  constexpr auto begin() const { return rows_.begin(); }
  constexpr auto end() const { return rows_.end(); }

  // The name of a number: that of the first row with it; null when no row has it.
  constexpr const char* findName(int number) const {
    for (const KFLNumberName& row : rows_)
      if (row.number == number) return row.name;
    return nullptr;
  }
  // The number of a name: 0, or -1 when no row has the name; then `number` is untouched.
  constexpr int findNumber(std::string_view name, int& number) const {
    for (const KFLNumberName& row : rows_) {
      if (name != row.name) continue;
      number = row.number;
      return 0;
    }
    return -1;
  }

  // The names that are not empty, for people: "red or green".
  std::string listNames() const;

 private:
  std::span<const KFLNumberName> rows_;
};

}  // namespace KFL

#endif
