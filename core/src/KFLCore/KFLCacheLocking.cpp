// SPDX-License-Identifier: Apache-2.0
// Taking and releasing the lock of a cache file, and its removal.
#include <unistd.h>

#include <cerrno>

#include <KFLCommon/KFLError.h>
#include <KFLCore/KFLCacheFile.h>

#include "KFLDeadline.h"
#include "KFLDescriptor.h"

namespace KFL {

int KFLCacheFile::takeTurn(KFLDeadline& deadline) {
  while (!turn_.try_lock()) {
    if (deadline.pause()) continue;
    setErrorMessage("cannot lock %s: another thread of this process holds it since more than %lld ms",
                    path_.c_str(), static_cast<long long>(timeout_.load()));
    return kCacheNotLocked;
  }
  return 0;
}

int KFLCacheFile::lock(Storage& storage) {
  KFLDeadline deadline(timeout());
  if (const int code = takeTurn(deadline); code != 0) return code;
  if (const int code = lockCurrent(deadline); code != 0) {
    turn_.unlock();
    return code;
  }
  storage = storage_;
  return 0;
}

void KFLCacheFile::unlock(Storage& storage) {
  leave();
  turn_.unlock();
  storage.reset();
}

// Locks the file that the path names, which need not be the one that was open.
int KFLCacheFile::lockCurrent(KFLDeadline& deadline) {
  if (!isWanted_) {
    setErrorMessage("%s is not open", path_.c_str());
    return kCacheNotMapped;
  }
  if (isAccessible() && !isForked()) {
    if (const int code = awaitLock(deadline); code != 0) return code;
    if (manager().isValid() && storage_->isAtPath()) return enter();
    storage_->getLock().unlock();
  }
  detach();
  return openLocked(deadline, {true, false});
}

int KFLCacheFile::awaitLock(KFLDeadline& deadline) {
  int error = 0;
  do {
    error = storage_->getLock().tryLock();
  } while (error == EAGAIN && deadline.pause());
  if (error == 0) return 0;
  if (error == EAGAIN) {
    setErrorMessage("cannot lock %s: process %u holds it since more than %lld ms", path_.c_str(),
                    manager().getHolder(), static_cast<long long>(timeout_.load()));
  } else {
    setErrorMessage("cannot lock %s: %s", path_.c_str(), describeError(error).c_str());
  }
  return kCacheNotLocked;
}

// Makes a file that was just locked ready for changes.
int KFLCacheFile::enter() {
  int code = unsafe_checkSize();
  if (code == 0) code = allowWriting();
  if (code != 0) {
    storage_->getLock().unlock();
    return code;
  }
  const bool holderDied = manager().getHolder() != 0;
  manager().setHolder(static_cast<std::uint32_t>(getpid()));
  if (!holderDied) return 0;
  bool alone = false;
  code = settle(true, alone);
  return code == 0 ? 0 : giveUp(code, true);
}

void KFLCacheFile::leave() {
  manager().setHolder(0);
  if (protect_) storage_->protect(false);
  storage_->getLock().unlock();
}

bool KFLCacheFile::passLock() {
  if (!isAccessible() || isForked()) return true;
  KFLDeadline deadline(timeout());
  if (takeTurn(deadline) != 0) return false;
  const int code = awaitLock(deadline);
  if (code == 0) storage_->getLock().unlock();
  turn_.unlock();
  return code == 0;
}

int KFLCacheFile::setProtected(bool isProtected) {
  Storage storage;
  if (const int code = lock(storage); code != 0) return code;
  protect_ = isProtected;
  unlock(storage);
  return 0;
}

void KFLCacheFile::setLockTimeout(std::chrono::milliseconds timeout) {
  timeout_.store(timeout.count());
}

int KFLCacheFile::sync() {
  Storage storage;
  if (const int code = lock(storage); code != 0) return code;
  const int error = storage_->syncMemory();
  unlock(storage);
  return error == 0 ? 0 : kCacheNotMapped;
}

namespace {

// Whether the file says of itself that it cannot be used.
bool isFaulty(const KFLCacheStorage& file) {
  return file.manager().isInitialized() && file.manager().validateHeader() != 0;
}

}  // namespace

// Only who has the right to remove this very file, and finds it still at the path, takes it away: meanwhile another
// process may have put a good one there.
int removeLockedCacheFile(const std::string& path, int) {
  KFLMapOptions options;
  options.access = KFLMapOptions::Read | KFLMapOptions::Write;
  KFLCacheStorage file(path);
  if (file.map(KFLMappedFile::getPageSize(), options) != 0) return access(path.c_str(), F_OK) == 0 ? -1 : 0;
  KFLFileLock right;
  if (right.open(path) != 0) return access(path.c_str(), F_OK) == 0 ? -1 : 0;
  KFLDeadline deadline(std::chrono::seconds(1));
  while (right.tryRemoval() != 0) {
    if (deadline.pause()) continue;
    setErrorMessage("cannot remove %s: another process is about to", path.c_str());
    return -1;
  }
  if (!right.isSameFile(file) || !file.isAtPath() || !isFaulty(file)) return 0;
  if (unlink(path.c_str()) == 0 || errno == ENOENT) return 0;
  setErrorMessage("cannot remove %s: %s", path.c_str(), describeError(errno).c_str());
  return -1;
}

}  // namespace KFL
