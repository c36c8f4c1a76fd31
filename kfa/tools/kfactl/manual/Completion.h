// SPDX-License-Identifier: Apache-2.0
// What a word of the command line can become, from the tables of commands, options and keys.
#ifndef KFACTL_MANUAL_COMPLETION_H
#define KFACTL_MANUAL_COMPLETION_H

#include <string>
#include <vector>

#include "terminal/Cli.h"

namespace kfactl {

struct Candidate {
  std::string word;
  std::string summary;
};

// Those for the last of the words behind the program's name; names of files are left to the shell.
std::vector<Candidate> completionsOf(Session& session, const std::vector<std::string>& words);

}  // namespace kfactl

#endif
