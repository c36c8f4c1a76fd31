#include <string>

#include <gtest/gtest.h>

#include <KFAFunctionality/environment/KFAConnectionLinkInfo.h>
#include <KFAFunctionality/environment/KFAEnvCapability.h>
#include <KFAFunctionality/environment/KFARedirectService.h>
#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/environment/KFAVtInfo.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFLMessage/KFLMessage.h>

namespace KFA {
namespace {

template <class Record>
int readRecord(const std::string& content, Record& record) {
  KFLMessage message;
  EXPECT_EQ(message.parse("<r>" + content + "</r>"), 0);
  return message.getIterator().getObj(record);
}

TEST(KFAVtRecords, WhatIsAbsentStaysAsItWas) {
  KFAVPSType type(1, 77);
  ASSERT_EQ(readRecord("<kind>4</kind>", type), 0);
  EXPECT_EQ(type, KFAVPSType(4, 77));

  KFAConnectionLinkInfo link;
  link.setPort(5);
  link.setClientPort(6);
  link.setClientAddress("c");
  ASSERT_EQ(readRecord("<link>l</link><client_port>no number</client_port>", link), 0);
  EXPECT_EQ(link.getLink() + link.getClientAddress(), "lc");
  EXPECT_EQ(link.getPort(), 5);
  EXPECT_EQ(link.getClientPort(), 6);
}

TEST(KFARedirectService, FlagIsThePresenceOfItsElement) {
  for (const bool isDefault : {false, true}) {
    KFARedirectService service;
    service.setAddress(KFLIPAddress("10.0.0.1"));
    service.setDefault(isDefault);
    KFLMessage message;
    KFLMessageIterator it = message.getIterator();
    ASSERT_EQ(it.putObj(service), 0);
    EXPECT_EQ(it.hasChild("default"), isDefault);
    KFARedirectService read;
    read.setDefault(!isDefault);
    ASSERT_EQ(it.getObj(read), 0);
    EXPECT_EQ(read.getDefault(), isDefault);
  }
}

TEST(KFAVtSettings, OfflineServicesTellEmptyFromUnspecified) {
  using Services = KFAVtSettings::OfflineServices;
  using List = std::vector<KFAOfflineService>;
  const struct {
    Services services, read;
    bool saysNone;
    std::size_t elements;
  } rows[] = {
      {Services(), Services(), false, 0},
      {List{}, List{}, true, 0},
      {List{{"a", true}, {"b", false}}, List{{"a", true}, {"b", true}}, false, 2},
  };
  for (const auto& row : rows) {
    KFAVtSettings settings;
    settings.setOfflineServices(row.services);
    KFLMessage message;
    KFLMessageIterator it = message.getIterator();
    ASSERT_EQ(it.putObj(settings), 0);
    EXPECT_EQ(it.hasChild("no_offline_service"), row.saysNone);
    EXPECT_TRUE(it.hasChild("qoses"));
    KFAVtSettings read;
    read.setOfflineServices(List{{"stale", true}});
    read.setValues({{"stale", "1"}});
    ASSERT_EQ(it.getObj(read), 0);
    EXPECT_EQ(read.getOfflineServices(), row.read);
    EXPECT_TRUE(read.getValues().empty());
    EXPECT_EQ(it.removeChildren("offline_service"), row.elements);
  }
}

// Another library that knows only the base classes gets the derived objects by their tags.
TEST(KFAVtRecords, TypeTagsMakeTheClasses) {
  KFAVtSettings settings;
  settings.setTechnology(std::string("kelvarium"));
  KFAVtInfo info;
  info.setRedirectServices(std::vector<KFARedirectService>(2));
  info.setDescription(std::string("containers"));
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  boost::shared_ptr<KFLVtSettings> readSettings;
  boost::shared_ptr<KFLVtInfo> readInfo;
  ASSERT_EQ(it.putObject(settings, KFLWriterDerived<KFLVtSettings>(), "a"), 0);
  ASSERT_EQ(it.putObject(info, KFLWriterDerived<KFLVtInfo>(), "b"), 0);
  ASSERT_EQ(it.getObject(readSettings, KFLReaderDerived<KFLVtSettings>(), "a"), 0);
  ASSERT_EQ(it.getObject(readInfo, KFLReaderDerived<KFLVtInfo>(), "b"), 0);
  EXPECT_EQ(dynamic_cast<KFAVtSettings&>(*readSettings).getTechnology(), settings.getTechnology());
  EXPECT_EQ(readInfo->getDescription(), info.getDescription());
  EXPECT_TRUE(dynamic_cast<KFAVtInfo&>(*readInfo).getRedirectServices().empty()) << "they have no address";
  EXPECT_NE(it.getObject(readInfo, KFLReaderDerived<KFLVtInfo>(), "a"), 0) << "the tag of another registry";
}

}  // namespace
}  // namespace KFA
