// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLGUID.h>

#include <set>
#include <string>
#include <unordered_set>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>

namespace KFL::test {

namespace {

// Which texts are GUIDs, and of which bytes, is the law of the fuzz target ValueFuzz.
TEST(KFLGUID, ARefusalQuotesTheTextAndLeavesTheValue) {
  const KFLGUID before("0123abcd-4567-89ef-0123-456789abcdef");
  KFLGUID guid = before;
  const std::string text = "0123abcd-4567-89ef-0123-456789abcdeg";
  EXPECT_EQ(guid.fromString(text), -1);
  EXPECT_EQ(guid, before);
  EXPECT_NE(getErrorMessage().find(text), std::string::npos);
  EXPECT_FALSE(KFLGUID(KFLGUID().toString()).isValid());
}

TEST(KFLGUID, GeneratedOnesDiffer) {
  std::set<KFLGUID> ordered;
  std::unordered_set<KFLGUID> hashed;
  for (int i = 0; i < 1000; ++i) {
    const KFLGUID guid = KFLGUID::generate();
    ASSERT_TRUE(guid.isValid());
    EXPECT_EQ(guid.toString()[14], '4');
    EXPECT_EQ(KFLGUID(guid.toString()), guid);
    ordered.insert(guid);
    hashed.insert(guid);
  }
  EXPECT_EQ(ordered.size(), 1000U);
  EXPECT_EQ(hashed.size(), 1000U);
}

}  // namespace

}  // namespace KFL::test
