// SPDX-License-Identifier: Apache-2.0
#include "Fuzzing.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include <KFLCommon/KFLError.h>

namespace kfl_fuzz {

namespace fs = std::filesystem;

void require(bool holds, const char* law, std::string_view particulars) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n  last error: %s\n%.*s\n", law, KFL::getErrorMessage().c_str(),
               static_cast<int>(particulars.size()), particulars.data());
  std::abort();
}

std::size_t Choices::below(std::size_t limit) {
  std::size_t choice = 0;
  for (std::size_t reached = 1; reached < limit && !rest_.empty(); reached <<= 8U) {
    choice = choice << 8U | static_cast<unsigned char>(rest_.front());
    rest_.remove_prefix(1);
  }
  return choice % limit;
}

std::string Choices::wordOf(std::string_view words) {
  std::size_t left = below(static_cast<std::size_t>(std::count(words.begin(), words.end(), '|')) + 1);
  for (; left > 0; --left)
    words.remove_prefix(words.find('|') + 1);
  return std::string(words.substr(0, words.find('|')));
}

std::string Choices::bytes(std::size_t limit) {
  const std::string taken(rest_.substr(0, below(limit + 1)));
  rest_.remove_prefix(std::min(taken.size(), rest_.size()));
  return taken;
}

LinesAndContent splitInput(std::string_view input) {
  LinesAndContent split;
  const bool beginsWithMark = input.starts_with("--\n");
  const std::size_t mark = beginsWithMark ? 0 : input.find("\n--\n");
  if (mark == std::string_view::npos) return {{}, std::string(input)};
  split.content = input.substr(mark + (beginsWithMark ? 3 : 4));
  for (std::string_view lines = input.substr(0, mark); !lines.empty();) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    split.lines.emplace_back(lines.substr(0, end));
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  return split;
}

Folder::Folder() {
  std::string name = fs::temp_directory_path() / "kfa-fuzz-XXXXXX";
  require(::mkdtemp(name.data()) != nullptr, "a folder for files");
  path_ = name;
}

Folder::~Folder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void Folder::fill(const std::vector<std::pair<std::string, std::string>>& files) const {
  for (const auto& entry : fs::directory_iterator(path_))
    fs::remove_all(entry.path());
  for (const auto& [name, content] : files)
    std::ofstream(path_ / name, std::ios::binary) << content;
}

std::string contentOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace kfl_fuzz
