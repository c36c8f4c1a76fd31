// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLLimitedString.h>

#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace KFL::test {

namespace {

using Key = limited_length_string<256>;
using Name = limited_length_string<16>;

static_assert(sizeof(Key) == 256 && alignof(Key) == 1);
static_assert(std::is_trivially_copyable_v<Key> && std::is_standard_layout_v<Key>);

char byteAt(const Key& key, std::size_t i) {
  return reinterpret_cast<const char*>(&key)[i];
}

TEST(KFLLimitedString, KeepsItsLayout) {
  Key key;
  EXPECT_FALSE(key.isSpecified());
  key = "";
  EXPECT_TRUE(key.isSpecified() && key.empty());
  EXPECT_EQ(byteAt(key, 1), 1);
  key = std::string(255, 'x');
  EXPECT_EQ(key.size(), 255U);
  EXPECT_EQ(byteAt(key, 255), 0);
  key = "ab";
  EXPECT_TRUE(key.isSpecified());
  for (std::size_t i = 2; i < 256; ++i)
    ASSERT_EQ(byteAt(key, i), 0) << "an old byte stayed at " << i;
  key = key.view().substr(1);
  EXPECT_EQ(key.str(), "b");
  key = nullptr;
  EXPECT_FALSE(key.isSpecified());
  EXPECT_EQ(byteAt(key, 1), 0);
}

TEST(KFLLimitedString, IsOrderedByItsText) {
  EXPECT_EQ(Name("a"), Name(std::string("a")));
  EXPECT_LT(Name("a"), Name("ab"));
  EXPECT_LT(Name("a"), Name("\xc3\xa9")) << "bytes are unsigned";
  EXPECT_EQ(Name(), Name(""));
}

TEST(KFLLimitedStringDeathTest, RefusesALongerText) {
  EXPECT_TRUE(Name::fits(std::string(15, 'x')));
  EXPECT_FALSE(Name::fits(std::string(16, 'x')));
  EXPECT_FALSE(Name::fits(std::string_view("a\0b", 3)));
  EXPECT_EXIT(Name(std::string(16, 'x')), testing::KilledBySignal(SIGABRT),
              "KFLLimitedString:[0-9]+: operator=");
}

}  // namespace

}  // namespace KFL::test
