// SPDX-License-Identifier: Apache-2.0
// What the targets share: laws that end the run, choices that an input's bytes make, and folders of their own.
#ifndef KFA_FUZZ_FUZZING_H
#define KFA_FUZZ_FUZZING_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kfl_fuzz {

// Ends the run with the law, the error text of the thread and the particulars when the law does not hold.
void require(bool holds, const char* law, std::string_view particulars = {});

inline std::string_view viewOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Decisions taken from the bytes of an input one after the other, so that a changed byte changes one decision. Once the
// bytes are used up, each is the first one.
class Choices {
 public:
  explicit Choices(std::string_view input) : rest_(input) {}

  bool isAtEnd() const { return rest_.empty(); }
  // From 0 to limit - 1; limit is from 1 to 65536.
  std::size_t below(std::size_t limit);
  bool oneIn(std::size_t limit) { return below(limit) == limit - 1; }
  const char* oneOf(std::initializer_list<const char*> words) { return words.begin()[below(words.size())]; }
  // One of the words that '|' separates.
  std::string wordOf(std::string_view words);
  // Up to so many bytes of the input as they stand.
  std::string bytes(std::size_t limit);

 private:
  std::string_view rest_;
};

// An input of lines, a line "--", and the content of a file; without such a line it is all content.
struct LinesAndContent {
  std::vector<std::string> lines;
  std::string content;
};
LinesAndContent splitInput(std::string_view input);

// A new folder, removed with all that is in it.
class Folder {
 public:
  Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder();

  const std::filesystem::path& path() const { return path_; }
  // Leaves the folder with these files alone.
  void fill(const std::vector<std::pair<std::string, std::string>>& files) const;

 private:
  std::filesystem::path path_;
};

std::string contentOf(const std::filesystem::path& path);

}  // namespace kfl_fuzz

#endif
