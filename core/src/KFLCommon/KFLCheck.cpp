// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLCheck.h>

#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace KFL {

namespace {

iovec piece(std::string_view text) {
  return {const_cast<char*>(text.data()), text.size()};
}

iovec piece(const char* text) {
  return piece(std::string_view(text != nullptr ? text : "?"));
}

}  // namespace

void abortCheck(const char* module, const char* unit, int line, const char* function, const char* signature,
                const char* conditionText) {
  std::array<char, 16> number;
  const auto end = std::to_chars(number.data(), number.data() + number.size(), line).ptr;
  const std::string_view lineText(number.data(), static_cast<std::size_t>(end - number.data()));
  const std::array<iovec, 13> pieces = {piece("check failed: "),
                                        piece(module),
                                        piece(": "),
                                        piece(unit),
                                        piece(":"),
                                        piece(lineText),
                                        piece(": "),
                                        piece(function),
                                        piece(" ["),
                                        piece(signature),
                                        piece("]: "),
                                        piece(conditionText),
                                        piece("\n")};
  // Nothing can be done about a standard error that does not take the line.
  [[maybe_unused]] const ssize_t written =
      ::writev(STDERR_FILENO, pieces.data(), static_cast<int>(pieces.size()));
  std::abort();
}

}  // namespace KFL
