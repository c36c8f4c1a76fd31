// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLCacheSnapshot.h>

#include <utility>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>

namespace KFL {

void KFLCacheSnapshot::swap(KFLCacheSnapshot& other) noexcept {
  std::swap(cache_, other.cache_);
  storage_.swap(other.storage_);
  std::swap(view_, other.view_);
  std::swap(generation_, other.generation_);
}

void KFLCacheSnapshot::release() {
  if (!view_.isSound()) return;
  if (isHere() && cache_->releaseSnapshot(&view_.head(), storage_) != 0)
    KFL_LOG("KFLCore", kLogWarning, "[%s] %s", __func__, getErrorMessage().c_str());
  view_ = KFLSnapshotView();
  storage_.reset();
}

std::uint32_t KFLCacheSnapshot::find(std::string_view key) const {
  if (!isHere() || key.size() >= kCacheKeySize) return kNone;
  bool found = false;
  const std::uint32_t index = view_.lowerBound(key, found);
  return found ? index : kNone;
}

int KFLCacheFile::hold(KFLCacheSnapshot& snapshot) {
  KFLCacheSnapshot held;
  KFLSnapshotHead* head = nullptr;
  if (const int code = acquire(head, held.storage_); code != 0) return code;
  const std::span<std::byte> memory = held.storage_->memory();
  held.view_ = KFLSnapshotView(memory, reinterpret_cast<std::byte*>(head) - memory.data());
  held.cache_ = this;
  held.generation_ = getForkGeneration();
  snapshot = std::move(held);
  return 0;
}

KFLSnapshotHead* KFLCacheFile::acquireSnapshot(Storage& storage) {
  KFLSnapshotHead* snapshot = nullptr;
  acquire(snapshot, storage);
  return snapshot;
}

int KFLCacheFile::acquire(KFLSnapshotHead*& snapshot, Storage& storage) {
  Storage locked;
  if (const int code = lock(locked); code != 0) return code;
  snapshot = unsafe_acquireSnapshot();
  if (snapshot != nullptr) {
    storage = storage_;
    storage->getLock().addHeld();
  }
  unlock(locked);
  return snapshot != nullptr ? 0 : kCacheUnsound;
}

KFLSnapshotHead* KFLCacheFile::unsafe_acquireSnapshot() {
  const KFLSnapshotView snapshot(storage_->memory(), manager().getSnapshot());
  if (!snapshot.isSound() || snapshot.head().references <= 0 || snapshot.head().references == INT32_MAX) {
    markUnsound("its snapshot cannot be held");
    return nullptr;
  }
  KFL::incRef(snapshot.head().references);
  return &snapshot.head();
}

int KFLCacheFile::releaseSnapshot(KFLSnapshotHead* snapshot, Storage& storage) {
  const Storage held = std::move(storage);
  if (isForked()) return 0;
  held->getLock().removeHeld();
  Storage locked;
  if (const int code = lock(locked); code != 0) return code;
  int code = 0;
  if (held->isSameOpening(*storage_)) code = lowerSnapshot(held->manager().offsetOf(snapshot));
  unlock(locked);
  return code;
}

}  // namespace KFL
