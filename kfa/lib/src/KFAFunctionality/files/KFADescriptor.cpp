// SPDX-License-Identifier: Apache-2.0
#include "KFADescriptor.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <system_error>
#include <thread>
#include <vector>

#include <KFLCommon/KFLSystem.h>

#include <KFAFunctionality/files/KFAConfigFile.h>

namespace KFA {

namespace {

using System = KFL::KFLSystem;

// While it lives, a write beyond the file size limit of the process fails instead of killing it.
class FileSizeSignalBlocked {
 public:
  FileSizeSignalBlocked() {
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGXFSZ);
    sigset_t pending;
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGXFSZ) == 1;
    pthread_sigmask(SIG_BLOCK, &signal_, &before_);
  }
  FileSizeSignalBlocked(const FileSizeSignalBlocked&) = delete;
  FileSizeSignalBlocked& operator=(const FileSizeSignalBlocked&) = delete;
  ~FileSizeSignalBlocked() {
    const timespec now{};
    if (!wasPending_) sigtimedwait(&signal_, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t signal_;
  sigset_t before_;
  bool wasPending_;
};

constexpr const char* kMark = "user.kfa.replaces";

// What `get` gives of attributes, asked for its size first; again when that was another one by then. 0, or an errno.
template <class Get>
int readSized(Get get, std::string& value) {
  ssize_t size = -1;
  for (int tries = 0; size < 0 && tries < kMostTries; ++tries) {
    value.clear();
    size = get(nullptr, 0);
    if (size <= 0) return size == 0 ? 0 : errno;
    value.resize(static_cast<std::size_t>(size));
    size = get(value.data(), value.size());
    if (size < 0 && errno != ERANGE) return errno;
  }
  if (size < 0) return ERANGE;
  value.resize(static_cast<std::size_t>(size));
  return 0;
}

// The names of a file's extended attributes; none where the file system has no such thing.
int listAttributes(int descriptor, std::vector<std::string>& names) {
  const auto get = [&](char* to, std::size_t size) { return System::flistxattr(descriptor, to, size); };
  std::string list;
  if (const int error = readSized(get, list); error != 0)
    return error == ENOTSUP || error == ENOSYS ? 0 : error;
  for (std::size_t at = 0; at < list.size(); at += names.back().size() + 1)
    names.emplace_back(list.c_str() + at);
  names.erase(std::remove(names.begin(), names.end(), kMark), names.end());
  return 0;
}

int readAttribute(int descriptor, const std::string& name, std::string& value) {
  const auto get = [&](char* to, std::size_t size) {
    return System::fgetxattr(descriptor, name.c_str(), to, size);
  };
  return readSized(get, value);
}

constexpr std::string_view kAcl = "system.posix_acl_access";

// What an ACL gives the file's group and all others, for a file that lost that group: what each of them had, and none whom
// an entry of another group might have kept from it.
void narrowAcl(std::string& acl) {
  constexpr std::size_t kHeader = 4;
  constexpr std::size_t kEntry = 8;
  enum Tag : char { kGroupObject = 0x04, kGroup = 0x08, kMask = 0x10, kOther = 0x20 };
  const auto eachRight = [&acl](auto act) {
    for (std::size_t at = kHeader; at + kEntry <= acl.size(); at += kEntry)
      act(acl[at], acl[at + 2]);
  };
  char ofAll = S_IRWXO;
  char ofGroups = S_IRWXO;
  eachRight([&](char tag, char right) {
    if (tag == kGroupObject || tag == kMask || tag == kOther) ofAll &= right;
    if (tag == kGroup) ofGroups &= right;
  });
  eachRight([&](char tag, char& right) {
    if (tag == kGroupObject) right = static_cast<char>(ofAll & ofGroups);
    if (tag == kOther) right = ofAll;
  });
}

// `isGroupLost`: the file could not be given the group of the other one.
int copyAttribute(int from, int to, const std::string& name, bool isGroupLost) {
  std::string wanted;
  if (const int error = readAttribute(from, name, wanted); error != 0) return error;
  if (isGroupLost && name == kAcl) narrowAcl(wanted);
  std::string there;
  if (readAttribute(to, name, there) == 0 && there == wanted) return 0;
  return System::fsetxattr(to, name.c_str(), wanted.data(), wanted.size(), 0) == 0 ? 0 : errno;
}

// An attribute of the system's own that this process may not set; ACLs and those of users it may.
bool isOthersToSet(const std::string& name, int error) {
  return (error == EPERM || error == EACCES || error == ENOTSUP) && name.starts_with("security.");
}

int copyExtendedAttributes(int from, int to, bool isGroupLost, std::string& what, std::string& lost) {
  what = "extended attributes";
  std::vector<std::string> wanted;
  std::vector<std::string> there;
  if (const int error = listAttributes(from, wanted); error != 0) return error;
  if (const int error = listAttributes(to, there); error != 0) return error;
  // A folder may give new files an ACL that this one does not have.
  for (const std::string& name : there) {
    if (std::find(wanted.begin(), wanted.end(), name) != wanted.end()) continue;
    what = "absence of the attribute " + name;
    if (System::fremovexattr(to, name.c_str()) != 0 && !isOthersToSet(name, errno)) return errno;
  }
  for (const std::string& name : wanted) {
    what = "attribute " + name;
    const int error = copyAttribute(from, to, name, isGroupLost);
    if (error != 0 && !isOthersToSet(name, error)) return error;
    if (error != 0) lost += (lost.empty() ? "" : ", ") + what;
  }
  return 0;
}

// All extended attributes that can be read, with their names.
std::string describeAttributes(int descriptor) {
  std::vector<std::string> names;
  std::string all;
  std::string value;
  listAttributes(descriptor, names);
  for (const std::string& name : names)
    if (readAttribute(descriptor, name, value) == 0) all.append(name).append(1, '\0').append(value);
  return all;
}

std::string describeReplaced(const struct stat& status) {
  std::string text;
  for (const auto number :
       {static_cast<std::int64_t>(status.st_ino), static_cast<std::int64_t>(status.st_size),
        static_cast<std::int64_t>(status.st_mtim.tv_sec), static_cast<std::int64_t>(status.st_mtim.tv_nsec),
        static_cast<std::int64_t>(status.st_mode), static_cast<std::int64_t>(status.st_uid),
        static_cast<std::int64_t>(status.st_gid)})
    text += std::to_string(number) + ' ';
  return text;
}

bool isThere(int folder, const std::string& path) {
  return Descriptor(System::openat(folder, path.c_str(), O_PATH | O_CLOEXEC | O_NOFOLLOW)).isOpen();
}

bool isRegular(int folder, const std::string& path) {
  const Descriptor file(System::openat(folder, path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status {};
  return file.isOpen() && System::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

bool isSameTime(const timespec& left, const timespec& right) {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

// What a system says when this process may not give a file to that owner, or the file system has none.
bool mayNotGive(int error) {
  return error == EPERM || error == EACCES || error == EINVAL || error == ENOTSUP || error == ENOSYS;
}

// Gives the file the owner and the group of another one, as far as this process may. `mode` loses what would give
// somebody a right that he did not have.
int copyOwner(const struct stat& wanted, const struct stat& there, int to, mode_t& mode, std::string& lost) {
  if (wanted.st_uid == there.st_uid && wanted.st_gid == there.st_gid) return 0;
  if (System::fchown(to, wanted.st_uid, wanted.st_gid) == 0) return 0;
  if (!mayNotGive(errno)) return errno;
  if (wanted.st_uid != there.st_uid) {
    mode &= ~mode_t{S_ISUID};
    lost = "owner";
  }
  if (wanted.st_gid == there.st_gid) return 0;
  if (System::fchown(to, static_cast<uid_t>(-1), wanted.st_gid) == 0) return 0;
  if (!mayNotGive(errno)) return errno;
  // Its new group is other people, and those of the old one are among the others now.
  const mode_t both = (mode >> 3) & mode & S_IRWXO;
  mode = (mode & (S_ISUID | S_ISVTX | S_IRWXU)) | (both << 3) | both;
  lost += lost.empty() ? "group" : ", group";
  return 0;
}

}  // namespace

void Descriptor::reset() {
  if (descriptor_ >= 0) System::close(descriptor_);
  descriptor_ = -1;
}

int KFALockedFile::open(const std::string& path, int flags, mode_t mode) {
  reset();
  flags |= O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW;
  return descriptor_.open([&] { return System::open(path.c_str(), flags, mode); }) >= 0 ? 0 : errno;
}

int KFALockedFile::tryLock(const std::string& path) {
  if (System::flock(get(), LOCK_EX | LOCK_NB) == 0) return 0;
  if (errno != EBADF) return errno;
  // Over NFS, a lock for one alone wants a file that is open for writing.
  const int error = open(path, O_RDWR);
  if (error != 0) return error == EACCES || error == EROFS || error == EPERM ? EBADF : error;
  return System::flock(get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
}

int KFALockedFile::findName(const std::string& path) const {
  struct stat open {};
  struct stat named {};
  if (System::fstat(get(), &open) != 0 || System::lstat(path.c_str(), &named) != 0) return errno;
  return isSameFile(open, named) ? 0 : ENOENT;
}

void KFALockedFile::reset() {
  if (!isOpen()) return;
  System::flock(get(), LOCK_UN);
  descriptor_.close();
}

int KFALockedFile::keepWritten(std::string_view text) {
  text_ = text;
  return System::fstat(get(), &written_);
}

void KFALockedFile::keepAttributes() {
  attributes_ = describeAttributes(get());
}

bool KFALockedFile::hasKeptAttributes() const {
  return describeAttributes(get()) == attributes_;
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string temporaryPathOf(const std::string& path, std::string_view suffix) {
  const std::string folder = folderOf(path);
  return folder + "." + path.substr(folder.size(), NAME_MAX - suffix.size() - 1).append(suffix);
}

// Over NFS, a file that others have open has no name for a moment while it is replaced.
Descriptor openForReading(int folder, const std::string& path) {
  constexpr int kMostLooks = 10;
  for (int looks = 1;; ++looks) {
    Descriptor file(System::openat(folder, path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    const int error = errno;
    // Somebody has a lease on it, as file servers do, and is asked for it: opening waits for that.
    if (error == EWOULDBLOCK && !file.isOpen() && isRegular(folder, path))
      return Descriptor(System::openat(folder, path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    errno = error;
    if (file.isOpen() || error != ENOENT || looks == kMostLooks) return file;
    if (looks > 1 && !isThere(folder, temporaryPathOf(path, ".kfa-new"))) {
      errno = error;
      return file;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200 * (looks - 1)));
  }
}

int readToEnd(int descriptor, std::string& text, std::size_t& length) {
  constexpr std::size_t kFirstRoom = 8192;
  for (length = 0;;) {
    if (length == text.size()) text.resize(std::max(kFirstRoom, 2 * text.size()));
    const ssize_t count = System::read(descriptor, &text[length], text.size() - length);
    if (count == 0) return 0;
    if (count < 0) return errno;
    length += static_cast<std::size_t>(count);
    if (length > kMaxConfigFileSize) return EFBIG;
  }
}

bool isTooLong(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_size > static_cast<off_t>(kMaxConfigFileSize);
}

int compareContent(int descriptor, std::string_view text) {
  constexpr std::size_t kPart = 65536;
  std::string part(std::min(text.size() + 1, kPart), '\0');
  for (std::size_t at = 0;;) {
    const ssize_t count = System::pread(descriptor, part.data(), part.size(), static_cast<off_t>(at));
    if (count < 0) return errno;
    if (count == 0) return at == text.size() ? 0 : ESTALE;
    const std::string_view found(part.data(), static_cast<std::size_t>(count));
    if (text.substr(at, found.size()) != found) return ESTALE;
    at += found.size();
  }
}

int writeAll(int descriptor, std::string_view text) {
  const FileSizeSignalBlocked blocked;
  while (!text.empty()) {
    const ssize_t count = System::write(descriptor, text.data(), text.size());
    if (count < 0) return errno;
    if (count == 0) return EIO;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

bool hasSameContent(const struct stat& left, const struct stat& right) {
  return left.st_size == right.st_size && isSameTime(left.st_mtim, right.st_mtim);
}

bool isUnchanged(const struct stat& left, const struct stat& right) {
  return isSameFile(left, right) && hasSameContent(left, right) && isSameTime(left.st_ctim, right.st_ctim);
}

bool hasSameOwner(const struct stat& left, const struct stat& right) {
  return left.st_mode == right.st_mode && left.st_uid == right.st_uid && left.st_gid == right.st_gid;
}

void markReplacing(int descriptor, const struct stat& replaced) {
  const std::string mark = describeReplaced(replaced);
  System::fsetxattr(descriptor, kMark, mark.data(), mark.size(), 0);
}

void removeMark(int descriptor) {
  System::fremovexattr(descriptor, kMark);
}

bool isMarked(int descriptor) {
  std::string mark;
  return readAttribute(descriptor, kMark, mark) == 0;
}

bool isMarked(int descriptor, const struct stat& replaced) {
  std::string mark;
  return readAttribute(descriptor, kMark, mark) == 0 && mark == describeReplaced(replaced);
}

int copyAttributes(int from, int to, std::string& what, std::string& lost) {
  struct stat wanted {};
  struct stat there {};
  what = "attributes";
  if (System::fstat(from, &wanted) != 0 || System::fstat(to, &there) != 0) return errno;
  what = "owner and group";
  mode_t mode = wanted.st_mode & 07777;
  if (const int error = copyOwner(wanted, there, to, mode, lost); error != 0) return error;
  const bool isGroupLost = lost.ends_with("group");
  if (const int error = copyExtendedAttributes(from, to, isGroupLost, what, lost); error != 0) return error;
  what = "mode";
  std::string acl;
  // The bits of the group are those of the mask then, and all are as the ACL has them.
  if (isGroupLost && readAttribute(to, std::string(kAcl), acl) == 0) {
    if (System::fstat(to, &there) != 0) return errno;
    mode = (mode & ~mode_t{ACCESSPERMS}) | (there.st_mode & ACCESSPERMS);
  }
  return System::fchmod(to, mode) == 0 ? 0 : errno;
}

std::string describeError(int error) {
  return std::generic_category().message(error);
}

}  // namespace KFA
