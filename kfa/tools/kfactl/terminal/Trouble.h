// SPDX-License-Identifier: Apache-2.0
// What ends a command with status 2: one line for standard error, without the program's name.
//
// Thrown anywhere in the program and caught once, in Cli.cpp.
#ifndef KFACTL_TROUBLE_H
#define KFACTL_TROUBLE_H

#include <cstddef>
#include <exception>
#include <string>
#include <utility>

namespace kfactl {

class Trouble : public std::exception {
 public:
  explicit Trouble(std::string text) : text_(std::move(text)) {}
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};

// The library's last error text as a trouble; with a prefix, "PREFIX: TEXT".
[[noreturn]] void throwLibraryError();
[[noreturn]] void throwLibraryError(const std::string& prefix);

// Throws when a function of the library failed.
inline void must(int result) {
  if (result < 0) throwLibraryError();
}

// The troubles with some of the files of a command that goes on with the others.
class Troubles {
 public:
  // Runs the part for one file; a Trouble is kept.
  template <class Part>
  void collect(Part part) {
    try {
      part();
    } catch (const Trouble& trouble) {
      if (count_++ == 0) first_ = trouble.what();
    }
  }
  // Throws the first trouble, with the number of the others.
  void finish() const;

 private:
  std::string first_;
  std::size_t count_ = 0;
};

}  // namespace kfactl

#endif
