// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLSharedMemoryManager.h>

#include <KFLCommon/KFLCheck.h>

#define KFL_HEAP_CHECK(condition) KFL_CHECK(condition, "KFLCore", "KFLSharedMemoryManager")

namespace KFL {

namespace {

std::uint64_t bytesOf(const KFLHeapBlock* block) {
  return std::uint64_t{block->units} * kHeapUnit;
}

const std::byte* endOf(const KFLHeapBlock* block) {
  return reinterpret_cast<const std::byte*>(block) + bytesOf(block);
}

// One store: whoever walks the list sees it before or after.
void setNext(KFLHeapBlock* block, const KFLHeapBlock* next) {
  const auto distance = reinterpret_cast<const std::byte*>(next) - reinterpret_cast<std::byte*>(block);
  storeWord(block->next, static_cast<std::int32_t>(distance));
}

KFLHeapBlock* blockOf(void* data) {
  return static_cast<KFLHeapBlock*>(data) - 1;
}

bool isAligned(const void* data) {
  return reinterpret_cast<std::uintptr_t>(data) % kHeapUnit == 0;
}

constexpr std::uint32_t unitsFor(std::size_t size) {
  return static_cast<std::uint32_t>((size + kHeapUnit - 1) / kHeapUnit + 1);
}

}  // namespace

KFLHeapBlock* KFLSharedMemoryManager::nextOf(const KFLHeapBlock* block) const {
  const auto* const at = reinterpret_cast<const std::byte*>(block);
  return reinterpret_cast<KFLHeapBlock*>(const_cast<std::byte*>(at) + block->next);
}

bool KFLSharedMemoryManager::liesInHeap(const void* pointer) const {
  const auto* const at = static_cast<const std::byte*>(pointer);
  return at >= base_ + header().heapStart && at < base_ + header().totalSize;
}

void KFLSharedMemoryManager::create(std::size_t size, std::size_t headerSize) {
  const auto start = static_cast<std::uint32_t>((headerSize + kHeapUnit - 1) / kHeapUnit * kHeapUnit);
  KFL_HEAP_CHECK(size >= start && size <= 0x7FFFFFF8);
  header().sentinel.units = 1;
  forgetFreeBlocks();
  header().totalSize = start;
  header().heapStart = start;
  storeWord(header().bytesInUse, start);
  grow((size - start) / kHeapUnit * kHeapUnit);
}

void KFLSharedMemoryManager::forgetFreeBlocks() {
  setNext(sentinel(), sentinel());
}

// Takes the first block that fits well, or else the smallest that fits.
void* KFLSharedMemoryManager::allocate(std::size_t size) {
  const auto free = std::int64_t{header().totalSize} - header().bytesInUse - kHeapUnit;
  if (size == 0 || free < 0 || static_cast<std::uint64_t>(free) < size) return nullptr;

  const std::uint32_t units = unitsFor(size);
  KFLHeapBlock* best = nullptr;
  KFLHeapBlock* beforeBest = nullptr;
  KFLHeapBlock* before = sentinel();
  for (KFLHeapBlock* at = nextOf(before); at != sentinel(); before = at, at = nextOf(at)) {
    KFL_HEAP_CHECK(liesInHeap(at));
    KFL_HEAP_CHECK(at->units != 0);
    if (at->units < units) continue;
    const bool fitsWell = (at->units - units) * std::uint64_t{4} <= at->units;
    if (!fitsWell && best != nullptr && at->units >= best->units) continue;
    best = at;
    beforeBest = before;
    if (fitsWell) break;
  }
  if (best == nullptr) return nullptr;
  KFLHeapBlock* const block = cut(beforeBest, best, units);
  storeWord(header().bytesInUse, static_cast<std::uint32_t>(header().bytesInUse + bytesOf(block)));
  KFL_HEAP_CHECK(isAligned(block + 1));
  return block + 1;
}

// Takes the block, or its tail when more than a head would be left, out of the free list.
KFLHeapBlock* KFLSharedMemoryManager::cut(KFLHeapBlock* before, KFLHeapBlock* block, std::uint32_t units) {
  if (block->units <= units + 1) {
    setNext(before, nextOf(block));
    storeWord(block->next, kNull);
    return block;
  }
  const std::uint32_t left = block->units - units;
  KFLHeapBlock* const tail = block + left;
  storeWord(tail->next, kNull);
  storeWord(tail->units, units);
  storeWord(block->units, left);  // the tail is a block from this store on
  return tail;
}

void KFLSharedMemoryManager::deallocate(void* data) {
  KFLHeapBlock* const block = blockOf(data);
  KFL_HEAP_CHECK(liesInHeap(data) && liesInHeap(block));
  KFL_HEAP_CHECK(isAligned(data));
  KFL_HEAP_CHECK(header().bytesInUse >= bytesOf(block));
  const bool wasInUse = release(block, sentinel()) != nullptr;
  KFL_HEAP_CHECK(wasInUse);
}

KFLHeapBlock* KFLSharedMemoryManager::release(KFLHeapBlock* block, KFLHeapBlock* after) {
  KFLHeapBlock* before = after;
  KFLHeapBlock* next = nextOf(before);
  for (; next != sentinel() && next < block; next = nextOf(next))
    before = next;
  const bool startsFree = before != sentinel() && endOf(before) > reinterpret_cast<std::byte*>(block);
  const bool endsFree = next != sentinel() && endOf(block) > reinterpret_cast<std::byte*>(next);
  if (startsFree || endsFree) return nullptr;
  storeWord(header().bytesInUse, static_cast<std::uint32_t>(header().bytesInUse - bytesOf(block)));
  return link(before, block);
}

KFLHeapBlock* KFLSharedMemoryManager::link(KFLHeapBlock* before, KFLHeapBlock* block) {
  KFLHeapBlock* merged = block;
  if (before != sentinel() && endOf(before) == reinterpret_cast<std::byte*>(block)) {
    storeWord(before->units, before->units + block->units);
    merged = before;
  } else {
    setNext(block, nextOf(before));
    setNext(before, block);
  }
  KFLHeapBlock* const next = nextOf(merged);
  if (endOf(merged) == reinterpret_cast<std::byte*>(next)) {
    setNext(merged, nextOf(next));  // the successor leaves the list before it stops to be a block
    storeWord(merged->units, merged->units + next->units);
  }
  return merged;
}

void KFLSharedMemoryManager::grow(std::size_t size) {
  if (size == 0) return;
  auto* const block = reinterpret_cast<KFLHeapBlock*>(base_ + header().totalSize);
  storeWord(block->next, kNull);
  storeWord(block->units, static_cast<std::uint32_t>(size / kHeapUnit));
  storeWord(header().totalSize, static_cast<std::uint32_t>(header().totalSize + size));
  storeWord(header().bytesInUse, static_cast<std::uint32_t>(header().bytesInUse + size));
  release(block, sentinel());
}

bool KFLSharedMemoryManager::isFreeListSound() const {
  const std::int64_t end = header().totalSize;
  std::int64_t past = header().heapStart;  // where the next free block may begin
  std::int64_t at = header().sentinel.next;
  while (at != 0) {
    if (at < past || at % kHeapUnit != 0 || at + kHeapUnit > end) return false;
    const auto* const block = reinterpret_cast<const KFLHeapBlock*>(base_ + at);
    past = at + static_cast<std::int64_t>(bytesOf(block));
    if (block->units == 0 || past > end) return false;
    at += block->next;
  }
  return true;
}

bool KFLSharedMemoryManager::isAllocated(const void* data) const {
  const auto* const block = static_cast<const KFLHeapBlock*>(data) - 1;
  if (!isAligned(data) || !liesInHeap(block) || !liesInHeap(data)) return false;
  return block->units > 1 && endOf(block) <= base_ + header().totalSize &&
         bytesOf(block) <= header().bytesInUse;
}

void KFLSharedMemoryManager::recount() {
  std::uint64_t free = 0;
  for (const KFLHeapBlock* at = nextOf(sentinel()); at != sentinel(); at = nextOf(at))
    free += bytesOf(at);
  storeWord(header().bytesInUse, static_cast<std::uint32_t>(header().totalSize - free));
}

}  // namespace KFL
