// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLContainers.h>

#include <cstring>
#include <limits>

#include <KFLCommon/KFLCheck.h>

#include "KFLKeySearch.h"

namespace KFL {

// A count that damage has made the greatest one stays; the next recovery counts anew.
void incRef(std::int32_t& references) {
  const std::int32_t count = loadWord(references);
  if (count < std::numeric_limits<std::int32_t>::max()) storeWord(references, count + 1);
}

bool decRef(std::int32_t& references) {
  KFL_CHECK(references >= 0, "KFLCore", "KFLContainers");
  storeWord(references, references - 1);
  return references == 0;
}

KFLSnapshotView::KFLSnapshotView(std::span<std::byte> memory, std::int64_t offset) : memory_(memory) {
  auto* const head = dataAt<KFLSnapshotHead>(memory, offset);
  if (head == nullptr) return;
  const std::uint32_t count = loadWord(head->count);
  if (count > loadWord(head->capacity) || !liesWithin(offset, snapshotBytes(count), memory.size())) return;
  head_ = head;
  count_ = count;
}

std::uint64_t KFLSnapshotView::getOffset() const {
  return static_cast<std::uint64_t>(reinterpret_cast<const std::byte*>(head_) - memory_.data());
}

std::string_view KFLSnapshotView::getKey(std::uint32_t index) const {
  const char* const key = records()[index].key;
  return {key, strnlen(key, kCacheKeySize - 1)};
}

KFLItemHead* KFLSnapshotView::findItem(std::uint32_t index, std::uint32_t& size) const {
  const std::int32_t& pointer = records()[index].item;
  const auto at = reinterpret_cast<const std::byte*>(&pointer) - memory_.data();
  const std::int64_t offset = targetOf(static_cast<std::uint64_t>(at), loadWord(pointer));
  auto* const item = dataAt<KFLItemHead>(memory_, offset);
  if (item == nullptr) return nullptr;
  size = loadWord(item->size);
  return liesWithin(offset, itemBytes(size), memory_.size()) ? item : nullptr;
}

KFLItemHead* KFLSnapshotView::getItem(std::uint32_t index) const {
  std::uint32_t size = 0;
  return findItem(index, size);
}

std::string_view KFLSnapshotView::getText(std::uint32_t index) const {
  std::uint32_t size = 0;
  const KFLItemHead* const item = findItem(index, size);
  if (item == nullptr) return {};
  return {reinterpret_cast<const char*>(item + 1), size};
}

std::uint32_t KFLSnapshotView::lowerBound(std::string_view key, bool& found, std::uint32_t from) const {
  const KFLSoughtKey sought(key);
  const KFLCacheRecord* const first = records();
  return firstNotBefore(from, count_, found,
                        [&](std::uint32_t index, std::uint32_t) { return sought.orderOf(first[index].key); });
}

}  // namespace KFL
