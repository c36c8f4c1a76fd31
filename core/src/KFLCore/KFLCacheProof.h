// SPDX-License-Identifier: Apache-2.0
// Whether the bytes of a cache file hold together, shown in one linear pass that only reads.
//
// Any bytes may be given: nothing is followed before it is proved, every answer comes after time and memory linear in
// blocks and keys, and nothing aborts. The bytes must not change while check() runs: hold the file's lock, or give a
// copy. The results do not look at the bytes again.
//
// A proof in scope `Whole` is for a file that nobody is changing. When a process died while it changed the file, the
// free list, the bytes in use and the counts may be half-done; what stands at every moment is the scope `Kept`, from
// which the rest can be rebuilt.
//
//   KFLCacheProof proof;
//   if (proof.check(bytes, {KFLProofScope::Kept}) != 0) return proof.faults().front().code;
//   proof.forEachBlock([&](const KFLProvedBlock& block) { ... });
//
// One thread at a time for each proof.
#ifndef KFLCORE_KFLCACHEPROOF_H
#define KFLCORE_KFLCACHEPROOF_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <KFLCore/KFLCacheFormat.h>

namespace KFL {

enum class KFLProofScope {
  Kept,   // header, blocks, snapshot, items
  Whole,  // and free list, bytes in use, reference counts
};

struct KFLProofOptions {
  KFLProofScope scope = KFLProofScope::Whole;
  std::size_t maxFaults = 1;  // the walk ends when so many were found; at least 1
};

struct KFLCacheFault {
  std::uint64_t offset;  // of the word or the key at fault
  int code;              // a KFLCacheCode
  std::string text;      // what is there, and what would be right
};

enum class KFLBlockUse : std::uint8_t {
  Other,     // not free, and not reached by the current snapshot: of a former snapshot, or lost
  Free,      // in the free list; never so in scope Kept
  Item,      // of the current snapshot, or of another that is to be kept, or such a snapshot
  Snapshot,  // the current one
};

struct KFLProvedBlock {
  std::uint64_t offset;  // of the block's head
  std::uint64_t bytes;   // with the head
  KFLBlockUse use;
};

class KFLCacheProof {
 public:
  // Self-relative pointers reach no further.
  static constexpr std::uint64_t kLargestHeap = 0x7FFFFFF8;

  // 0 when the bytes, which are those of the file from its start on, hold together; else the code of the first
  // fault: a header code, kCacheNotRemapped when the heap goes past the bytes, or kCacheUnsound.
  int check(std::span<const std::byte> file, const KFLProofOptions& options = {});

  // In the order in which the file is walked: header, blocks, free list, snapshot, records.
  const std::vector<KFLCacheFault>& faults() const { return faults_; }

  // Behind a check() of these bytes in scope Kept that found nothing: also keeps what these former snapshots have, by the
  // offsets of their heads, as far as it holds together. Gives how many of the snapshots have each item, in ascending order of the
  // offsets of the items' heads.
  using ItemCounts = std::vector<std::pair<std::uint64_t, std::int32_t>>;
  ItemCounts keep(std::span<const std::byte> file, std::span<const std::uint64_t> snapshots);

  // Whether the bytes look like a cache file at all: at most one of the header's fixed words is wrong. Others are not
  // walked.
  bool isCacheFile() const { return isCacheFile_; }

  // Whether a whole proof found nothing to give back either: the snapshot reaches every block that is not free, and every
  // count is 1.
  bool isTidy() const { return isTidy_; }

  // Where the blocks that could be told apart end: the heap's end, unless a block is at fault.
  std::uint64_t provedEnd() const { return provedEnd_; }

  // The offsets of the current snapshot's head and of its records; 0 and none when the snapshot is at fault.
  std::uint64_t snapshot() const { return snapshot_; }
  std::uint32_t recordCount() const { return recordCount_; }

  // Calls take(const KFLProvedBlock&) for each block in the order of addresses.
  template <class Take>
  void forEachBlock(Take take) const {
    for (std::uint64_t at = kCacheHeaderSize; at < provedEnd_;) {
      const std::uint64_t end = blockEnd(at);
      take(KFLProvedBlock{at, end - at, useOf(at)});
      at = end;
    }
  }

 private:
  struct Walk;

  bool isFull() const { return faults_.size() >= maxFaults_; }
  std::uint64_t blockEnd(std::uint64_t start) const;
  KFLBlockUse useOf(std::uint64_t start) const;

  // Two bits for each unit of the heap: 0 for the inside of a block, else what the block that begins there is for.
  std::vector<std::uint64_t> marks_;
  std::vector<KFLCacheFault> faults_;
  std::size_t maxFaults_ = 1;
  bool isCacheFile_ = false;
  bool isTidy_ = false;
  std::uint64_t provedEnd_ = 0;
  std::uint64_t snapshot_ = 0;
  std::uint32_t recordCount_ = 0;
};

}  // namespace KFL

#endif
