// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLSharedMemoryManager.h>

#include <algorithm>

#include <KFLCommon/KFLCheck.h>

#define KFL_HEAP_CHECK(condition) KFL_CHECK(condition, "KFLCore", "KFLSharedMemoryManager")

namespace KFL {

namespace {

constexpr std::uint64_t unitsFor(std::uint64_t size) {
  return (size + kHeapUnit - 1) / kHeapUnit + 1;
}

bool isAligned(const void* data) {
  return reinterpret_cast<std::uintptr_t>(data) % kHeapUnit == 0;
}

void storeUnits(KFLHeapBlock& head, std::uint64_t units) {
  storeWord(head.units, static_cast<std::uint32_t>(units));
}

}  // namespace

KFLHeapBlock& KFLSharedMemoryManager::headOf(const KFLHeapPart& block) const {
  return *reinterpret_cast<KFLHeapBlock*>(base() + block.offset);
}

// One store: whoever walks the list sees it before or after.
void KFLSharedMemoryManager::setNext(const KFLHeapPart& block, std::int64_t next) {
  storeWord(headOf(block).next, static_cast<std::int32_t>(next - static_cast<std::int64_t>(block.offset)));
}

// Anywhere, in a list that is broken.
std::int64_t KFLSharedMemoryManager::nextOf(const KFLHeapPart& block) const {
  return targetOf(block.offset, loadWord(headOf(block).next));
}

std::uint64_t KFLSharedMemoryManager::start() const {
  return std::max(loadWord(header().heapStart), kCacheHeaderSize);
}
std::uint64_t KFLSharedMemoryManager::end() const {
  return std::min<std::uint64_t>(getTotalSize(), memory_.size());
}

// False when no block of the heap can begin there.
bool KFLSharedMemoryManager::readBlock(std::int64_t offset, KFLHeapPart& block) const {
  const std::uint64_t last = end();
  const auto at = static_cast<std::uint64_t>(offset);
  if (offset % kHeapUnit != 0 || at < start() || !liesWithin(offset, kHeapUnit, last)) return false;
  const KFLHeapPart found{at, loadWord(headOf({at, 1}).units)};
  if (found.units == 0 || found.units > (last - at) / kHeapUnit) return false;
  block = found;
  return true;
}

// Goes on to the next block of the free list, which is the sentinel at its end. False, and no step, when the list is
// broken: each block lies behind the one before, and within the heap.
bool KFLSharedMemoryManager::stepTo(KFLHeapPart& block) const {
  const std::int64_t next = nextOf(block);
  if (next == 0) {
    block = {};
    return true;
  }
  return next >= static_cast<std::int64_t>(block.end()) && readBlock(next, block);
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

void* KFLSharedMemoryManager::allocate(std::size_t size) {
  KFLHeapPart block;
  const Outcome outcome = tryAllocate(size, block);
  KFL_HEAP_CHECK(outcome != Outcome::Broken);
  if (outcome == Outcome::NoRoom) return nullptr;
  void* const data = &headOf(block) + 1;
  KFL_HEAP_CHECK(isAligned(data));
  return data;
}

KFLSharedMemoryManager::Outcome KFLSharedMemoryManager::tryAllocate(std::uint64_t size, KFLHeapPart& block) {
  const auto free = std::int64_t{getTotalSize()} - getBytesInUse() - kHeapUnit;
  if (size == 0 || free < 0 || static_cast<std::uint64_t>(free) < size) return Outcome::NoRoom;
  KFLHeapPart before;
  KFLHeapPart best;
  const std::uint64_t units = unitsFor(size);
  if (const Outcome outcome = findFit(units, before, best); outcome != Outcome::Done) return outcome;
  block = cut(before, best, units);
  addInUse(block);
  return Outcome::Done;
}

// The first block that fits well, or else the smallest that fits.
KFLSharedMemoryManager::Outcome KFLSharedMemoryManager::findFit(std::uint64_t units, KFLHeapPart& before,
                                                                KFLHeapPart& block) const {
  KFLHeapPart best;
  KFLHeapPart last;
  for (KFLHeapPart at;; last = at) {
    if (!stepTo(at)) return Outcome::Broken;
    if (at.isSentinel()) break;
    if (at.units < units) continue;
    const bool fitsWell = (at.units - units) * 4 <= at.units;
    if (!fitsWell && !best.isSentinel() && at.units >= best.units) continue;
    best = at;
    before = last;
    if (fitsWell) break;
  }
  block = best;
  return best.isSentinel() ? Outcome::NoRoom : Outcome::Done;
}

KFLSharedMemoryManager::Outcome KFLSharedMemoryManager::tryAllocateMany(std::span<const std::uint64_t> sizes,
                                                                        std::vector<std::uint64_t>& offsets) {
  std::uint64_t all = 0;
  for (const std::uint64_t size : sizes.subspan(offsets.size()))
    all += unitsFor(size) * kHeapUnit;
  KFLHeapPart block;
  const Outcome outcome = tryAllocate(all - kHeapUnit, block);
  if (outcome == Outcome::Broken) return outcome;
  if (outcome == Outcome::Done) {
    carve(block, sizes, offsets);
    return outcome;
  }
  KFLHeapPart before;
  for (KFLHeapPart at; offsets.size() < sizes.size();) {
    if (!stepTo(at)) return Outcome::Broken;
    if (at.isSentinel()) return Outcome::NoRoom;
    std::uint64_t units = 0;
    for (std::size_t i = offsets.size(); i < sizes.size() && units + unitsFor(sizes[i]) <= at.units; ++i)
      units += unitsFor(sizes[i]);
    if (units == 0) {
      before = at;
      continue;
    }
    block = cut(before, at, units);
    addInUse(block);
    carve(block, sizes, offsets);
    if (block.offset == at.offset)
      at = before;
    else
      before = at = {at.offset, at.units - block.units};
  }
  return Outcome::Done;
}

void KFLSharedMemoryManager::addInUse(const KFLHeapPart& block) {
  storeWord(header().bytesInUse, static_cast<std::uint32_t>(getBytesInUse() + block.bytes()));
}

// Makes a block that is in use into one for each of the next sizes that fit, all by the one store of its own size: until
// then the heads behind it are data.
void KFLSharedMemoryManager::carve(const KFLHeapPart& block, std::span<const std::uint64_t> sizes,
                                   std::vector<std::uint64_t>& offsets) {
  std::uint64_t first = 0;
  KFLHeapPart part{block.offset, 0};
  for (std::uint64_t left = block.units; left > 0; left -= part.units) {
    const std::size_t next = offsets.size();
    part = {part.end(), unitsFor(sizes[next])};
    // A head's worth at most is left over, with the last.
    if (next + 1 == sizes.size() || part.units + unitsFor(sizes[next + 1]) > left) part.units = left;
    if (part.offset == block.offset)
      first = part.units;
    else
      headOf(part) = {kNull, static_cast<std::uint32_t>(part.units)};
    offsets.push_back(part.offset + kHeapUnit);
  }
  storeUnits(headOf(block), first);
}

// Takes the block, or its tail when more than a head would be left, out of the free list.
KFLHeapPart KFLSharedMemoryManager::cut(const KFLHeapPart& before, const KFLHeapPart& block,
                                        std::uint64_t units) {
  if (block.units <= units + 1) {
    setNext(before, nextOf(block));
    storeWord(headOf(block).next, kNull);
    return block;
  }
  const std::uint64_t left = block.units - units;
  const KFLHeapPart tail{block.offset + left * kHeapUnit, units};
  storeWord(headOf(tail).next, kNull);
  storeUnits(headOf(tail), units);
  storeUnits(headOf(block), left);  // the tail is a block from this store on
  return tail;
}

void KFLSharedMemoryManager::deallocate(void* data) {
  const std::int64_t offset = static_cast<std::byte*>(data) - base();
  KFLHeapPart block;
  KFL_HEAP_CHECK(isAligned(data));
  KFL_HEAP_CHECK(readBlock(offset - std::int64_t{kHeapUnit}, block));
  KFL_HEAP_CHECK(getBytesInUse() >= block.bytes());
  KFLHeapPart after;
  const bool wasInUse = release(block, after);
  KFL_HEAP_CHECK(wasInUse);
}

bool KFLSharedMemoryManager::findUsed(std::uint64_t data, KFLHeapPart& block) const {
  return readBlock(static_cast<std::int64_t>(data) - std::int64_t{kHeapUnit}, block) && block.units > 1 &&
         block.bytes() <= getBytesInUse();
}

bool KFLSharedMemoryManager::release(const KFLHeapPart& block, KFLHeapPart& after) {
  KFLHeapPart before = after;
  KFLHeapPart next = after;
  for (;; before = next) {
    if (!stepTo(next)) return false;
    if (next.isSentinel() || next.offset >= block.offset) break;
  }
  const bool endsFree = !next.isSentinel() && block.end() > next.offset;
  if (before.end() > block.offset || endsFree) return false;
  storeWord(header().bytesInUse, static_cast<std::uint32_t>(getBytesInUse() - block.bytes()));
  after = link(before, block, next);
  return true;
}

KFLHeapPart KFLSharedMemoryManager::link(const KFLHeapPart& before, const KFLHeapPart& block,
                                         const KFLHeapPart& next) {
  KFLHeapPart merged = block;
  if (!before.isSentinel() && before.end() == block.offset) {
    merged = {before.offset, before.units + block.units};
    storeUnits(headOf(merged), merged.units);
  } else {
    setNext(block, static_cast<std::int64_t>(next.offset));
    setNext(before, static_cast<std::int64_t>(block.offset));
  }
  if (!next.isSentinel() && merged.end() == next.offset) {
    setNext(merged, nextOf(next));  // the successor leaves the list before it stops to be a block
    merged.units += next.units;
    storeUnits(headOf(merged), merged.units);
  }
  return merged;
}

void KFLSharedMemoryManager::forgetFreeBlocks() {
  setNext({}, 0);
}

void KFLSharedMemoryManager::addLast(const KFLHeapPart& block, KFLHeapPart& last) {
  last = link(last, block, {});
}

void KFLSharedMemoryManager::setFreeBytes(std::uint64_t end, std::uint64_t free) {
  storeWord(header().bytesInUse, static_cast<std::uint32_t>(end - free));
}

void KFLSharedMemoryManager::grow(std::size_t size) {
  const Outcome outcome = tryGrow(getTotalSize(), size);
  KFL_HEAP_CHECK(outcome == Outcome::Done);
}

KFLSharedMemoryManager::Outcome KFLSharedMemoryManager::tryGrow(std::uint64_t end, std::uint64_t size) {
  if (getTotalSize() != end || !liesWithin(static_cast<std::int64_t>(end), size, memory_.size()))
    return Outcome::Broken;
  if (size == 0) return Outcome::Done;
  const KFLHeapPart block{end, size / kHeapUnit};
  storeWord(headOf(block).next, kNull);
  storeUnits(headOf(block), block.units);
  storeWord(header().totalSize, static_cast<std::uint32_t>(end + size));
  addInUse(block);
  KFLHeapPart after;
  return release(block, after) ? Outcome::Done : Outcome::Broken;
}

std::uint64_t KFLSharedMemoryManager::getFreeTail(std::uint64_t end) const {
  KFLHeapPart last;
  for (KFLHeapPart at;; last = at) {
    if (!stepTo(at)) return 0;
    if (at.isSentinel()) break;
  }
  return !last.isSentinel() && last.end() == end ? last.bytes() : 0;
}

}  // namespace KFL
