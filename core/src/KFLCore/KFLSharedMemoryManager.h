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
// Each hop of a walk is checked before it is followed. For allocate() and deallocate() a broken structure is a programming
// error and aborts; tryAllocate(), release() and recount() say so instead, for memory that others can write to.
#ifndef KFLCORE_KFLSHAREDMEMORYMANAGER_H
#define KFLCORE_KFLSHAREDMEMORYMANAGER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <KFLCore/KFLCacheFormat.h>

namespace KFL {

class KFLSharedMemoryManager {
 public:
  enum class Outcome { Done, NoRoom, Broken };

  explicit KFLSharedMemoryManager(void* memory = nullptr) : base_(static_cast<std::byte*>(memory)) {}

  // Makes an empty heap behind `headerSize` bytes of a zeroed memory of `size` bytes, at most 2 GiB less 8.
  void create(std::size_t size, std::size_t headerSize);
  // Whether create() was ever finished.
  bool isInitialized() const { return header().bytesInUse != 0; }

  // Room for `size` bytes, aligned to 8; null when there is none, or size is 0.
  void* allocate(std::size_t size);
  // The same, with `data` only where there is room.
  Outcome tryAllocate(std::uint64_t size, void*& data);
  // Room for each size from `offsets.size()` on, in the order of the sizes, and its offset behind the others: all in one
  // block, or else as many as one walk through the free list finds room for. `offsets` has room for all of them.
  Outcome tryAllocateMany(std::span<const std::uint64_t> sizes, std::vector<std::uint64_t>& offsets);
  // Gives back what allocate() gave.
  void deallocate(void* data);
  // Adds so many bytes, a multiple of 8, that lie mapped behind the heap's end.
  void grow(std::size_t size);

  // Puts a block that is in use into the free list, and gives the free block that it is now part of. `after` is a free
  // block before it, or the sentinel; giving what the previous call returned makes many of them, in the order of their
  // addresses, one walk. Null when a part of it is free already, or the list is broken.
  KFLHeapBlock* release(KFLHeapBlock* block, KFLHeapBlock* after);
  KFLHeapBlock* sentinel() const { return &header().sentinel; }
  // Forgets every free block, as the first step of building the list anew.
  void forgetFreeBlocks();

  std::uint32_t getBytesInUse() const { return header().bytesInUse; }
  std::uint32_t getTotalSize() const { return header().totalSize; }

  // The bytes of the free block with which the heap ends; 0 when it ends with another, or the list is broken.
  std::uint64_t getFreeTail() const;
  // Whether the data could be those of a block that is in use: safe on any pointer into the memory.
  bool isAllocated(const void* data) const;
  // Takes the bytes in use from the free list. False when that is broken.
  bool recount();

 protected:
  KFLCacheHeader& header() const { return *reinterpret_cast<KFLCacheHeader*>(base_); }
  std::byte* base() const { return base_; }

 private:
  bool stepTo(KFLHeapBlock*& block) const;
  bool liesInHeap(const void* pointer) const;
  Outcome findFit(std::uint32_t units, KFLHeapBlock*& before, KFLHeapBlock*& block) const;
  KFLHeapBlock* cut(KFLHeapBlock* before, KFLHeapBlock* block, std::uint32_t units);
  void addInUse(const KFLHeapBlock* block);
  void carve(KFLHeapBlock* block, std::span<const std::uint64_t> sizes, std::vector<std::uint64_t>& offsets);
  KFLHeapBlock* link(KFLHeapBlock* before, KFLHeapBlock* block, KFLHeapBlock* next);

  std::byte* base_;
};

// Stores one word of shared memory. No store before it, in the program, comes after it.
template <class Word>
void storeWord(Word& word, Word value) {
  __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

}  // namespace KFL

#endif
