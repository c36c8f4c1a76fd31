// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLTagVocabulary.h>

#include <gtest/gtest.h>

#include <string>

#include <KFLMessage/KFLMessage.h>

namespace KFL {
namespace {

TEST(KFLTagVocabulary, NumberAndNameAddressTheSameElement) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  for (const KFLTag& tag : tagVocabulary()) {
    const std::string name(tag.name);
    EXPECT_EQ(tagName(tag.number), name);
    EXPECT_EQ(tagNumber(name), tag.number);
    it.putValue(name, tag.number);
    std::string value;
    EXPECT_EQ(it.getValue(value, name), 0) << name;
    EXPECT_EQ(value, name);
  }
  std::string text;
  ASSERT_EQ(message.print(text), 0);
  KFLMessage again;
  ASSERT_EQ(again.parse(text), 0);
  for (const KFLTag& tag : tagVocabulary())
    EXPECT_TRUE(again.getIterator().hasChild(tag.number)) << tag.name;
}

TEST(KFLTagVocabulary, WhatItLacksHasNoNameAndNoNumber) {
  for (const int number : {-1, 0, 1, 1001, 1003, 2292, 1 << 30, -1002})
    EXPECT_EQ(tagName(number), "") << number;
  for (const char* const name : {"", "vei", "veids", "VEID", "installed_version", "net_devicf"}) {
    EXPECT_EQ(tagNumber(name), 0) << name;
  }
  EXPECT_EQ(tagNumber(std::string(100'000, 'a')), 0);
  EXPECT_EQ(namespaceName(293), "");
  EXPECT_EQ(typeName(0), "");
}

}  // namespace
}  // namespace KFL
