// SPDX-License-Identifier: Apache-2.0
// Changing a cache: a new snapshot is written beside the current one and takes its place by one store; or, where one item
// is replaced in a snapshot that nobody holds, the new item takes the place of the old one by one store.
#include <algorithm>
#include <cstring>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLimitedString.h>
#include <KFLCore/KFLCacheProof.h>

#include "KFLCacheCodes.h"
#include "KFLLockedCache.h"

namespace KFL {

// One change against the current snapshot.
struct KFLCacheEdit {
  std::uint32_t at;  // the record that it concerns, or comes before
  bool replaces;     // the record goes away
  const KFLCacheChange* change;
  std::uint64_t item = 0;  // the offset of the new item, when it puts one
};

std::vector<const KFLCacheChange*> KFLCacheChanges::sorted() const {
  std::vector<const KFLCacheChange*> order;
  order.reserve(changes_.size());
  for (const KFLCacheChange& change : changes_)
    order.push_back(&change);
  std::stable_sort(order.begin(), order.end(), [](auto* a, auto* b) { return a->key < b->key; });
  std::size_t kept = 0;
  for (std::size_t i = 0; i < order.size(); ++i)
    if (i + 1 == order.size() || order[i]->key != order[i + 1]->key) order[kept++] = order[i];
  order.resize(kept);
  return order;
}

namespace {

using Key = limited_length_string<kCacheKeySize>;
static_assert(sizeof(Key) == kCacheKeySize);

// Copies records into another snapshot; their self-relative pointers go on meaning the same items. In a file that somebody
// damages meanwhile the two may overlap.
KFLCacheRecord* copyRecords(KFLCacheRecord* to, const KFLCacheRecord* from, std::uint32_t count) {
  std::memmove(to, from, std::size_t{count} * sizeof(KFLCacheRecord));
  const auto moved = reinterpret_cast<const std::byte*>(to) - reinterpret_cast<const std::byte*>(from);
  for (std::uint32_t i = 0; i < count; ++i)
    to[i].item =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(to[i].item) - static_cast<std::uint32_t>(moved));
  return to + count;
}

// The records of the old snapshot with the edits, into a new one.
void writeRecords(KFLCacheRecord* to, const KFLSnapshotView& old, const std::vector<KFLCacheEdit>& edits,
                  const KFLMappedMemoryManager& heap) {
  std::uint32_t from = 0;
  for (const KFLCacheEdit& edit : edits) {
    to = copyRecords(to, old.records() + from, edit.at - from);
    from = edit.at + (edit.replaces ? 1 : 0);
    if (!edit.change->text) continue;
    const Key key(edit.change->key);
    std::memcpy(to->key, &key, sizeof(key));
    to->item = pointerTo(heap.offsetOf(&to->item), edit.item);
    ++to;
  }
  copyRecords(to, old.records() + from, old.size() - from);
}

// Counts the items that both snapshots have once more.
void shareItems(const KFLSnapshotView& old, const std::vector<KFLCacheEdit>& edits) {
  auto edit = edits.begin();
  for (std::uint32_t i = 0; i < old.size(); ++i) {
    while (edit != edits.end() && (edit->at < i || !edit->replaces))
      ++edit;
    const bool isReplaced = edit != edits.end() && edit->at == i;
    KFLItemHead* const item = isReplaced ? nullptr : old.getItem(i);
    if (item != nullptr) incRef(item->references);
  }
}

bool hasAllItems(const KFLSnapshotView& snapshot) {
  for (std::uint32_t i = 0; i < snapshot.size(); ++i)
    if (snapshot.getItem(i) == nullptr) return false;
  return true;
}

// Counts an item that a snapshot has no more once less; one that nobody has any more is to be freed.
void dropItem(KFLItemHead* item, const KFLMappedMemoryManager& heap, std::vector<std::uint64_t>& freed) {
  if (item == nullptr) return;
  const std::int32_t references = loadWord(item->references);
  if (references > 0) storeWord(item->references, references - 1);
  if (references == 1) freed.push_back(heap.offsetOf(item));
}

// What the changes are against this snapshot, and how many records there are behind them.
std::vector<KFLCacheEdit> compare(const KFLSnapshotView& old,
                                  const std::vector<const KFLCacheChange*>& changes, std::uint64_t& newSize) {
  std::vector<KFLCacheEdit> edits;
  edits.reserve(changes.size());
  std::uint32_t at = 0;
  newSize = old.size();
  for (const KFLCacheChange* change : changes) {
    bool found = false;
    at = old.lowerBound(change->key, found, at);
    if (!found && !change->text) continue;
    edits.push_back({at, found, change});
    if (found) ++at;
    newSize = newSize + (change->text ? 1 : 0) - (found ? 1 : 0);
  }
  return edits;
}

// Where one store can be the change.
bool replacesOneItem(const std::vector<KFLCacheEdit>& edits) {
  return edits.size() == 1 && edits[0].replaces && edits[0].change->text;
}

void writeItem(std::byte* to, const std::string& text) {
  const KFLItemHead head{1, static_cast<std::uint32_t>(text.size())};
  std::memcpy(to, &head, sizeof(head));
  std::memcpy(to + sizeof(head), text.data(), text.size());
}

}  // namespace

int checkChanges(const std::vector<const KFLCacheChange*>& changes, const KFLCacheLimits& limits) {
  for (const KFLCacheChange* change : changes) {
    if (!Key::fits(change->key)) {
      setErrorMessage("the key %.40s... has %zu bytes; a key has at most %zu, none of them NUL",
                      change->key.c_str(), change->key.size(), Key::kMaxLength);
      return kCacheBadKey;
    }
    if (change->text && change->text->size() >= limits.maxSize) {
      setErrorMessage("the item of %.40s has %zu bytes; a cache file has at most %u", change->key.c_str(),
                      change->text->size(), limits.maxSize);
      return kCacheFull;
    }
  }
  return 0;
}

int KFLLockedCache::change(const std::vector<const KFLCacheChange*>& changes, bool isKept, bool& isReplaced) {
  int code = prepare();
  bool isDoubted = false;
  for (int tries = 0; tries < 2 && code == 0; ++tries) {
    isDoubted = false;
    code = tryChange(changes, isKept, isReplaced, isDoubted);
    if (!isDoubted) return code;
    code = distrust("its heap or snapshot does not hold together");
    if (isReplaced) return code;
  }
  return code != 0 ? code : kCacheUnsound;
}

// Whatever may throw comes before the first store, but for growing, which leaves the heap as it was.
int KFLLockedCache::tryChange(const std::vector<const KFLCacheChange*>& changes, bool isKept,
                              bool& isReplaced, bool& isDoubted) {
  isDoubted = true;
  KFLSnapshotView old(storage_->memory(), manager().getSnapshot());
  if (!old.isSound() || !manager().isUsable(storage_->getSize())) return 0;
  std::uint64_t newSize = 0;
  Edits edits = compare(old, changes, newSize);
  isDoubted = false;
  if (edits.empty()) return 0;

  const bool inPlace = replacesOneItem(edits) && isSole(old, isKept);
  std::vector<std::uint64_t> sizes;
  std::vector<std::uint64_t> offsets;
  std::vector<std::uint64_t> freed;
  for (std::vector<std::uint64_t>* const list : {&sizes, &offsets, &freed})
    list->reserve(edits.size() + 1);
  for (const KFLCacheEdit& edit : edits)
    if (edit.change->text) sizes.push_back(itemBytes(edit.change->text->size()));
  if (!inPlace) sizes.push_back(snapshotBytes(capacityFor(newSize)));
  mark();
  if (const int code = allocate(sizes, offsets); code != 0) {
    isDoubted = code == kCacheUnsound;
    return code;
  }
  std::size_t next = 0;
  for (KFLCacheEdit& edit : edits) {
    if (!edit.change->text) continue;
    edit.item = offsets[next++];
    writeItem(manager().at(edit.item), *edit.change->text);
  }
  const std::uint32_t count = old.size();
  old = KFLSnapshotView(storage_->memory(), manager().getSnapshot());  // the mapping may be another
  isDoubted = !old.isSound() || old.size() != count;
  if (isDoubted) return 0;
  if (inPlace) {
    replaceItem(old, edits[0], freed);
  } else {
    const Replacing how{isSole(old, isKept), isKept};
    isDoubted = !how.isSole && !hasAllItems(old);
    if (isDoubted) return 0;
    isReplaced = true;
    replaceSnapshot(old, how, edits, offsets.back(), newSize, freed);
  }
  isDoubted = !freeBlocks(freed);
  return 0;
}

// Whether nobody holds the snapshot, by its count and by the locks of those who live.
bool KFLLockedCache::isSole(const KFLSnapshotView& snapshot, bool isKept) const {
  const std::uint32_t kept = isKept ? 1 : 0;
  const std::uint64_t offset = snapshot.getOffset();
  return loadWord(snapshot.head().references) == static_cast<std::int32_t>(1 + kept) &&
         fileLock().countHeld(offset) == kept && !fileLock().isHeldElsewhere(offset);
}

std::uint64_t KFLLockedCache::capacityFor(std::uint64_t records) const {
  return std::max<std::uint64_t>(1, records + share_.limits.spareRecords);
}

// Takes room for all of the sizes, or takes nothing.
int KFLLockedCache::allocate(const std::vector<std::uint64_t>& sizes, std::vector<std::uint64_t>& offsets) {
  int code = 0;
  try {
    code = allocateGrowing(sizes, offsets);
  } catch (...) {
    freeBlocks(offsets);
    throw;
  }
  if (code != 0 && !freeBlocks(offsets)) code = kCacheUnsound;
  return code;
}

int KFLLockedCache::allocateGrowing(const std::vector<std::uint64_t>& sizes,
                                    std::vector<std::uint64_t>& offsets) {
  using Outcome = KFLSharedMemoryManager::Outcome;
  for (bool isCollected = false;;) {
    switch (manager().tryAllocateMany(sizes, offsets)) {
      case Outcome::Done:
        return 0;
      case Outcome::Broken:
        setErrorMessage("%s is damaged: its free list is broken", share_.path.c_str());
        return kCacheUnsound;
      case Outcome::NoRoom:
        break;
    }
    if (!isCollected) {
      isCollected = true;
      if (!freeBlocks(offsets)) return kCacheUnsound;
      offsets.clear();
      if (const int code = collect(); code != 0) return isFault(code) ? int{kCacheUnsound} : code;
      continue;
    }
    std::uint64_t need = 0;
    for (std::size_t i = offsets.size(); i < sizes.size(); ++i)
      need += sizeof(KFLHeapBlock) + (sizes[i] + kHeapUnit - 1) / kHeapUnit * kHeapUnit;
    if (const int code = grow(need); code != 0) return code;
  }
}

// Makes the heap end with a free block of at least so many bytes: by doubling, within the limits, or by no more than that
// where the disk has no more.
int KFLLockedCache::grow(std::uint64_t need) {
  const std::uint64_t total = std::min<std::uint64_t>(manager().getTotalSize(), storage_->getSize());
  const std::uint64_t page = KFLMappedFile::getPageSize();
  const std::uint64_t most =
      std::min<std::uint64_t>(share_.limits.maxSize, KFLCacheProof::kLargestHeap) / page * page;
  need += kHeapUnit;  // the allocator leaves a head's worth
  const std::uint64_t tail = manager().getFreeTail(total);
  const std::uint64_t least = (total + (need > tail ? need - tail : kHeapUnit) + page - 1) / page * page;
  if (least > most) {
    setErrorMessage("%s is full: it may have at most %u bytes", share_.path.c_str(), share_.limits.maxSize);
    return kCacheFull;
  }
  const std::uint64_t step = std::min<std::uint64_t>(total, share_.limits.growth);
  const std::uint64_t larger = std::min(most, std::max(least, (total + step) / page * page));
  const int code = growTo(total, larger);
  return code != kCacheFull || larger == least ? code : growTo(total, least);
}

// Space on disk is reserved, and the larger mapping made, before the heap knows.
int KFLLockedCache::growTo(std::uint64_t total, std::uint64_t larger) {
  Storage storage(new KFLCacheStorage(share_.path));
  if (storage->getStorage(larger, storage_.get()) == nullptr) return kCacheFull;
  if (share_.isProtected) storage_->protect(false);
  storage_ = std::move(storage);
  if (manager().tryGrow(total, larger - total) == KFLSharedMemoryManager::Outcome::Done) return 0;
  setErrorMessage("%s is damaged: its heap does not end at %llu", share_.path.c_str(),
                  static_cast<unsigned long long>(total));
  return kCacheUnsound;
}

// The store of the record's pointer is the change.
void KFLLockedCache::replaceItem(const KFLSnapshotView& snapshot, const KFLCacheEdit& edit,
                                 std::vector<std::uint64_t>& freed) {
  KFLItemHead* const former = snapshot.getItem(edit.at);
  std::int32_t& pointer = snapshot.records()[edit.at].item;
  storeWord(pointer, pointerTo(manager().offsetOf(&pointer), edit.item));
  dropItem(former, manager(), freed);
}

// Nothing before the publishing store touches what the old snapshot reaches, counts aside, and no count is ever too low:
// a death leaves at most blocks that nobody reaches.
void KFLLockedCache::replaceSnapshot(const KFLSnapshotView& old, Replacing how, const Edits& edits,
                                     std::uint64_t snapshot, std::uint64_t count,
                                     std::vector<std::uint64_t>& freed) {
  auto* const head = reinterpret_cast<KFLSnapshotHead*>(manager().at(snapshot));
  *head = {1, static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(capacityFor(count))};
  writeRecords(reinterpret_cast<KFLCacheRecord*>(head + 1), old, edits, manager());
  if (!how.isSole) shareItems(old, edits);
  manager().publishSnapshot(snapshot);
  if (how.isKept) fileLock().letGo(old.getOffset());
  if (!how.isSole) {
    const std::int32_t left = std::max(loadWord(old.head().references), 0) - (how.isKept ? 2 : 1);
    storeWord(old.head().references, std::max(left, 1));
    return;
  }
  freed.push_back(old.getOffset());
  for (const KFLCacheEdit& edit : edits)
    if (edit.replaces) dropItem(old.getItem(edit.at), manager(), freed);
}

// A former snapshot that nobody holds any more, with the items that only it had.
bool KFLLockedCache::freeSnapshot(const KFLSnapshotView& snapshot) {
  if (!snapshot.isSound()) return false;
  std::vector<std::uint64_t> freed;
  freed.reserve(snapshot.size() + std::size_t{1});
  freed.push_back(snapshot.getOffset());
  for (std::uint32_t i = 0; i < snapshot.size(); ++i)
    dropItem(snapshot.getItem(i), manager(), freed);
  return freeBlocks(freed);
}

// In the order of addresses, so that one walk over the free list serves them all.
bool KFLLockedCache::freeBlocks(std::vector<std::uint64_t>& offsets) {
  std::sort(offsets.begin(), offsets.end());
  KFLMappedMemoryManager heap = manager();
  KFLHeapPart last;
  KFLHeapPart block;
  return std::all_of(offsets.begin(), offsets.end(), [&](std::uint64_t offset) {
    return heap.findUsed(offset, block) && heap.release(block, last);
  });
}

}  // namespace KFL
