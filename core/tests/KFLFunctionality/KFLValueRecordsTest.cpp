// The core's value records: what makes reading fail, what is written, which class an element becomes.
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLDevMountInfo.h>
#include <KFLFunctionality/KFLNetNIC.h>
#include <KFLFunctionality/KFLOS.h>
#include <KFLFunctionality/KFLPackageList.h>
#include <KFLFunctionality/KFLQoS.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace {

// Reads a record from the XML text of one element.
template <class Record>
int readFrom(const std::string& xml, Record& record) {
  KFL::KFLMessage message;
  EXPECT_EQ(message.parse(xml), 0) << xml;
  return message.getIterator().getObj(record);
}

TEST(KFLQoS, SoftValueMayBeAbsent) {
  KFL::KFLQoS qos;
  EXPECT_EQ(readFrom("<q><id>a</id><hard>x</hard></q>", qos), -1);
  EXPECT_EQ(readFrom("<q><id>a</id><soft>9223372036854775807</soft><hard>-1</hard></q>", qos), 0);
  EXPECT_EQ(qos.getSoft().getValue(), 9223372036854775807);
  EXPECT_EQ(qos.getHard(), -1);
  EXPECT_EQ(readFrom("<q><id>a</id><hard>2</hard></q>", qos), 0);
  EXPECT_FALSE(qos.getSoft().isSpecified());
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
  EXPECT_EQ(readFrom("<m><device>d</device></m>", mount), -1);
  EXPECT_EQ(readFrom("<m><device>d</device><mount_point>p</mount_point></m>", mount), 0);
  EXPECT_EQ(mount.getFileSystem(), "auto");
  EXPECT_FALSE(mount.getAutomatic());
}

TEST(KFLNetNIC, ReadingReplacesEverything) {
  KFL::KFLNetNIC card;
  card.setMAC("00:11:22:33:44:55");
  card.setDHCP(true);
  card.setIPAddresses({"10.0.0.1"});
  EXPECT_EQ(readFrom("<n><name>eth1</name></n>", card), 0);
  EXPECT_EQ(card.getName(), "eth1");
  EXPECT_EQ(card.getMAC(), "");
  EXPECT_FALSE(card.getDHCP());
  EXPECT_TRUE(card.getIPAddresses().empty());
  EXPECT_EQ(readFrom("<n><ip_address/></n>", card), -1);
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
  const struct {
    const char* xml;
    const char* text;
  } rows[] = {
      {"<l><package xsi:type='packageType'><kind>k</kind></package></l>",
       "KFLPackage: there is no element 'name'; it must be there"},
      {"<l><package xsi:type='otherType'/></l>",
       "the element 'package' has the type "
       "'http://kelvarium.internal/webservices/kfl/4.0.0/types:otherType', "
       "which is not known here"},
  };
  for (const auto& row : rows) {
    const std::string head = std::string("<l xmlns='") + KFL::kTypesNamespaceURI +
                             "' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'>";
    KFL::KFLPackageList list;
    EXPECT_EQ(readFrom(head + (row.xml + 3), list), -1);
    EXPECT_EQ(KFL::getErrorMessage(), row.text);
  }
  KFL::KFLQoS qos;
  EXPECT_EQ(readFrom("<q><id>a</id><hard>1k</hard></q>", qos), -1);
  EXPECT_EQ(KFL::getErrorMessage(),
            "KFLQoS: the element 'hard' holds '1k'; a value of type long would be right");
}

TEST(KFLRecords, TypesNamedByNumberAreFoundByTag) {
  const char* uri = "http://kelvarium.internal/webservices/kfl/4.0.0/types";
  EXPECT_EQ(KFL::findRecordType(uri, "packageType"), KFL::findRecordType("KFLPackage"));
  EXPECT_EQ(KFL::findRecordType(uri, "net_nicType"), KFL::findRecordType("KFLNetNIC"));
  ASSERT_NE(KFL::findRecordType("KFLQoS"), nullptr);
  EXPECT_STREQ(KFL::findRecordType("KFLQoS")->namespaceUri(), uri);
  EXPECT_STREQ(KFL::findRecordType("KFLQoS")->typeTag(), "");
}

}  // namespace
