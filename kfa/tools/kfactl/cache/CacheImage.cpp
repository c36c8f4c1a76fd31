// SPDX-License-Identifier: Apache-2.0
#include "cache/CacheImage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include <KFLCore/KFLMappedFile.h>

#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using Access = KFL::KFLMapOptions::Access;

constexpr std::chrono::seconds kLockTimeout{10};
constexpr std::chrono::milliseconds kLockPause{5};

int openCacheFile(const std::string& path, int access) {
  KFL::KFLMapOptions options;
  options.access = access;
  const int descriptor = KFL::openGuarded(path, options);
  if (descriptor < 0) throwLibraryError();
  return descriptor;
}

}  // namespace

// A cache file that is open and locked: for all who only read it, or for this program alone.
class CacheLock {
 public:
  CacheLock(const std::string& path, CacheImage::Lock kind)
      : path_(path),
        isExclusive_(kind == CacheImage::Lock::Kept),
        descriptor_(openCacheFile(path, isExclusive_ ? Access::Read | Access::Write : Access::Read)) {
    try {
      take();
    } catch (const Trouble&) {
      ::close(descriptor_);
      throw;
    }
  }
  ~CacheLock() { ::close(descriptor_); }
  CacheLock(const CacheLock&) = delete;
  CacheLock& operator=(const CacheLock&) = delete;

  // The whole file, or as much of it as a heap may have.
  std::vector<std::byte> read() const {
    struct stat file {};
    if (::fstat(descriptor_, &file) != 0) fail("cannot be read");
    std::vector<std::byte> bytes(
        std::min(static_cast<std::uint64_t>(file.st_size), KFL::KFLCacheProof::kLargestHeap));
    std::size_t length = 0;
    while (length < bytes.size()) {
      const ssize_t got =
          ::pread(descriptor_, bytes.data() + length, bytes.size() - length, static_cast<off_t>(length));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) fail("cannot be read");
      if (got == 0) break;
      length += static_cast<std::size_t>(got);
    }
    bytes.resize(length);
    return bytes;
  }

 private:
  void take() const {
    struct flock word {};
    word.l_type = isExclusive_ ? F_WRLCK : F_RDLCK;
    word.l_whence = SEEK_SET;
    word.l_start = offsetof(KFL::KFLCacheHeader, lockWord);
    word.l_len = sizeof(KFL::KFLCacheHeader::lockWord);
    const auto end = std::chrono::steady_clock::now() + kLockTimeout;
    while (::fcntl(descriptor_, F_OFD_SETLK, &word) != 0) {
      if (errno != EAGAIN && errno != EACCES && errno != EINTR) fail("cannot be locked");
      if (std::chrono::steady_clock::now() > end) refuseHolder();
      std::this_thread::sleep_for(kLockPause);
    }
  }

  [[noreturn]] void fail(const char* what) const {
    throw Trouble(path_ + ": " + what + ": " + std::strerror(errno));
  }
  [[noreturn]] void refuseHolder() const {
    std::uint32_t holder = 0;
    const ssize_t got =
        ::pread(descriptor_, &holder, sizeof(holder), offsetof(KFL::KFLCacheHeader, lockWord));
    const bool isNamed = got == sizeof(holder) && holder != 0;
    throw Trouble(path_ + ": " + (isNamed ? "process " + std::to_string(holder) : "another process") +
                  " has held the lock for " + std::to_string(kLockTimeout.count()) +
                  " s; try again when it is done");
  }

  std::string path_;
  bool isExclusive_;
  int descriptor_;
};

CacheImage::CacheImage(const std::string& path, const KFL::KFLProofOptions& options, Lock lock)
    : path_(path), lock_(std::make_unique<CacheLock>(path, lock)), bytes_(lock_->read()) {
  if (lock == Lock::Reading) lock_.reset();
  KFL::readAt(bytes(), 0, header_);
  proof_.check(bytes(), options);
}

CacheImage::~CacheImage() = default;

void CacheImage::mustBeCacheFile() const {
  if (proof_.isCacheFile()) return;
  throw Trouble(path_ + " is no cache file: " + proof_.faults().front().text +
                "; 'kfactl cache create' makes one");
}

void CacheImage::mustBeSound() const {
  mustBeCacheFile();
  if (proof_.faults().empty()) return;
  const KFL::KFLCacheFault& fault = proof_.faults().front();
  throw Trouble(path_ + ":" + std::to_string(fault.offset) + ": " + fault.text +
                "; 'kfactl cache verify' shows all, 'kfactl cache repair' keeps what can be kept");
}

KFL::KFLSnapshotView CacheImage::snapshot() {
  return {std::span<std::byte>(bytes_),
          KFL::targetOf(offsetof(KFL::KFLCacheHeader, snapshot), header_.snapshot)};
}

}  // namespace kfactl
