// SPDX-License-Identifier: Apache-2.0
#include "KFLCore/KFLCacheProof.h"

#include <cstring>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using KFL::KFLProofScope;
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

TEST(KFLCacheProof, ASoundFileIsTakenApart) {
  KFL::KFLCacheProof proof;
  ASSERT_EQ(proof.check(Image().bytes), 0);
  EXPECT_EQ(proof.snapshot(), 120U);
  EXPECT_EQ(proof.recordCount(), 2U);
  std::string blocks;
  proof.forEachBlock([&](const KFL::KFLProvedBlock& block) {
    blocks += std::to_string(block.offset) + "+" + std::to_string(block.bytes) +
              "OFIS"[static_cast<std::size_t>(block.use)] + " ";
  });
  EXPECT_EQ(blocks, "56+32F 88+24I 112+800S 912+24I 936+16O 952+48F ");
}

TEST(KFLCacheProof, OnlyAFileThatHasNothingToGiveBackIsTidy) {
  Image image;
  KFL::KFLCacheProof proof;
  EXPECT_TRUE(proof.check(image.bytes) == 0 && !proof.isTidy());  // the block at 936
  image.word(912 + 4, 5);                                         // is now the item's
  EXPECT_TRUE(proof.check(image.bytes) == 0 && proof.isTidy());
  EXPECT_TRUE(proof.check(image.bytes, {kKept}) == 0 && !proof.isTidy());
  for (const std::size_t count : {96, 120, 920}) {
    Image held = image;
    held.word(count, 2);
    EXPECT_TRUE(proof.check(held.bytes) == 0 && !proof.isTidy()) << count;
  }
}

TEST(KFLCacheProof, EachWordAtFaultIsNamedWithItsOffset) {
  constexpr std::uint32_t kNull = 1;
  const struct {
    std::size_t at;
    std::uint32_t value;
    int code;
    std::uint64_t offset;
    const char* text;
    bool isKeptToo = true;  // a fault even in a file whose writer died
  } kRows[] = {
      {52, 0, -14, 52, "the valid flag is 0"},
      {52, 2, -14, 52, "it must be 1 (0x1)"},
      {32, 57, -11, 32, "header size"},
      {36, 255, -13, 36, "key size"},
      {28, 0xCACEFE04, -12, 28, "it must be 3402563075 (0xcacefe03)"},
      {40, 0xFF00, -15, 40, "format"},
      {44, 13, -16, 44, "layout"},
      {16, 64, -8, 16, "start of the heap"},
      {4, 2, -8, 4, "sentinel"},
      {12, 1008, -10, 12, "the file has only 1000 bytes"},
      {12, 999, -8, 12, "multiple of 8"},
      {12, 48, -8, 12, "from 56"},
      {12, 0xFFFFFFF8, -8, 12, "from 56"},
      {8, 928, -8, 8, "the bytes in use are 928; 920 are not free", false},
      // Blocks.
      {956, 0, -8, 956, "it must have 1 to 6"},
      {956, 7, -8, 956, "it must have 1 to 6"},
      {940, 0xFFFFFFFF, -8, 940, "it must have 1 to 8"},
      {12, 992, -8, 956, "it must have 1 to 5"},
      // The free list: past the heap, to the inside of a block, backwards, to itself, nowhere.
      {0, 1000, -8, 0, "free list", false},
      {0, 64, -8, 0, "free list", false},
      {952, 56U - 952U, -8, 952, "goes from 952 to 56", false},
      {56, 0, -8, 56, "goes from 56 to 56", false},
      {0, kNull, -8, 0, "free list", false},
      {56, 0x80000000, -8, 56, "free list", false},
      {952, 4, -8, 952, "free list", false},
      {56, 112 - 56, -8, 112, "free list", false},  // the snapshot's block, which is no end either
      // The snapshot.
      {20, kNull, -8, 20, "the pointer to the snapshot is null"},
      {20, 104, -8, 20, "no block's data begin"},
      {20, 0U - 20U, -8, 20, "no block's data begin"},
      {20, 960 - 20, -8, 20, "is free", false},
      {20, 944 - 20, -8, 20, "the snapshot's block has room for 8 bytes"},
      {128, 4, -8, 128, "room for 3 records"},
      {124, 4, -8, 124, "its capacity is 3"},
      {120, 0, -8, 120, "reference count is 0", false},
      {120, 0x80000000, -8, 120, "reference count is -2147483648", false},
      // Records.
      {384, 0x01000000, -8, 387, "last byte of the key of record 0"},
      {392, 'b', -8, 0, nullptr},
      {392, 'a', -8, 392, "the key of record 1 does not come after that of record 0"},
      {392, 0xC3, -8, 0, nullptr},  // bytes compare without a sign
      {388, kNull, -8, 388, "the pointer to an item is null"},
      {388, 104U - 388U, -8, 388, "no block's data begin"},
      {388, 0x7FFFFFFF, -8, 388, "no block's data begin"},
      {388, 64U - 388U, -8, 388, "is free", false},
      {648, 96U - 648U, -8, 648, "the block at 88, which is used already"},
      {648, 120U - 648U, -8, 648, "the block at 112, which is used already"},
      {100, 9, -8, 100, "the item has 9 bytes; its block has room for 8"},
      {100, 0xFFFFFFFF, -8, 100, "room for 8"},
      {920, 0, -8, 920, "reference count is 0", false},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(std::to_string(row.at) + " = " + std::to_string(row.value));
    Image image;
    image.word(row.at, row.value);
    KFL::KFLCacheProof proof;
    const int code = row.text == nullptr ? 0 : row.code;
    EXPECT_EQ(proof.check(image.bytes, {kKept}), row.isKeptToo ? code : 0);
    EXPECT_EQ(proof.check(image.bytes, {kWhole}), code);
    if (row.text == nullptr) continue;
    ASSERT_EQ(proof.faults().size(), 1U);
    EXPECT_TRUE(proof.isCacheFile());
    EXPECT_EQ(proof.faults()[0].offset, row.offset);
    EXPECT_THAT(proof.faults()[0].text, HasSubstr(row.text));
  }
}

TEST(KFLCacheProof, EveryFaultIsFoundInOneWalk) {
  Image image;
  image.word(52, 0);
  image.word(8, 0);
  image.word(388, 4);
  image.word(924, 9);
  KFL::KFLCacheProof proof;
  EXPECT_EQ(proof.check(image.bytes, {kWhole, 100}), -14);
  std::vector<std::uint64_t> offsets;
  for (const KFL::KFLCacheFault& fault : proof.faults())
    offsets.push_back(fault.offset);
  EXPECT_THAT(offsets, testing::ElementsAre(52, 8, 388, 924));
  EXPECT_EQ(proof.check(image.bytes, {kWhole, 2}), -14);
  EXPECT_EQ(proof.faults().size(), 2U);
}

TEST(KFLCacheProof, WhatLiesBehindABrokenBlockIsNotJudged) {
  Image image;
  image.word(116, 0);
  KFL::KFLCacheProof proof;
  for (const KFLProofScope scope : {kKept, kWhole}) {
    EXPECT_EQ(proof.check(image.bytes, {scope, 100}), -8);
    EXPECT_EQ(proof.faults().size(), 1U);
    EXPECT_EQ(proof.provedEnd(), 112U);
  }
}

TEST(KFLCacheProof, AnotherFileIsNotWalked) {
  const std::string text(4000, 'x');
  KFL::KFLCacheProof proof;
  EXPECT_EQ(proof.check(std::as_bytes(std::span(text)), {kWhole, 100}), -14);
  EXPECT_EQ(proof.faults().size(), 8U);  // the words of the header, and nothing else
  EXPECT_FALSE(proof.isCacheFile());
  EXPECT_EQ(proof.check({}), -11);
  EXPECT_EQ(proof.check(std::as_bytes(std::span(text)).first(55)), -11);
}

// Whatever a byte is changed to, the walk ends within the bytes, and the blocks follow one another.
TEST(KFLCacheProof, AnyByteMayBeAnything) {
  for (std::size_t at = 0; at < 1000; ++at)
    for (const int value : {0, 1, 7, 0x7F, 0x80, 0xFF}) {
      Image image;
      image.bytes[at] = static_cast<std::byte>(value);
      KFL::KFLCacheProof proof;
      proof.check(image.bytes, {kWhole, 100});
      std::uint64_t end = 56;
      proof.forEachBlock([&](const KFL::KFLProvedBlock& block) {
        ASSERT_EQ(block.offset, end);
        end += block.bytes;
      });
      ASSERT_TRUE(end == 56 || end == proof.provedEnd());
    }
}

}  // namespace
