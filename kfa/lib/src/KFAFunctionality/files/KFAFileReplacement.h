// SPDX-License-Identifier: Apache-2.0
// A file replaced as a whole: whatever happens, the old content stands there or the new one.
//
// The new content is written to a temporary file beside the target, brought to disk, given the target's mode, owner, ACL
// and extended attributes, and renamed. Symbolic links are followed. All writers that use this class take turns, by a
// lock on the file itself: threads, processes, any number. Others are noticed: the file that is renamed away is what was
// read, byte for byte and with the same attributes, or it is put back; and a new file takes no other's place. An object serves one
// thread and one file, once; in a forked child it holds nothing, and commits nothing.
//
// The temporary files have fixed names, whatever the options: .NAME.kfa-new, and .NAME.kfa-backup for what becomes the
// backup. So the next run finds what a crash has left, and commit() or finish() removes it. Something else of this name (a
// link, a folder, a file with a second name) is nobody's leavings and stays; a run that is refused removes nothing.
//
//   lock(path)   the target is opened, locked, and still the one that the path names
//   read()       its content, when it exists
//   commit(text) the replacement; or finish() when there is nothing to replace
#ifndef KFAFUNCTIONALITY_FILES_KFAFILEREPLACEMENT_H
#define KFAFUNCTIONALITY_FILES_KFAFILEREPLACEMENT_H

#include <sys/stat.h>

#include <chrono>
#include <memory>
#include <string>

#include <boost/function.hpp>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFALockedFile;

struct KFAReplaceOptions {
  // Replaces a file that has several hard links; its other names then keep the old content.
  bool hardLinks = false;
  // The old content is kept under the file's name with this suffix, in the place of any file but a symbolic link;
  // empty: it is not kept.
  std::string backupSuffix;
  // How long to wait for other writers when none of them gets anything done, in milliseconds.
  int lockTimeout = 60000;
  // Is told, by a text that names the file, what a new file could not be given that the old one had: an owner or a
  // group, where this process may not set it.
  boost::function<void(const std::string&)> note = {};
};

class KFAFileReplacement {
 public:
  KFAFileReplacement();
  KFAFileReplacement(const KFAFileReplacement&) = delete;
  KFAFileReplacement& operator=(const KFAFileReplacement&) = delete;
  // Removes a temporary file that was not committed.
  ~KFAFileReplacement();

  // Takes the file for this writer. A file that does not exist is to be created when mayCreate says so, with this
  // mode less the process's umask. 0, or -1 with an error text that names the file.
  int lock(const std::string& path, const KFAReplaceOptions& options, bool mayCreate,
           mode_t createMode = 0666);
  bool exists() const { return target_ != nullptr; }
  // The file's permission bits; those of lock() when it does not exist.
  mode_t getMode() const { return mode_; }
  // Reads the file that is locked. 0, or -1 with an error text; 1, as of commit(), when another machine has replaced it.
  int read();
  const std::string& getContent() const { return content_; }
  // Puts the text in its place. 0, or -1 with an error text; then the file is as it was, unless the text says that it is
  // replaced. 1, with an error text, when somebody who does not take this lock, or another machine, has changed or made the
  // file meanwhile: it is as that one left it. Begin anew with a new object, or give up.
  int commit(const std::string& text);
  // For a file that stays as it is.
  void finish();

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
  bool isStillNamed() const;
  int follow(std::string& target, std::string& folder) const;
  int takeTurn(const KFAReplaceOptions& options, bool mayCreate, mode_t createMode);
  int openTarget(bool mayCreate, bool& again);
  int lockTarget(KFALockedFile& target, bool& again);
  int checkKind(const struct stat& status) const;
  int checkLinks(bool& again) const;
  int createTarget(bool& again);
  int openTemporary();
  int takeTemporary(bool& again);
  int clearStale();
  int removeStale(const std::string& path, KFALockedFile& file) const;
  bool isOthers(const KFALockedFile& file, const struct stat& status) const;
  std::string moveAside() const;
  int prepare(const std::string& text);
  int writeTemporary(const std::string& text);
  int writeBackup();
  int putInPlace();
  int checkTemporary() const;
  int checkTarget() const;
  int exchange() const;
  int putBack(int error) const;
  int checkOld() const;
  bool renameBy(unsigned flags) const;
  int rename() const;
  int renameNew() const;
  int linkNew() const;
  int waitFor(const KFALockedFile& file);
  int fail(const std::string& what, int error) const;
  int refuse(const std::string& what) const;
  int refuseTaken() const;
  int refuseChanged() const;
  void discard();

  std::string path_;        // as it was given, for error texts
  std::string targetPath_;  // with symbolic links followed
  std::string folderPath_;
  std::string temporaryPath_;
  std::string backupTemporaryPath_;
  KFAReplaceOptions options_;
  mode_t mode_ = 0;
  Turns turns_;
  std::string content_;
  bool isRead_ = false;
  struct stat status_ {};                  // of the target when it was locked
  const KFALockedFile* model_ = nullptr;   // the file whose attributes the new one gets
  std::unique_ptr<KFALockedFile> target_;  // none when it does not exist
  std::unique_ptr<KFALockedFile> temporary_;
};

}  // namespace KFA

#endif
