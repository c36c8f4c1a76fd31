// SPDX-License-Identifier: Apache-2.0
// A snapshot of a cache file where it stands in a mapping: a flat array of records in the order of their keys.
//
// A view is a handle; it keeps nothing alive and stays good while the snapshot is held and the mapping is there. It can
// be made over any bytes: what would lie outside of the mapping is never touched. Reading is for any thread, changing the
// counts for the holder of the file's lock.
#ifndef KFLCORE_KFLCONTAINERS_H
#define KFLCORE_KFLCONTAINERS_H

#include <cstdint>
#include <span>
#include <string_view>

#include <KFLCore/KFLCacheFormat.h>

namespace KFL {

// Reference counts in shared memory. The count must not be negative before it is lowered; true when it is 0 after it.
void incRef(std::int32_t& references);
bool decRef(std::int32_t& references);

class KFLSnapshotView {
 public:
  KFLSnapshotView() = default;
  // Not sound when the head and its records do not lie within the memory.
  KFLSnapshotView(std::span<std::byte> memory, std::int64_t offset);

  bool isSound() const { return head_ != nullptr; }
  KFLSnapshotHead& head() const { return *head_; }
  std::uint64_t getOffset() const;

  std::uint32_t size() const { return count_; }
  KFLCacheRecord* records() const { return reinterpret_cast<KFLCacheRecord*>(head_ + 1); }
  std::string_view getKey(std::uint32_t index) const;
  // Null when the item does not lie within the memory.
  KFLItemHead* getItem(std::uint32_t index) const;
  // The item's bytes; none when it does not lie within the memory.
  std::string_view getText(std::uint32_t index) const;

  // The first record from `from` on whose key is not less than this one, which has at most 255 characters, none of them
  // NUL; size() when there is none. `found`: whether the key is the same.
  std::uint32_t lowerBound(std::string_view key, bool& found, std::uint32_t from = 0) const;

 private:
  KFLItemHead* findItem(std::uint32_t index, std::uint32_t& size) const;

  std::span<std::byte> memory_;
  KFLSnapshotHead* head_ = nullptr;
  std::uint32_t count_ = 0;  // as it was when the view was made
};

}  // namespace KFL

#endif
