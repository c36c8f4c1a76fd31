// SPDX-License-Identifier: Apache-2.0
// Files that commands read; "-" is standard input.
#ifndef KFACTL_INPUT_H
#define KFACTL_INPUT_H

#include <string>

namespace kfactl {

struct Input {
  std::string name;  // for messages
  std::string text;
};

// The whole content. Standard input can be read once by a command line.
Input readInput(const std::string& path);
// A new command line begins, which may read standard input.
void renewStandardInput();

inline bool isStandardStream(const std::string& path) {
  return path == "-";
}

}  // namespace kfactl

#endif
