// SPDX-License-Identifier: Apache-2.0
// Interface rates: which texts have three parts, and that every text is kept.
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include <KFLFunctionality/KFLInterfaceRate.h>

namespace {

using KFL::KFLInterfaceRate;

TEST(KFLInterfaceRate, TextsAreKeptAndTakenApart) {
  const std::tuple<std::string, const char*, int, long long> rows[] = {
      {"eth0:1:1024", "eth0", 1, 1024},
      {"*:0:0", "*", 0, 0},
      {"eth0:1:2:3000000000", "eth0:1", 2, 3000000000}};
  for (const auto& [text, device, classID, speed] : rows) {
    SCOPED_TRACE(text);
    const KFLInterfaceRate rate(text);
    EXPECT_EQ(rate.toString(), text);
    EXPECT_TRUE(rate.isValid());
    EXPECT_EQ(rate.getDevice(), device);
    EXPECT_EQ(rate.getClassID(), classID);
    EXPECT_EQ(rate.getRate(), speed);
  }
  for (const std::string text : {"", "eth0", "eth0:1", ":1:2", "1:2", "eth0::2", "eth0:1:", "eth0:1:2k",
                                 "eth0:-1:2", "eth0:1:-2", "eth0:1: 2", "eth0:99999999999:2", ":"}) {
    const KFLInterfaceRate rate(text);
    EXPECT_EQ(rate.toString(), text);
    EXPECT_FALSE(rate.isValid()) << text;
    EXPECT_EQ(rate.getDevice() + std::to_string(rate.getClassID()) + std::to_string(rate.getRate()), "-1-1")
        << text;
  }
}

TEST(KFLInterfaceRate, MadeOfItsParts) {
  EXPECT_EQ(KFLInterfaceRate("eth0", 1, 1024).toString(), "eth0:1:1024");
  KFLInterfaceRate rate("eth0", 1, 1024);
  EXPECT_EQ(rate.fromString(""), -1);
  EXPECT_EQ(rate.toString(), "eth0:1:1024");
}

}  // namespace
