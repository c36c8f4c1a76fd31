// SPDX-License-Identifier: Apache-2.0
// Records that extend core records: what makes them, and what they keep beside them.
#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/migration/KFAMigratorCloneOptions.h>

#include "KFLMessage/Records.h"

namespace KFA {
namespace {

using Options = KFAMigratorCloneOptions;

// By its tag, a library that knows only the base class gets the derived object. Updates and disks are held to theirs by
// the laws of RecordRows and RecordsRoundTrip.
TEST(DerivedRecords, TypeTagsMakeTheClasses) {
  std::string all;
  for (const KFLDerivedTypeInfo& type : listDerivedTypes())
    if (type.base.starts_with("KFL")) all += type.base + " " + type.tag + " " + type.derived + "\n";
  EXPECT_EQ(all, R"(KFLCalculateHWNodeNotes hw_notesType KFACalculateHWNodeNotes
KFLCalculateHWNodeNotes hw_notesType KFLCalculateHWNodeNotes
KFLEnv envType KFAEnv
KFLEnvConfig venv_configType KFAEnvConfig
KFLLogOptions log_optionsType KFALogOptions
KFLMigratorCloneOptions clone_optionsType KFAMigratorCloneOptions
KFLMigratorCloneOptions clone_optionsType KFLMigratorCloneOptions
KFLNativeConfig kelvarium_configType KFANativeConfig
KFLNetDevice net_nicType KFLNetNIC
KFLNetDevice net_vethType KFANetVEth
KFLPackage packageType KFLPackage
KFLPackage package_kftemplateType KFAPackageKFTemplate
KFLPackage package_std_kftemplateType KFAPackageKFTemplateStd
KFLVtInfo vt_infoType KFAVtInfo
KFLVtSettings vt_settingsType KFAVtSettings
)");
}

TEST(KFAMigratorCloneOptions, AFlagThatIsFalseIsNotWrittenAndIsSpecifiedOnceRead) {
  Options options;
  options.setKeepSource(false);
  EXPECT_EQ(elementsOf(options), Names());
  ASSERT_EQ(readFrom("", options), 0);
  EXPECT_EQ(options.getKeepSource(), Options::Flag(false));
}

TEST(KFAMigratorCloneOptions, ReadingMakesAConfigurationOrFillsTheOneThatIsThere) {
  Options options;
  EXPECT_EQ(elementsOf(options), Names());
  ASSERT_EQ(readFrom("", options), 0);
  const Options::ConfigSP made = options.getConfig();
  ASSERT_NE(made, nullptr);
  EXPECT_FALSE(made->hasMsg());
  ASSERT_EQ(readFrom("<config><hostname>web2</hostname></config>", options), 0);
  EXPECT_EQ(options.getConfig(), made);
  KFAEnvConfig::Text hostname;
  made->getHostname(hostname);
  EXPECT_EQ(hostname, KFAEnvConfig::Text("web2"));
}

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
