// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLCacheStorage.h>

#include <sched.h>

#include <cerrno>

#include <KFLCommon/KFLError.h>

namespace KFL {

void* KFLCacheStorage::getStorage(std::size_t size, const KFLCacheStorage* previous,
                                  const KFLMapOptions& options) {
  if (getMemory() != nullptr) {
    syncMemory();
    return nullptr;
  }
  constexpr int kTries = 100;
  for (int tries = 0; tries < kTries; ++tries) {
    if (mapOnce(size, previous, options) == 0) break;
    sched_yield();
  }
  return getMemory();
}

int KFLCacheStorage::mapOnce(std::size_t size, const KFLCacheStorage* previous,
                             const KFLMapOptions& options) {
  if (previous != nullptr) {
    lock_ = previous->lock_;
    return remap(size, *previous, options);
  }
  lock_ = new KFLFileLock;
  if (const int error = map(size, options); error != 0) return error;
  if (const int error = lock_->open(getPath()); error != 0) return unmap(error);
  if (lock_->isSameFile(*this)) return 0;
  setErrorMessage("cannot open %s: it was replaced meanwhile", getPath().c_str());
  return unmap(EAGAIN);
}

}  // namespace KFL
