// SPDX-License-Identifier: Apache-2.0
#include "KFLCacheProof.h"

#include <algorithm>
#include <bit>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace KFL {

namespace {

constexpr std::uint64_t kMarkBits = 2;
constexpr std::uint64_t kMarksPerWord = 64 / kMarkBits;
constexpr std::uint64_t kMarkMask = (1U << kMarkBits) - 1;

// What a unit's mark says. The current snapshot's block is kStart, and known by its offset.
enum Mark : std::uint64_t { kInside = 0, kStart = 1, kFree = 2, kItem = 3 };

struct MarkPlace {
  std::size_t word;
  unsigned shift;
};

constexpr MarkPlace placeOf(std::uint64_t offset) {
  const std::uint64_t unit = offset / kHeapUnit;
  return {unit / kMarksPerWord, static_cast<unsigned>(unit % kMarksPerWord * kMarkBits)};
}

// A word of the header that can have only one value, in the order in which they are judged.
struct HeaderWord {
  std::size_t offset;
  std::uint32_t value;
  int code;
  const char* name;
};

constexpr HeaderWord kHeaderWords[] = {
    {offsetof(KFLCacheHeader, valid), 1, kCacheInvalid, "valid flag"},
    {offsetof(KFLCacheHeader, headerSize), kCacheHeaderSize, kCacheBadHeaderSize, "header size"},
    {offsetof(KFLCacheHeader, keySize), kCacheKeySize, kCacheBadKeySize, "key size"},
    {offsetof(KFLCacheHeader, magic), kCacheMagic, kCacheBadMagic, "magic"},
    {offsetof(KFLCacheHeader, format), kCacheFormat, kCacheBadFormat, "format value"},
    {offsetof(KFLCacheHeader, layout), kCacheLayout, kCacheBadLayout, "layout value"},
    {offsetof(KFLCacheHeader, heapStart), kCacheHeaderSize, kCacheUnsound, "start of the heap"},
    {offsetof(KFLHeapBlock, units), 1, kCacheUnsound, "sentinel's size"},
};

}  // namespace

// One run over the bytes. Each step says whether the next one can go on; faults that leave the rest as clear as it was
// do not end it, unless as many were found as were asked for.
struct KFLCacheProof::Walk {
  KFLCacheProof& proof;
  std::span<const std::byte> file;
  KFLProofScope scope;
  KFLCacheHeader header{};
  std::uint64_t unreached = 0;  // blocks that are neither free nor, so far, reached by the snapshot
  bool isShared = false;        // whether a count is another than 1

  __attribute__((format(printf, 4, 5))) void fault(std::uint64_t offset, int code, const char* format, ...) {
    if (proof.isFull()) return;
    char text[200];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    proof.faults_.push_back({offset, code, text});
  }

  template <class T>
  T read(std::uint64_t offset) const {
    T value{};
    readAt(file, static_cast<std::int64_t>(offset), value);
    return value;
  }

  Mark markAt(std::uint64_t offset) const {
    const MarkPlace place = placeOf(offset);
    return static_cast<Mark>(proof.marks_[place.word] >> place.shift & kMarkMask);
  }
  void setMark(std::uint64_t offset, Mark mark) {
    const MarkPlace place = placeOf(offset);
    std::uint64_t& word = proof.marks_[place.word];
    word = (word & ~(kMarkMask << place.shift)) | static_cast<std::uint64_t>(mark) << place.shift;
  }
  bool isBlock(std::int64_t offset) const {
    return offset >= kCacheHeaderSize && static_cast<std::uint64_t>(offset) < proof.provedEnd_ &&
           offset % kHeapUnit == 0 && markAt(static_cast<std::uint64_t>(offset)) != kInside;
  }
  // Behind a block at fault nobody can tell where blocks begin.
  bool isUnclear(std::int64_t offset) const {
    return offset >= static_cast<std::int64_t>(proof.provedEnd_) && offset < header.totalSize;
  }

  void run() {
    if (!judgeHeader() || !judgeSizes()) return;
    judgeBlocks();
    if (scope == KFLProofScope::Whole && !proof.isFull()) judgeFreeList();
    if (proof.isFull() || !judgeSnapshot()) return;
    judgeRecords();
    proof.isTidy_ = scope == KFLProofScope::Whole && proof.faults_.empty() && unreached == 0 && !isShared;
  }

  bool judgeHeader() {
    if (!readAt(file, 0, header)) {
      fault(0, kCacheBadHeaderSize, "the file has %zu bytes; a header takes %u", file.size(),
            kCacheHeaderSize);
      return false;
    }
    std::size_t wrong = 0;
    for (const HeaderWord& word : kHeaderWords) {
      const auto found = read<std::uint32_t>(word.offset);
      if (found == word.value) continue;
      fault(word.offset, word.code, "the %s is %u (0x%x); it must be %u (0x%x)", word.name, found, found,
            word.value, word.value);
      if (word.code != kCacheInvalid) ++wrong;
    }
    proof.isCacheFile_ = wrong <= 1;
    return proof.isCacheFile_ && !proof.isFull();
  }

  bool judgeSizes() {
    constexpr std::size_t kAt = offsetof(KFLCacheHeader, totalSize);
    const std::uint32_t total = header.totalSize;
    if (total < kCacheHeaderSize || total > kLargestHeap || total % kHeapUnit != 0) {
      fault(kAt, kCacheUnsound, "the heap's end is %u; it must be a multiple of 8 from 56 to %llu", total,
            static_cast<unsigned long long>(kLargestHeap));
      return false;
    }
    if (total <= file.size()) return true;
    fault(kAt, kCacheNotRemapped, "the heap's end is %u, but the file has only %zu bytes", total,
          file.size());
    return false;
  }

  void judgeBlocks() {
    const std::uint64_t total = header.totalSize;
    proof.marks_.assign(placeOf(total).word + 1, 0);
    std::uint64_t at = kCacheHeaderSize;
    while (at < total) {
      const std::uint64_t units = read<KFLHeapBlock>(at).units;
      if (units == 0 || units * kHeapUnit > total - at) {
        fault(at + offsetof(KFLHeapBlock, units), kCacheUnsound,
              "the block at %llu has %llu units of 8 bytes; it must have 1 to %llu",
              static_cast<unsigned long long>(at), static_cast<unsigned long long>(units),
              static_cast<unsigned long long>((total - at) / kHeapUnit));
        break;
      }
      setMark(at, kStart);
      ++unreached;
      at += units * kHeapUnit;
    }
    proof.provedEnd_ = at;
  }

  // The list goes upwards only, so it ends.
  void judgeFreeList() {
    std::uint64_t free = 0;
    std::uint64_t at = 0;
    for (;;) {
      const std::int32_t pointer = read<KFLHeapBlock>(at).next;
      const std::int64_t next = targetOf(at, pointer);
      if (next == 0) break;
      if (isUnclear(next)) return;
      if (pointer == kNull || !isBlock(next) || next <= static_cast<std::int64_t>(at)) {
        fault(at, kCacheUnsound,
              "the free list goes from %llu to %lld; it must go to a later block or back to 0",
              static_cast<unsigned long long>(at), static_cast<long long>(next));
        return;
      }
      at = static_cast<std::uint64_t>(next);
      setMark(at, kFree);
      --unreached;
      free += blockBytes(at);
    }
    const std::uint64_t used = header.totalSize - free;
    if (header.bytesInUse == used) return;
    fault(offsetof(KFLCacheHeader, bytesInUse), kCacheUnsound, "the bytes in use are %u; %llu are not free",
          header.bytesInUse, static_cast<unsigned long long>(used));
  }

  std::uint64_t blockBytes(std::uint64_t start) const {
    return std::uint64_t{read<KFLHeapBlock>(start).units} * kHeapUnit;
  }
  // Behind the block's head.
  std::uint64_t roomAt(std::uint64_t data) const {
    return blockBytes(data - sizeof(KFLHeapBlock)) - sizeof(KFLHeapBlock);
  }

  // Whether the pointer means the data of a block that may be used; a fault when it does not.
  bool judgePointer(std::uint64_t at, std::int32_t pointer, const char* name) {
    const std::int64_t data = targetOf(at, pointer);
    const std::int64_t start = data - static_cast<std::int64_t>(sizeof(KFLHeapBlock));
    if (pointer == kNull) {
      fault(at, kCacheUnsound, "the pointer to %s is null", name);
    } else if (isUnclear(start)) {
      return false;
    } else if (!isBlock(start)) {
      fault(at, kCacheUnsound, "the pointer to %s means %lld, where no block's data begin", name,
            static_cast<long long>(data));
    } else if (markAt(static_cast<std::uint64_t>(start)) == kFree) {
      fault(at, kCacheUnsound, "the pointer to %s means the block at %lld, which is free", name,
            static_cast<long long>(start));
    } else if (markAt(static_cast<std::uint64_t>(start)) == kItem ||
               static_cast<std::uint64_t>(data) == proof.snapshot_) {
      fault(at, kCacheUnsound, "the pointer to %s means the block at %lld, which is used already", name,
            static_cast<long long>(start));
    } else {
      return true;
    }
    return false;
  }

  // Whether a block's data begin at the offset, with room for so many bytes.
  bool isRoomFor(std::uint64_t data, std::uint64_t size) const {
    return data >= sizeof(KFLHeapBlock) && isBlock(static_cast<std::int64_t>(data - sizeof(KFLHeapBlock))) &&
           size <= roomAt(data);
  }
  void keepItems(std::uint64_t snapshot, std::uint32_t count, std::vector<std::uint64_t>& items) {
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint64_t at = snapshot + snapshotBytes(i) + offsetof(KFLCacheRecord, item);
      const auto data = static_cast<std::uint64_t>(targetOf(at, read<std::int32_t>(at)));
      if (!isRoomFor(data, sizeof(KFLItemHead)) || data == proof.snapshot_) continue;
      setMark(data - sizeof(KFLHeapBlock), kItem);
      items.push_back(data);
    }
  }

  void judgeReferences(std::uint64_t at, std::int32_t references) {
    isShared = isShared || references != 1;
    if (scope == KFLProofScope::Whole && references < 1)
      fault(at, kCacheUnsound, "the reference count is %d; it must be at least 1", references);
  }

  bool judgeSnapshot() {
    constexpr std::size_t kAt = offsetof(KFLCacheHeader, snapshot);
    if (!judgePointer(kAt, header.snapshot, "the snapshot")) return false;
    const auto data = static_cast<std::uint64_t>(targetOf(kAt, header.snapshot));
    const std::uint64_t room = roomAt(data);
    if (room < sizeof(KFLSnapshotHead)) {
      fault(kAt, kCacheUnsound, "the snapshot's block has room for %llu bytes; its head takes 12",
            static_cast<unsigned long long>(room));
      return false;
    }
    const auto head = read<KFLSnapshotHead>(data);
    const std::uint64_t most = (room - sizeof(KFLSnapshotHead)) / sizeof(KFLCacheRecord);
    if (head.capacity > most) {
      fault(data + offsetof(KFLSnapshotHead, capacity), kCacheUnsound,
            "the snapshot's capacity is %u; its block has room for %llu records", head.capacity,
            static_cast<unsigned long long>(most));
      return false;
    }
    if (head.count > head.capacity) {
      fault(data + offsetof(KFLSnapshotHead, count), kCacheUnsound,
            "the snapshot has %u records; its capacity is %u", head.count, head.capacity);
      return false;
    }
    --unreached;
    proof.snapshot_ = data;
    proof.recordCount_ = head.count;
    judgeReferences(data, head.references);
    return true;
  }

  void judgeRecords() {
    for (std::uint32_t index = 0; index < proof.recordCount_ && !proof.isFull(); ++index) {
      const std::uint64_t at =
          proof.snapshot_ + sizeof(KFLSnapshotHead) + index * std::uint64_t{sizeof(KFLCacheRecord)};
      judgeKey(at, index);
      judgeItem(at + offsetof(KFLCacheRecord, item));
    }
  }

  const char* keyAt(std::uint64_t record) const {
    return reinterpret_cast<const char*>(file.data() + record);
  }
  bool endsAt(std::uint64_t record) const { return keyAt(record)[kCacheKeySize - 1] == '\0'; }

  void judgeKey(std::uint64_t at, std::uint32_t index) {
    const std::uint64_t before = at - sizeof(KFLCacheRecord);
    if (!endsAt(at)) {
      fault(at + kCacheKeySize - 1, kCacheUnsound, "the last byte of the key of record %u is not 0", index);
    } else if (index > 0 && endsAt(before) && std::strncmp(keyAt(before), keyAt(at), kCacheKeySize) >= 0) {
      fault(at, kCacheUnsound, "the key of record %u does not come after that of record %u", index,
            index - 1);
    }
  }

  void judgeItem(std::uint64_t at) {
    const auto pointer = read<std::int32_t>(at);
    if (!judgePointer(at, pointer, "an item")) return;
    const auto data = static_cast<std::uint64_t>(targetOf(at, pointer));
    setMark(data - sizeof(KFLHeapBlock), kItem);
    --unreached;
    const std::uint64_t room = roomAt(data);
    if (room < sizeof(KFLItemHead)) {
      fault(at, kCacheUnsound, "the item's block has room for no item");
      return;
    }
    const auto head = read<KFLItemHead>(data);
    if (itemBytes(head.size) > room)
      fault(data + offsetof(KFLItemHead, size), kCacheUnsound,
            "the item has %u bytes; its block has room for %llu", head.size,
            static_cast<unsigned long long>(room - sizeof(KFLItemHead)));
    judgeReferences(data, head.references);
  }
};

int KFLCacheProof::check(std::span<const std::byte> file, const KFLProofOptions& options) {
  faults_.clear();
  marks_.clear();
  maxFaults_ = std::max<std::size_t>(options.maxFaults, 1);
  isCacheFile_ = isTidy_ = false;
  provedEnd_ = snapshot_ = 0;
  recordCount_ = 0;
  Walk{*this, file, options.scope}.run();
  return faults_.empty() ? 0 : faults_.front().code;
}

KFLCacheProof::ItemCounts KFLCacheProof::keep(std::span<const std::byte> file,
                                              std::span<const std::uint64_t> snapshots) {
  std::vector<std::uint64_t> items;
  Walk walk{*this, file, KFLProofScope::Kept};
  walk.keepItems(snapshot_, recordCount_, items);
  for (const std::uint64_t snapshot : snapshots) {
    KFLSnapshotHead head{};
    if (snapshot == snapshot_ || !walk.isRoomFor(snapshot, sizeof(head))) continue;
    walk.setMark(snapshot - sizeof(KFLHeapBlock), kItem);
    head = walk.read<KFLSnapshotHead>(snapshot);
    if (walk.isRoomFor(snapshot, snapshotBytes(head.count))) walk.keepItems(snapshot, head.count, items);
  }
  std::sort(items.begin(), items.end());
  ItemCounts counts;
  for (const std::uint64_t item : items) {
    if (counts.empty() || counts.back().first != item) counts.emplace_back(item, 0);
    ++counts.back().second;
  }
  return counts;
}

std::uint64_t KFLCacheProof::blockEnd(std::uint64_t start) const {
  const std::uint64_t from = start + kHeapUnit;
  const MarkPlace place = placeOf(from);
  std::uint64_t marks = marks_[place.word] >> place.shift << place.shift;
  for (std::size_t word = place.word;; marks = marks_[word]) {
    if (marks != 0) {
      const auto mark = static_cast<std::uint64_t>(std::countr_zero(marks)) / kMarkBits;
      return (word * kMarksPerWord + mark) * kHeapUnit;
    }
    if (++word == marks_.size()) return provedEnd_;
  }
}

KFLBlockUse KFLCacheProof::useOf(std::uint64_t start) const {
  const MarkPlace place = placeOf(start);
  const std::uint64_t mark = marks_[place.word] >> place.shift & kMarkMask;
  if (mark == kFree) return KFLBlockUse::Free;
  if (mark == kItem) return KFLBlockUse::Item;
  return start + sizeof(KFLHeapBlock) == snapshot_ ? KFLBlockUse::Snapshot : KFLBlockUse::Other;
}

}  // namespace KFL
