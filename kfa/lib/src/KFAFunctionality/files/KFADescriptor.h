// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: a file descriptor that closes itself, one that keeps a lock, and what is done with them.
#ifndef KFAFUNCTIONALITY_FILES_KFADESCRIPTOR_H
#define KFAFUNCTIONALITY_FILES_KFADESCRIPTOR_H

#include <sys/stat.h>

#include <string>
#include <string_view>
#include <utility>

#include <KFAFunctionality/KFATypes.h>
#include <KFLCore/KFLFork.h>

namespace KFA {

// How often reading or replacing a file begins anew when somebody who does not take its lock, or another machine, has
// changed it meanwhile.
inline constexpr int kMostTries = 100;

class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~Descriptor() { reset(); }

  bool isOpen() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  int release() { return std::exchange(descriptor_, -1); }
  void reset();

 private:
  int descriptor_;
};

// A file that is open, and locked for this process alone. A forked child shares the open file, and with it the lock: the
// child's copy is closed before fork() returns there, and the lock is released by hand before the file is closed, so that
// a child that was made by other means keeps it from nobody.
class KFALockedFile final {
 public:
  KFALockedFile() = default;
  KFALockedFile(const KFALockedFile&) = delete;
  KFALockedFile& operator=(const KFALockedFile&) = delete;
  ~KFALockedFile() { reset(); }

  // Opens the file, without waiting for the other end of a pipe and without following a link. 0, or an errno.
  int open(const std::string& path, int flags, mode_t mode = 0);
  // 0, EWOULDBLOCK while another has it, or another errno. EBADF: this file system locks for those only that may write
  // to the file, and this process may not.
  int tryLock(const std::string& path);
  // 0 when the path names this file, ENOENT when it names none or another one, or another errno.
  int findName(const std::string& path) const;

  // False in a forked child of the process that opened it.
  bool isOpen() const { return descriptor_.isOpen(); }
  int get() const { return descriptor_.get(); }
  void reset();

  // Keeps, of a file that is whole, how it is; the text stays the caller's. 0, or -1 and errno.
  int keepWritten(std::string_view text);
  const struct stat& getWritten() const { return written_; }
  std::string_view getText() const { return text_; }
  // The same for its extended attributes, as far as they can be read.
  void keepAttributes();
  bool hasKeptAttributes() const;

 private:
  KFL::KFLOwnDescriptor descriptor_;
  std::string attributes_;
  struct stat written_ {};
  std::string_view text_;
};

// The folder of a path, with its slash; empty for a name alone.
KFL_HIDDEN std::string folderOf(const std::string& path);

// Where a writer makes the file that takes this one's place: hidden, beside it, and never so long that no file could have
// the name.
KFL_HIDDEN std::string temporaryPathOf(const std::string& path, std::string_view suffix);

// Opens for reading, without waiting for the other end of a pipe. The descriptor is not open, and errno says why, when
// that fails.
Descriptor openForReading(int folder, const std::string& path);

// Reads from where the descriptor stands to its end, into a text that never shrinks; its first `length` bytes are the
// content. 0, or an errno (EFBIG: longer than kMaxConfigFileSize).
int readToEnd(int descriptor, std::string& text, std::size_t& length);

// Whether a file is longer than any that is read, so that none of it is.
KFL_HIDDEN bool isTooLong(const struct stat& status);

// Whether these bytes are all that the file has: 0, ESTALE when they are not, or another errno.
int compareContent(int descriptor, std::string_view text);

// Writes all of it: 0, or an errno. A limit on the size of files is an EFBIG, not a signal.
int writeAll(int descriptor, std::string_view text);

inline bool isSameFile(const struct stat& left, const struct stat& right) {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// Whether nothing was written to the file between the two looks at it, as far as size and time show.
bool hasSameContent(const struct stat& left, const struct stat& right);
// Whether nothing was done to the file between the two looks at it: neither content nor attributes are others.
bool isUnchanged(const struct stat& left, const struct stat& right);

// Whether both looks saw the same owner, group and mode.
bool hasSameOwner(const struct stat& left, const struct stat& right);

// Says on a new file which one it is to take the place of, as that one is now. It stays where a file system has no
// attributes of users, or while this process may not write to the file; no copy of a file has it.
void markReplacing(int descriptor, const struct stat& replaced);
void removeMark(int descriptor);
// Whether a file says so of any other file, or of this one as it is.
bool isMarked(int descriptor);
bool isMarked(int descriptor, const struct stat& replaced);

// Owner, extended attributes (ACLs are such) and mode, from one open file to another. 0, or an errno, with what could
// not be kept. Where this process may not give the file its owner, or an attribute that is the system's own, the file goes
// without, and what that is is added to `lost`; the mode then gives nobody a right that he did not have.
int copyAttributes(int from, int to, std::string& what, std::string& lost);

// "No such file or directory" and the like, from any thread.
std::string describeError(int error);

}  // namespace KFA

#endif
