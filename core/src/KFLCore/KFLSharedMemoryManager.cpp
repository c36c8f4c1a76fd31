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

constexpr std::uint64_t unitsFor(std::uint64_t size) {
  return (size + kHeapUnit - 1) / kHeapUnit + 1;
}

KFLHeapBlock* following(KFLHeapBlock* block, std::int32_t distance) {
  return reinterpret_cast<KFLHeapBlock*>(reinterpret_cast<std::byte*>(block) + distance);
}

}  // namespace

bool KFLSharedMemoryManager::liesInHeap(const void* pointer) const {
  const auto* const at = static_cast<const std::byte*>(pointer);
  return at >= base_ + header().heapStart && at < base_ + header().totalSize;
}

// Goes on to the next block of the free list, which is the sentinel at its end. False, and no step, when the list is
// broken: each block lies behind the one before, and within the heap.
bool KFLSharedMemoryManager::stepTo(KFLHeapBlock*& block) const {
  const std::int64_t at = reinterpret_cast<std::byte*>(block) - base_;
  const std::int64_t past =
      block == sentinel() ? std::int64_t{header().heapStart} : at + static_cast<std::int64_t>(bytesOf(block));
  const std::int64_t next = at + block->next;
  if (next == 0) {
    block = sentinel();
    return true;
  }
  const std::int64_t end = header().totalSize;
  if (next < past || next % kHeapUnit != 0 || next + kHeapUnit > end) return false;
  KFLHeapBlock* const found = following(block, static_cast<std::int32_t>(next - at));
  const std::uint32_t units = found->units;
  if (units == 0 || next + std::int64_t{units} * kHeapUnit > end) return false;
  block = found;
  return true;
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

void* KFLSharedMemoryManager::allocate(std::size_t size) {
  void* data = nullptr;
  const Outcome outcome = tryAllocate(size, data);
  KFL_HEAP_CHECK(outcome != Outcome::Broken);
  KFL_HEAP_CHECK(isAligned(data));
  return data;
}

KFLSharedMemoryManager::Outcome KFLSharedMemoryManager::tryAllocate(std::uint64_t size, void*& data) {
  const auto free = std::int64_t{header().totalSize} - header().bytesInUse - kHeapUnit;
  if (size == 0 || free < 0 || static_cast<std::uint64_t>(free) < size) return Outcome::NoRoom;
  KFLHeapBlock* before = nullptr;
  KFLHeapBlock* best = nullptr;
  const auto units = static_cast<std::uint32_t>(unitsFor(size));
  if (const Outcome outcome = findFit(units, before, best); outcome != Outcome::Done) return outcome;
  KFLHeapBlock* const block = cut(before, best, units);
  addInUse(block);
  data = block + 1;
  return Outcome::Done;
}

// The first block that fits well, or else the smallest that fits.
KFLSharedMemoryManager::Outcome KFLSharedMemoryManager::findFit(std::uint32_t units, KFLHeapBlock*& before,
                                                                KFLHeapBlock*& block) const {
  KFLHeapBlock* best = nullptr;
  KFLHeapBlock* last = sentinel();
  for (KFLHeapBlock* at = last;; last = at) {
    if (!stepTo(at)) return Outcome::Broken;
    if (at == sentinel()) break;
    if (at->units < units) continue;
    const bool fitsWell = (at->units - units) * std::uint64_t{4} <= at->units;
    if (!fitsWell && best != nullptr && at->units >= best->units) continue;
    best = at;
    before = last;
    if (fitsWell) break;
  }
  block = best;
  return best != nullptr ? Outcome::Done : Outcome::NoRoom;
}

KFLSharedMemoryManager::Outcome KFLSharedMemoryManager::tryAllocateMany(std::span<const std::uint64_t> sizes,
                                                                        std::vector<std::uint64_t>& offsets) {
  std::uint64_t all = 0;
  for (const std::uint64_t size : sizes.subspan(offsets.size()))
    all += unitsFor(size) * kHeapUnit;
  void* data = nullptr;
  const Outcome outcome = tryAllocate(all - kHeapUnit, data);
  if (outcome == Outcome::Broken) return outcome;
  if (outcome == Outcome::Done) {
    carve(blockOf(data), sizes, offsets);
    return outcome;
  }
  KFLHeapBlock* before = sentinel();
  for (KFLHeapBlock* at = before; offsets.size() < sizes.size();) {
    if (!stepTo(at)) return Outcome::Broken;
    if (at == sentinel()) return Outcome::NoRoom;
    std::uint64_t units = 0;
    for (std::size_t i = offsets.size(); i < sizes.size() && units + unitsFor(sizes[i]) <= at->units; ++i)
      units += unitsFor(sizes[i]);
    if (units == 0) {
      before = at;
      continue;
    }
    KFLHeapBlock* const block = cut(before, at, static_cast<std::uint32_t>(units));
    addInUse(block);
    carve(block, sizes, offsets);
    if (block == at)
      at = before;
    else
      before = at;
  }
  return Outcome::Done;
}

void KFLSharedMemoryManager::addInUse(const KFLHeapBlock* block) {
  storeWord(header().bytesInUse, static_cast<std::uint32_t>(header().bytesInUse + bytesOf(block)));
}

// Makes a block that is in use into one for each of the next sizes that fit, all by the one store of its own size: until
// then the heads behind it are data.
void KFLSharedMemoryManager::carve(KFLHeapBlock* block, std::span<const std::uint64_t> sizes,
                                   std::vector<std::uint64_t>& offsets) {
  const std::uint64_t whole = block->units;
  std::uint64_t at = 0;
  std::uint64_t first = whole;
  KFLHeapBlock* last = nullptr;
  while (offsets.size() < sizes.size() && at + unitsFor(sizes[offsets.size()]) <= whole) {
    const std::uint64_t units = unitsFor(sizes[offsets.size()]);
    KFLHeapBlock* const part = block + at;
    if (at == 0) {
      first = units;
    } else {
      *part = {kNull, static_cast<std::uint32_t>(units)};
      last = part;
    }
    offsets.push_back(static_cast<std::uint64_t>(reinterpret_cast<std::byte*>(part + 1) - base_));
    at += units;
  }
  const std::uint64_t spare = whole - at;  // a head's worth at most, with the last
  if (last == nullptr)
    first += spare;
  else
    last->units += static_cast<std::uint32_t>(spare);
  storeWord(block->units, static_cast<std::uint32_t>(first));
}

// Takes the block, or its tail when more than a head would be left, out of the free list.
KFLHeapBlock* KFLSharedMemoryManager::cut(KFLHeapBlock* before, KFLHeapBlock* block, std::uint32_t units) {
  if (block->units <= units + 1) {
    setNext(before, following(block, block->next));
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
  KFLHeapBlock* next = after;
  for (;; before = next) {
    if (!stepTo(next)) return nullptr;
    if (next == sentinel() || next >= block) break;
  }
  const bool startsFree = before != sentinel() && endOf(before) > reinterpret_cast<std::byte*>(block);
  const bool endsFree = next != sentinel() && endOf(block) > reinterpret_cast<std::byte*>(next);
  if (startsFree || endsFree) return nullptr;
  storeWord(header().bytesInUse, static_cast<std::uint32_t>(header().bytesInUse - bytesOf(block)));
  return link(before, block, next);
}

KFLHeapBlock* KFLSharedMemoryManager::link(KFLHeapBlock* before, KFLHeapBlock* block, KFLHeapBlock* next) {
  KFLHeapBlock* merged = block;
  if (before != sentinel() && endOf(before) == reinterpret_cast<std::byte*>(block)) {
    storeWord(before->units, before->units + block->units);
    merged = before;
  } else {
    setNext(block, next);
    setNext(before, block);
  }
  if (next != sentinel() && endOf(merged) == reinterpret_cast<std::byte*>(next)) {
    setNext(merged,
            following(next, next->next));  // the successor leaves the list before it stops to be a block
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

std::uint64_t KFLSharedMemoryManager::getFreeTail() const {
  KFLHeapBlock* last = sentinel();
  for (KFLHeapBlock* at = last;; last = at) {
    if (!stepTo(at)) return 0;
    if (at == sentinel()) break;
  }
  const bool endsHeap = last != sentinel() && endOf(last) == base_ + header().totalSize;
  return endsHeap ? bytesOf(last) : 0;
}

bool KFLSharedMemoryManager::isAllocated(const void* data) const {
  const auto* const block = static_cast<const KFLHeapBlock*>(data) - 1;
  if (!isAligned(data) || !liesInHeap(block) || !liesInHeap(data)) return false;
  return block->units > 1 && endOf(block) <= base_ + header().totalSize &&
         bytesOf(block) <= header().bytesInUse;
}

bool KFLSharedMemoryManager::recount() {
  std::uint64_t free = 0;
  for (KFLHeapBlock* at = sentinel();;) {
    if (!stepTo(at)) return false;
    if (at == sentinel()) break;
    free += bytesOf(at);
  }
  storeWord(header().bytesInUse, static_cast<std::uint32_t>(header().totalSize - free));
  return true;
}

}  // namespace KFL
