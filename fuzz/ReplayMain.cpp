// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target over every file of the folders and files named, without a fuzzer: its seeds are tests.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

void addFiles(const fs::path& path, std::vector<fs::path>& files) {
  if (!fs::is_directory(path)) {
    files.push_back(path);
    return;
  }
  for (const auto& entry : fs::recursive_directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
}

bool run(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!file.is_open() || file.bad()) {
    std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
    return false;
  }
  std::printf("%s\n", path.c_str());
  std::fflush(stdout);
  // A block of its own, without a byte behind it, shows a sanitizer every step beyond the input.
  const auto exact = std::make_unique<std::uint8_t[]>(content.size());
  if (!content.empty()) std::memcpy(exact.get(), content.data(), content.size());
  LLVMFuzzerTestOneInput(exact.get(), content.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i)
    addFiles(argv[i], files);
  std::sort(files.begin(), files.end());
  if (files.empty()) {
    std::fprintf(stderr, "no input to run over; name seed files or folders\n");
    return 1;
  }
  return std::all_of(files.begin(), files.end(), run) ? 0 : 1;
}
