// SPDX-License-Identifier: Apache-2.0
// A program that makes an object of a registered class refers to the library that registers it, so that the linker
// does not leave it out: the table of virtual functions stands in the library alone.
#include <dlfcn.h>

#include <string_view>

#include <gtest/gtest.h>
#include <boost/smart_ptr/make_shared.hpp>

#include <KFAFunctionality/environment/KFAEnv.h>
#include <KFAFunctionality/environment/KFAVtInfo.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFALogOptions.h>
#include <KFAFunctionality/files/KFANativeConfig.h>
#include <KFAFunctionality/migration/KFACalculateHWNodeNotes.h>
#include <KFAFunctionality/migration/KFAMigratorCloneOptions.h>
#include <KFAFunctionality/storage/KFAHardDisk.h>
#include <KFAFunctionality/templates/KFAPackageKFTemplateStd.h>
#include <KFAFunctionality/templates/KFATemplateObject.h>
#include <KFAFunctionality/updates/KFAUpdate.h>
#include <KFLMessage/KFLMessage.h>

namespace KFA {
namespace {

template <class... Classes>
struct List {};

template <class Class>
void expectInLibrary() {
  const Class object;
  Dl_info info{};
  ASSERT_NE(dladdr(*reinterpret_cast<const void* const*>(&object), &info), 0);
  EXPECT_NE(std::string_view(info.dli_fname).find("/libKF"), std::string_view::npos)
      << typeid(Class).name() << " in " << info.dli_fname;
}

template <class... Classes>
void expectAllInLibrary(List<Classes...>) {
  (expectInLibrary<Classes>(), ...);
}

TEST(RegisteredClasses, StandInTheirLibrary) {
  expectAllInLibrary(
      List<KFL::KFLCalculateHWNodeNotes, KFL::KFLEnv, KFL::KFLEnvConfig, KFL::KFLVEnvConfig,
           KFL::KFLLogOptions, KFL::KFLMigratorCloneOptions, KFL::KFLNativeConfig, KFL::KFLNetDevice,
           KFL::KFLNetNIC, KFL::KFLPackage, KFL::KFLVtInfo, KFL::KFLVtSettings>());
  expectAllInLibrary(
      List<KFAEnv, KFAEnvConfig, KFAVtInfo, KFAVtSettings, KFALogOptions, KFANativeConfig, KFANetVEth,
           KFACalculateHWNodeNotes, KFAMigratorCloneOptions, KFAPackageKFTemplate, KFAPackageKFTemplateStd,
           KFATemplateObject, KFAUpdate, KFASystemUpdate, KFAWindowsSystemUpdate, KFATQAUpdate,
           KFAAppTemplateUpdate, KFATemplateUpdate, KFAOsTemplateUpdate, KFAEzTemplateUpdate,
           HardDisk::List::KfFS, HardDisk::List::Images<HardDisk::Zloop>,
           HardDisk::List::Images<HardDisk::Loopback>>());
}

template <class Base>
void expectWritable() {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  EXPECT_EQ(KFL::KFLWriterDerived<Base>()(it, boost::make_shared<Base>()), 0);
  boost::shared_ptr<Base> read;
  EXPECT_EQ(KFL::KFLReaderDerived<Base>()(it, read), 0);
}

TEST(RegisteredClasses, BasesOfTheCoreHaveFactoriesToo) {
  expectWritable<KFL::KFLMigratorCloneOptions>();
  expectWritable<KFL::KFLCalculateHWNodeNotes>();
  expectWritable<KFL::KFLPackage>();
}

}  // namespace
}  // namespace KFA
