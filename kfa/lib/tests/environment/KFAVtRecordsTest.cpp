// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAConnectionLinkInfo.h>
#include <KFAFunctionality/environment/KFAEnvCapability.h>
#include <KFAFunctionality/environment/KFARedirectService.h>
#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/environment/KFAVtInfo.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>

#include "../Records.h"

namespace KFA {
namespace {

// Messages of agents that know no sub-type say nothing of it.
TEST(KFAVtRecords, OnlyASubTypeThatIsAbsentStaysAsItWas) {
  KFAVPSType type(1, 77);
  ASSERT_EQ(readFrom("<kind>4</kind>", type), 0);
  EXPECT_EQ(type, KFAVPSType(4, 77));

  KFAConnectionLinkInfo link;
  link.setPort(5);
  link.setClientPort(6);
  link.setClientAddress("c");
  ASSERT_EQ(readFrom("<link>l</link><client_port>no number</client_port>", link), 0);
  EXPECT_EQ(link.getLink() + link.getClientAddress(), "l");
  EXPECT_EQ(link.getPort(), 0);
  EXPECT_EQ(link.getClientPort(), 0);
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

TEST(KFAVtRecords, TagOfAnotherRegistryIsRefused) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  boost::shared_ptr<KFLVtInfo> info;
  ASSERT_EQ(it.putObject(KFAVtSettings(), KFLWriterDerived<KFLVtSettings>()), 0);
  EXPECT_NE(it.getObject(info, KFLReaderDerived<KFLVtInfo>()), 0);
}

TEST(KFAVtInfo, ServicesWithoutAnAddressAreReadBack) {
  KFAVtInfo info;
  info.setRedirectServices(std::vector<KFARedirectService>(2));
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  ASSERT_EQ(it.putObj(info), 0);
  info.setRedirectServices({});
  ASSERT_EQ(it.getObj(info), 0);
  EXPECT_EQ(info.getRedirectServices().size(), 2U);
}

}  // namespace
}  // namespace KFA
