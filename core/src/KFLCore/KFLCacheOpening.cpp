// SPDX-License-Identifier: Apache-2.0
// Opening a cache file, and taking it away.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include <KFLCommon/KFLError.h>

#include "KFLCacheCodes.h"
#include "KFLDescriptor.h"
#include "KFLLockedCache.h"

namespace KFL {

namespace {

std::string absolutePath(const std::string& path) {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  return error ? path : absolute.string();
}

// Whether the file is known to end before its heap does, as against one that could not be mapped.
bool isCut(const KFLCacheStorage& storage) {
  std::size_t size = 0;
  return storage.readFileSize(size) == 0 && storage.manager().getTotalSize() > size;
}

}  // namespace

KFLCacheFile::KFLCacheFile(const std::string& path, const KFLCacheLimits& limits)
    : share_(new KFLCacheShare(absolutePath(path), limits)), turn_(share_->turn) {}

KFLCacheFile::~KFLCacheFile() {
  dropKept(std::chrono::milliseconds{0});
}

const std::string& KFLCacheFile::getPath() const {
  return share_->path;
}
const KFLCacheLimits& KFLCacheFile::getLimits() const {
  return share_->limits;
}

int KFLCacheFile::initialize(bool, bool invalidateOnFailure) {
  return withCode([&]() KFL_NO_THREAD_SAFETY_ANALYSIS {
    dropKept(share_->patience());
    if (const int code = takeTurn(); code != 0) return code;
    const KFLTurnEnd end(turn_);
    detach();
    share_->isProtected = false;
    invalidates_ = invalidateOnFailure;
    isWanted_ = false;
    int code = openLocked(invalidateOnFailure);
    if (code == kCacheNotLocked && invalidatesStuck_ && storage_ &&
        storage_->getFileSize() >= sizeof(KFLCacheHeader))
      storage_->manager().invalidate();
    isWanted_ = code == 0;
    if (code != 0) {
      detach();
      return code;
    }
    const bool hasWritten = share_->proved != nullptr;  // made the file, or put it right
    { const KFLLockedCache leaves(*share_, storage_); }
    const int error = hasWritten ? storage_->syncToDisk() : storage_->syncMemory();
    return error == 0 ? 0 : int{kCacheNotMapped};
  });
}

int KFLCacheFile::reinit() KFL_NO_THREAD_SAFETY_ANALYSIS {
  dropKept(std::chrono::milliseconds{0});
  while (!turn_.lock(std::chrono::hours{1})) {
  }
  const KFLTurnEnd end(turn_);
  isWanted_ = false;
  detach();
  return 0;
}

// Opens the file and leaves it locked; or not, and then not open, but for one whose lock could not be had.
int KFLCacheFile::openLocked(bool invalidate) {
  for (std::uint32_t tries = 0; tries < std::max(share_->limits.openings, 1U); ++tries) {
    if (const int code = attach(); code != 0) return code;
    if (const int code = awaitLock(); code != 0) return code;
    KFLLockedCache locked(*share_, storage_);
    if (storage_->isAtPath()) {
      const int code = locked.judge();
      showBase();
      const int error = code == 0 ? storage_->getLock().takePlace() : 0;
      if (code == 0 && error == 0) {
        locked.keep();
        return 0;
      }
      if (invalidate && isFault(code) && (code != kCacheNotRemapped || isCut(*storage_)))
        locked.invalidate(code);
      locked.leave();
      detach();
      if (code != 0) return code;
      setErrorMessage("cannot lock %s: %s", share_->path.c_str(), describeError(error).c_str());
      return kCacheNotMapped;
    }
    locked.leave();  // it was replaced before it was locked
    detach();
  }
  setErrorMessage("cannot open %s: it is replaced again and again", share_->path.c_str());
  return kCacheNotMapped;
}

int KFLCacheFile::attach() {
  KFLMapOptions options;
  options.reserve = KFLMapOptions::Later;
  Storage storage(new KFLCacheStorage(share_->path));
  if (storage->getStorage(firstFileSize(KFLMappedFile::getPageSize()), nullptr, options) == nullptr)
    return kCacheNotMapped;
  belongHere();
  storage_ = std::move(storage);
  share_->proved = nullptr;
  return 0;
}

void KFLCacheFile::showBase() {
  base_.store(storage_ ? storage_->memory().data() : nullptr, std::memory_order_release);
}

void KFLCacheFile::detach() {
  storage_.reset();
  showBase();
}

namespace {

// Whether the file says of itself that it cannot be used.
bool isFaulty(const KFLCacheStorage& mapped) {
  const KFLMappedMemoryManager file = mapped.manager();
  std::size_t size = 0;
  return mapped.readFileSize(size) == 0 &&
         !file.isUnmade(size, firstFileSize(KFLMappedFile::getPageSize())) && file.validateHeader() != 0;
}

int removeFaulty(const std::string& path) {
  KFLMapOptions options;
  options.access = KFLMapOptions::Read | KFLMapOptions::Write;
  options.reserve = KFLMapOptions::Later;
  KFLCacheStorage file(path);
  if (file.getStorage(firstFileSize(KFLMappedFile::getPageSize()), nullptr, options) == nullptr)
    return KFLSystem::access(path.c_str(), F_OK) == 0 || errno != ENOENT ? -1 : 0;
  KFLFileLock& right = file.getLock();
  if (right.lock(std::chrono::seconds(1), file.header()) != 0) {
    setErrorMessage("cannot remove %s: another process has its lock", path.c_str());
    return -1;
  }
  int code = 0;
  if (file.isAtPath() && isFaulty(file)) {
    if (KFLSystem::unlink(path.c_str()) != 0 && errno != ENOENT) {
      setErrorMessage("cannot remove %s: %s", path.c_str(), describeError(errno).c_str());
      code = -1;
    }
  }
  right.unlock(file.header());
  return code;
}

}  // namespace

int removeLockedCacheFile(const std::string& path, int code) {
  const int removed = withCode([&] {
    if (code != kCacheNotLocked) return removeFaulty(path);
    setErrorMessage("cannot remove %s: another process has its lock", path.c_str());
    return -1;
  });
  return removed == 0 ? 0 : -1;
}

}  // namespace KFL
