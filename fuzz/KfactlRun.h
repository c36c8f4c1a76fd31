// SPDX-License-Identifier: Apache-2.0
// Command lines of the program, run in this process in a folder with a file of each kind that it works on.
#ifndef KFA_FUZZ_KFACTLRUN_H
#define KFA_FUZZ_KFACTLRUN_H

#include <map>
#include <string>
#include <vector>

#include "Fuzzing.h"

namespace kfl_fuzz {

using Words = std::vector<std::string>;
// Contents by path, from the folder in which command lines run.
using Files = std::map<std::string, std::string>;

struct Outcome {
  int status = 0;
  std::string out, errors;

  friend bool operator==(const Outcome&, const Outcome&) = default;
};

// The one place where command lines run: the process has one working folder. The node's folder is `conf`.
class KfactlRun {
 public:
  static KfactlRun& get();

  // Leaves the folder with its files as they are at first, and this content in `given` and in conf/105.conf.
  void renew(const std::string& given);
  void put(const std::string& path, const std::string& content);

  // Runs the words behind the program's name. No word can lead out of the folder.
  Outcome run(const Words& words, std::string_view standardInput = {});
  // The same for a command that must succeed, with one of these statuses.
  std::string mustPrint(const Words& words, int mostStatus = 0, std::string_view standardInput = {});

  Files files() const;
  std::string content(const std::string& path) const;

 private:
  KfactlRun();
  void makeCaches();
  void removeFolders() const;

  Folder folder_;
  Files first_;
};

// A word as it may be given to run(): it names nothing outside.
std::string within(std::string word);

// The command line for people.
std::string lineOf(const Words& words);

}  // namespace kfl_fuzz

#endif
