// SPDX-License-Identifier: Apache-2.0
// Records that extend core records: what makes them, and what they keep beside them.
#include <boost/make_shared.hpp>

#include <KFAFunctionality/environment/KFAEnv.h>
#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/environment/KFAVtInfo.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFALogOptions.h>
#include <KFAFunctionality/files/KFANativeConfig.h>
#include <KFAFunctionality/migration/KFACalculateHWNodeNotes.h>
#include <KFAFunctionality/migration/KFAMigratorCloneOptions.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/storage/KFAHardDisk.h>
#include <KFAFunctionality/templates/KFAPackageKFTemplateStd.h>

#include "../Records.h"

namespace KFA {
namespace {

using Options = KFAMigratorCloneOptions;

// A library that knows only the base class gets the derived object by its tag.
template <class Base, class Derived>
std::string tagThatMakes(const Derived& record) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  boost::shared_ptr<Base> read;
  EXPECT_EQ(KFLWriterDerived<Base>()(it, record), 0);
  EXPECT_EQ(KFLReaderDerived<Base>()(it, read), 0);
  return dynamic_cast<const Derived*>(read.get()) == nullptr ? "another class" : std::string(it.getTypeTag());
}

TEST(DerivedRecords, TypeTagsMakeTheClasses) {
  using namespace HardDisk;
  KFANetVEth device;
  device.setName("eth0");
  EXPECT_EQ(tagThatMakes<KFLEnvConfig>(KFAEnvConfig()), "venv_configType");
  EXPECT_EQ(tagThatMakes<KFLEnv>(KFAEnv(KFLEID::generate(), boost::make_shared<KFAEnvConfig>())), "envType");
  EXPECT_EQ(tagThatMakes<KFLMigratorCloneOptions>(KFAMigratorCloneOptions()), "clone_optionsType");
  EXPECT_EQ(tagThatMakes<KFLCalculateHWNodeNotes>(KFACalculateHWNodeNotes()), "hw_notesType");
  EXPECT_EQ(tagThatMakes<KFLLogOptions>(KFALogOptions()), "log_optionsType");
  EXPECT_EQ(tagThatMakes<KFLNativeConfig>(KFANativeConfig()), "kelvarium_configType");
  EXPECT_EQ(tagThatMakes<KFLVtSettings>(KFAVtSettings()), "vt_settingsType");
  EXPECT_EQ(tagThatMakes<KFLVtInfo>(KFAVtInfo()), "vt_infoType");
  EXPECT_EQ(tagThatMakes<KFLNetDevice>(device), "net_vethType");
  EXPECT_EQ(tagThatMakes<KFLPackage>(KFAPackageKFTemplateStd()), "package_std_kftemplateType");
  EXPECT_EQ(tagThatMakes<List::Base>(List::Images<Zloop>()), "ct_zloop_disk");
  EXPECT_EQ(tagThatMakes<KFLMigratorCloneOptions>(KFLMigratorCloneOptions()), "clone_optionsType");
  EXPECT_EQ(tagThatMakes<KFLCalculateHWNodeNotes>(KFLCalculateHWNodeNotes()), "hw_notesType");
  EXPECT_EQ(tagThatMakes<KFLPackage>(KFLPackage()), "packageType");
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
