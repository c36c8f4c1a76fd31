// SPDX-License-Identifier: Apache-2.0
#include "KFLCore/KFLCacheProof.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "CacheTest.h"

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
      {648, 96U - 648U, -8, 648, "the block at 88, which is used already"},
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

}  // namespace
