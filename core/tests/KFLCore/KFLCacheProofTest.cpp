// SPDX-License-Identifier: Apache-2.0
#include "KFLCore/KFLCacheProof.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "CacheTest.h"
#include "CacheWalk.h"

namespace {

using namespace cachetest;
using testing::HasSubstr;

// A small file, block by block:
//   56 free   88 item   112 snapshot: records at 132, 392 and room for a third   912 item   936 other   952 free   1000
class Image {
 public:
  Image() {
    header({{0, 56}, {4, 1}, {8, 920}, {12, 1000}, {16, 56}, {20, 100}, {24, 0}});
    header({{28, 0xCACEFE03}, {32, 56}, {36, 256}, {40, 0xFF01}, {44, 12}, {48, 1}, {52, 1}});
    header({{56, 896}, {60, 4}, {88, 1}, {92, 3}, {96, 1}, {100, 5}});
    header({{112, 1}, {116, 100}, {120, 1}, {124, 2}, {128, 3}, {388, 96U - 388U}, {648, 920 - 648}});
    header({{912, 1}, {916, 3}, {920, 1}, {924, 8}, {936, 1}, {940, 2}, {952, 0U - 952U}, {956, 6}});
    text(132, "alpha");
    text(392, "beta");
  }
  void word(std::size_t at, std::uint32_t value) { std::memcpy(&bytes[at], &value, sizeof(value)); }
  void text(std::size_t at, const std::string& value) { std::memcpy(&bytes[at], value.data(), value.size()); }

  std::vector<std::byte> bytes = std::vector<std::byte>(1000);

 private:
  void header(const std::vector<std::pair<std::size_t, std::uint32_t>>& words) {
    for (const auto& [at, value] : words)
      word(at, value);
  }
};

constexpr auto kWhole = KFLProofScope::Whole;
constexpr auto kKept = KFLProofScope::Kept;

TEST(KFLCacheProof, EachWordAtFaultIsNamedWithItsOffset) {
  const struct {
    std::size_t at;
    std::uint32_t value;
    int code;
    std::uint64_t offset;
    const char* text;
    bool isKeptToo = true;  // a fault even in a file whose writer died
  } kRows[] = {
      {52, 2, -14, 52, "the valid flag is 2 (0x2); it must be 1 (0x1)"},
      {32, 57, -11, 32, "header size"},
      {36, 255, -13, 36, "key size"},
      {28, 0xCACEFE04, -12, 28, "it must be 3402563075 (0xcacefe03)"},
      {40, 0xFF00, -15, 40, "format"},
      {44, 13, -16, 44, "layout"},
      {16, 64, -8, 16, "start of the heap"},
      {4, 2, -8, 4, "sentinel"},
      {12, 1008, -10, 12, "the file has only 1000 bytes"},
      {12, 999, -8, 12, "multiple of 8 from 56"},
      {8, 928, -8, 8, "the bytes in use are 928; 920 are not free", false},
      {956, 7, -8, 956, "it must have 1 to 6"},
      {952, 56U - 952U, -8, 952, "the free list goes from 952 to 56; it must go to a later block", false},
      {20, 1, -8, 20, "the pointer to the snapshot is null"},
      {20, 104, -8, 20, "no block's data begin"},
      {20, 944 - 20, -8, 20, "the snapshot's block has room for 8 bytes"},
      {128, 4, -8, 128, "room for 3 records"},
      {124, 4, -8, 124, "its capacity is 3"},
      {120, 0x80000000, -8, 120, "reference count is -2147483648", false},
      {384, 0x01000000, -8, 387, "last byte of the key of record 0"},
      {392, 'a', -8, 392, "the key of record 1 does not come after that of record 0"},
      {388, 64U - 388U, -8, 388, "the pointer to an item means the block at 56, which is free", false},
      {648, 120U - 648U, -8, 648, "the block at 112, which is used already"},
      {100, 9, -8, 100, "the item has 9 bytes; its block has room for 8"},
      {920, 0, -8, 920, "reference count is 0", false},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(std::to_string(row.at) + " = " + std::to_string(row.value));
    Image image;
    image.word(row.at, row.value);
    KFLCacheProof proof;
    EXPECT_EQ(proof.check(image.bytes, {kKept}), row.isKeptToo ? row.code : 0);
    EXPECT_EQ(proof.check(image.bytes, {kWhole}), row.code);
    ASSERT_EQ(proof.faults().size(), 1U);
    EXPECT_TRUE(proof.isCacheFile());
    EXPECT_EQ(proof.faults()[0].offset, row.offset);
    EXPECT_THAT(proof.faults()[0].text, HasSubstr(row.text));
  }
}

TEST(KFLCacheProof, EveryFaultIsFoundInOneWalkUpToABlockAtFault) {
  const struct {
    std::vector<std::pair<std::size_t, std::uint32_t>> words;
    std::vector<std::uint64_t> faults;
    std::uint64_t end;
  } kRows[] = {{{{52, 0}, {8, 0}, {388, 4}, {924, 9}}, {52, 8, 388, 924}, 1000},
               {{{116, 0}}, {116}, 112},
               {{{116, 99}, {904, 1}, {908, 1}}, {128}, 1000},
               {{{28, 0}, {32, 0}}, {32, 28}, 0}};
  for (const auto& row : kRows) {
    Image image;
    for (const auto& [at, value] : row.words)
      image.word(at, value);
    KFLCacheProof proof;
    for (const std::size_t most : {std::size_t{100}, std::size_t{2}}) {
      EXPECT_LT(proof.check(image.bytes, {kWhole, most}), 0);
      std::vector<std::uint64_t> found;
      for (const KFLCacheFault& fault : proof.faults())
        found.push_back(fault.offset);
      EXPECT_EQ(found,
                std::vector(row.faults.begin(), row.faults.begin() + std::min(most, row.faults.size())));
      EXPECT_EQ(proof.provedEnd(), row.end);
    }
    EXPECT_EQ(proof.isCacheFile(), row.end > 0);
  }
  KFLCacheProof proof;
  EXPECT_EQ(proof.check(std::as_bytes(std::span("short"))), -11);
}

// A file that is in use: items of all sizes, snapshots that are held, free blocks between.
std::string makeUsedFile(std::mt19937& random) {
  const Folder folder = Folder::inMemory();
  const Cache cache = openCache(folder / "cache", {.growth = 4096});
  std::vector<KFLCacheSnapshot> held(3);
  for (int step = 0; step < 25; ++step) {
    const std::string key = "k" + std::to_string(random() % 12);
    if (random() % 8 == 0) cache->hold(held[random() % held.size()]);
    EXPECT_EQ(random() % 3 == 0 ? removeKey(*cache, key) : put(*cache, key, std::string(random() % 600, 'x')),
              0);
  }
  if (random() % 2 == 0) held.clear();
  return readFile(folder / "cache");
}

// Overwrites a word that means something with a value that could mean something else.
void overwrite(std::string& bytes, std::mt19937& random) {
  const std::uint32_t snapshot = 20 + wordOf(bytes, 20);
  const std::uint32_t record = snapshot + 12 + 260 * static_cast<std::uint32_t>(random() % 12);
  std::uint32_t block = 56;
  for (auto left = random() % 40; left > 0 && block + 8 * wordOf(bytes, block + 4) < bytes.size(); --left)
    block += 8 * wordOf(bytes, block + 4);
  const std::uint32_t small = static_cast<std::uint32_t>(random() % 64);
  const std::uint32_t places[] = {small / 4 * 4,      snapshot + small % 12,
                                  record + small,     record + 252 + small % 8,
                                  block + small % 16, static_cast<std::uint32_t>(random())};
  const std::size_t at = places[random() % std::size(places)] % (bytes.size() - 4);
  const std::uint32_t old = wordOf(bytes, at);
  const std::uint32_t values[] = {0,
                                  1,
                                  8,
                                  0xFFFFFFFF,
                                  0x80000000,
                                  0x7FFFFFF8,
                                  old + 8 * (small % 17) - 64,
                                  old ^ (1U << small % 32),
                                  wordOf(bytes, block),
                                  block - static_cast<std::uint32_t>(at),
                                  block + 8 - static_cast<std::uint32_t>(at)};
  setWord(bytes, at, values[random() % std::size(values)]);
}

// Whatever stands in a file, the proof finds a fault where another reader of the format does, walks it within its bytes,
// and its blocks follow one another.
TEST(KFLCacheProof, AgreesWithAnotherReaderOnDamagedFiles) {
  std::mt19937 random(7);
  int sound = 0, faulty = 0, tidy = 0;
  for (int number = 0; number < 40; ++number) {
    const std::string used = makeUsedFile(random);
    for (int damage = 0; damage < 500; ++damage) {
      std::string file = used;
      for (auto left = random() % 3; left > 0; --left)
        overwrite(file, random);
      setWord(file, 24, 0);
      const auto view = std::as_bytes(std::span(file));
      KFLCacheProof proof;
      for (const KFLProofScope scope : {kKept, kWhole}) {
        const bool isWhole = scope == kWhole;
        const cachefaults::Walk other =
            walk(file, isWhole ? cachefaults::Standing::Survived : cachefaults::Standing::Moment);
        const int code = proof.check(view, {scope});
        ASSERT_EQ(code == 0, other.fault.empty())
            << "file " << number << " damage " << damage << (isWhole ? " whole: " : " kept: ") << other.fault
            << " / " << (code == 0 ? "" : proof.faults().front().text);
        ASSERT_EQ(proof.check(view, {scope, 100}), code);
        ++(code == 0 ? sound : faulty);
      }
      std::uint64_t end = 56;
      std::uint64_t bytes[4] = {}, blocks[4] = {};
      proof.forEachBlock([&](const KFLProvedBlock& block) {
        ASSERT_EQ(block.offset, end);
        end += block.bytes;
        bytes[static_cast<std::size_t>(block.use)] += block.bytes;
        ++blocks[static_cast<std::size_t>(block.use)];
      });
      ASSERT_TRUE(end == 56 || end == proof.provedEnd());
      const cachefaults::Walk rest = walk(file, cachefaults::Standing::AtRest);
      const bool isTidy =
          rest.fault.empty() && rest.snapshots == std::map<std::uint32_t, std::int32_t>{{rest.current, 1}};
      ASSERT_EQ(proof.isTidy(), isTidy) << rest.fault;
      tidy += isTidy ? 1 : 0;
      if (!proof.faults().empty()) continue;
      using enum KFLBlockUse;
      ASSERT_EQ(proof.snapshot(), rest.current);
      ASSERT_EQ(bytes[static_cast<std::size_t>(Free)], end - wordOf(file, 8));
      ASSERT_EQ(blocks[static_cast<std::size_t>(Item)], proof.recordCount());
      ASSERT_EQ(blocks[static_cast<std::size_t>(Snapshot)], 1U);
    }
  }
  EXPECT_GT(sound, 10000);
  EXPECT_GT(faulty, 10000);
  EXPECT_GT(tidy, 1000);
}

}  // namespace
