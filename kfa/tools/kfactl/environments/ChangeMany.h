// SPDX-License-Identifier: Apache-2.0
// One change of one file or many, as every `set` makes it: shown, written elsewhere, or made in all files or none.
#ifndef KFACTL_CHANGEMANY_H
#define KFACTL_CHANGEMANY_H

#include <functional>
#include <string>
#include <vector>

#include <KFAFunctionality/node/KFAChangeList.h>
#include <KFAFunctionality/node/KFANodeSelection.h>

#include "environments/FileChange.h"
#include "terminal/Document.h"

namespace kfactl {

// KEY=VALUE as a change; refused with what would be right. `next` is the word behind it.
KFA::KFAChange changeOf(const std::string& word, const std::string& next);

// The files and the changes of a command line `FILE... KEY=VALUE...`. The first word is a file whatever it looks like;
// behind it, a word that begins as KEY=VALUE is a change, whatever the value holds.
struct FilesAndChanges {
  std::vector<std::string> files;
  KFA::KFAChangeList changes;
};
FilesAndChanges splitFilesAndChanges(const std::vector<std::string>& words);
// The same of `FILE KEY=VALUE...`, where no word is a condition.
FilesAndChanges splitFileAndChanges(const std::vector<std::string>& words);

// For commands that have keys of their own on the line: refuses conditions with keys in capitals.
void refuseCapitalConditions(const std::vector<std::string>& files);

class ChangeMany {
 public:
  using Files = std::vector<KFA::KFAEnvironmentFile>;
  // The new text of a file; failures are thrown.
  using Edit = FileChange::Edit;

  // The options of a change; those of a change of many files only where there may be many.
  void declare(CLI::App& app, bool ofMany);

  const KFA::KFASetOptions& options() const { return single_.options(); }
  // Refuses what a file that is to be made has no use for.
  void refuseForNew(const Files& files) const;
  // As --dry-run does.
  void setDryRun() { dryRun_ = true; }

  // Makes the change: the exit status. isSingle: nothing is printed when it is made. `from`: the files are new, and
  // begin with this text.
  int apply(Session& session, const Files& files, bool isSingle, const Edit& edit,
            const std::string* from = nullptr) const;
  // Makes the changes of the words in the one file that they name, by its path.
  int applyChanges(Session& session, const FilesAndChanges& words, const KFA::KFAConfigRules& rules) const;

 private:
  FileChange single_;
  bool isDryRun() const { return dryRun_ || single_.isDryRun(); }

  bool dryRun_ = false;
  bool keepGoing_ = false;
};

// Prints a list of changes in the format asked for, and as a document.
void printChanges(Session& session, const KFA::KFAChangeList& changes);
Document describeChanges(const KFA::KFAChangeList& changes);

}  // namespace kfactl

#endif
