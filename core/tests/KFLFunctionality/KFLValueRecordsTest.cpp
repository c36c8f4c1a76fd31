// SPDX-License-Identifier: Apache-2.0
// The core's value records: their order, and what cannot be written.
#include <set>

#include <gtest/gtest.h>

#include <KFLFunctionality/KFLInterfaceRate.h>
#include <KFLFunctionality/KFLPackageList.h>
#include <KFLFunctionality/KFLQoS.h>
#include <KFLMessage/KFLMessage.h>

namespace {

TEST(KFLQoS, SetHoldsEachIdOnce) {
  KFL::KFLQoS again("b");
  again.setHard(7);
  const std::set<KFL::KFLQoS> set{KFL::KFLQoS("b"), KFL::KFLQoS("a"), again};
  ASSERT_EQ(set.size(), 2U);
  EXPECT_EQ(set.begin()->getID(), "a");
}

// What rates are made of is the law of the fuzz target ValueFuzz.
TEST(KFLInterfaceRate, AnEmptyTextIsRefused) {
  KFL::KFLInterfaceRate rate("eth0", 1, 1024);
  EXPECT_EQ(rate.fromString(""), -1);
  EXPECT_EQ(rate.toString(), "eth0:1:1024");
}

TEST(KFLPackageList, RefusesWhatHasNoClass) {
  struct Unregistered : KFL::KFLPackage {};
  KFL::KFLMessage message;
  KFL::KFLPackageList list;
  list.push_back(boost::shared_ptr<KFL::KFLPackage>(new KFL::KFLPackage));
  EXPECT_EQ(message.getIterator().putObj(list), 0);
  list.push_back(boost::shared_ptr<KFL::KFLPackage>(new Unregistered));
  EXPECT_EQ(message.getIterator().putObj(list), -1);
  list.back().reset();
  EXPECT_EQ(message.getIterator().putObj(list), -1);
}

}  // namespace
