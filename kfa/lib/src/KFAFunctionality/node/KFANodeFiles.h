// SPDX-License-Identifier: Apache-2.0
// The files of a node's environments, wherever the node is: what selections, checks and changes of environments work on.
// local() is this machine; KFAAgentFiles.h reaches those of another node through its agent.
//
// Paths are those of the node. Error texts name the path as it was given. Any thread.
#ifndef KFAFUNCTIONALITY_NODE_KFANODEFILES_H
#define KFAFUNCTIONALITY_NODE_KFANODEFILES_H

#include <cstddef>
#include <string>
#include <vector>

#include <boost/function.hpp>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/files/KFAFileReplacement.h>

namespace KFA {

// What a node has, or what its environments are guaranteed.
struct KFANodeResources {
  long long memory = 0;  // bytes
  long long disk = 0;    // bytes
  long long cpu = 0;     // hundredths of a percent of one processor, as CPUGUARANTEE is held

  // What this machine has: memory and processors by the kernel, the size of the file system with this folder. What
  // cannot be told is 0.
  static KFANodeResources ofMachine(const std::string& folder);
};

// One file of a change of several.
struct KFANodeFile {
  enum class State {
    Unchanged,    // the edit leaves it as it is
    Changed,      // judged, and not yet replaced
    Refused,      // the edit or the reading failed
    Replaced,     // done
    Failed,       // could not be replaced, and is as it was
    Restored,     // was replaced, and put back
    NotRestored,  // was replaced, and could not be put back
  };

  std::string path;
  std::string before;
  std::string after;
  State state = State::Unchanged;
  std::string error;
  bool isNew = false;
};

class KFANodeFiles {
 public:
  enum class Kind { None, File, Folder, LostLink };
  struct Entry {
    std::string name;
    Kind kind = Kind::File;
  };
  // The new text of a file: 0, or -1 with an error text.
  using Edit = boost::function<int(const std::string& name, const std::string& before, std::string& after)>;
  using Work = boost::function<void(std::size_t)>;
  // Calls the work once for each number below the count, in any order, in any threads, and returns when all is done.
  using Runner = boost::function<void(std::size_t count, const Work& work)>;
  struct ReplaceHow {
    KFAReplaceOptions options;
    bool keepGoing = false;  // what fails stops nothing, and nothing is put back
    Runner runner = {};
  };

  virtual ~KFANodeFiles();

  // What stands under a path; links are followed.
  virtual Kind look(const std::string& path) = 0;
  bool exists(const std::string& path) { return look(path) != Kind::None; }
  bool isFolder(const std::string& path) { return look(path) == Kind::Folder; }

  // The names in a folder, in no order, without those that begin with a dot, which are of unfinished changes: 0, or -1
  // with the reason as error text.
  virtual int list(const std::string& folder, std::vector<Entry>& entries) = 0;
  // The whole content: 0, or -1 with an error text.
  virtual int read(const std::string& path, std::string& text) = 0;
  // Says that these will be read, so that what is far away can come at once.
  virtual void expect(const std::vector<std::string>& paths);

  // Replaces each file, which was judged, by its new text, under its lock; one that is another by now is edited anew.
  // All or none, unless how.keepGoing: 0, or -1 with the text of the first failure; the files say what became of each.
  virtual int replace(const std::vector<KFANodeFile*>& files, const Edit& edit, const ReplaceHow& how) = 0;

  // Removes what a change that was killed has left beside a file, where that can be done without waiting.
  virtual void tidy(const std::string& path, const KFAReplaceOptions& how);

  // What the machine with this folder has: 0, or -1 with an error text.
  virtual int getResources(const std::string& folder, KFANodeResources& resources) = 0;

  // Those of this machine.
  static KFANodeFiles& local();

 protected:
  KFANodeFiles() = default;
  KFANodeFiles(const KFANodeFiles&) = default;
  KFANodeFiles& operator=(const KFANodeFiles&) = default;
};

}  // namespace KFA

#endif
