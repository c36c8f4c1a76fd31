// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>

#include "../Records.h"

namespace KFA {
namespace {

// Messages of agents that know no sub-type say nothing of it.
TEST(KFAVPSType, ASubTypeThatIsAbsentStaysAsItWas) {
  KFAVPSType type(1, 77);
  ASSERT_EQ(readFrom("<kind>4</kind>", type), 0);
  EXPECT_EQ(type, KFAVPSType(4, 77));
}

TEST(KFAVtSettings, OfflineServicesAreEnabledOnceRead) {
  using List = std::vector<KFAOfflineService>;
  KFAVtSettings settings;
  settings.setOfflineServices(List{{"a", true}, {"b", false}});
  EXPECT_EQ(elementsOf(settings), (Names{"offline_service", "offline_service", "qoses"}));
  settings.setValues({{"stale", "1"}});
  ASSERT_EQ(readFrom("<offline_service>a</offline_service><offline_service>b</offline_service>", settings),
            0);
  EXPECT_EQ(settings.getOfflineServices(), (KFAVtSettings::OfflineServices(List{{"a", true}, {"b", true}})));
  EXPECT_TRUE(settings.getValues().empty());
}

}  // namespace
}  // namespace KFA
