// SPDX-License-Identifier: Apache-2.0
// The mapping of a cache file that a process works on, with the file's lock. A larger mapping of the same file replaces
// it when the heap grows; whoever holds a snapshot keeps the one that it was taken from.
#ifndef KFLCORE_KFLCACHESTORAGE_H
#define KFLCORE_KFLCACHESTORAGE_H

#include <atomic>
#include <span>

#include <KFLCore/KFLFileLock.h>
#include <KFLCore/KFLMappedFile.h>
#include <KFLCore/KFLMappedMemoryManager.h>

namespace KFL {

class KFLCacheStorage final : public KFLMappedFile {
 public:
  using KFLMappedFile::KFLMappedFile;

  // Maps `size` bytes: of the file at the path, with a lock of its own, or else of the file that `previous` maps, with the
  // same lock. Tries up to 100 times, yielding in between. Null, with an error text, when there is no memory. When
  // something is mapped already, that is written to the file, and the result is null.
  void* getStorage(std::size_t size, const KFLCacheStorage* previous, const KFLMapOptions& options = {});

  KFLFileLock& getLock() const { return *lock_; }
  // Whether both map the same file by one opening of it.
  bool isSameOpening(const KFLCacheStorage& other) const { return lock_ == other.lock_; }
  std::span<std::byte> memory() const { return {static_cast<std::byte*>(getMemory()), getSize()}; }
  KFLMappedMemoryManager manager() const { return KFLMappedMemoryManager(memory()); }
  // The header in the mapping; null while the file is too short to have one, when touching it would be fatal.
  KFLCacheHeader* header() const {
    if (!hasHeader_) hasHeader_ = getFileSize() >= sizeof(KFLCacheHeader);
    return hasHeader_ ? static_cast<KFLCacheHeader*>(getMemory()) : nullptr;
  }

 private:
  int mapOnce(std::size_t size, const KFLCacheStorage* previous, const KFLMapOptions& options);

  boost::intrusive_ptr<KFLFileLock> lock_;
  mutable std::atomic<bool> hasHeader_{false};  // it was long enough once
};

}  // namespace KFL

#endif
