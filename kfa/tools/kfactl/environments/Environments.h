// SPDX-License-Identifier: Apache-2.0
// The environments that a command is about, from the words that stand for FILE, and a walk over their files in which a
// broken one hides no other.
#ifndef KFACTL_ENVIRONMENTS_H
#define KFACTL_ENVIRONMENTS_H

#include <functional>
#include <string>
#include <vector>

#include <KFAFunctionality/node/KFANodeSelection.h>

#include "terminal/Document.h"
#include "terminal/Input.h"
#include "terminal/Trouble.h"

namespace kfactl {

class Session;

// What no word stands for.
enum class WhenNone { All, Refuse };

class Environments {
 public:
  using File = KFA::KFAEnvironmentFile;

  // Resolves the words; names that are no environments are noted on standard error. Throws for a word that stands for
  // nothing.
  Environments(Session& session, const std::vector<std::string>& words, WhenNone whenNone);

  // Whether one file, "-" or VEID was named, and the output needs no names of files.
  bool isSingle() const { return isSingle_; }
  const std::vector<File>& files() const { return files_; }

  // Calls `part` with the text of each file. What it throws, and a file that cannot be read, is a line on standard error
  // and goes to `failed`; of a single file it is thrown.
  using Part = std::function<void(const File& file, const Input& input)>;
  using Failed = std::function<void(const File& file, const std::string& why)>;
  void each(const Part& part, const Failed& failed = {});

  // The same in two halves, for what takes longer than reading a file: a Make does all that concerns its file alone and
  // gives what is left to do, which is called in this thread and in the order of the files. `maker` is called for each
  // thread that helps, so what its Make works on need not be shared.
  using Finish = std::function<void()>;
  using Make = std::function<Finish(const File& file, const Input& input)>;
  void eachAtOnce(const std::function<Make()>& maker, const Failed& failed = {});

  // The exit status, which is 2 when there was trouble with a file.
  int status(int otherwise) const { return troubles_.status(otherwise); }

 private:
  void collect(const File& file, const std::function<void()>& part, const Failed& failed);

  std::vector<File> files_;
  bool isSingle_ = false;
  Troubles troubles_;
};

// The path of the one environment that a word names.
std::string pathOfOne(Session& session, const std::string& word);

// The object that stands for a file in a list: its name and its VEID, null where it has none.
Document documentOf(const KFA::KFAEnvironmentFile& file);
// The same with what there is to say of it as "data", or why there is nothing as "error".
Document documentOf(const KFA::KFAEnvironmentFile& file, Document data);
Document failureOf(const KFA::KFAEnvironmentFile& file, const std::string& why);

}  // namespace kfactl

#endif
