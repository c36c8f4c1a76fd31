// SPDX-License-Identifier: Apache-2.0
// Objects of the classes that libraries register can be written and read by their class.
#include <gtest/gtest.h>
#include <boost/smart_ptr/make_shared.hpp>

#include <KFAFunctionality/migration/KFACalculateHWNodeNotes.h>
#include <KFAFunctionality/migration/KFAMigratorCloneOptions.h>
#include <KFAFunctionality/templates/KFAPackageKFTemplateStd.h>
#include <KFLMessage/KFLMessage.h>

namespace KFA {
namespace {

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
