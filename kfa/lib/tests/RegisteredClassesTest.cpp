// SPDX-License-Identifier: Apache-2.0
// A program that makes an object of a registered class refers to the library that registers it, so that the linker
// does not leave it out: the table of virtual functions stands in the library alone.
#include <dlfcn.h>
#include <link.h>

#include <string>
#include <typeinfo>

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

// A table that every user would make for itself is a weak symbol.
template <class Class>
void expectInLibrary() {
  const Class object;
  const std::string name = std::string("_ZTV") + typeid(object).name();
  void* const table = dlsym(RTLD_DEFAULT, name.c_str());
  Dl_info info{};
  const ElfW(Sym)* symbol = nullptr;
  ASSERT_NE(table, nullptr) << name;
  ASSERT_NE(
      dladdr1(table, &info, const_cast<void**>(reinterpret_cast<const void**>(&symbol)), RTLD_DL_SYMENT), 0);
  ASSERT_NE(symbol, nullptr);
  EXPECT_EQ(ELF64_ST_BIND(symbol->st_info), STB_GLOBAL) << name;
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
  expectAllInLibrary(List<KFAEnv, KFAEnvConfig, KFAVtInfo, KFAVtSettings, KFALogOptions, KFANativeConfig,
                          KFANetVEth, KFACalculateHWNodeNotes, KFAMigratorCloneOptions, KFAPackageKFTemplate,
                          KFAPackageKFTemplateStd, KFATemplateObject, KFAUpdate, KFASystemUpdate,
                          KFAWindowsSystemUpdate, KFATQAUpdate, KFAAppTemplateUpdate, KFATemplateUpdate,
                          KFAOsTemplateUpdate, KFAEzTemplateUpdate, HardDisk::List::KfFS>());
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
