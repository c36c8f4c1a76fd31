// SPDX-License-Identifier: Apache-2.0
// The command line tool on a file that an agent has open: stopped or killed at any of its calls.
#ifndef KFLCORE_TESTS_CACHETOOLS_H
#define KFLCORE_TESTS_CACHETOOLS_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace cachefaults {

class Tool {
 public:
  // Runs the program up to the `at`-th of its calls that lock, write or rename, counted from 1; 0 lets it run.
  Tool(const std::vector<std::string>& arguments, std::uint32_t at);
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;
  ~Tool() { die(); }

  // Whether it stands at that call; otherwise it has ended.
  bool stands() const { return isThere_; }
  void letGo();
  // Lets it go on, to its end: its exit status, or minus the signal that ended it.
  int finish();
  void die();

 private:
  void runTo(std::uint32_t at);

  pid_t process_ = -1;
  bool isThere_ = false;  // and stands
  bool isFree_ = false;   // and runs
  int status_ = 0;
};

}  // namespace cachefaults

#endif
