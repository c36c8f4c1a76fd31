// SPDX-License-Identifier: Apache-2.0
// The heap against a naive twin that knows blocks as a list of sizes, over random calls.
#include <cstdint>
#include <cstring>
#include <list>
#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <KFLCore/KFLCacheProof.h>
#include <KFLCore/KFLSharedMemoryManager.h>

namespace {

using KFL::KFLSharedMemoryManager;

constexpr std::size_t kHeader = 56;
constexpr std::size_t kMemory = 1 << 16;

struct alignas(8) Memory {
  std::byte bytes[kMemory] = {};
};

// Blocks in the order of addresses; neighbours that are free are one.
class Twin {
 public:
  explicit Twin(std::size_t size) { blocks_.push_back({kHeader, (size - kHeader) / 8, true}); }

  // Where the data go; 0 when they do not fit.
  std::size_t allocate(std::size_t size) {
    if (size == 0 || free() < size + 8) return 0;
    const std::size_t need = (size + 7) / 8 + 1;
    auto best = blocks_.end();
    for (auto at = blocks_.begin(); at != blocks_.end(); ++at) {
      if (!at->free || at->units < need) continue;
      const bool fitsWell = 4 * (at->units - need) <= at->units;
      if (best == blocks_.end() || fitsWell || at->units < best->units) best = at;
      if (fitsWell) break;
    }
    if (best == blocks_.end()) return 0;
    if (best->units <= need + 1) {
      best->free = false;
      return best->offset + 8;
    }
    best->units -= need;
    const Block tail{best->offset + best->units * 8, need, false};
    blocks_.insert(std::next(best), tail);
    return tail.offset + 8;
  }
  void deallocate(std::size_t data) {
    for (Block& block : blocks_)
      if (block.offset == data - 8) block.free = true;
    merge();
  }
  void grow(std::size_t size) {
    blocks_.push_back({end(), size / 8, true});
    merge();
  }
  std::size_t end() const { return blocks_.back().offset + blocks_.back().units * 8; }
  std::size_t free() const {
    std::size_t sum = 0;
    for (const Block& block : blocks_)
      sum += block.free ? block.units * 8 : 0;
    return sum;
  }

 private:
  struct Block {
    std::size_t offset;
    std::size_t units;
    bool free;
  };
  void merge() {
    for (auto at = blocks_.begin(); at != blocks_.end(); ++at)
      while (at->free && std::next(at) != blocks_.end() && std::next(at)->free) {
        at->units += std::next(at)->units;
        blocks_.erase(std::next(at));
      }
  }
  std::list<Block> blocks_;
};

TEST(SharedMemoryManager, DoesWhatTheTwinDoes) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Memory memory;
    KFLSharedMemoryManager heap(memory.bytes);
    heap.create(8192, kHeader);
    Twin twin(8192);
    std::vector<std::pair<std::size_t, std::size_t>> used;  // offset and size
    for (int step = 0; step < 3000; ++step) {
      const auto what = random() % 100;
      if (what < 55) {
        const std::size_t size = random() % (what < 5 ? 3000 : 200);
        auto* const data = static_cast<std::byte*>(heap.allocate(size));
        const std::size_t offset = data == nullptr ? 0 : static_cast<std::size_t>(data - memory.bytes);
        ASSERT_EQ(offset, twin.allocate(size)) << "step " << step;
        if (data == nullptr) continue;
        std::memset(data, static_cast<int>(offset / 8 % 251), size);
        used.emplace_back(offset, size);
      } else if (what < 99 && !used.empty()) {
        const auto at = used.begin() + random() % used.size();
        for (std::size_t i = 0; i < at->second; ++i)
          ASSERT_EQ(memory.bytes[at->first + i], std::byte(at->first / 8 % 251)) << "step " << step;
        heap.deallocate(memory.bytes + at->first);
        twin.deallocate(at->first);
        used.erase(at);
      } else if (what == 99 && heap.getTotalSize() + 512 <= kMemory) {
        heap.grow(512);
        twin.grow(512);
      }
      ASSERT_EQ(heap.getTotalSize(), twin.end());
      ASSERT_EQ(heap.getTotalSize() - heap.getBytesInUse(), twin.free());
    }
  }
}

TEST(SharedMemoryManager, BrokenStructuresAbort) {
  Memory memory;
  KFLSharedMemoryManager heap(memory.bytes);
  heap.create(4096, kHeader);
  void* const data = heap.allocate(100);
  EXPECT_DEATH(heap.deallocate(memory.bytes + 8), "KFLSharedMemoryManager.*deallocate");
  EXPECT_DEATH(heap.deallocate(static_cast<std::byte*>(data) + 4), "KFLSharedMemoryManager.*deallocate");
  heap.deallocate(data);
  EXPECT_DEATH(heap.deallocate(data), "KFLSharedMemoryManager.*deallocate");
  reinterpret_cast<KFL::KFLHeapBlock*>(memory.bytes + kHeader)->units = 0;
  EXPECT_DEATH(heap.allocate(8), "KFLSharedMemoryManager.*allocate");
}

}  // namespace
