// SPDX-License-Identifier: Apache-2.0
#include "KFLBashTwin.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <KFLCommon/KFLText.h>

namespace KFL::test {

namespace {

constexpr const char* kScript = R"script(
exec 9>&1 >/dev/null 2>&1 </dev/null
set +H
mapfile -d '' -t __names < names
for __i in "${!__names[@]}"; do
  (
    __name=${__names[__i]}
    trap 'if [[ -v $__name ]]; then printf "%d=%s\0" $__i "${!__name}" >&9; else printf "%d!\0" $__i >&9; fi' EXIT
    unset "$__name"
    source "./line$__i"
  )
done
exit 0
)script";

void writeFile(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string readPipe(const std::string& command) {
  std::string text;
  FILE* const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return text;
  std::array<char, 65536> chunk;
  for (std::size_t n = 0; (n = std::fread(chunk.data(), 1, chunk.size(), pipe)) > 0;)
    text.append(chunk.data(), n);
  return pclose(pipe) == 0 ? text : std::string();
}

// Records NUMBER=VALUE or NUMBER!, each with a NUL behind it. A part of a pipeline that dies of an expansion runs the trap
// too; the line's own record comes last.
std::vector<std::optional<std::string>> readAnswers(const std::string& output, std::size_t count) {
  std::vector<std::optional<std::string>> answers(count);
  std::vector<bool> answered(count, false);
  for (std::size_t at = 0; at < output.size();) {
    const std::string record = output.substr(at, output.find('\0', at) - at);
    const std::size_t mark = record.find_first_of("=!");
    std::size_t number = count;
    if (mark == std::string::npos || parseInteger(std::string_view(record).substr(0, mark), number) != 0)
      return {};
    if (number >= count) return {};
    answered[number] = true;
    answers[number].reset();
    if (record[mark] == '=') answers[number] = record.substr(mark + 1);
    at += record.size() + 1;
  }
  if (std::find(answered.begin(), answered.end(), false) != answered.end()) answers.clear();
  return answers;
}

}  // namespace

std::vector<std::optional<std::string>> askBash(const std::vector<BashQuestion>& questions) {
  std::string folder = (std::filesystem::temp_directory_path() / "kfl-bash-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) return {};
  std::string names;
  for (std::size_t i = 0; i < questions.size(); ++i) {
    names.append(questions[i].name).push_back('\0');
    writeFile(folder + "/line" + std::to_string(i), questions[i].line + "\n");
  }
  writeFile(folder + "/names", names);
  writeFile(folder + "/script", kScript);
  const std::string output = readPipe("cd '" + folder +
                                      "' && exec env -i PATH=/nonexistent LC_ALL=C.UTF-8 /bin/bash --norc "
                                      "./script");
  std::filesystem::remove_all(folder);
  return readAnswers(output, questions.size());
}

}  // namespace KFL::test
