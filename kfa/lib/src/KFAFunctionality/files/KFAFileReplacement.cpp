// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAFileReplacement.h>

#include <fcntl.h>
#include <limits.h>
#include <linux/magic.h>
#include <stdio.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <thread>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLSystem.h>

#include "KFADescriptor.h"

namespace KFA {

namespace {

using System = KFL::KFLSystem;

constexpr int kMostLinks = 40;
constexpr mode_t kPrivateMode = 0600;

// What another program wrote has the name of a temporary file; no call on a file gives this error.
constexpr int kOthers = ENOTUNIQ;

// Whether a file system does not know a way to rename or to link.
bool isUnknown(int error) {
  return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

bool hasName(const std::string& path) {
  struct stat there {};
  return System::lstat(path.c_str(), &there) == 0;
}

// Whether a writer is at work on the temporary file; then it is open.
bool isBeingWritten(const std::string& temporaryPath, KFALockedFile& file) {
  return file.open(temporaryPath, O_RDONLY) == 0 && file.tryLock(temporaryPath) == EWOULDBLOCK;
}

// What a run that died can have left under the name of a temporary file.
bool canBeLeft(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_nlink == 1;
}

}  // namespace

bool KFAFileReplacement::Turns::wait(const struct stat& held) {
  constexpr Microseconds kLongestSleep(4000);
  const Clock::time_point now = Clock::now();
  // The number of a file that is gone may be given again; its times differ.
  const bool isSame = isUnchanged(held, held_);
  if (!isSame) deadline_ = now + timeout_;
  held_ = held;
  if (now >= deadline_) return false;
  sleep_ = std::min(2 * sleep_, kLongestSleep);
  // The last digits of the clock are random enough to keep the writers apart.
  const Clock::duration some = now.time_since_epoch() % (sleep_ / 2);
  std::this_thread::sleep_for(std::min<Clock::duration>(sleep_ / 2 + some, deadline_ - now));
  return true;
}

KFAFileReplacement::KFAFileReplacement() = default;

KFAFileReplacement::~KFAFileReplacement() {
  discard();
}

void KFAFileReplacement::discard() {
  if (!temporary_) return;
  if (temporary_->isOpen() && temporary_->findName(temporaryPath_) == 0)
    System::unlink(temporaryPath_.c_str());
  temporary_.reset();
}

int KFAFileReplacement::refuse(const std::string& what) const {
  KFL::setErrorMessage("%s: %s", path_.c_str(), what.c_str());
  return -1;
}

// -1; or 1 for what is no more as it was opened, since another machine has replaced or removed it.
int KFAFileReplacement::fail(const std::string& what, int error) const {
  refuse(what + ": " + describeError(error));
  return error == ESTALE ? 1 : -1;
}

// Waits a moment for the writer that holds the file.
int KFAFileReplacement::waitFor(const KFALockedFile& file) {
  struct stat held {};
  if (System::fstat(file.get(), &held) != 0) return fail("cannot be locked", errno);
  if (turns_.wait(held)) return 0;
  return refuse("another process keeps it locked and does not go on; try again when that one has ended");
}

int KFAFileReplacement::resolve() {
  if (const int result = follow(targetPath_, folderPath_); result != 0) return result;
  temporaryPath_ = temporaryPathOf(targetPath_, ".kfa-new");
  backupTemporaryPath_ = temporaryPathOf(targetPath_, ".kfa-backup");
  if (folderPath_.empty()) folderPath_ = ".";
  return 0;
}

// Whether the path still leads to the target: a link may be another one by now, or none.
bool KFAFileReplacement::isStillNamed() const {
  if (targetPath_ == path_) return true;
  std::string target;
  std::string folder;
  return follow(target, folder) == 0 && target == targetPath_;
}

// Where the path leads, and in which folder that is: 0, or as of fail().
int KFAFileReplacement::follow(std::string& target, std::string& folder) const {
  target = path_;
  char link[PATH_MAX];
  for (int links = 0;; ++links) {
    folder = folderOf(target);
    struct statfs system {};
    const bool known = System::statfs(folder.empty() ? "." : folder.c_str(), &system) == 0;
    if (!known) return fail("cannot be opened", errno);
    // The names in this folder stand for what a process has open, and not for files in it.
    if (system.f_type == PROC_SUPER_MAGIC) {
      return refuse(
          "stands for what a process has open; a file's own name is wanted, or - for standard output");
    }
    const ssize_t length = System::readlink(target.c_str(), link, sizeof(link));
    if (length < 0 && errno != EINVAL && errno != ENOENT) return fail("cannot be opened", errno);
    if (length < 0) break;
    if (links == kMostLinks || length == static_cast<ssize_t>(sizeof(link)))
      return fail("cannot be opened", ELOOP);
    const std::string to(link, static_cast<std::size_t>(length));
    target = to.front() == '/' ? to : folder + to;
  }
  return 0;
}

int KFAFileReplacement::lock(const std::string& path, const KFAReplaceOptions& options, bool mayCreate,
                             mode_t createMode) {
  path_ = path;
  if (path_.empty()) return refuse("no file; a file name is wanted");
  if (options.backupSuffix.find('/') != std::string::npos) {
    return refuse("the backup suffix \"" + options.backupSuffix +
                  "\" has a slash; the backup stands in the same folder");
  }
  if (options.backupSuffix.find('\0') != std::string::npos)
    return refuse("the backup suffix has a NUL, which no name of a file can hold");
  if (resolve() != 0) return -1;
  return takeTurn(options, mayCreate, createMode);
}

int KFAFileReplacement::takeTurn(const KFAReplaceOptions& options, bool mayCreate, mode_t createMode) {
  options_ = options;
  mode_ = createMode;
  turns_.start(options.lockTimeout);
  for (int stale = 0; stale < kMostTries;) {
    bool again = false;
    const int result = openTarget(mayCreate, again);
    if (result < 0) return result;
    if (result == 0 && !again) return 0;
    stale += result;
  }
  return -1;
}

int KFAFileReplacement::openTarget(bool mayCreate, bool& again) {
  auto target = std::make_unique<KFALockedFile>();
  const int error = target->open(targetPath_, O_RDONLY);
  if (error == ENOENT && mayCreate) return createTarget(again);
  if (error == ENOENT) {
    // Over NFS, a file that others have open has no name for a moment while it is replaced.
    KFALockedFile writer;
    again = isBeingWritten(temporaryPath_, writer);
    return again ? waitFor(writer) : fail("cannot be opened", hasName(targetPath_) ? ESTALE : ENOENT);
  }
  if (error == EWOULDBLOCK && System::lstat(targetPath_.c_str(), &status_) == 0) {
    // Somebody has a lease on it, as file servers do, and is asked for it now.
    again = turns_.wait(status_);
    if (again) return 0;
  }
  if (error != 0) return fail("cannot be opened", error);
  if (System::fstat(target->get(), &status_) != 0) return fail("cannot be opened", errno);
  if (checkKind(status_) != 0) return -1;
  if (const int result = lockTarget(*target, again); result != 0 || again) return result;
  if (const int result = checkLinks(again); result != 0 || again) return result;
  mode_ = status_.st_mode & 07777;
  target_ = std::move(target);
  model_ = target_.get();
  return 0;
}

int KFAFileReplacement::lockTarget(KFALockedFile& target, bool& again) {
  const int error = target.tryLock(targetPath_);
  again = error == EWOULDBLOCK || error == ENOENT;
  if (again) return error == ENOENT ? 0 : waitFor(target);
  if (error == EBADF) {
    return refuse(
        "cannot be locked: its file system, such as NFS, locks a file only for those who may write to it; "
        "give write permission on the file");
  }
  if (error != 0) return fail("cannot be locked", error);
  // Its last writer may have replaced it while this one waited.
  struct stat named {};
  if (System::fstat(target.get(), &status_) != 0) return fail("cannot be opened", errno);
  const bool isNamed = System::lstat(targetPath_.c_str(), &named) == 0;
  if (!isNamed && errno != ENOENT) return fail("cannot be opened", errno);
  again = !isNamed || !isSameFile(status_, named);
  // A name that is out of date may stand for it still, over a network.
  return again || status_.st_nlink > 0 ? 0 : fail("cannot be locked", ESTALE);
}

int KFAFileReplacement::checkKind(const struct stat& status) const {
  if (S_ISDIR(status.st_mode)) return refuse("a folder; a file is wanted");
  if (!S_ISREG(status.st_mode)) return refuse("not a regular file, so it cannot be replaced");
  return 0;
}

int KFAFileReplacement::checkLinks(bool& again) const {
  if (status_.st_nlink == 1 || options_.hardLinks) return 0;
  // A run that died while it made the file may have left it under both names.
  struct stat temporary {};
  if (System::lstat(temporaryPath_.c_str(), &temporary) == 0 && isSameFile(temporary, status_)) {
    again = true;
    return System::unlink(temporaryPath_.c_str()) == 0
               ? 0
               : fail("cannot be replaced, since " + temporaryPath_ + " cannot be removed", errno);
  }
  return refuse(
      "has " + std::to_string(status_.st_nlink) +
      " hard links, and the other names would keep the old content; --hard-links replaces it all the same");
}

// There is no file to lock: the temporary one stands for it.
int KFAFileReplacement::createTarget(bool& again) {
  if (const int result = openTemporary(); result != 0) return result;
  struct stat status {};
  const int error = System::lstat(targetPath_.c_str(), &status) == 0 ? 0 : errno;
  again = error == 0;
  // What does not stand for the target must not be met as somebody's on the next try.
  if (error != ENOENT) discard();
  return error == 0 || error == ENOENT ? 0 : fail("cannot be opened", error);
}

int KFAFileReplacement::openTemporary() {
  for (bool again = true; again;) {
    again = false;
    if (const int result = takeTemporary(again); result != 0) return result;
  }
  return 0;
}

int KFAFileReplacement::takeTemporary(bool& again) {
  auto made = std::make_unique<KFALockedFile>();
  int error = made->open(temporaryPath_, O_RDWR | O_CREAT | O_EXCL, target_ ? kPrivateMode : mode_);
  if (error == EEXIST) {
    again = true;
    return clearStale();
  }
  if (error != 0)
    return fail("cannot be replaced, since no file can be made in its folder " + folderPath_, error);
  temporary_ = std::move(made);
  // Before it has a single byte, so that it is never taken for another's.
  if (target_) markReplacing(temporary_->get(), status_);
  error = temporary_->tryLock(temporaryPath_);
  if (error == 0) error = temporary_->findName(temporaryPath_);
  // Somebody may have taken the new file for a stale one.
  again = error == EWOULDBLOCK || error == ENOENT || error == ESTALE;
  if (error == 0) return 0;
  if (again)
    temporary_.reset();
  else
    discard();
  return again ? 0 : fail("cannot be replaced, since " + temporaryPath_ + " cannot be locked", error);
}

// Makes room for the temporary file. A writer that lives is waited for.
int KFAFileReplacement::clearStale() {
  KFALockedFile file;
  const int error = removeStale(temporaryPath_, file);
  if (error == EWOULDBLOCK) return waitFor(file);
  const std::string inTheWay = "cannot be replaced, since " + temporaryPath_ + " is in the way";
  if (error == EEXIST) return refuse(inTheWay + " and was not left by a run that died; remove it");
  if (error == kOthers) {
    return refuse("a run that died took away what another program had just written, and that is in " +
                  moveAside() + "; take from there what is wanted, and try again");
  }
  return error == 0 ? 0 : fail(inTheWay, error);
}

// Removes what a writer that died has left under this name: 0, or an errno. One that lives holds a lock on it: then
// EWOULDBLOCK, and the file is open. EEXIST for what no writer leaves, kOthers for what another program wrote.
int KFAFileReplacement::removeStale(const std::string& path, KFALockedFile& file) const {
  struct stat status {};
  if (System::lstat(path.c_str(), &status) != 0) return errno == ENOENT ? 0 : errno;
  if (!canBeLeft(status)) return EEXIST;
  int error = file.open(path, O_RDONLY);
  if (error == 0) {
    error = file.tryLock(path);
    if (error == 0) error = file.findName(path);
  } else if (error == EACCES && target_) {
    // Another user's; whoever writes to it has the lock on the target, which is this process's.
    error = 0;
  }
  if (error == 0 && path == temporaryPath_ && isOthers(file, status)) return kOthers;
  if (error == 0) error = System::unlink(path.c_str()) == 0 ? 0 : errno;
  return error == ENOENT || error == ESTALE ? 0 : error;
}

// Whether a writer that died behind its exchange has left what another program wrote: the target says what it took the
// place of, and this is neither that, unchanged, nor a new file.
bool KFAFileReplacement::isOthers(const KFALockedFile& file, const struct stat& status) const {
  if (!target_ || status.st_size == 0 || isSameFile(status, status_)) return false;
  return file.isOpen() && isMarked(target_->get()) && !isMarked(target_->get(), status) &&
         !isMarked(file.get());
}

// Gives what has the temporary file's name one that nobody removes, and says which; the old one where that fails.
std::string KFAFileReplacement::moveAside() const {
  for (int number = 1; number <= kMostTries; ++number) {
    const std::string suffix = ".kfa-kept" + (number == 1 ? std::string() : std::to_string(number));
    std::string kept = temporaryPathOf(targetPath_, suffix);
    if (System::renameat2(AT_FDCWD, temporaryPath_.c_str(), AT_FDCWD, kept.c_str(), RENAME_NOREPLACE) == 0)
      return kept;
    if (errno != EEXIST) break;
  }
  return temporaryPath_;
}

// What cannot be removed now is in the way of the next replacement, and named there.
void KFAFileReplacement::finish() {
  for (const std::string* const path : {&temporaryPath_, &backupTemporaryPath_}) {
    KFALockedFile file;
    removeStale(*path, file);
  }
}

int KFAFileReplacement::read() {
  if (isTooLong(status_)) return fail("longer than 1 GiB, so it cannot be read", EFBIG);
  std::size_t length = 0;
  const int error =
      System::lseek(target_->get(), 0, SEEK_SET) < 0 ? errno : readToEnd(target_->get(), content_, length);
  content_.resize(length);
  isRead_ = error == 0;
  return error == 0 ? 0 : fail("cannot be read", error);
}

int KFAFileReplacement::commit(const std::string& text) {
  int result = prepare(text);
  if (result == 0) result = putInPlace();
  if (result == 0) finish();
  discard();
  return result;
}

// All that can be done before the file is touched.
int KFAFileReplacement::prepare(const std::string& text) {
  if ((target_ && !target_->isOpen()) || (temporary_ && !temporary_->isOpen()))
    return refuse("was locked before this process was forked; begin anew");
  if (const int result = temporary_ ? 0 : openTemporary(); result != 0) return result;
  if (const int result = writeTemporary(text); result != 0) return result;
  return target_ && !options_.backupSuffix.empty() ? writeBackup() : 0;
}

int KFAFileReplacement::writeTemporary(const std::string& text) {
  if (const int error = writeAll(temporary_->get(), text); error != 0)
    return fail("cannot be written, and is as it was", error);
  std::string what;
  std::string lost;
  const int error = model_ == nullptr ? 0 : copyAttributes(model_->get(), temporary_->get(), what, lost);
  if (error != 0) return fail("its " + what + " cannot be kept, so it is as it was", error);
  if (!lost.empty() && options_.note) options_.note(path_ + ": its " + lost + " cannot be kept");
  if (target_) target_->keepAttributes();
  const bool isOnDisk =
      System::fsync(temporary_->get()) == 0 && (!target_ || temporary_->keepWritten(text) == 0);
  return isOnDisk ? 0 : fail("cannot be written, and is as it was", errno);
}

int KFAFileReplacement::writeBackup() {
  const std::string backup = targetPath_ + options_.backupSuffix;
  struct stat there {};
  const bool exists = System::lstat(backup.c_str(), &there) == 0;
  if (!exists && errno != ENOENT) return fail("its backup " + backup + " cannot be made", errno);
  if (exists && isSameFile(status_, there))
    return refuse("its backup " + backup + " is the file itself; another suffix is wanted");
  if (exists && S_ISLNK(there.st_mode))
    return refuse("its backup " + backup + " is a symbolic link; another suffix is wanted");
  if (const int result = isRead_ ? 0 : read(); result != 0) return result;
  KFAReplaceOptions options = options_;
  options.backupSuffix.clear();
  options.note.clear();
  int result = 1;
  for (int tries = 0; result == 1 && tries < kMostTries; ++tries) {
    KFAFileReplacement copy;
    copy.path_ = copy.targetPath_ = backup;
    copy.folderPath_ = folderPath_;
    copy.temporaryPath_ = copy.backupTemporaryPath_ = backupTemporaryPath_;
    if (copy.takeTurn(options, true, kPrivateMode) != 0) return -1;
    copy.model_ = target_.get();
    result = copy.commit(content_);
  }
  return result == 0 ? 0 : -1;
}

int KFAFileReplacement::putInPlace() {
  const Descriptor folder(System::open(folderPath_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
  // A folder that may be written but not read cannot be brought to disk by hand.
  if (!folder.isOpen() && errno != EACCES)
    return fail("cannot be replaced, since its folder " + folderPath_ + " cannot be opened", errno);
  if (!isStillNamed()) return refuseChanged();
  if (const int result = target_ ? checkTarget() : 0; result != 0) return result;
  if (const int result = checkTemporary(); result != 0) return result;
  if (const int result = target_ ? exchange() : renameNew(); result != 0) return result;
  if (target_) removeMark(temporary_->get());
  if (!folder.isOpen() || System::fsync(folder.get()) == 0 || errno == EINVAL || errno == EROFS) return 0;
  fail("is replaced, but its folder " + folderPath_ + " cannot be brought to disk", errno);
  return -1;
}

// Whether the temporary file is still the one that was written.
int KFAFileReplacement::checkTemporary() const {
  const int error = temporary_->findName(temporaryPath_);
  if (error == ENOENT) return refuseTaken();
  return error == 0 ? 0 : fail("cannot be replaced", error);
}

int KFAFileReplacement::refuseTaken() const {
  return refuse("is as it was, since another program has taken away " + temporaryPath_ +
                ", which was to replace it; try again");
}

// Whether nobody has changed the target meanwhile: 0, 1 or -1. A change within one tick of the clock shows in the content.
int KFAFileReplacement::checkTarget() const {
  struct stat now {};
  const bool exists = System::lstat(targetPath_.c_str(), &now) == 0;
  if (!exists && errno != ENOENT) return fail("cannot be replaced", errno);
  if (!exists || !isUnchanged(now, status_)) return refuseChanged();
  const int error = isRead_ ? compareContent(target_->get(), content_) : 0;
  if (error != 0 && error != ESTALE) return fail("cannot be read", error);
  // Reading a long file takes its time.
  const bool isSame =
      error == 0 && System::lstat(targetPath_.c_str(), &now) == 0 && isUnchanged(now, status_);
  return isSame ? 0 : refuseChanged();
}

int KFAFileReplacement::refuseChanged() const {
  refuse("another program has changed it meanwhile, and it is as that one left it; try again");
  return 1;
}

// Puts the new file in the target's place: 0, 1 or -1. Where the file system can exchange the two, what another program did
// between the last look and now is seen, and undone nothing of it. The other names of a file with several would make the
// old one none that may be removed.
int KFAFileReplacement::exchange() const {
  if (status_.st_nlink > 1) return rename();
  if (!renameBy(RENAME_EXCHANGE)) {
    const int error = errno;
    if (isUnknown(error)) return rename();
    if (error != ENOENT) return fail("cannot be replaced", error);
    return checkTemporary() == 0 ? refuseChanged() : -1;
  }
  const int error = checkOld();
  if (error != 0) return putBack(error);
  System::unlink(temporaryPath_.c_str());
  return 0;
}

// Undoes an exchange. What had the name by then was put there later than what has it now, so if that is not the new file
// as it was written, it has to get the name back; and so on, until nobody came between. 1 or -1.
int KFAFileReplacement::putBack(int error) const {
  struct stat expected = temporary_->getWritten();
  for (int tries = 1; tries <= kMostTries; ++tries) {
    struct stat put {};
    struct stat taken {};
    System::lstat(temporaryPath_.c_str(), &put);
    if (!renameBy(RENAME_EXCHANGE)) {
      const int reason = errno;
      temporary_->reset();
      const char* const what = tries == 1 ? "is replaced, but" : "is as another program left it, but";
      fail(std::string(what) + " what was written before is in " + moveAside(), reason);
      return -1;
    }
    const bool isKnown = System::lstat(temporaryPath_.c_str(), &taken) == 0 && isSameFile(taken, expected) &&
                         hasSameContent(taken, expected) && hasSameOwner(taken, expected);
    if (isKnown && tries > 1) break;
    if (isKnown && compareContent(temporary_->get(), temporary_->getText()) == 0)
      return error == ESTALE ? refuseChanged() : fail("cannot be read, and is as it was", error);
    expected = put;
  }
  temporary_->reset();
  return refuse(
      "another program has changed it while it was replaced, and it is as that one left it; what was " +
      ("written before is in " + moveAside()));
}

// Whether the old file, which has the temporary one's name now, is what was read: 0, ESTALE, or another errno.
int KFAFileReplacement::checkOld() const {
  struct stat old {};
  struct stat there {};
  // Somebody may have removed it; nobody can change it then.
  if (System::lstat(temporaryPath_.c_str(), &there) != 0) return errno == ENOENT ? 0 : errno;
  if (System::fstat(target_->get(), &old) != 0) return errno;
  if (!isSameFile(old, there)) return ESTALE;
  if (!hasSameContent(old, status_) || !hasSameOwner(old, status_)) return ESTALE;
  if (!target_->hasKeptAttributes() || !isStillNamed()) return ESTALE;
  try {
    return isRead_ ? compareContent(target_->get(), content_) : 0;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

bool KFAFileReplacement::renameBy(unsigned flags) const {
  return System::renameat2(AT_FDCWD, temporaryPath_.c_str(), AT_FDCWD, targetPath_.c_str(), flags) == 0;
}

// A file system over a network may say of a renaming that was done that it failed.
int KFAFileReplacement::rename() const {
  if (System::rename(temporaryPath_.c_str(), targetPath_.c_str()) == 0) return 0;
  const int error = errno;
  return temporary_->findName(targetPath_) == 0 ? 0 : fail("cannot be replaced", error);
}

// Takes the place of no file: 0, 1 or -1.
int KFAFileReplacement::renameNew() const {
  int error = renameBy(RENAME_NOREPLACE) ? 0 : errno;
  if (isUnknown(error)) error = linkNew();
  if (error == 0 || temporary_->findName(targetPath_) == 0) return 0;
  if (error != EEXIST) return fail("cannot be made", error);
  refuse("another program has made it meanwhile, and it is as that one left it; try again to replace it");
  return 1;
}

// The same for a file system that cannot rename in this way: 0 or an errno.
int KFAFileReplacement::linkNew() const {
  if (System::link(temporaryPath_.c_str(), targetPath_.c_str()) == 0) {
    System::unlink(temporaryPath_.c_str());
    return 0;
  }
  if (!isUnknown(errno) && errno != EPERM && errno != EMLINK) return errno;
  struct stat there {};
  if (System::lstat(targetPath_.c_str(), &there) == 0) return EEXIST;
  if (errno != ENOENT) return errno;
  return System::rename(temporaryPath_.c_str(), targetPath_.c_str()) == 0 ? 0 : errno;
}

}  // namespace KFA
