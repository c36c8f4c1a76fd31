// SPDX-License-Identifier: Apache-2.0
#include "CacheWalk.h"

#include <KFLCore/KFLCacheProof.h>
#include <KFLCore/KFLContainers.h>

#include "CacheTest.h"

namespace cachefaults {

Walk walk(std::string file, Standing standing) {
  using KFL::KFLBlockUse;
  using KFL::KFLProofScope;
  Walk seen;
  const auto bytes = std::as_writable_bytes(std::span(file));
  const bool isMoment = standing == Standing::Moment;
  const bool isAtRest = standing == Standing::AtRest;
  KFL::KFLCacheProof proof;
  if (proof.check(bytes, {isMoment ? KFLProofScope::Kept : KFLProofScope::Whole}) != 0) {
    seen.fault = proof.faults().front().text;
    return seen;
  }
  const auto word = [&](std::uint64_t at) { return static_cast<std::int32_t>(cachetest::wordOf(file, at)); };
  std::map<std::uint64_t, std::int32_t> users;  // how many snapshots have an item, by its offset
  const auto addSnapshot = [&](std::uint64_t at) {
    seen.snapshots[static_cast<std::int64_t>(at)] = word(at);
    const KFL::KFLSnapshotView view(bytes, static_cast<std::int64_t>(at));
    for (std::uint32_t i = 0; i < view.size(); ++i) {
      const auto* const item = reinterpret_cast<const char*>(view.getItem(i));
      if (item != nullptr) ++users[static_cast<std::uint64_t>(item - file.data())];
      if (item == nullptr) seen.fault = "a former snapshot has lost an item";
      if (at == proof.snapshot()) seen.items.emplace(view.getKey(i), view.getText(i));
    }
  };
  seen.current = static_cast<std::int64_t>(proof.snapshot());
  addSnapshot(proof.snapshot());
  if (isMoment) return seen;
  if (word(24) != 0) seen.fault = "the lock word names a process";
  // What nobody holds any more may have lost its items: that is no fault of a file whose users died.
  proof.forEachBlock([&](const KFL::KFLProvedBlock& block) {
    const std::uint64_t at = block.offset + sizeof(KFL::KFLHeapBlock);
    if (block.use != KFLBlockUse::Other || block.bytes < 8 + KFL::snapshotBytes(1) || users.count(at) != 0)
      return;
    const std::int32_t capacity = word(at + 8);
    if (word(at) < 1 || capacity < 1 || word(at + 4) > capacity || word(at + 4) < 0 ||
        8 + KFL::snapshotBytes(static_cast<std::uint64_t>(capacity)) > block.bytes)
      return;
    if (isAtRest)
      addSnapshot(at);
    else
      seen.snapshots[static_cast<std::int64_t>(at)] = word(at);
  });
  proof.forEachBlock([&](const KFL::KFLProvedBlock& block) {
    const std::uint64_t at = block.offset + sizeof(KFL::KFLHeapBlock);
    if (seen.snapshots.count(static_cast<std::int64_t>(at)) != 0) return;
    const auto item = users.extract(at);
    if (item.empty() && block.use != KFLBlockUse::Free) seen.lost += block.bytes;
    if (item.empty()) return;
    const std::int32_t references = word(at);
    if (block.use == KFLBlockUse::Free || references < item.mapped() ||
        (isAtRest && references != item.mapped()))
      seen.fault = "the item at " + std::to_string(at) + " counts " + std::to_string(references) +
                   " references, has " + std::to_string(item.mapped());
  });
  if (isAtRest && (seen.lost > 0 || !users.empty()))
    seen.fault = std::to_string(seen.lost) + " bytes belong to nothing, " + std::to_string(users.size()) +
                 " items have no block";
  return seen;
}

}  // namespace cachefaults
