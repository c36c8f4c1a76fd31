// SPDX-License-Identifier: Apache-2.0
#include "CacheWalk.h"

#include <cstring>
#include <set>
#include <string_view>

namespace cachefaults {
namespace {

// Offsets and sizes of docs/formats.md.
constexpr std::uint32_t kHeader = 56;
constexpr std::uint32_t kRecord = 260;
constexpr std::uint32_t kKey = 256;

class Walker {
 public:
  Walker(const std::string& file, Standing standing) : file_(file), standing_(standing) {}

  Walk run() {
    if (!header() || !blocks() || !currentSnapshot()) return result_;
    if (standing_ == Standing::Moment || !freeList()) return result_;
    formerSnapshots();
    counts();
    return result_;
  }

 private:
  struct Block {
    std::uint32_t size;
    bool isFree = false;
    std::uint32_t users = 0;  // snapshots that have this item
    bool isSnapshot = false;
  };

  bool fail(const std::string& text) {
    if (result_.fault.empty()) result_.fault = text;
    return false;
  }
  std::uint32_t word(std::uint64_t at) const {
    std::uint32_t value = 0;
    if (at + sizeof(value) <= file_.size()) std::memcpy(&value, file_.data() + at, sizeof(value));
    return value;
  }
  std::int64_t follow(std::uint64_t at) const {
    return static_cast<std::int64_t>(at) + static_cast<std::int32_t>(word(at));
  }
  Block* blockOfData(std::int64_t data) {
    const auto found = data < 8 ? blocks_.end() : blocks_.find(static_cast<std::uint64_t>(data - 8));
    return found == blocks_.end() ? nullptr : &found->second;
  }

  bool header() {
    if (file_.size() < kHeader) return fail("the file has " + std::to_string(file_.size()) + " bytes");
    static constexpr std::uint32_t kFixed[][2] = {{4, 1},     {16, kHeader}, {28, 0xCACEFE03}, {32, kHeader},
                                                  {36, kKey}, {40, 0xFF01},  {44, 12},         {52, 1}};
    for (const auto& [at, value] : kFixed)
      if (word(at) != value) return fail("word " + std::to_string(at) + " is " + std::to_string(word(at)));
    result_.heapEnd = word(12);
    if (result_.heapEnd > file_.size()) return fail("the heap goes past the file");
    return true;
  }

  bool blocks() {
    std::uint64_t at = kHeader;
    while (at < result_.heapEnd) {
      const std::uint64_t size = std::uint64_t{8} * word(at + 4);
      if (size == 0 || size > result_.heapEnd - at)
        return fail("the block at " + std::to_string(at) + " has " + std::to_string(size) + " bytes");
      blocks_[at].size = static_cast<std::uint32_t>(size);
      at += size;
    }
    return true;
  }

  // One key of a record; false when its bytes are none.
  bool key(std::uint64_t record, std::string_view& text) const {
    const char* bytes = file_.data() + record;
    if (bytes[kKey - 1] != 0) return false;
    text = std::string_view(bytes);
    return true;
  }

  // The records of a snapshot whose block is known; counts it as a user of its items.
  bool records(std::uint32_t at, std::uint32_t count, std::map<std::string, std::string>* items) {
    std::string_view before;
    std::set<std::int64_t> seen;
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint64_t record = at + 12 + std::uint64_t{kRecord} * i;
      std::string_view text;
      if (!key(record, text)) return fail("a key of the snapshot at " + std::to_string(at) + " has no end");
      if (i > 0 && !(before < text)) return fail("keys do not ascend at '" + std::string(text) + "'");
      before = text;
      const std::int64_t item = follow(record + kKey);
      Block* block = blockOfData(item);
      if (block == nullptr || block->isFree || block->isSnapshot || !seen.insert(item).second)
        return fail("'" + std::string(text) + "' in the snapshot at " + std::to_string(at) +
                    (block == nullptr ? " has no item"
                     : block->isFree  ? " has a free block"
                                      : " shares its item"));
      const std::uint32_t size = word(static_cast<std::uint64_t>(item) + 4);
      if (std::uint64_t{size} + 16 > block->size)
        return fail("the item of '" + std::string(text) + "' is larger than its block");
      ++block->users;
      if (items != nullptr) items->emplace(text, file_.substr(static_cast<std::size_t>(item) + 8, size));
    }
    return true;
  }

  bool currentSnapshot() {
    const std::int64_t at = follow(20);
    Block* block = blockOfData(at);
    if (block == nullptr) return fail("there is no snapshot");
    result_.current = static_cast<std::uint32_t>(at);
    const std::uint32_t count = word(result_.current + 4);
    const std::uint64_t capacity = word(result_.current + 8);
    if (count > capacity || 12 + kRecord * capacity > block->size - 8)
      return fail("the snapshot does not fit its block");
    block->isSnapshot = true;
    result_.snapshots[result_.current] = static_cast<std::int32_t>(word(result_.current));
    return records(result_.current, count, &result_.items);
  }

  bool freeList() {
    if (word(24) != 0) return fail("the lock word names process " + std::to_string(word(24)));
    std::uint64_t at = 0;
    std::uint64_t used = result_.heapEnd;
    for (std::int64_t next = follow(0); next != 0; next = follow(at)) {
      const auto found = blocks_.find(static_cast<std::uint64_t>(next));
      if (next <= static_cast<std::int64_t>(at) || found == blocks_.end())
        return fail("the free list goes from " + std::to_string(at) + " to " + std::to_string(next));
      if (found->second.isSnapshot || found->second.users > 0)
        return fail("the block at " + std::to_string(next) + " is free and used");
      found->second.isFree = true;
      used -= found->second.size;
      at = found->first;
    }
    if (word(8) != used)
      return fail(std::to_string(word(8)) + " bytes in use instead of " + std::to_string(used));
    return true;
  }

  // Blocks that have the form of a snapshot which somebody holds.
  void formerSnapshots() {
    for (auto& [start, block] : blocks_) {
      if (block.isFree || block.isSnapshot || block.users > 0 || block.size < 8 + 12 + kRecord) continue;
      const auto at = static_cast<std::uint32_t>(start + 8);
      const std::uint64_t capacity = word(at + 8);
      if (static_cast<std::int32_t>(word(at)) < 1 || capacity < 1 || word(at + 4) > capacity ||
          12 + kRecord * capacity > block.size - 8)
        continue;
      block.isSnapshot = true;
      result_.snapshots[at] = static_cast<std::int32_t>(word(at));
      // What nobody holds any more may have lost its items: that is no fault of the file.
      if (standing_ == Standing::AtRest && !records(at, word(at + 4), nullptr)) return;
    }
  }

  void counts() {
    for (const auto& [start, block] : blocks_) {
      const std::uint64_t data = start + 8;
      if (!block.isFree && !block.isSnapshot && block.users == 0) result_.lost += block.size;
      const auto references = static_cast<std::int32_t>(word(data));
      const auto users = static_cast<std::int32_t>(block.users);
      if (block.isSnapshot
              ? references < 1
              : users > 0 && (references < users || (standing_ == Standing::AtRest && references != users)))
        fail("the block at " + std::to_string(start) + " counts " + std::to_string(references) +
             " references, has " + std::to_string(users));
    }
    if (standing_ == Standing::AtRest && result_.lost > 0)
      fail(std::to_string(result_.lost) + " bytes belong to nothing");
  }

  const std::string& file_;
  const Standing standing_;
  std::map<std::uint64_t, Block> blocks_;
  Walk result_;
};

}  // namespace

Walk walk(const std::string& file, Standing standing) {
  return Walker(file, standing).run();
}

}  // namespace cachefaults
