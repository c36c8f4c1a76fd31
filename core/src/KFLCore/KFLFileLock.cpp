// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLFileLock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include <KFLCore/KFLCacheFormat.h>

namespace KFL {

namespace {

struct Range {
  off_t start;
  off_t length;
};

constexpr Range kWord{offsetof(KFLCacheHeader, lockWord), sizeof(KFLCacheHeader::lockWord)};
constexpr Range kPlaces{off_t{1} << 40, 1};
constexpr Range kRemoval{kPlaces.start + 1, 1};

int setLock(int descriptor, short type, const Range& range) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = range.start;
  lock.l_len = range.length;
  while (fcntl(descriptor, F_OFD_SETLK, &lock) != 0) {
    if (errno == EACCES) return EAGAIN;
    if (errno != EINTR) return errno;
  }
  return 0;
}

}  // namespace

KFLFileLock::~KFLFileLock() {
  forked();
}

int KFLFileLock::open(const std::string& path) {
  KFLMapOptions options;
  options.access = KFLMapOptions::Read | KFLMapOptions::Write;
  const int opened = openGuarded(path, options);
  if (opened < 0) return -opened;
  descriptor_ = opened;
  return 0;
}

bool KFLFileLock::isSameFile(const KFLMappedFile& mapped) const {
  struct stat file {};
  return fstat(descriptor_, &file) == 0 && mapped.isFile(file.st_dev, file.st_ino);
}

int KFLFileLock::tryLock() {
  return setLock(descriptor_, F_WRLCK, kWord);
}

void KFLFileLock::unlock() {
  setLock(descriptor_, F_UNLCK, kWord);
}

int KFLFileLock::takePlace() {
  return setLock(descriptor_, F_RDLCK, kPlaces);
}

bool KFLFileLock::tryBeAlone() {
  return held_.load(std::memory_order_relaxed) == 0 && setLock(descriptor_, F_WRLCK, kPlaces) == 0;
}

int KFLFileLock::tryRemoval() {
  return setLock(descriptor_, F_WRLCK, kRemoval);
}

// Closing the child's copy leaves the parent's lock alone.
void KFLFileLock::forked() noexcept {
  if (isOpen()) close(descriptor_);
  descriptor_ = -1;
}

}  // namespace KFL
