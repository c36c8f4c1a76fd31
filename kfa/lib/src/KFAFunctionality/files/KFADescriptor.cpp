// SPDX-License-Identifier: Apache-2.0
#include "KFADescriptor.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <system_error>
#include <vector>

#include <KFAFunctionality/files/KFAConfigFile.h>

namespace KFA {

namespace {

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

using Attribute = std::pair<std::string, std::string>;

// The names of a file's extended attributes; none where the file system has no such thing.
int listAttributes(int descriptor, std::vector<std::string>& names) {
  const ssize_t size = flistxattr(descriptor, nullptr, 0);
  if (size < 0) return errno == ENOTSUP || errno == ENOSYS ? 0 : errno;
  std::string list(static_cast<std::size_t>(size), '\0');
  const ssize_t read = flistxattr(descriptor, list.data(), list.size());
  if (read < 0) return errno;
  for (std::size_t at = 0; at < static_cast<std::size_t>(read); at += names.back().size() + 1)
    names.emplace_back(list.c_str() + at);
  return 0;
}

int readAttribute(int descriptor, const std::string& name, std::string& value) {
  const ssize_t size = fgetxattr(descriptor, name.c_str(), nullptr, 0);
  if (size < 0) return errno;
  value.resize(static_cast<std::size_t>(size));
  const ssize_t read = fgetxattr(descriptor, name.c_str(), value.data(), value.size());
  if (read < 0) return errno;
  value.resize(static_cast<std::size_t>(read));
  return 0;
}

int copyAttribute(int from, int to, const std::string& name) {
  std::string wanted;
  if (const int error = readAttribute(from, name, wanted); error != 0) return error;
  std::string there;
  if (readAttribute(to, name, there) == 0 && there == wanted) return 0;
  return fsetxattr(to, name.c_str(), wanted.data(), wanted.size(), 0) == 0 ? 0 : errno;
}

int copyExtendedAttributes(int from, int to, std::string& what) {
  what = "extended attributes";
  std::vector<std::string> wanted;
  std::vector<std::string> there;
  if (const int error = listAttributes(from, wanted); error != 0) return error;
  if (const int error = listAttributes(to, there); error != 0) return error;
  // A folder may give new files an ACL that this one does not have.
  for (const std::string& name : there) {
    if (std::find(wanted.begin(), wanted.end(), name) != wanted.end()) continue;
    what = "absence of the attribute " + name;
    if (fremovexattr(to, name.c_str()) != 0 && !name.starts_with("security.")) return errno;
  }
  for (const std::string& name : wanted) {
    what = "attribute " + name;
    if (const int error = copyAttribute(from, to, name); error != 0) return error;
  }
  return 0;
}

}  // namespace

void Descriptor::reset() {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
}

Descriptor openForReading(int folder, const std::string& path, bool follow) {
  const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (follow ? 0 : O_NOFOLLOW);
  return Descriptor(openat(folder, path.c_str(), flags));
}

int readToEnd(int descriptor, std::string& text, std::size_t& length) {
  constexpr std::size_t kFirstRoom = 8192;
  for (length = 0;;) {
    if (length == text.size()) text.resize(std::max(kFirstRoom, 2 * text.size()));
    const ssize_t count = ::read(descriptor, &text[length], text.size() - length);
    if (count == 0) return 0;
    if (count < 0 && errno != EINTR) return errno;
    if (count > 0) length += static_cast<std::size_t>(count);
    if (length > kMaxConfigFileSize) return EFBIG;
  }
}

int writeAll(int descriptor, std::string_view text) {
  const FileSizeSignalBlocked blocked;
  while (!text.empty()) {
    const ssize_t count = ::write(descriptor, text.data(), text.size());
    if (count > 0) text.remove_prefix(static_cast<std::size_t>(count));
    if (count == 0) return EIO;
    if (count < 0 && errno != EINTR) return errno;
  }
  return 0;
}

int copyAttributes(int from, int to, std::string& what) {
  struct stat wanted {};
  struct stat there {};
  what = "attributes";
  if (fstat(from, &wanted) != 0 || fstat(to, &there) != 0) return errno;
  what = "owner and group";
  const bool sameOwner = wanted.st_uid == there.st_uid && wanted.st_gid == there.st_gid;
  if (!sameOwner && fchown(to, wanted.st_uid, wanted.st_gid) != 0) return errno;
  if (const int error = copyExtendedAttributes(from, to, what); error != 0) return error;
  what = "mode";
  return fchmod(to, wanted.st_mode & 07777) == 0 ? 0 : errno;
}

std::string describeError(int error) {
  return std::generic_category().message(error);
}

}  // namespace KFA
