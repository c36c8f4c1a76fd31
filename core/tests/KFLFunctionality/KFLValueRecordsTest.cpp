// SPDX-License-Identifier: Apache-2.0
// The core's value records: what makes reading fail, what is written, which class an element becomes.
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLDevMountInfo.h>
#include <KFLFunctionality/KFLNetNIC.h>
#include <KFLFunctionality/KFLPackageList.h>
#include <KFLFunctionality/KFLQoS.h>
#include <KFLMessage/KFLMessage.h>

namespace {

// Reads a record from the XML text of one element.
template <class Record>
int readFrom(const std::string& xml, Record& record) {
  KFL::KFLMessage message;
  EXPECT_EQ(message.parse(xml), 0) << xml;
  return message.getIterator().getObj(record);
}

TEST(KFLQoS, SetHoldsEachIdOnce) {
  KFL::KFLQoS again("b");
  again.setHard(7);
  const std::set<KFL::KFLQoS> set{KFL::KFLQoS("b"), KFL::KFLQoS("a"), again};
  ASSERT_EQ(set.size(), 2U);
  EXPECT_EQ(set.begin()->getID(), "a");
}

TEST(KFLDevMountInfo, ElementsLeftOutKeepTheirDefaults) {
  KFL::KFLDevMountInfo mount;
  EXPECT_EQ(readFrom("<m><device>d</device><mount_point>p</mount_point></m>", mount), 0);
  EXPECT_EQ(mount.getFileSystem(), "auto");
  EXPECT_FALSE(mount.getAutomatic());
}

TEST(KFLRecords, ReadingReplacesEverything) {
  KFL::KFLNetNIC card;
  card.setMAC("00:11:22:33:44:55");
  card.setDHCP(true);
  card.setIPAddresses({"10.0.0.1"});
  EXPECT_EQ(readFrom("<n><name>eth1</name></n>", card), 0);
  EXPECT_EQ(card.getName() + card.getMAC(), "eth1");
  EXPECT_FALSE(card.getDHCP());
  EXPECT_TRUE(card.getIPAddresses().empty());
  EXPECT_EQ(readFrom("<n><ip_address/></n>", card), -1);
  KFL::KFLQoS qos;
  qos.setSoft(5LL);
  EXPECT_EQ(readFrom("<q><id>a</id><hard>2</hard></q>", qos), 0);
  EXPECT_FALSE(qos.getSoft().isSpecified());
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
  EXPECT_EQ(readFrom("<l><package><name>a</name></package></l>", list), -1);
  EXPECT_EQ(readFrom("<l/>", list), 0);
  EXPECT_TRUE(list.empty());
}

// What could not be read is named, however deep it stands.
TEST(KFLRecords, FailureNamesTheElement) {
  const std::string head = std::string("<l xmlns='") + KFL::kTypesNamespaceURI +
                           "' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'><package xsi:type=";
  KFL::KFLPackageList list;
  EXPECT_EQ(readFrom(head + "'packageType'><kind>k</kind></package></l>", list), -1);
  EXPECT_EQ(KFL::getErrorMessage(), "/l/package: element name is missing");
  EXPECT_EQ(readFrom(head + "'otherType'/></l>", list), -1);
  EXPECT_EQ(KFL::getErrorMessage(),
            "/l/package: the type 'http://kelvarium.internal/webservices/kfl/4.0.0/types:otherType' is not "
            "known here");
  KFL::KFLQoS qos;
  EXPECT_EQ(readFrom("<q><id>a</id><hard>1k</hard></q>", qos), -1);
  EXPECT_EQ(
      KFL::getErrorMessage(),
      "/q/hard: '1k' is no 64-bit number; one from -9223372036854775808 to 9223372036854775807 is wanted");
}

}  // namespace
