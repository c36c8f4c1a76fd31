// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLGUID.h>

#include <set>
#include <string>
#include <unordered_set>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>

namespace KFL::test {

namespace {

constexpr const char* kText = "0123abcd-4567-89ef-0123-456789abcdef";

TEST(KFLGUID, ReadsAndWritesItsText) {
  for (const std::string& text : {std::string(kText), "{" + std::string(kText) + "}",
                                  std::string("0123ABCD-4567-89Ef-0123-456789ABCDEF")}) {
    KFLGUID guid;
    ASSERT_EQ(guid.fromString(text), 0) << text;
    EXPECT_EQ(guid.toString(), kText);
    EXPECT_EQ(guid.bytes()[0], 0x01);
    EXPECT_EQ(guid.bytes()[15], 0xef);
    EXPECT_TRUE(guid.isValid());
  }
  EXPECT_EQ(KFLGUID().toString(), "00000000-0000-0000-0000-000000000000");
  EXPECT_FALSE(KFLGUID(KFLGUID().toString()).isValid());
}

TEST(KFLGUID, RefusesNearMisses) {
  const KFLGUID before(kText);
  for (const char* const text :
       {"", "0123abcd-4567-89ef-0123-456789abcde", "0123abcd-4567-89ef-0123-456789abcdef0",
        "0123abcd4567-89ef-0123-456789abcdef-", "0123abcd-4567-89ef-0123-456789abcdeg",
        "{0123abcd-4567-89ef-0123-456789abcdef", "0123abcd-4567-89ef-0123-456789abcdef}",
        "(0123abcd-4567-89ef-0123-456789abcdef)", "0123abcd456789ef0123456789abcdef",
        " 0123abcd-4567-89ef-0123-456789abcdef", "0123abcd-4567-89ef-0123-456789abc-ef"}) {
    KFLGUID guid = before;
    EXPECT_EQ(guid.fromString(text), -1) << text;
    EXPECT_EQ(guid, before);
    EXPECT_NE(getErrorMessage().find(text), std::string::npos);
    EXPECT_FALSE(KFLGUID(text).isValid());
  }
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
