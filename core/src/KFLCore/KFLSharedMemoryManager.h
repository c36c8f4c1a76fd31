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
// What a death can leave is a block that is neither free nor used, and bytes in use that are out of date.
//
// Others can write to the memory at any time, against the rules. So each number is read once, into a KFLHeapPart, checked
// against the memory's size, and never looked at again: whatever stands there, nothing outside of the memory is touched.
// For allocate(), deallocate() and grow() a broken structure is a programming error and aborts; the others say so.
#ifndef KFLCORE_KFLSHAREDMEMORYMANAGER_H
#define KFLCORE_KFLSHAREDMEMORYMANAGER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <KFLCore/KFLCacheFormat.h>

namespace KFL {

// A block as its head was read; the sentinel unless said otherwise.
struct KFLHeapPart {
  std::uint64_t offset = 0;
  std::uint64_t units = 1;

  std::uint64_t bytes() const { return units * kHeapUnit; }
  std::uint64_t end() const { return offset + bytes(); }
  bool isSentinel() const { return offset == 0; }
};

class KFLSharedMemoryManager {
 public:
  enum class Outcome { Done, NoRoom, Broken };

  // A memory has room for a header at least.
  explicit KFLSharedMemoryManager(std::span<std::byte> memory = {}) : memory_(memory) {}

  // Makes an empty heap of `size` bytes, at most 2 GiB less 8, the first `headerSize` aside, in a zeroed memory.
  void create(std::size_t size, std::size_t headerSize);
  // Whether create() was ever finished.
  bool isInitialized() const { return getBytesInUse() != 0; }

  // Room for `size` bytes, aligned to 8; null when there is none, or size is 0.
  void* allocate(std::size_t size);
  // Room for each size from `offsets.size()` on, in the order of the sizes, and its offset behind the others: all in one
  // block, or else as many as one walk through the free list finds room for. `offsets` has room for all of them.
  Outcome tryAllocateMany(std::span<const std::uint64_t> sizes, std::vector<std::uint64_t>& offsets);
  // Gives back what allocate() gave.
  void deallocate(void* data);
  // Adds so many bytes, a multiple of 8, that lie in the memory behind the heap's end.
  void grow(std::size_t size);
  // The same for a heap that ends at `end`; Broken when it does not, or the list is.
  Outcome tryGrow(std::uint64_t end, std::uint64_t size);

  // The block whose data begin at the offset. False when it cannot be one that is in use.
  bool findUsed(std::uint64_t data, KFLHeapPart& block) const;
  // Puts a block that is in use into the free list. `after` is a free block before it, or the sentinel, and then the free
  // block that it is now part of: so many of them, in the order of their addresses, are one walk. False when a part of it
  // is free already, or the list is broken.
  bool release(const KFLHeapPart& block, KFLHeapPart& after);

  // Builds the free list anew, without a look at what stands there: forgets every free block, then adds those of a heap
  // that ends at `end` in the order of their addresses, each behind the `last` one, and at last counts their bytes.
  void forgetFreeBlocks();
  void addLast(const KFLHeapPart& block, KFLHeapPart& last);
  void setFreeBytes(std::uint64_t end, std::uint64_t free);

  std::uint32_t getBytesInUse() const { return loadWord(header().bytesInUse); }
  std::uint32_t getTotalSize() const { return loadWord(header().totalSize); }

  // The bytes of the free block with which a heap that ends there ends; 0 when it ends with another, or the list is
  // broken.
  std::uint64_t getFreeTail(std::uint64_t end) const;

 protected:
  KFLCacheHeader& header() const { return *reinterpret_cast<KFLCacheHeader*>(base()); }
  std::byte* base() const { return memory_.data(); }
  std::span<std::byte> memory() const { return memory_; }

 private:
  KFLHeapBlock& headOf(const KFLHeapPart& block) const;
  void setNext(const KFLHeapPart& block, std::int64_t next);
  std::int64_t nextOf(const KFLHeapPart& block) const;
  std::uint64_t start() const;
  std::uint64_t end() const;
  bool readBlock(std::int64_t offset, KFLHeapPart& block) const;
  bool stepTo(KFLHeapPart& block) const;
  Outcome tryAllocate(std::uint64_t size, KFLHeapPart& block);
  Outcome findFit(std::uint64_t units, KFLHeapPart& before, KFLHeapPart& block) const;
  KFLHeapPart cut(const KFLHeapPart& before, const KFLHeapPart& block, std::uint64_t units);
  void addInUse(const KFLHeapPart& block);
  void carve(const KFLHeapPart& block, std::span<const std::uint64_t> sizes,
             std::vector<std::uint64_t>& offsets);
  KFLHeapPart link(const KFLHeapPart& before, const KFLHeapPart& block, const KFLHeapPart& next);

  std::span<std::byte> memory_;
};

}  // namespace KFL

#endif
