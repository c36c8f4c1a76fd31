// SPDX-License-Identifier: Apache-2.0
// A file replaced as a whole: whatever happens, the old content stands there or the new one.
//
// The new content is written to a temporary file beside the target, brought to disk, given the target's mode, owner, ACL
// and extended attributes, and renamed. Symbolic links are followed. All writers that use this class take turns, by a
// lock on the file itself: threads, processes, any number. An object serves one thread and one file, once.
//
// The temporary files have fixed names, whatever the options: .NAME.new, and .NAME.backup.new for what becomes the
// backup. So the next run finds what a crash has left, and lock() removes it, whether or not a commit() follows.
//
//   lock(path)   the target is opened, locked, and still the one that the path names
//   read(text)   its content, when it exists
//   commit(text) the replacement
#ifndef KFAFUNCTIONALITY_FILES_KFAFILEREPLACEMENT_H
#define KFAFUNCTIONALITY_FILES_KFAFILEREPLACEMENT_H

#include <sys/stat.h>

#include <chrono>
#include <string>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

struct KFAReplaceOptions {
  // Replaces a file that has several hard links; its other names then keep the old content.
  bool hardLinks = false;
  // The old content is kept under the file's name with this suffix, in the place of any file but a symbolic link;
  // empty: it is not kept.
  std::string backupSuffix;
  // How long to wait for other writers when none of them gets anything done, in milliseconds.
  int lockTimeout = 60000;
};

class KFAFileReplacement {
 public:
  KFAFileReplacement() = default;
  KFAFileReplacement(const KFAFileReplacement&) = delete;
  KFAFileReplacement& operator=(const KFAFileReplacement&) = delete;
  // Removes a temporary file that was not committed.
  ~KFAFileReplacement();

  // Takes the file for this writer. A file that does not exist is to be created when mayCreate says so, with this
  // mode less the process's umask. 0, or -1 with an error text that names the file.
  int lock(const std::string& path, const KFAReplaceOptions& options, bool mayCreate,
           mode_t createMode = 0666);
  bool exists() const { return target_ >= 0; }
  // The file's permission bits; those of lock() when it does not exist.
  mode_t getMode() const { return mode_; }
  // The content of the file that is locked.
  int read(std::string& text) const;
  // Puts the text in its place. 0, or -1 with an error text; then the file is as it was. 1 when somebody who does
  // not take this lock has put another file there meanwhile: begin anew with a new object.
  int commit(const std::string& text);

 private:
  // The turns that other writers have before this one. Sleeps grow and differ, so that a thousand writers do not keep
  // the machine busy with asking; the time that is left begins anew whenever a file that is in the way is another one.
  class Turns {
   public:
    void start(int milliseconds) { timeout_ = std::chrono::milliseconds(milliseconds); }
    // Sleeps a moment while a writer holds this file; false when the time is over.
    bool wait(const struct stat& held);

   private:
    using Clock = std::chrono::steady_clock;
    using Microseconds = std::chrono::microseconds;

    Microseconds sleep_{250};
    Microseconds timeout_{0};
    Clock::time_point deadline_;
    struct stat held_ {};
  };

  int resolve();
  int takeTurn(const KFAReplaceOptions& options, bool mayCreate, mode_t createMode);
  int openTarget(bool mayCreate, bool& again);
  int checkTarget(const struct stat& status) const;
  int createTarget(bool& again);
  int openTemporary();
  int takeTemporary(bool& again);
  int clearStale();
  void clearStaleFiles() const;
  int writeTemporary(const std::string& text);
  int writeBackup() const;
  int syncFolder() const;
  int waitFor(int descriptor);
  int fail(const std::string& what, int error) const;
  int refuse(const std::string& what) const;
  void discard();

  std::string path_;        // as it was given, for error texts
  std::string targetPath_;  // with symbolic links followed
  std::string folderPath_;
  std::string temporaryPath_;
  std::string backupTemporaryPath_;
  KFAReplaceOptions options_;
  mode_t mode_ = 0;
  Turns turns_;
  int model_ = -1;  // the file whose attributes the new one gets
  int target_ = -1;
  int temporary_ = -1;
};

}  // namespace KFA

#endif
