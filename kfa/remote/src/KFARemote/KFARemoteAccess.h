// SPDX-License-Identifier: Apache-2.0
// Who may do what on a node, by the names in their certificates: a small file that an administrator writes.
//
//   # name               right   managers                environments
//   ops.example.com      all
//   *.nodes.example.com  read
//   backup               read    environments,samples
//   shop                 change  environments            11111111-0000-4000-8000-000000000001
//
// A name is one of the certificate's (its common name, or a name or address that it is for), "*.domain" any name below
// the domain. The rights are read, change (which includes read) and all (which includes change, running programs,
// installing, and removing for good). The files of the environments as such are the manager "files", and of the node
// itself: who may change them may set any key of any environment. Lists are separated by commas; "*", or nothing, is every manager, and every
// environment and the node itself; "node" is the node itself. What no line gives is denied.
//
// Any thread. The file is looked at again when it has changed; while it cannot be read, everything is denied.
#ifndef KFAREMOTE_KFAREMOTEACCESS_H
#define KFAREMOTE_KFAREMOTEACCESS_H

#include <sys/stat.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include <KFLCommon/KFLLock.h>
#include <KFLFunctionality/KFLEID.h>

#include <KFAFunctionality/access/KFAManagerOperations.h>

namespace KFA {

// The lines of an access file.
class KFARemoteRights {
 public:
  // 0, or -1 with an error text "NAME:LINE: what; what would be right".
  int parse(std::string_view text, const std::string& name);
  // Whether a caller with these names may call the operation; an environment that is not valid is the node.
  bool allow(const std::vector<std::string>& callers, const KFAManagerOperation& operation,
             const KFLEID& environment) const;

 private:
  struct Line {
    std::string name;
    KFAOperationKind right = KFAOperationKind::Read;
    std::vector<std::string> managers;  // empty: all
    std::vector<KFLEID> environments;   // an invalid id: the node
    bool everywhere = true;
  };
  int parseLine(const std::vector<std::string>& words, Line& line) const;

  std::vector<Line> lines_;
};

class KFARemoteAccess {
 public:
  explicit KFARemoteAccess(const std::string& path) : path_(path) {}

  // Reads the file now: 0, or -1 with an error text.
  int load() KFL_EXCLUDES(lock_);
  // As the file is now, or was a second ago.
  bool allow(const std::vector<std::string>& callers, const KFAManagerOperation& operation,
             const KFLEID& environment) KFL_EXCLUDES(lock_);

 private:
  using Clock = std::chrono::steady_clock;

  void reload() KFL_REQUIRES(lock_);
  int read(KFARemoteRights& rights) const;

  const std::string path_;
  KFLLock lock_;
  KFARemoteRights rights_ KFL_GUARDED_BY(lock_);
  struct stat status_ KFL_GUARDED_BY(lock_) {};
  Clock::time_point lookedAt_ KFL_GUARDED_BY(lock_);
};

}  // namespace KFA

#endif
