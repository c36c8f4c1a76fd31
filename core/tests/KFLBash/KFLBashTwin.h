// SPDX-License-Identifier: Apache-2.0
// For tests: asks the bash of the machine what it makes of lines.
//
// Every line is written to a file of its own and sourced in a subshell of one bash process, with a clean environment and no
// command to be found, in a folder that is removed afterwards.
#ifndef KFLBASH_TESTS_KFLBASHTWIN_H
#define KFLBASH_TESTS_KFLBASHTWIN_H

#include <optional>
#include <string>
#include <vector>

namespace KFL::test {

struct BashQuestion {
  std::string line;
  std::string name;  // the variable to look at afterwards
};

// The values of the variables, nothing where one is not set; an empty list when bash could not be run.
std::vector<std::optional<std::string>> askBash(const std::vector<BashQuestion>& questions);

}  // namespace KFL::test

#endif
