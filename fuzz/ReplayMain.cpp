// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target without a fuzzer, so that its law is a test: over every file of the folders and files named, its
// seeds, and over as many inputs more as the first argument says, which are seeds with bytes changed and rows of any
// bytes. They are the same in every run; the one that breaks a law stays in TARGET.input.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
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

// A block of its own, without a byte behind it, shows a sanitizer every step beyond the input.
void run(const std::string& input) {
  const auto exact = std::make_unique<std::uint8_t[]>(input.size());
  if (!input.empty()) std::memcpy(exact.get(), input.data(), input.size());
  LLVMFuzzerTestOneInput(exact.get(), input.size());
}

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (file.is_open() && !file.bad()) return content;
  std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
  std::exit(1);
}

class Inputs {
 public:
  explicit Inputs(const std::vector<std::string>& seeds) : seeds_(seeds) {}

  std::string next() {
    if (below(4) == 0) return bytes(600);
    std::string input = seed();
    for (std::size_t changes = below(4) + 1; changes > 0; --changes)
      change(input);
    return input;
  }

 private:
  std::size_t below(std::size_t limit) { return random_() % limit; }
  const std::string& seed() { return seeds_[below(seeds_.size())]; }

  std::string bytes(std::size_t most) {
    std::string made(below(most), '\0');
    for (char& byte : made)
      byte = static_cast<char>(random_());
    return made;
  }
  std::string pieceOf(const std::string& text, std::size_t most) {
    const std::size_t at = below(text.size() + 1);
    return text.substr(at, below(most));
  }
  // A stretch of the input goes, and something comes in its place: a piece of a seed, any bytes, or nothing.
  void change(std::string& input) {
    const std::size_t at = below(input.size() + 1);
    const std::size_t length = std::min(input.size() - at, below(2) == 0 ? below(4) : below(40));
    const std::size_t kind = below(3);
    input.replace(at, length, kind == 0 ? pieceOf(seed(), 60) : kind == 1 ? bytes(5) : "");
  }

  const std::vector<std::string>& seeds_;
  std::mt19937 random_{1};
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<fs::path> files;
  // A target may run in a folder of its own.
  for (int i = 2; i < argc; ++i)
    addFiles(fs::absolute(argv[i]), files);
  std::sort(files.begin(), files.end());
  if (files.empty()) {
    std::fprintf(stderr, "no input to run over; give a number of inputs, and name seed files or folders\n");
    return 1;
  }
  const fs::path latest = fs::absolute(fs::path(argv[0]).filename().string() + ".input");
  std::vector<std::string> seeds;
  for (const fs::path& path : files) {
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    run(seeds.emplace_back(contentOf(path)));
  }
  Inputs inputs(seeds);
  for (long i = std::strtol(argv[1], nullptr, 10); i > 0; --i) {
    const std::string input = inputs.next();
    std::ofstream(latest, std::ios::binary) << input;
    run(input);
  }
  fs::remove(latest);
  return 0;
}
