// SPDX-License-Identifier: Apache-2.0
// The heap of a memory that processes share: an allocator whose own state stands in that memory, behind self-relative
// pointers, so the memory may be mapped anywhere.
//
// A manager is a handle: a pointer to the memory, cheap to copy. Whoever calls holds the lock of the memory; const
// functions only read. Blocks are measured in units of 8 bytes, a head of one unit included; the free ones are a
// circular list in the order of addresses that begins and ends at the sentinel at offset 0 (KFLCacheFormat.h).
//
// Two things hold after every single store, so that a process may die at any of them:
//   * the sizes of the blocks lead from the start of the heap exactly to its end;
//   * the free list is in order and names free blocks only.
// What a death can leave is a block that is neither free nor used, and bytes in use that are out of date (recount()).
//
// Broken structures are programming errors and abort: prove memory that comes from outside (KFLCacheProof,
// isFreeListSound) before it is given to a manager.
#ifndef KFLCORE_KFLSHAREDMEMORYMANAGER_H
#define KFLCORE_KFLSHAREDMEMORYMANAGER_H

#include <cstddef>
#include <cstdint>

#include <KFLCore/KFLCacheFormat.h>

namespace KFL {

class KFLSharedMemoryManager {
 public:
  explicit KFLSharedMemoryManager(void* memory = nullptr) : base_(static_cast<std::byte*>(memory)) {}

  // Makes an empty heap behind `headerSize` bytes of a zeroed memory of `size` bytes, at most 2 GiB less 8.
  void create(std::size_t size, std::size_t headerSize);
  // Whether create() was ever finished.
  bool isInitialized() const { return header().bytesInUse != 0; }

  // Room for `size` bytes, aligned to 8; null when there is none, or size is 0.
  void* allocate(std::size_t size);
  // Gives back what allocate() gave.
  void deallocate(void* data);
  // Adds so many bytes, a multiple of 8, that lie mapped behind the heap's end.
  void grow(std::size_t size);

  // Puts a block that is in use into the free list, and gives the free block that it is now part of. `after` is a free
  // block before it, or the sentinel; giving what the previous call returned makes many of them, in the order of their
  // addresses, one walk. Null when a part of it is free already.
  KFLHeapBlock* release(KFLHeapBlock* block, KFLHeapBlock* after);
  KFLHeapBlock* sentinel() const { return &header().sentinel; }
  // Forgets every free block, as the first step of building the list anew.
  void forgetFreeBlocks();

  std::uint32_t getBytesInUse() const { return header().bytesInUse; }
  std::uint32_t getTotalSize() const { return header().totalSize; }

  // Whether the free list can be walked: in the heap, in order, and back to the sentinel. Safe on any bytes, as long as
  // the heap's end lies within the memory.
  bool isFreeListSound() const;
  // Whether the data could be those of a block that is in use: safe on any pointer into the memory.
  bool isAllocated(const void* data) const;
  // Takes the bytes in use from the free list, which is sound.
  void recount();

 protected:
  KFLCacheHeader& header() const { return *reinterpret_cast<KFLCacheHeader*>(base_); }
  std::byte* base() const { return base_; }

 private:
  KFLHeapBlock* nextOf(const KFLHeapBlock* block) const;
  bool liesInHeap(const void* pointer) const;
  KFLHeapBlock* cut(KFLHeapBlock* before, KFLHeapBlock* block, std::uint32_t units);
  KFLHeapBlock* link(KFLHeapBlock* before, KFLHeapBlock* block);

  std::byte* base_;
};

// Stores one word of shared memory. No store before it, in the program, comes after it.
template <class Word>
void storeWord(Word& word, Word value) {
  __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

}  // namespace KFL

#endif
