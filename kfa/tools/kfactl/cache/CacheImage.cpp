// SPDX-License-Identifier: Apache-2.0
#include "cache/CacheImage.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>

#include <KFLCore/KFLFileLock.h>

#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using Access = KFL::KFLMapOptions::Access;
using Kind = KFL::KFLFileLock::Kind;

constexpr std::chrono::seconds kLockTimeout{10};
constexpr int kOpenings = 16;

[[noreturn]] void fail(const std::string& path, const char* what) {
  throw Trouble(path + ": " + what + ": " + std::strerror(errno));
}

[[noreturn]] void refuseHolder(const std::string& path, int descriptor) {
  std::uint32_t holder = 0;
  const ssize_t got = ::pread(descriptor, &holder, sizeof(holder), offsetof(KFL::KFLCacheHeader, lockWord));
  const bool isNamed = got == sizeof(holder) && holder != 0;
  throw Trouble(path + ": " + (isNamed ? "process " + std::to_string(holder) : "another process") +
                " has held the lock for " + std::to_string(kLockTimeout.count()) +
                " s; try again when it is done");
}

struct stat statusOf(const std::string& path, int descriptor) {
  struct stat file {};
  if (::fstat(descriptor, &file) != 0) fail(path, "cannot be read");
  return file;
}

}  // namespace

// A cache file that is open and locked: for all who only read it, or for this program alone. It is the one that the path
// names: whoever takes a file away from its path has its lock.
class CacheLock {
 public:
  CacheLock(const std::string& path, CacheImage::Lock lock) : path_(path) {
    const bool isAlone = lock == CacheImage::Lock::Kept;
    for (int tries = 0; tries < kOpenings; ++tries) {
      file_ = new KFL::KFLFileLock;
      if (file_->open(path, isAlone ? Access::Read | Access::Write : Access::Read) != 0) throwLibraryError();
      const int error = file_->lock(kLockTimeout, nullptr, isAlone ? Kind::Alone : Kind::Shared);
      if (error == EAGAIN) refuseHolder(path, descriptor());
      errno = error;
      if (error != 0) fail(path, "cannot be locked");
      if (isAtPath()) return;
    }
    throw Trouble(path + ": it is replaced again and again");
  }

  std::uint64_t fileSize() const { return static_cast<std::uint64_t>(statusOf(path_, descriptor()).st_size); }
  // Up to so many bytes from the start on; what a sparse file does not have is not read.
  void read(std::span<std::byte> bytes) const {
    const auto end = static_cast<off_t>(bytes.size());
    for (off_t at = 0; at < end;) {
      const off_t data = ::lseek(descriptor(), at, SEEK_DATA);
      if (data < 0 && errno == ENXIO) return;
      at = std::max(at, data);
      off_t hole = data < 0 ? end : ::lseek(descriptor(), at, SEEK_HOLE);
      if (hole < 0) hole = end;
      for (hole = std::min(hole, end); at < hole;)
        if (!readSome(bytes, at, hole)) return;
    }
  }

 private:
  int descriptor() const { return file_->getDescriptor(); }

  bool isAtPath() const {
    const struct stat file = statusOf(path_, descriptor());
    struct stat there {};
    return ::lstat(path_.c_str(), &there) == 0 && there.st_dev == file.st_dev && there.st_ino == file.st_ino;
  }

  // False at the end of a file that was cut meanwhile.
  bool readSome(std::span<std::byte> bytes, off_t& at, off_t end) const {
    const ssize_t got = ::pread(descriptor(), bytes.data() + at, static_cast<std::size_t>(end - at), at);
    if (got < 0 && errno != EINTR) fail(path_, "cannot be read");
    at += std::max<ssize_t>(got, 0);
    return got != 0;
  }

  std::string path_;
  boost::intrusive_ptr<KFL::KFLFileLock> file_;
};

ImageBytes::ImageBytes(std::size_t size) : size_(size) {
  if (size == 0) return;
  void* const memory =
      ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  data_ = static_cast<std::byte*>(memory);
}

ImageBytes::~ImageBytes() {
  if (data_ != nullptr) ::munmap(data_, size_);
}

namespace {

// What of the file belongs to the heap, and its first page; or, as the word that says where the heap ends may be wrong,
// all that could.
std::size_t sizeToRead(const CacheLock& file, CacheImage::Lock lock) {
  const std::uint64_t size = file.fileSize();
  if (lock == CacheImage::Lock::Kept) return std::min(size, KFL::KFLCacheProof::kLargestHeap);
  KFL::KFLCacheHeader header{};
  file.read(
      std::as_writable_bytes(std::span(&header, 1)).first(std::min<std::uint64_t>(size, sizeof(header))));
  const std::uint64_t heap =
      std::clamp<std::uint64_t>(header.totalSize, 4096, KFL::KFLCacheProof::kLargestHeap);
  return std::min(size, heap);
}

}  // namespace

CacheImage::CacheImage(const std::string& path, const KFL::KFLProofOptions& options, Lock lock)
    : path_(path),
      lock_(std::make_unique<CacheLock>(path, lock)),
      fileSize_(lock_->fileSize()),
      bytes_(sizeToRead(*lock_, lock)) {
  lock_->read(bytes_.all());
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

static constexpr const char* kAdvice =
    "; 'kfactl cache verify' shows all, 'kfactl cache repair' keeps what can be kept";

void CacheImage::mustBeSound() const {
  mustBeCacheFile();
  if (header_.bytesInUse == 0)
    throw Trouble(path_ + ":8: the bytes in use are 0, but the file has a snapshot" + kAdvice);
  if (proof_.faults().empty()) return;
  const KFL::KFLCacheFault& fault = proof_.faults().front();
  throw Trouble(path_ + ":" + std::to_string(fault.offset) + ": " + fault.text + kAdvice);
}

KFL::KFLSnapshotView CacheImage::snapshot() {
  return {bytes_.all(), KFL::targetOf(offsetof(KFL::KFLCacheHeader, snapshot), header_.snapshot)};
}

}  // namespace kfactl
