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

// The whole content.
Input readInput(const std::string& path);

inline bool isStandardStream(const std::string& path) {
  return path == "-";
}

}  // namespace kfactl

#endif
