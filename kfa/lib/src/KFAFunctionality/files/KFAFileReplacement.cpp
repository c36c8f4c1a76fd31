// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAFileReplacement.h>

#include <fcntl.h>
#include <limits.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include <KFLCommon/KFLError.h>

#include "KFADescriptor.h"

namespace KFA {

namespace {

constexpr int kMostLinks = 40;
constexpr mode_t kPrivateMode = 0600;

// Whether the path still names the file that is open.
bool isNamedBy(int descriptor, const std::string& path) {
  struct stat open {};
  struct stat named {};
  return fstat(descriptor, &open) == 0 && lstat(path.c_str(), &named) == 0 && isSameFile(open, named);
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  return path.substr(0, slash + 1);
}

// Whether the names in this folder stand for what a process has open, and not for files in it.
bool isOfProcesses(const std::string& folder) {
  struct statfs system {};
  return statfs(folder.empty() ? "." : folder.c_str(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

// Hidden, and never so long that no file could have the name.
std::string temporaryNameOf(const std::string& name, std::string_view suffix) {
  return "." + name.substr(0, NAME_MAX - suffix.size() - 1).append(suffix);
}

// A lock that another open file description holds makes this fail with EWOULDBLOCK.
bool tryLock(int descriptor) {
  while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

// Removes what a writer that died has left under this name: 0, or an errno. One that lives holds a lock on it: then
// EWOULDBLOCK, and the file is open.
int removeStale(const std::string& path, Descriptor& file) {
  file = openForReading(AT_FDCWD, path, false);
  if (file.isOpen()) {
    if (!tryLock(file.get())) return errno;
    if (!isNamedBy(file.get(), path)) return 0;
  } else if (errno != ELOOP && errno != ENXIO) {
    return errno == ENOENT ? 0 : errno;
  }
  return unlink(path.c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

}  // namespace

bool KFAFileReplacement::Turns::wait(const struct stat& held) {
  constexpr Microseconds kLongestSleep(64000);
  const Clock::time_point now = Clock::now();
  // The number of a file that is gone may be given again; the time of its last change differs.
  const bool isSame = isSameFile(held, held_) && held.st_ctim.tv_sec == held_.st_ctim.tv_sec &&
                      held.st_ctim.tv_nsec == held_.st_ctim.tv_nsec;
  if (!isSame) deadline_ = now + timeout_;
  held_ = held;
  if (now >= deadline_) return false;
  sleep_ = std::min(2 * sleep_, kLongestSleep);
  // The last digits of the clock are random enough to keep the writers apart.
  const Clock::duration some = now.time_since_epoch() % (sleep_ / 2);
  std::this_thread::sleep_for(std::min<Clock::duration>(sleep_ / 2 + some, deadline_ - now));
  return true;
}

KFAFileReplacement::~KFAFileReplacement() {
  discard();
  if (target_ >= 0) close(target_);
}

void KFAFileReplacement::discard() {
  if (temporary_ < 0) return;
  if (isNamedBy(temporary_, temporaryPath_)) unlink(temporaryPath_.c_str());
  close(temporary_);
  temporary_ = -1;
}

int KFAFileReplacement::refuse(const std::string& what) const {
  KFL::setErrorMessage("%s: %s", path_.c_str(), what.c_str());
  return -1;
}

int KFAFileReplacement::fail(const std::string& what, int error) const {
  return refuse(what + ": " + describeError(error));
}

// Waits a moment for the writer that holds the file.
int KFAFileReplacement::waitFor(int descriptor) {
  struct stat held {};
  if (fstat(descriptor, &held) != 0) return fail("cannot be locked", errno);
  if (turns_.wait(held)) return 0;
  return refuse("another process keeps it locked and does not go on; try again when that one has ended");
}

int KFAFileReplacement::resolve() {
  targetPath_ = path_;
  char link[PATH_MAX];
  for (int links = 0;; ++links) {
    if (isOfProcesses(folderOf(targetPath_)))
      return refuse(
          "stands for what a process has open; a file's own name is wanted, or - for standard output");
    const ssize_t length = readlink(targetPath_.c_str(), link, sizeof(link));
    if (length < 0) break;
    if (links == kMostLinks || length == static_cast<ssize_t>(sizeof(link)))
      return fail("cannot be opened", ELOOP);
    const std::string to(link, static_cast<std::size_t>(length));
    targetPath_ = to.front() == '/' ? to : folderOf(targetPath_) + to;
  }
  folderPath_ = folderOf(targetPath_);
  const std::string name = targetPath_.substr(folderPath_.size());
  temporaryPath_ = folderPath_ + temporaryNameOf(name, ".new");
  backupTemporaryPath_ = folderPath_ + temporaryNameOf(name, ".backup.new");
  if (folderPath_.empty()) folderPath_ = ".";
  if (targetPath_.empty()) return refuse("no file; a file name is wanted");
  return 0;
}

int KFAFileReplacement::lock(const std::string& path, const KFAReplaceOptions& options, bool mayCreate,
                             mode_t createMode) {
  path_ = path;
  if (options.backupSuffix.find('/') != std::string::npos) {
    return refuse("the backup suffix \"" + options.backupSuffix +
                  "\" has a slash; the backup stands in the same folder");
  }
  if (resolve() != 0) return -1;
  return takeTurn(options, mayCreate, createMode);
}

int KFAFileReplacement::takeTurn(const KFAReplaceOptions& options, bool mayCreate, mode_t createMode) {
  options_ = options;
  mode_ = createMode;
  turns_.start(options.lockTimeout);
  int result = 0;
  for (bool again = true; again && result == 0;) {
    again = false;
    result = openTarget(mayCreate, again);
  }
  clearStaleFiles();
  return result;
}

int KFAFileReplacement::openTarget(bool mayCreate, bool& again) {
  Descriptor target = openForReading(AT_FDCWD, targetPath_, false);
  if (!target.isOpen()) {
    if (errno == ENOENT && mayCreate) return createTarget(again);
    return fail("cannot be opened", errno);
  }
  struct stat status {};
  if (fstat(target.get(), &status) != 0) return fail("cannot be opened", errno);
  if (checkTarget(status) != 0) return -1;
  if (!tryLock(target.get())) {
    if (errno != EWOULDBLOCK) return fail("cannot be locked", errno);
    again = true;
    return waitFor(target.get());
  }
  // Its last writer may have replaced it while this one waited.
  if (!isNamedBy(target.get(), targetPath_)) {
    again = true;
    return 0;
  }
  mode_ = status.st_mode & 07777;
  target_ = model_ = target.release();
  return 0;
}

int KFAFileReplacement::checkTarget(const struct stat& status) const {
  if (S_ISDIR(status.st_mode)) return refuse("a folder; a file is wanted");
  if (!S_ISREG(status.st_mode)) return refuse("not a regular file, so it cannot be replaced");
  if (status.st_nlink > 1 && !options_.hardLinks) {
    return refuse(
        "has " + std::to_string(status.st_nlink) +
        " hard links, and the other names would keep the old content; --hard-links replaces it all the "
        "same");
  }
  return 0;
}

// There is no file to lock: the temporary one stands for it.
int KFAFileReplacement::createTarget(bool& again) {
  if (openTemporary() != 0) return -1;
  struct stat status {};
  again = lstat(targetPath_.c_str(), &status) == 0;
  if (again) discard();
  return 0;
}

int KFAFileReplacement::openTemporary() {
  for (bool again = true; again;) {
    again = false;
    if (takeTemporary(again) != 0) return -1;
  }
  return 0;
}

int KFAFileReplacement::takeTemporary(bool& again) {
  const mode_t mode = target_ >= 0 ? kPrivateMode : mode_;
  Descriptor made(open(temporaryPath_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
  if (made.isOpen()) {
    // Somebody may have taken the new file for a stale one.
    again = !tryLock(made.get()) || !isNamedBy(made.get(), temporaryPath_);
    if (!again) temporary_ = made.release();
    return 0;
  }
  if (errno != EEXIST) {
    return fail("cannot be replaced, since no file can be made in its folder " + folderPath_, errno);
  }
  again = true;
  return clearStale();
}

// Makes room for the temporary file. A writer that lives is waited for.
int KFAFileReplacement::clearStale() {
  Descriptor file;
  const int error = removeStale(temporaryPath_, file);
  if (error == EWOULDBLOCK) return waitFor(file.get());
  return error == 0 ? 0 : fail("cannot be replaced, since " + temporaryPath_ + " is in the way", error);
}

// What cannot be removed now is in the way of the next replacement, and named there.
void KFAFileReplacement::clearStaleFiles() const {
  for (const std::string& path : {temporaryPath_, backupTemporaryPath_}) {
    Descriptor file;
    if (!path.empty()) removeStale(path, file);
  }
}

int KFAFileReplacement::read(std::string& text) const {
  std::size_t length = 0;
  const int error = lseek(target_, 0, SEEK_SET) < 0 ? errno : readToEnd(target_, text, length);
  text.resize(length);
  return error == 0 ? 0 : fail("cannot be read", error);
}

int KFAFileReplacement::commit(const std::string& text) {
  if (temporary_ < 0 && openTemporary() != 0) return -1;
  if (writeTemporary(text) != 0 || (target_ >= 0 && !options_.backupSuffix.empty() && writeBackup() != 0)) {
    discard();
    return -1;
  }
  if (target_ >= 0 && !isNamedBy(target_, targetPath_)) {
    discard();
    return 1;
  }
  if (rename(temporaryPath_.c_str(), targetPath_.c_str()) != 0) {
    const int error = errno;
    discard();
    return fail("cannot be replaced", error);
  }
  const int result = syncFolder();
  close(temporary_);
  temporary_ = -1;
  return result;
}

int KFAFileReplacement::writeTemporary(const std::string& text) {
  if (const int error = writeAll(temporary_, text); error != 0) {
    return fail("cannot be written, and is as it was", error);
  }
  std::string what;
  const int error = model_ < 0 ? 0 : copyAttributes(model_, temporary_, what);
  if (error != 0) return fail("its " + what + " cannot be kept, so it is as it was", error);
  return fsync(temporary_) == 0 ? 0 : fail("cannot be written, and is as it was", errno);
}

int KFAFileReplacement::writeBackup() const {
  const std::string backup = targetPath_ + options_.backupSuffix;
  struct stat old {};
  struct stat there {};
  if (fstat(target_, &old) == 0 && lstat(backup.c_str(), &there) == 0) {
    const bool isItself = isSameFile(old, there);
    if (isItself || S_ISLNK(there.st_mode)) {
      return refuse("its backup " + backup + " is " + (isItself ? "the file itself" : "a symbolic link") +
                    "; another suffix is wanted");
    }
  }
  KFAReplaceOptions options = options_;
  options.backupSuffix.clear();
  std::string text;
  if (read(text) != 0) return -1;
  for (int result = 1; result == 1;) {
    KFAFileReplacement copy;
    copy.path_ = copy.targetPath_ = backup;
    copy.folderPath_ = folderPath_;
    copy.temporaryPath_ = backupTemporaryPath_;
    if (copy.takeTurn(options, true, kPrivateMode) != 0) return -1;
    copy.model_ = target_;
    result = copy.commit(text);
    if (result < 0) return -1;
  }
  return 0;
}

int KFAFileReplacement::syncFolder() const {
  const Descriptor folder(open(folderPath_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // A folder that may be written but not read cannot be brought to disk by hand.
  if (!folder.isOpen() || fsync(folder.get()) == 0 || errno == EINVAL || errno == EROFS) return 0;
  return fail("replaced, but its folder " + folderPath_ + " cannot be brought to disk", errno);
}

}  // namespace KFA
