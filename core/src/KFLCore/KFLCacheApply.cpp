// SPDX-License-Identifier: Apache-2.0
// Changing a cache: a new snapshot is written beside the current one and takes its place by one store.
#include <algorithm>
#include <cstring>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLimitedString.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLCacheFile.h>

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

int checkKeys(const std::vector<const KFLCacheChange*>& changes) {
  for (const KFLCacheChange* change : changes) {
    if (Key::fits(change->key)) continue;
    setErrorMessage("the key %.40s... has %zu bytes; a key has at most %zu, none of them NUL",
                    change->key.c_str(), change->key.size(), Key::kMaxLength);
    return kCacheBadKey;
  }
  return 0;
}

// Copies records into another snapshot; their self-relative pointers go on meaning the same items.
KFLCacheRecord* copyRecords(KFLCacheRecord* to, const KFLCacheRecord* from, std::uint32_t count) {
  std::memcpy(to, from, std::size_t{count} * sizeof(KFLCacheRecord));
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
    if (!isReplaced) incRef(old.getItem(i)->references);
  }
}

// Counts an item of a snapshot that goes away once less; one that nobody has any more is to be freed.
void dropItem(const KFLSnapshotView& snapshot, std::uint32_t index, const KFLMappedMemoryManager& heap,
              std::vector<std::uint64_t>& freed) {
  KFLItemHead* const item = snapshot.getItem(index);
  if (item != nullptr && item->references > 0 && decRef(item->references))
    freed.push_back(heap.offsetOf(item));
}

}  // namespace

int KFLCacheFile::apply(const KFLCacheChanges& changes) {
  const std::vector<const KFLCacheChange*> sorted = changes.sorted();
  if (const int code = checkKeys(sorted); code != 0) return code;
  Storage storage;
  if (const int code = lock(storage); code != 0) return code;
  const int code = change(sorted);
  unlock(storage);
  return code;
}

int KFLCacheFile::change(const std::vector<const KFLCacheChange*>& changes) {
  KFLSnapshotView old(storage_->memory(), manager().getSnapshot());
  if (!old.isSound() || !manager().isUsable(storage_->getSize()))
    return markUnsound("its heap or snapshot does not hold together");

  Edits edits;
  std::uint32_t at = 0;
  std::uint64_t newSize = old.size();
  for (const KFLCacheChange* change : changes) {
    bool found = false;
    at = old.lowerBound(change->key, found, at);
    if (!found && !change->text) continue;
    edits.push_back({at, found, change});
    if (found) ++at;
    newSize = newSize + (change->text ? 1 : 0) - (found ? 1 : 0);
  }
  if (edits.empty()) return 0;

  const bool sole = old.head().references == 1;
  if (!sole) {
    for (std::uint32_t i = 0; i < old.size(); ++i)
      if (old.getItem(i) == nullptr) return markUnsound("an item lies outside of it");
  }
  const std::uint64_t oldOffset = old.getOffset();
  std::uint64_t snapshot = 0;
  if (const int code = allocateNew(edits, newSize, snapshot); code != 0) return code;
  old = KFLSnapshotView(storage_->memory(),
                        static_cast<std::int64_t>(oldOffset));  // the mapping may be another
  replaceSnapshot(old, sole, edits, snapshot, newSize);
  return 0;
}

// Takes and fills the new items, and takes the block of the new snapshot; or takes nothing.
int KFLCacheFile::allocateNew(Edits& edits, std::uint64_t newSize, std::uint64_t& snapshot) {
  std::vector<std::uint64_t> taken;
  const auto take = [&](std::uint64_t size, std::uint64_t& offset) KFL_REQUIRES(turn_) {
    const int code = allocateGrowing(size, offset);
    if (code == 0) taken.push_back(offset);
    return code;
  };
  int code = 0;
  for (KFLCacheEdit& edit : edits) {
    if (!edit.change->text) continue;
    const std::string& text = *edit.change->text;
    code = take(itemBytes(text.size()), edit.item);
    if (code != 0) break;
    const KFLItemHead head{1, static_cast<std::uint32_t>(text.size())};
    std::memcpy(manager().at(edit.item), &head, sizeof(head));
    std::memcpy(manager().at(edit.item) + sizeof(head), text.data(), text.size());
  }
  if (code == 0) code = take(snapshotBytes(capacityFor(newSize)), snapshot);
  if (code != 0) freeBlocks(taken);
  return code;
}

std::uint64_t KFLCacheFile::capacityFor(std::uint64_t records) const {
  return std::max<std::uint64_t>(1, records + limits_.spareRecords);
}

int KFLCacheFile::allocateGrowing(std::uint64_t size, std::uint64_t& offset) {
  for (;;) {
    if (size < limits_.maxSize) {
      if (void* const data = manager().allocate(size); data != nullptr) {
        offset = manager().offsetOf(data);
        return 0;
      }
    }
    if (const int code = grow(); code != 0) return code;
  }
}

// Doubles the heap, within the limits. Space on disk is reserved, and the larger mapping made, before the heap knows.
int KFLCacheFile::grow() {
  const std::uint32_t total = manager().getTotalSize();
  const std::size_t page = KFLMappedFile::getPageSize();
  const std::uint32_t room = total < limits_.maxSize ? limits_.maxSize - total : 0;
  const std::size_t larger = (total + std::min({total, limits_.growth, room})) / page * page;
  if (larger <= total) {
    setErrorMessage("%s is full: it may have at most %u bytes", path_.c_str(), limits_.maxSize);
    return kCacheFull;
  }
  Storage storage(new KFLCacheStorage(path_));
  if (storage->getStorage(larger, storage_.get()) == nullptr) return kCacheFull;
  if (protect_) storage_->protect(false);
  useStorage(std::move(storage));
  manager().grow(larger - total);
  return 0;
}

// Nothing before the publishing store touches what the old snapshot reaches, counts aside, and no count is ever too low:
// a death leaves at most blocks that nobody gives back until the file is opened alone.
void KFLCacheFile::replaceSnapshot(const KFLSnapshotView& old, bool sole, const Edits& edits,
                                   std::uint64_t snapshot, std::uint64_t count) {
  auto* const head = reinterpret_cast<KFLSnapshotHead*>(manager().at(snapshot));
  *head = {1, static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(capacityFor(count))};
  writeRecords(reinterpret_cast<KFLCacheRecord*>(head + 1), old, edits, manager());
  if (!sole) shareItems(old, edits);
  manager().publishSnapshot(snapshot);
  if (!sole) {
    KFL::decRef(old.head().references);
    return;
  }
  std::vector<std::uint64_t> freed{old.getOffset()};
  for (const KFLCacheEdit& edit : edits)
    if (edit.replaces) dropItem(old, edit.at, manager(), freed);
  freeBlocks(freed);
}

// Lowers the count of a snapshot that is held. Nobody needs a snapshot at 0.
int KFLCacheFile::lowerSnapshot(std::uint64_t offset) {
  const KFLSnapshotView snapshot(storage_->memory(), static_cast<std::int64_t>(offset));
  if (!snapshot.isSound() || snapshot.head().references <= 0 || !manager().isUsable(storage_->getSize()))
    return markUnsound("a snapshot that was held does not hold together");
  if (!KFL::decRef(snapshot.head().references) ||
      manager().getSnapshot() == static_cast<std::int64_t>(offset))
    return 0;
  std::vector<std::uint64_t> freed{offset};
  for (std::uint32_t i = 0; i < snapshot.size(); ++i)
    dropItem(snapshot, i, manager(), freed);
  return freeBlocks(freed);
}

// In the order of addresses, so that one walk over the free list serves them all.
int KFLCacheFile::freeBlocks(std::vector<std::uint64_t>& offsets) {
  std::sort(offsets.begin(), offsets.end());
  KFLMappedMemoryManager heap = manager();
  KFLHeapBlock* last = heap.sentinel();
  for (const std::uint64_t offset : offsets) {
    std::byte* const data = heap.at(offset);
    if (heap.isAllocated(data))
      last = heap.release(reinterpret_cast<KFLHeapBlock*>(data) - 1, last);
    else
      last = nullptr;
    if (last == nullptr) return markUnsound("a block that is given back is not in use");
  }
  return 0;
}

int KFLCacheFile::markUnsound(const char* what) {
  manager().invalidate();
  setErrorMessage("%s is damaged: %s; it is marked invalid", path_.c_str(), what);
  KFL_LOG("KFLCore", kLogWarning, "[%s] %s", __func__, getErrorMessage().c_str());
  return kCacheUnsound;
}

}  // namespace KFL
