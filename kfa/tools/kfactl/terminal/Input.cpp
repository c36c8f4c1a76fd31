// SPDX-License-Identifier: Apache-2.0
#include "terminal/Input.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <KFAFunctionality/files/KFAConfigFile.h>

#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

bool isStandardInputRead = false;

std::string readToEnd() {
  std::string text;
  constexpr std::size_t kBlock = std::size_t{1} << 16;
  std::size_t length = 0;
  for (;;) {
    if (length > KFA::kMaxConfigFileSize) throw Trouble("standard input: more than 1 GiB");
    text.resize(length + kBlock);
    const ssize_t got = ::read(STDIN_FILENO, text.data() + length, kBlock);
    if (got == 0) break;
    if (got > 0)
      length += static_cast<std::size_t>(got);
    else if (errno != EINTR)
      throw Trouble(std::string("standard input: ") + std::strerror(errno));
  }
  text.resize(length);
  return text;
}

Input readStandardInput() {
  // A command that runs for several nodes reads it once for all.
  if (keptByThread() != nullptr) {
    static const std::string text = readToEnd();
    return {"standard input", text};
  }
  if (std::exchange(isStandardInputRead, true)) throw Trouble("standard input can be read only once");
  return {"standard input", readToEnd()};
}

}  // namespace

void renewStandardInput() {
  isStandardInputRead = false;
}

Input readInput(const std::string& path) {
  if (isStandardStream(path)) return readStandardInput();
  Input input{path, {}};
  must(KFA::KFAConfigFile(path).read(input.text));
  return input;
}

}  // namespace kfactl
