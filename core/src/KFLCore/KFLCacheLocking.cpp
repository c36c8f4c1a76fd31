// SPDX-License-Identifier: Apache-2.0
// Taking and releasing the lock of a cache file, and what is done under it.
#include <cerrno>

#include <algorithm>
#include <utility>

#include <KFLCommon/KFLError.h>

#include "KFLCacheCodes.h"
#include "KFLDescriptor.h"
#include "KFLLockedCache.h"

namespace KFL {

KFLCacheFile::Section::Section(KFLCacheFile& file) : file_(file), code_(file.begin()) {}

KFLCacheFile::Section::~Section() {
  if (code_ != 0) return;
  file_.showBase();
  KFLLockedCache(*file_.share_, file_.storage_).leave();
  file_.turn_.unlock();
}

int KFLCacheShare::takeTurn(std::chrono::milliseconds limit) {
  if (turn.lock(limit)) return 0;
  setErrorMessage("cannot lock %s: another thread of this process holds it since more than %lld ms",
                  path.c_str(), static_cast<long long>(limit.count()));
  return kCacheNotLocked;
}

int KFLCacheShare::takeLock(const KFLCacheStorage& storage, std::chrono::milliseconds limit) {
  const int error = storage.getLock().lock(limit, storage.header());
  if (error == 0) {
    isMarked = isDoubtful = false;
    return 0;
  }
  if (error == EAGAIN) {
    const std::uint32_t holder = storage.getLock().readWord();
    const std::string name = holder != 0 ? "process " + std::to_string(holder) : "another process";
    setErrorMessage("cannot lock %s: %s holds it since more than %lld ms", path.c_str(), name.c_str(),
                    static_cast<long long>(limit.count()));
  } else {
    setErrorMessage("cannot lock %s: %s", path.c_str(), describeError(error).c_str());
  }
  return kCacheNotLocked;
}

int KFLCacheFile::takeTurn() KFL_NO_THREAD_SAFETY_ANALYSIS {
  return share_->takeTurn(share_->patience());
}

// Takes the turn and the lock, or neither.
int KFLCacheFile::begin() KFL_NO_THREAD_SAFETY_ANALYSIS {
  if (const int code = takeTurn(); code != 0) return code;
  KFLTurnEnd end(turn_);
  const int code = lockCurrent();
  if (code == 0) end.keep();
  return code;
}

// Locks the file that the path names, which need not be the one that was open.
int KFLCacheFile::lockCurrent() {
  if (!isWanted_) {
    setErrorMessage("%s is not open", share_->path.c_str());
    return kCacheNotMapped;
  }
  if (isAccessible() && !isForked() && storage_->getLock().isOpen() &&
      storage_->getFileSize() >= sizeof(KFLCacheHeader)) {
    const int code = lockOpened();
    if (code <= 0) return code;
  }
  detach();
  const int code = openLocked(invalidates_);
  if (code != 0) detach();
  return code;
}

// 1 when another file is to be opened.
int KFLCacheFile::lockOpened() {
  if (const int code = awaitLock(); code != 0) return code;
  KFLLockedCache locked(*share_, storage_);
  const std::size_t size = storage_->getFileSize();
  if (size < sizeof(KFLCacheHeader) || size < locked.manager().getTotalSize() || !isStillHere()) return 1;
  const int code = locked.enter();
  showBase();
  if (code == 0) {
    locked.keep();
    return 0;
  }
  if (isFault(code) && code != kCacheNotRemapped) locked.invalidate(code);
  locked.leave();
  detach();
  return code;
}

bool KFLCacheFile::isStillHere() const {
  return storage_->manager().isValid() && storage_->isAtPath();
}

int KFLCacheFile::awaitLock() {
  return share_->takeLock(*storage_, share_->patience());
}

int KFLCacheFile::lock(Storage& storage) KFL_NO_THREAD_SAFETY_ANALYSIS {
  return withCode([&]() KFL_NO_THREAD_SAFETY_ANALYSIS {
    const int code = begin();
    if (code != 0) return code;
    KFLLockedCache locked(*share_, storage_);
    locked.mark();
    locked.keep();
    storage = storage_;
    return 0;
  });
}

void KFLCacheFile::unlock(Storage& storage) {
  showBase();
  KFLLockedCache(*share_, storage_).leave();
  turn_.unlock();
  storage.reset();
}

bool KFLCacheFile::passLock() {
  if (!isAccessible() || isForked()) return true;
  return withCode([&]() KFL_NO_THREAD_SAFETY_ANALYSIS {
           if (const int code = takeTurn(); code != 0) return code;
           const KFLTurnEnd end(turn_);
           if (storage_->getFileSize() < sizeof(KFLCacheHeader)) return 0;
           const int code = awaitLock();
           if (code == 0) storage_->getLock().unlock(storage_->header());
           return code;
         }) == 0;
}

int KFLCacheFile::setProtected(bool isProtected) {
  return withCode([&]() KFL_NO_THREAD_SAFETY_ANALYSIS {
    const Section section(*this);
    if (section.code() == 0) share_->isProtected = isProtected;
    return section.code();
  });
}

void KFLCacheFile::setLockTimeout(std::chrono::milliseconds timeout) {
  share_->timeout.store(std::max<std::int64_t>(timeout.count(), 0));
}

int KFLCacheFile::sync() {
  return withCode([&]() KFL_NO_THREAD_SAFETY_ANALYSIS {
    Storage storage;
    {
      const Section section(*this);
      if (section.code() != 0) return section.code();
      storage = storage_;
    }
    return storage->syncToDisk() == 0 ? 0 : int{kCacheNotMapped};
  });
}

int KFLCacheFile::repair(bool& alone) {
  dropKept(share_->patience());
  return withCode([&]() KFL_NO_THREAD_SAFETY_ANALYSIS {
    const Section section(*this);
    if (section.code() != 0) return section.code();
    KFLFileLock& fileLock = storage_->getLock();
    std::vector<std::uint64_t> held;
    alone = fileLock.isOnlyUser() && fileLock.findHeld(held) == 0 && held.empty();
    KFLLockedCache locked(*share_, storage_);
    const int code = locked.recover();
    locked.keep();
    return isFault(code) ? locked.invalidate(code) : code;
  });
}

int KFLCacheFile::apply(const KFLCacheChanges& changes) {
  return withCode([&]() KFL_NO_THREAD_SAFETY_ANALYSIS {
    const std::vector<const KFLCacheChange*> sorted = changes.sorted();
    if (const int code = checkChanges(sorted, share_->limits); code != 0) return code;
    for (std::uint32_t tries = 0; tries < std::max(share_->limits.openings, 1U); ++tries) {
      const Section section(*this);
      if (section.code() != 0) return section.code();
      const int code = applyLocked(sorted);
      if (code != 0 || isStillHere()) return code;
    }
    setErrorMessage("cannot change %s: it is replaced again and again", share_->path.c_str());
    return int{kCacheNotMapped};
  });
}

// What this process keeps for nobody does not stand in the way of the change.
int KFLCacheFile::applyLocked(const std::vector<const KFLCacheChange*>& changes) {
  KFLLockedCache locked(*share_, storage_);
  locked.keep();
  struct Kept {
    KFLCacheShare& share;
    const Storage& storage;
    boost::intrusive_ptr<KFLCacheHold> hold;
    ~Kept() {
      if (!hold) return;
      hold->moveTo(storage);
      const KFLForkableGuard guard(share.holdsLock);
      share.current = std::move(hold);
    }
  } kept{*share_, storage_, takeKept()};
  if (kept.hold && !kept.hold->isCurrent()) {
    const std::uint64_t former = kept.hold->view.getOffset();
    kept.hold.reset();
    if (const int code = locked.lower(former); code != 0) return code;
  }
  bool isReplaced = false;
  const int code = locked.change(changes, kept.hold != nullptr, isReplaced);
  if (isReplaced) kept.hold.reset();
  return code;
}

// The snapshot that this process keeps through the opening that is locked, if nobody uses it.
boost::intrusive_ptr<KFLCacheHold> KFLCacheFile::takeKept() {
  KFLCacheShare& share = *share_;
  const KFLForkableGuard guard(share.holdsLock);
  const bool isMine =
      share.current && !share.current->isForked() && share.current->storage->isSameOpening(*storage_);
  if (!isMine || share.current->users > 0) return nullptr;
  return std::move(share.current);
}

}  // namespace KFL
