// SPDX-License-Identifier: Apache-2.0
// kfactl --at: hands the command line to kfactl-at, beside this program.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

int runElsewhere(Session&, const std::vector<std::string>& words, const RunWords&) {
  std::array<char, 4096> target{};
  const ssize_t length = ::readlink("/proc/self/exe", target.data(), target.size() - 1);
  if (length <= 0) throw Trouble("--at: it cannot be told where this program is");
  const std::string program = std::string(target.data(), static_cast<std::size_t>(length)) + "-at";
  std::string name = "kfactl";
  std::vector<char*> arguments{name.data()};
  for (const std::string& word : words)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  ::execv(program.c_str(), arguments.data());
  throw Trouble("--at needs the program " + program +
                " of the package kfactl-at, which cannot be run: " + std::strerror(errno));
}

}  // namespace kfactl
