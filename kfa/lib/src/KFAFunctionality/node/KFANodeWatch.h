// SPDX-License-Identifier: Apache-2.0
// What happens to the environments of a folder while others edit it: keys that get other values, files that come and go,
// findings that are new and those that are cured.
//
//   KFANodeWatch watch(folder, parser, options);
//   if (watch.start() != 0) ...
//   while (poll watch.getDescriptor()) {
//     std::vector<KFANodeEvent> events;
//     if (watch.take(events) != 0) break;
//   }
//
// What is there now is held against what was there before, so a file that was replaced, or written in several steps, is
// told by what it says differently and by nothing else. Nothing is printed, no thread is started, and between calls the
// kernel does the waiting. One object serves one thread.
#ifndef KFAFUNCTIONALITY_NODE_KFANODEWATCH_H
#define KFAFUNCTIONALITY_NODE_KFANODEWATCH_H

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/node/KFAChangeList.h>
#include <KFAFunctionality/node/KFANodeCheck.h>
#include <KFAFunctionality/node/KFANodeSelection.h>

namespace KFA {

struct KFANodeEvent {
  enum class Kind {
    Added,     // a file that was not there
    Removed,   // a file that is no longer there
    Changed,   // a key that says something else: `change`
    Failed,    // a file that cannot be read any more: `text`; it counts as it was
    Found,     // a finding that is new: `finding`
    Cured,     // a finding that is there no longer: `finding`
    Overflow,  // the kernel lost count, and everything was read anew
    Gone,      // the folder is not there any more, or under another name; there is nothing to wait for
  };

  Kind kind = Kind::Changed;
  KFAEnvironmentFile file;  // for a finding about the node, its folder
  KFAChange change = {};
  KFANodeFinding finding = {};
  std::string text = {};
};

// "added", "removed" ...
const char* toString(KFANodeEvent::Kind kind);

class KFANodeWatch {
 public:
  KFANodeWatch(const std::string& folder, const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
               const KFANodeCheckOptions& options);
  KFANodeWatch(const KFANodeWatch&) = delete;
  KFANodeWatch& operator=(const KFANodeWatch&) = delete;
  ~KFANodeWatch();

  // Reads the folder as it is, and appends what cannot be read. 0, or -1 with an error text.
  int start(std::vector<KFANodeEvent>& events);
  // Can be read when something happened; belongs to the object.
  int getDescriptor() const { return descriptor_; }
  std::size_t getCount() const { return texts_.size(); }

  // Appends what happened since the last call; nothing where that says the same. 0; 1 when the folder is gone; -1 with an
  // error text. Does not wait.
  int take(std::vector<KFANodeEvent>& events);

 private:
  // By what makes them the same.
  using Findings = std::multimap<std::string, KFANodeFinding>;
  using ComesBefore = bool (*)(const KFAEnvironmentFile&, const KFAEnvironmentFile&);

  // What the kernel told: names of files, and what is about the folder.
  struct Notice {
    std::set<std::string> names;
    bool isOverflow = false;
    bool isGone = false;
  };

  int readNotice(Notice& notice) const;
  int listFolder(std::set<std::string>& names) const;
  bool lookAt(const std::string& name, std::vector<KFANodeEvent>& events);
  void compare(const KFAEnvironmentFile& file, const std::string& before, const std::string& after,
               std::vector<KFANodeEvent>& events) const;
  void check();
  void compareFindings(std::vector<KFANodeEvent>& events);

  std::string folder_;
  boost::shared_ptr<const KFAEnvConfigBashParser> parser_;
  KFANodeCheckOptions options_;
  int descriptor_ = -1;
  int watched_ = -1;
  std::map<KFAEnvironmentFile, std::string, ComesBefore> texts_;
  Findings findings_;
};

}  // namespace KFA

#endif
