// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLCheck.h>

#include <gtest/gtest.h>

namespace KFL::test {

namespace {

template <class T>
void checked(T value) {
  KFL_CHECK_AT(value == 1, "KFAFunctionality", "KFLDerivedParsers", 237);
}

TEST(KFLCheckDeathTest, FailureNamesEverything) {
  checked(1);
  EXPECT_EXIT(
      checked(2), testing::KilledBySignal(SIGABRT),
      "KFAFunctionality: KFLDerivedParsers:237: checked "
      "\\[void KFL::test::.*checked\\(T\\) \\[with T = int\\]\\]: value == 1\n|"
      "KFLDerivedParsers:237: checked \\[void KFL::test::.*checked\\(T\\) \\[T = int\\]\\]: value == 1\n");
}

}  // namespace

}  // namespace KFL::test
