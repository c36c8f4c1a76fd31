// SPDX-License-Identifier: Apache-2.0
// One word that is wrong costs no item that can be found without it: of the words that bound a snapshot, those that
// agree are believed, and else its records are told by what they look like.
#include "cache/CacheSalvage.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <KFLCore/KFLCacheProof.h>

#include "cache/CacheImage.h"
#include "cache/CacheTemplate.h"

namespace kfactl {

namespace {

using Bytes = std::span<const std::byte>;

bool isDataOffset(std::int64_t offset) {
  return offset >= static_cast<std::int64_t>(KFL::kCacheHeaderSize + sizeof(KFL::KFLHeapBlock)) &&
         offset % KFL::kHeapUnit == 0;
}

std::int64_t snapshotOf(const KFL::KFLCacheHeader& header) {
  return KFL::targetOf(offsetof(KFL::KFLCacheHeader, snapshot), header.snapshot);
}

// The words of what may be a snapshot.
struct Place {
  std::uint64_t offset = 0;
  KFL::KFLSnapshotHead head{};
  std::uint64_t most = 0;  // records that its block has room for
};

std::optional<Place> placeAt(Bytes bytes, std::int64_t offset) {
  Place place;
  KFL::KFLHeapBlock block{};
  if (!isDataOffset(offset) || !KFL::readAt(bytes, offset, place.head)) return std::nullopt;
  KFL::readAt(bytes, offset - static_cast<std::int64_t>(sizeof(block)), block);
  place.offset = static_cast<std::uint64_t>(offset);
  const std::uint64_t room = std::uint64_t{block.units} * KFL::kHeapUnit;
  constexpr std::uint64_t kHeads = sizeof(block) + sizeof(place.head);
  place.most = room < kHeads ? 0 : (room - kHeads) / sizeof(KFL::KFLCacheRecord);
  return place;
}

// A record whose words lie within the bytes.
struct Record {
  std::string key;
  std::int64_t item = 0;
  bool isLikely = false;  // its key ends and begins, and its item can be there
};

std::optional<Record> recordAt(Bytes bytes, std::uint64_t snapshot, std::uint64_t index) {
  const std::uint64_t at = snapshot + KFL::snapshotBytes(index);
  KFL::KFLCacheRecord record{};
  if (!KFL::readAt(bytes, static_cast<std::int64_t>(at), record)) return std::nullopt;
  const std::size_t length = strnlen(record.key, KFL::kCacheKeySize - 1);
  const std::int64_t item = KFL::targetOf(at + offsetof(KFL::KFLCacheRecord, item), record.item);
  const bool isLikely = length > 0 && record.key[KFL::kCacheKeySize - 1] == '\0' && isDataOffset(item) &&
                        KFL::liesWithin(item, sizeof(KFL::KFLItemHead), bytes.size());
  return Record{{record.key, length}, item, isLikely};
}

// How many records from the first on are likely, with keys in their order.
std::uint64_t countLikely(Bytes bytes, std::uint64_t snapshot, std::uint64_t limit) {
  std::string former;
  for (std::uint64_t index = 0; index < limit; ++index) {
    const std::optional<Record> record = recordAt(bytes, snapshot, index);
    if (!record || !record->isLikely || record->key <= former) return index;
    former = record->key;
  }
  return limit;
}

bool hasLikely(Bytes bytes, std::uint64_t snapshot, std::uint64_t count) {
  for (std::uint64_t index = 0; index < count; ++index) {
    const std::optional<Record> record = recordAt(bytes, snapshot, index);
    if (!record) return false;
    if (record->isLikely) return true;
  }
  return false;
}

// The records of a snapshot.
struct Extent {
  std::uint64_t snapshot = 0;
  std::uint64_t count = 0;
  bool isCounted = false;  // whether it has no more
};

// The snapshot that is said to be here, where something speaks for it.
std::optional<Extent> extentOf(Bytes bytes, const Place& place) {
  const std::uint64_t count = place.head.count;
  const std::uint64_t capacity = place.head.capacity;
  if (count == 0) {
    if (place.head.references < 1 || capacity == 0 || capacity > place.most) return std::nullopt;
    return Extent{place.offset, 0, true};
  }
  if (count <= place.most && hasLikely(bytes, place.offset, count)) return Extent{place.offset, count, true};
  const std::uint64_t limit = capacity <= place.most ? capacity : std::min(count, capacity);
  const std::uint64_t likely = countLikely(bytes, place.offset, limit);
  if (likely == 0) return std::nullopt;
  return Extent{place.offset, likely, likely == limit};
}

bool isWhole(Bytes bytes, const Place& place) {
  const KFL::KFLSnapshotHead& head = place.head;
  return head.references > 0 && head.count <= head.capacity && head.capacity > 0 &&
         head.capacity <= place.most && countLikely(bytes, place.offset, head.count) == head.count;
}

// The one snapshot among the blocks that are not free. None where there are several, such as a former one that somebody
// holds, or where blocks and free list do not agree, so that it could be one that was given back.
std::optional<Extent> findSnapshot(CacheImage& image) {
  constexpr std::size_t kMany = 64;
  constexpr std::size_t kAt = offsetof(KFL::KFLCacheHeader, snapshot);
  std::memcpy(&image.memory()[kAt], &KFL::kNull, sizeof(KFL::kNull));
  KFL::KFLCacheProof proof;
  proof.check(image.bytes(), {KFL::KFLProofScope::Whole, kMany});
  const auto isOfHeap = [](const KFL::KFLCacheFault& fault) {
    return fault.offset == offsetof(KFL::KFLHeapBlock, next) ||
           fault.offset == offsetof(KFL::KFLCacheHeader, bytesInUse) || fault.offset >= KFL::kCacheHeaderSize;
  };
  if (proof.provedEnd() == 0 || std::ranges::any_of(proof.faults(), isOfHeap)) return std::nullopt;
  std::vector<Place> found;
  proof.forEachBlock([&](const KFL::KFLProvedBlock& block) {
    if (block.use == KFL::KFLBlockUse::Free || found.size() > 1) return;
    const auto place =
        placeAt(image.bytes(), static_cast<std::int64_t>(block.offset + sizeof(KFL::KFLHeapBlock)));
    if (place && isWhole(image.bytes(), *place)) found.push_back(*place);
  });
  if (found.size() != 1) return std::nullopt;
  return Extent{found[0].offset, found[0].head.count, true};
}

std::optional<Extent> extentOf(CacheImage& image) {
  if (image.proof().snapshot() != 0)
    return Extent{image.proof().snapshot(), image.proof().recordCount(), true};
  if (const auto place = placeAt(image.bytes(), snapshotOf(image.header()))) {
    if (const auto named = extentOf(image.bytes(), *place)) return named;
  }
  return findSnapshot(image);
}

std::string_view itemAt(Bytes bytes, std::int64_t offset) {
  KFL::KFLItemHead head{};
  if (!isDataOffset(offset) || !KFL::readAt(bytes, offset, head) ||
      !KFL::liesWithin(offset, KFL::itemBytes(head.size), bytes.size()))
    return {};
  return {reinterpret_cast<const char*>(bytes.data()) + offset + sizeof(head), head.size};
}

}  // namespace

// No two items can have the same bytes, so together they are no longer than the file: what goes beyond that is damage.
Salvage salvage(CacheImage& image) {
  Salvage result;
  const std::optional<Extent> extent = extentOf(image);
  if (!extent) return result;
  result.isCounted = extent->isCounted;
  const Bytes bytes = image.bytes();
  std::set<std::string> keys;
  std::size_t left = bytes.size();
  for (std::uint64_t index = 0; index < extent->count; ++index) {
    const std::optional<Record> record = recordAt(bytes, extent->snapshot, index);
    if (!record) break;
    const std::string_view item = itemAt(bytes, record->item);
    if (item.size() > left || keys.count(record->key) != 0) continue;
    left -= item.size();
    std::string text(item);
    if (!templateFault({"item", text}).empty()) continue;
    keys.insert(record->key);
    result.items.put(record->key, std::move(text));
  }
  result.kept = keys.size();
  result.lost = extent->count - result.kept;
  return result;
}

}  // namespace kfactl
