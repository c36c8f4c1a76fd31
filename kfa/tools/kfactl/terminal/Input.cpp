// SPDX-License-Identifier: Apache-2.0
#include "terminal/Input.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <KFAFunctionality/files/KFAConfigFile.h>

#include "terminal/Trouble.h"

namespace kfactl {

namespace {

Input readStandardInput() {
  static bool isRead = false;
  if (std::exchange(isRead, true)) throw Trouble("standard input can be read only once");
  Input input{"standard input", {}};
  constexpr std::size_t kBlock = std::size_t{1} << 16;
  std::size_t length = 0;
  for (;;) {
    if (length > KFA::kMaxConfigFileSize) throw Trouble("standard input: more than 1 GiB");
    input.text.resize(length + kBlock);
    const ssize_t got = ::read(STDIN_FILENO, input.text.data() + length, kBlock);
    if (got == 0) break;
    if (got > 0)
      length += static_cast<std::size_t>(got);
    else if (errno != EINTR)
      throw Trouble(std::string("standard input: ") + std::strerror(errno));
  }
  input.text.resize(length);
  return input;
}

}  // namespace

Input readInput(const std::string& path) {
  if (isStandardStream(path)) return readStandardInput();
  Input input{path, {}};
  must(KFA::KFAConfigFile(path).read(input.text));
  return input;
}

}  // namespace kfactl
