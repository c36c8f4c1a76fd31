// SPDX-License-Identifier: Apache-2.0
// Manual pages made from the tables of commands, options and keys, so that they say what the program does.
#ifndef KFACTL_MANUAL_PAGES_H
#define KFACTL_MANUAL_PAGES_H

#include <functional>
#include <string>
#include <vector>

#include "terminal/Cli.h"

namespace kfactl {

struct Page {
  std::string name;  // as in man NAME
  int section = 1;   // 1 commands, 5 files, 7 what they speak of
  // The whole page, in the macros of man(7).
  std::function<std::string(Session&)> print;
};

// Every page, the program's own first.
std::vector<Page> listPages();

}  // namespace kfactl

#endif
