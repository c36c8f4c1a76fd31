// SPDX-License-Identifier: Apache-2.0
// What ends a command with status 2: one line for standard error, without the program's name.
//
// Thrown anywhere in the program and caught once, in Cli.cpp.
#ifndef KFACTL_TROUBLE_H
#define KFACTL_TROUBLE_H

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

// The troubles with some of the files of a command that goes on with the others: a line on standard error for each.
class Troubles {
 public:
  // Runs the part for one file: whether it went well.
  template <class Part>
  bool collect(Part part) {
    try {
      part();
      return true;
    } catch (const Trouble& trouble) {
      add(trouble.what());
      return false;
    }
  }
  void add(const std::string& text);
  // The exit status of the command, which is 2 when there was any trouble.
  int status(int otherwise) const;

 private:
  bool any_ = false;
};

}  // namespace kfactl

#endif
