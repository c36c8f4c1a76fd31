// SPDX-License-Identifier: Apache-2.0
// The heap of a cache file, with the words of the file's header. As KFLSharedMemoryManager, a handle to the mapping.
#ifndef KFLCORE_KFLMAPPEDMEMORYMANAGER_H
#define KFLCORE_KFLMAPPEDMEMORYMANAGER_H

#include <vector>

#include <KFLCore/KFLSharedMemoryManager.h>

namespace KFL {

class KFLMappedMemoryManager : public KFLSharedMemoryManager {
 public:
  using KFLSharedMemoryManager::KFLSharedMemoryManager;

  // Makes a new file out of a zeroed mapping of `size` bytes: header, heap, and an empty snapshot. It is initialized with
  // the last store and not before, so a death on the way leaves it to be made again. The lock word is kept.
  void createFile(std::size_t size);

  // 0, or the code of the first header word that is wrong.
  int validateHeader() const;

  // Whether the words that lead the allocator fit a mapping of `size` bytes. Cheap, and safe on any bytes.
  bool isUsable(std::size_t size) const;

  // Whether createFile() has still to be done in a file of `fileSize` bytes of which `size` are mapped: nothing but zeros,
  // or what a death on the way of createFile() left. Anything else is somebody's data.
  bool isUnmade(std::size_t fileSize, std::size_t size) const;

  bool isValid() const { return __atomic_load_n(&header().valid, __ATOMIC_ACQUIRE) == 1; }
  // Tells every process that maps the file not to use it any more.
  void invalidate() { storeWord(header().valid, 0U); }

  // The process that holds the lock; 0 when none does.
  std::uint32_t getHolder() const { return __atomic_load_n(&header().lockWord, __ATOMIC_ACQUIRE); }
  void setHolder(std::uint32_t process) { storeWord(header().lockWord, process); }

  // Where the current snapshot's head stands; anywhere in a file that is not proved.
  std::int64_t getSnapshot() const {
    return targetOf(offsetof(KFLCacheHeader, snapshot), loadWord(header().snapshot));
  }
  // Makes the snapshot at this offset the current one, by one store.
  void publishSnapshot(std::uint64_t offset) {
    storeWord(header().snapshot, pointerTo(offsetof(KFLCacheHeader, snapshot), offset));
  }

  std::byte* at(std::uint64_t offset) const { return base() + offset; }
  std::uint64_t offsetOf(const void* pointer) const {
    return static_cast<std::uint64_t>(static_cast<const std::byte*>(pointer) - base());
  }
};

}  // namespace KFL

#endif
