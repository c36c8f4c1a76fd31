// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: a file descriptor that closes itself, and what is done with one.
#ifndef KFAFUNCTIONALITY_FILES_KFADESCRIPTOR_H
#define KFAFUNCTIONALITY_FILES_KFADESCRIPTOR_H

#include <sys/stat.h>

#include <string>
#include <string_view>
#include <utility>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

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

// Opens for reading, without waiting for the other end of a pipe. The descriptor is not open, and errno says why, when
// that fails. follow: whether the last part of the path may be a symbolic link.
Descriptor openForReading(int folder, const std::string& path, bool follow = true);

// Reads from where the descriptor stands to its end, into a text that never shrinks; its first `length` bytes are the
// content. 0, or an errno (EFBIG: longer than kMaxConfigFileSize).
int readToEnd(int descriptor, std::string& text, std::size_t& length);

// Writes all of it: 0, or an errno. A limit on the size of files is an EFBIG, not a signal.
int writeAll(int descriptor, std::string_view text);

inline bool isSameFile(const struct stat& left, const struct stat& right) {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// Owner, extended attributes (ACLs are such) and mode, from one open file to another. 0, or an errno, with what could
// not be kept.
int copyAttributes(int from, int to, std::string& what);

// "No such file or directory" and the like, from any thread.
std::string describeError(int error);

}  // namespace KFA

#endif
