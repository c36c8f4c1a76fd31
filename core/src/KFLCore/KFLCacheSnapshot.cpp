// SPDX-License-Identifier: Apache-2.0
// Holding snapshots: what a process keeps is given out without a lock, all else is held and ended under it.
#include <KFLCore/KFLCacheSnapshot.h>

#include <cerrno>
#include <utility>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>

#include "KFLCacheCodes.h"
#include "KFLDescriptor.h"
#include "KFLKeySearch.h"
#include "KFLLockedCache.h"

namespace KFL {

namespace {

// Looks at the path in each tick of the kernel's clock, until they count for little beside the look-ups.
constexpr int kLooks = 8;

std::time_t tickOf(const struct timespec& time) {
  return time.tv_sec * 1000000000 + time.tv_nsec;
}

}  // namespace

bool KFLCacheShare::isLookDue() {
  struct timespec now {};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  if (tickOf(now) != tick) {
    tick = tickOf(now);
    looks = 0;
  }
  return looks++ < kLooks;
}

int KFLCacheHold::checkFile() const {
  std::size_t size = 0;
  if (storage->readFileSize(size) != 0) return kCacheNotMapped;
  if (size >= storage->getSize()) return 0;
  setErrorMessage("%s was cut while it was open: to %zu bytes, of %zu that were mapped",
                  storage->getPath().c_str(), size, storage->getSize());
  return kCacheNotRemapped;
}

boost::intrusive_ptr<KFLCacheHold> KFLCacheShare::takeUnused() {
  const KFLForkableGuard guard(holdsLock);
  if (!current || current->users > 0) {
    current.reset();
    return nullptr;
  }
  return std::move(current);
}

int endHold(KFLCacheHold& hold, std::chrono::milliseconds patience) noexcept {
  if (hold.isForked()) return 0;
  return withCode([&]() KFL_NO_THREAD_SAFETY_ANALYSIS {
    KFLCacheShare& share = *hold.share;
    if (const int code = share.takeTurn(patience); code != 0) return code;
    const KFLTurnEnd end(share.turn);
    KFLCacheFile::Storage storage = hold.storage;
    if (const int code = hold.checkFile(); code != 0) return code;
    if (const int code = share.takeLock(*storage, patience); code != 0) return code;
    KFLLockedCache locked(share, storage);
    if (const int code = hold.checkFile(); code != 0) return code;
    if (!locked.manager().isValid()) {
      storage->getLock().letGo(hold.view.getOffset());
      return 0;
    }
    const int code = locked.enter();
    return code == 0 ? locked.lower(hold.view.getOffset()) : code;
  });
}

KFLCacheSnapshot::KFLCacheSnapshot() = default;
KFLCacheSnapshot::~KFLCacheSnapshot() {
  release();
}

KFLCacheSnapshot::KFLCacheSnapshot(KFLCacheSnapshot&& other) noexcept {
  *this = std::move(other);
}

KFLCacheSnapshot& KFLCacheSnapshot::operator=(KFLCacheSnapshot&& other) noexcept {
  hold_.swap(other.hold_);
  std::swap(view_, other.view_);
  std::swap(generation_, other.generation_);
  return *this;
}

void KFLCacheSnapshot::use(const boost::intrusive_ptr<KFLCacheHold>& hold) {
  hold_ = hold;
  view_ = hold->view;
  generation_ = hold->generation;
}

// What the process keeps stays held, unless it is out of date.
void KFLCacheSnapshot::release() {
  const boost::intrusive_ptr<KFLCacheHold> hold = std::move(hold_);
  view_ = KFLSnapshotView();
  if (!hold || hold->isForked()) return;
  KFLCacheShare& share = *hold->share;
  {
    const KFLForkableGuard guard(share.holdsLock);
    if (--hold->users > 0) return;
    if (share.current == hold) {
      const bool isCut = share.isLookDue() && hold->storage->getFileSize() < hold->storage->getSize();
      if (!isCut && hold->isCurrent()) return;
      share.current.reset();
    }
  }
  if (endHold(*hold, share.patience()) == 0) return;
  withCode([] {
    KFL_LOG("KFLCore", kLogWarning, "[release] %s", getErrorMessage().c_str());
    return 0;
  });
}

// A page that is mapped for the sake of one key costs several times what reading that key does. So a search reads, until
// what is left lies in pages that the kernel maps together.
static std::uint32_t lowerBoundByReading(const KFLCacheHold& hold, std::string_view key, bool& found) {
  constexpr std::uint32_t kMappedTogether = 64;
  const KFLSoughtKey sought(key);
  return firstNotBefore(0, hold.view.size(), found, [&](std::uint32_t index, std::uint32_t left) {
    char there[kCacheKeySize];
    const std::uint64_t at = hold.view.getOffset() + snapshotBytes(index);
    const bool isRead =
        left > kMappedTogether && KFLMappedReading::read(*hold.storage, {there, sought.size()}, at);
    return sought.orderOf(isRead ? there : hold.view.records()[index].key);
  });
}

std::uint32_t KFLCacheSnapshot::find(std::string_view key) const {
  constexpr int kByReading = 16;
  if (!isHere() || key.size() >= kCacheKeySize) return kNone;
  bool found = false;
  const bool isCold = hold_->finds.load(std::memory_order_relaxed) < kByReading;
  if (isCold) hold_->finds.fetch_add(1, std::memory_order_relaxed);
  const std::uint32_t index = isCold ? lowerBoundByReading(*hold_, key, found) : view_.lowerBound(key, found);
  return found ? index : kNone;
}

int KFLCacheFile::hold(KFLCacheSnapshot& snapshot) {
  KFLCacheSnapshot held;
  if (!useCurrent(held)) {
    boost::intrusive_ptr<KFLCacheHold> former;
    const int code = withCode([&]() KFL_NO_THREAD_SAFETY_ANALYSIS {
      const Section section(*this);
      return section.code() != 0 ? section.code() : holdLocked(held, former);
    });
    if (former) endHold(*former, share_->patience());
    if (code != 0) return code;
  }
  snapshot = std::move(held);
  return 0;
}

// What the process keeps, if the file still names it.
bool KFLCacheFile::useCurrent(KFLCacheSnapshot& snapshot) {
  KFLCacheShare& share = *share_;
  const KFLForkableGuard guard(share.holdsLock);
  KFLCacheHold* const kept = share.current.get();
  if (kept == nullptr || kept->isForked()) return false;
  const KFLCacheStorage& file = *kept->storage;
  if ((share.isLookDue() && !file.isAtPath(file.getSize())) || !kept->isCurrent()) return false;
  ++kept->users;
  snapshot.use(share.current);
  return true;
}

// Another thread may have come first. What was kept before is to be ended, when nobody uses it.
int KFLCacheFile::holdLocked(KFLCacheSnapshot& snapshot, boost::intrusive_ptr<KFLCacheHold>& former) {
  const boost::intrusive_ptr<KFLCacheHold> made(new KFLCacheHold);
  KFLLockedCache locked(*share_, storage_);
  locked.keep();
  KFLCacheShare& share = *share_;
  const KFLForkableGuard guard(share.holdsLock);
  KFLCacheHold* const kept = share.current.get();
  const bool isThere =
      kept != nullptr && !kept->isForked() && kept->storage->isSameOpening(*storage_) && kept->isCurrent();
  if (!isThere) {
    if (const int code = locked.acquire(made->view); code != 0) return code;
    made->share = share_;
    made->storage = storage_;
    if (kept != nullptr && kept->users == 0) former = kept;
    share.current = made;
  }
  ++share.current->users;
  snapshot.use(share.current);
  return 0;
}

// Lets go of what the process keeps. Where the lock cannot be had, the kernel does it when the file is closed.
void KFLCacheFile::dropKept(std::chrono::milliseconds patience) {
  if (const boost::intrusive_ptr<KFLCacheHold> kept = share_->takeUnused()) endHold(*kept, patience);
}

KFLSnapshotHead* KFLCacheFile::acquireSnapshot(Storage& storage) {
  KFLSnapshotView snapshot;
  const int code = withCode([&]() KFL_NO_THREAD_SAFETY_ANALYSIS {
    const Section section(*this);
    if (section.code() != 0) return section.code();
    KFLLockedCache locked(*share_, storage_);
    locked.keep();
    const int result = locked.acquire(snapshot);
    if (result == 0) storage = storage_;
    return result;
  });
  return code == 0 ? &snapshot.head() : nullptr;
}

int KFLCacheFile::releaseSnapshot(KFLSnapshotHead* snapshot, Storage& storage) {
  const Storage held = std::move(storage);
  if (!held->getLock().isOpen()) return 0;
  return withCode([&] {
    const boost::intrusive_ptr<KFLCacheHold> hold(new KFLCacheHold);
    hold->share = share_;
    hold->storage = held;
    if (const int code = hold->checkFile(); code != 0) return code;
    const auto offset = static_cast<std::int64_t>(held->manager().offsetOf(snapshot));
    hold->view = KFLSnapshotView(held->memory(), offset);
    if (hold->view.isSound()) return endHold(*hold, share_->patience());
    setErrorMessage("%s is damaged: a snapshot that was held does not hold together", share_->path.c_str());
    return static_cast<int>(kCacheUnsound);
  });
}

}  // namespace KFL
