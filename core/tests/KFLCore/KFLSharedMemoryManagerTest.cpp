// SPDX-License-Identifier: Apache-2.0
// The heap against a naive twin that knows what each unit is for, over random calls.
#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <KFLCore/KFLSharedMemoryManager.h>

namespace {

using KFL::KFLSharedMemoryManager;

constexpr std::size_t kHeader = 56;
constexpr std::size_t kMemory = 1 << 16;

struct alignas(8) Memory {
  std::byte bytes[kMemory] = {};
};

// Every unit of the heap: 'f' when it is free, 'u' when it is in use. What is free side by side is one block.
struct Twin {
  std::string units;
  std::map<std::size_t, std::size_t> used{};  // first units and numbers of units

  // Where the data go; 0 when they do not fit.
  std::size_t allocate(std::size_t size) {
    const std::size_t need = (size + 7) / 8 + 1;
    if (size == 0 || free() < size + 8) return 0;
    std::size_t best = 0, room = 0;
    for (std::size_t at = units.find('f'), end = 0; at != std::string::npos; at = units.find('f', end)) {
      end = std::min(units.find('u', at), units.size());
      const bool fits = end - at >= need;
      const bool fitsWell = fits && 4 * (end - at - need) <= end - at;
      if (fitsWell || (fits && (room == 0 || end - at < room))) best = at, room = end - at;
      if (fitsWell) break;
    }
    if (room == 0) return 0;
    const std::size_t taken = room <= need + 1 ? room : need;
    const std::size_t start = best + room - taken;
    mark(start, used[start] = taken, 'u');
    return kHeader + 8 * start + 8;
  }
  void deallocate(std::size_t data) {
    const std::size_t start = (data - 8 - kHeader) / 8;
    mark(start, used[start], 'f');
    used.erase(start);
  }
  void mark(std::size_t start, std::size_t count, char use) { units.replace(start, count, count, use); }
  std::size_t free() const {
    return 8 * static_cast<std::size_t>(std::count(units.begin(), units.end(), 'f'));
  }
};

TEST(SharedMemoryManager, DoesWhatTheTwinDoes) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Memory memory;
    KFLSharedMemoryManager heap(memory.bytes);
    heap.create(8192, kHeader);
    Twin twin{std::string((8192 - kHeader) / 8, 'f')};
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
        std::swap(used[random() % used.size()], used.back());
        const auto [offset, size] = used.back();
        used.pop_back();
        for (std::size_t i = 0; i < size; ++i)
          ASSERT_EQ(memory.bytes[offset + i], std::byte(offset / 8 % 251)) << "step " << step;
        heap.deallocate(memory.bytes + offset);
        twin.deallocate(offset);
      } else if (what == 99 && heap.getTotalSize() + 512 <= kMemory) {
        heap.grow(512);
        twin.units.append(512 / 8, 'f');
      }
      ASSERT_EQ(heap.getTotalSize(), kHeader + 8 * twin.units.size());
      ASSERT_EQ(heap.getTotalSize() - heap.getBytesInUse(), twin.free());
    }
  }
}

TEST(SharedMemoryManager, BrokenStructuresAbort) {
  Memory memory;
  KFLSharedMemoryManager heap(memory.bytes);
  heap.create(4096, kHeader);
  heap.allocate(500);
  void* const data = heap.allocate(100);
  EXPECT_DEATH(heap.deallocate(memory.bytes + 8), "KFLSharedMemoryManager.*deallocate");
  EXPECT_DEATH(heap.deallocate(static_cast<std::byte*>(data) + 4), "KFLSharedMemoryManager.*deallocate");
  heap.deallocate(data);
  EXPECT_DEATH(heap.deallocate(data), "KFLSharedMemoryManager.*deallocate");
  reinterpret_cast<KFL::KFLHeapBlock*>(memory.bytes + kHeader)->units = 0;
  EXPECT_DEATH(heap.allocate(8), "KFLSharedMemoryManager.*allocate");
}

}  // namespace
