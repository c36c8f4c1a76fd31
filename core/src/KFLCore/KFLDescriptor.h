// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: a file descriptor that closes itself, what is said when a call fails, and reading a file that
// is mapped.
#ifndef KFLCORE_KFLDESCRIPTOR_H
#define KFLCORE_KFLDESCRIPTOR_H

#include <atomic>
#include <span>
#include <string>
#include <system_error>
#include <utility>

#include <KFLCommon/KFLLanguage.h>
#include <KFLCommon/KFLSystem.h>
#include <KFLCore/KFLMappedFile.h>

namespace KFL {

class KFLDescriptor {
 public:
  explicit KFLDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
  KFLDescriptor(KFLDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  KFLDescriptor& operator=(KFLDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~KFLDescriptor() { reset(); }

  bool isOpen() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  int release() { return std::exchange(descriptor_, -1); }
  void reset() {
    if (descriptor_ >= 0) KFLSystem::close(descriptor_);
    descriptor_ = -1;
  }

 private:
  int descriptor_;
};

// "No such file or directory" and the like, from any thread.
inline std::string describeError(int error) {
  return std::generic_category().message(error);
}

// What a mapped file has besides the words of its class, whose layout programs know.
struct KFLMappedFile::Opened : KFLDescriptor {
  using KFLDescriptor::operator=;
  std::atomic<bool> isProtected{false};
};

struct KFLMappedReading {
  // Whether all of these bytes were read from the file.
  static bool read(const KFLMappedFile& file, std::span<char> to, std::uint64_t at) {
    const ssize_t got = KFLSystem::pread(file.file_->get(), to.data(), to.size(), static_cast<off_t>(at));
    return got == static_cast<ssize_t>(to.size());
  }
};

}  // namespace KFL

#endif
