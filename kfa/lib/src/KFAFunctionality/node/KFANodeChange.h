// SPDX-License-Identifier: Apache-2.0
// One change of many files, all or none: every file is judged before the first is replaced, and when a replacement fails
// those before it are put back.
//
//   KFANodeChange change(edit, {});
//   for (path) change.judge(path);
//   if (change.isSound() && change.apply() != 0) puts(KFL::getErrorMessage().c_str());
//
// Each file is replaced as KFAConfigFile does it: whole, on disk before it takes its place, under its lock. A file that
// another process changed after it was judged is edited anew, so both changes take effect. A process killed in the midst
// leaves each file as it was or as it shall be; the same change made again finishes the rest, and takes away what the
// killed one left beside the files, also where nothing is to be changed any more.
//
// The library starts no threads. Who has some lends them to apply(), since files brought to disk at the same time cost
// little more than one. Edits are then called from several threads at once.
#ifndef KFAFUNCTIONALITY_NODE_KFANODECHANGE_H
#define KFAFUNCTIONALITY_NODE_KFANODECHANGE_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/node/KFANodeFiles.h>

namespace KFA {

class KFANodeChange {
 public:
  using Edit = KFANodeFiles::Edit;
  using Work = KFANodeFiles::Work;
  using Runner = KFANodeFiles::Runner;
  using File = KFANodeFile;

  KFANodeChange(const Edit& edit, const KFAReplaceOptions& how, KFANodeFiles& where = KFANodeFiles::local())
      : edit_(edit), how_(how), where_(where) {}

  // Reads and edits a file, and replaces nothing. Of the names that lead to one file the first is the one that is
  // replaced, and what becomes of it becomes of the others; one that would get another text is refused. So is a file that
  // the backup of another one would take the place of.
  const File& judge(const std::string& path);
  // The same for a file that is to be made from this text; it is refused when there is one.
  const File& judgeNew(const std::string& path, const std::string& from);

  const std::vector<File>& getFiles() const { return files_; }
  std::size_t count(File::State state) const;
  // Whether no file was refused.
  bool isSound() const { return count(File::State::Refused) == 0; }

  // Replaces the files that change. 0, or -1 with an error text that names the first failure. keepGoing: what fails
  // stops nothing, and nothing is put back.
  int apply(bool keepGoing = false, const Runner& runner = {});

 private:
  void judgeAlone(File& file);
  void judgeBesideOthers(File& file);

  Edit edit_;
  KFAReplaceOptions how_;
  KFANodeFiles& where_;
  std::vector<File> files_;
  std::map<std::string, std::size_t> known_;     // by where their names lead, on this machine
  std::map<std::size_t, std::size_t> repeated_;  // further names of a file, and the first
};

}  // namespace KFA

#endif
