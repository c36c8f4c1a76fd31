// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLError.h>

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace KFL::test {

namespace {

TEST(KFLError, EveryThreadHasItsOwnText) {
  setErrorMessage("mine");
  std::vector<std::jthread> threads;
  threads.reserve(8);
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([i] {
      EXPECT_EQ(getErrorMessage(), "");
      for (int n = 0; n < 1000; ++n) {
        setErrorMessage("thread %d, round %d", i, n);
        ASSERT_EQ(getErrorMessage(), "thread " + std::to_string(i) + ", round " + std::to_string(n));
      }
    });
  }
  threads.clear();
  EXPECT_EQ(getErrorMessage(), "mine");
}

TEST(KFLError, TakesTextsOfAnyLengthAndTheOldOne) {
  for (const std::size_t length : {0, 1, 511, 512, 513, 100000}) {
    const std::string text(length, 'x');
    setErrorMessage("%s", text.c_str());
    EXPECT_EQ(getErrorMessage(), text);
    setErrorMessage("can't read it : %s", getErrorMessage().c_str());
    EXPECT_EQ(getErrorMessage(), "can't read it : " + text);
  }
}

}  // namespace

}  // namespace KFL::test
