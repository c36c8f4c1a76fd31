// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLEnv.h>

#include <atomic>
#include <thread>

#include <gtest/gtest.h>
#include <boost/smart_ptr/make_shared.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLEnvFactory.h>
#include <KFLMessage/KFLMessage.h>

namespace KFL {
namespace {

using Text = KFLEnvConfig::Text;

const std::string kId = "6d2a1f58-3c94-4b07-a1e5-9f80b7c2d413";

TEST(KFLEnv, AlertTypesAreFive) {
  KFLEnv env;
  EXPECT_EQ(env.setAlertType(kAlertCount - 1, 4), 0);
  EXPECT_EQ(env.getAlertType(kAlertCount - 1), 4);
  EXPECT_EQ(env.getAlertType(kAlertCount), 0);
  EXPECT_EQ(env.setAlertType(kAlertCount, 1), -1);
}

// A technology whose library is not here: its configuration goes through unharmed, type tag included.
TEST(KFLEnv, ConfigurationOfAnUnknownTechnologyKeepsItsTag) {
  KFLMessage message;
  ASSERT_EQ(message.parse("<env xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"><eid>" + kId +
                          "</eid><virtual_config xmlns:o=\"urn:other\" xsi:type=\"o:other_configType\">"
                          "<hostname>h</hostname><o:own a=\"1\">x</o:own></virtual_config></env>"),
            0);
  KFLEnv env;
  ASSERT_EQ(message.getIterator().getObj(env), 0);
  Text hostname;
  ASSERT_NE(env.getVirtualConfig(), nullptr);
  env.getVirtualConfig()->getHostname(hostname);
  EXPECT_EQ(hostname, Text("h"));

  KFLMessage copy("env");
  ASSERT_EQ(copy.getIterator().putObj(env), 0);
  const KFLMessageIterator before = message.getIterator();
  const KFLMessageIterator after = copy.getIterator();
  ASSERT_EQ(before.findChild("virtual_config"), 0);
  ASSERT_EQ(after.findChild("virtual_config"), 0);
  EXPECT_EQ(before.getTypeTag(), after.getTypeTag());
  EXPECT_EQ(before.getTypeNamespace(), after.getTypeNamespace());
  ASSERT_EQ(before.findChild("own"), 0);
  ASSERT_EQ(after.findChild("own"), 0);
  EXPECT_TRUE(before.isEqualTree(after));
}

TEST(KFLEnv, OnACoreWorksInPlace) {
  KFLMessage message("m");
  const auto core = boost::make_shared<KFLEnvCoreBasic>();
  core->eid = KFLEID(kId);
  core->type = "nobody's";
  core->status = 3;
  core->alertTypes[4] = 9;
  core->virtualConfig = message.getIterator();
  KFLEnv env(core);
  EXPECT_EQ(env.getEID(), core->eid);
  EXPECT_EQ(env.getStatus(), 3);
  EXPECT_EQ(env.getAlertType(4), 9);
  env.getVirtualConfig()->setHostname(std::string("h"));
  EXPECT_TRUE(message.getIterator().hasChild("hostname"));
  ASSERT_NE(env.getConfig(), nullptr);
  EXPECT_EQ(env.getConfig()->getKind(), EnvConfigReal);
  EXPECT_EQ(env.getTitle(), kId);
  EXPECT_EQ(KFLEnv(boost::shared_ptr<KFLEnvCoreBasic>()).getVirtualConfig(), nullptr);
}

// --- The environment factory -------------------------------------------------------------------------------

using ChildFactory = KFLEnvChildFactoryT<KFLEnv, KFLVEnvConfig>;

TEST(KFLEnvFactory, ATypeHasOneFactory) {
  KFLEnvFactory& factory = *KFLEnvFactory::getInstance();
  const KFLEnvFactory::ChildFactorySP first(new ChildFactory);
  const KFLEnvFactory::ChildFactorySP second(new ChildFactory);
  EXPECT_EQ(factory.getFactory("one"), nullptr);
  EXPECT_EQ(factory.registerEnv("one", {}), -1);
  EXPECT_TRUE(getErrorMessage().starts_with("no factory was given"));
  EXPECT_EQ(factory.registerEnv("one", first), 0);
  EXPECT_EQ(factory.registerEnv("a", second), 0);
  EXPECT_EQ(factory.registerEnv("one", second), -1);
  EXPECT_NE(getErrorMessage().find("\"one\""), std::string::npos);
  EXPECT_EQ(factory.getFactory("one"), first);
  EXPECT_EQ(factory.listTypes(), (std::vector{KFLEnvFactory::TypeName("a"), KFLEnvFactory::TypeName("one")}));
  EXPECT_EQ(factory.unregisterEnv("one", second), -1);
  EXPECT_EQ(factory.unregisterEnv("one", first), 0);
  EXPECT_EQ(factory.unregisterEnv("one", first), -1);
  EXPECT_EQ(factory.getFactory("one"), nullptr);
  EXPECT_EQ(factory.unregisterEnv("a", second), 0);
}

TEST(KFLEnvFactory, IsReadWhileItChanges) {
  KFLEnvFactory& factory = *KFLEnvFactory::getInstance();
  const KFLEnvFactory::ChildFactorySP stays(new ChildFactory);
  ASSERT_EQ(factory.registerEnv("stays", stays), 0);
  std::atomic<int> misses{0};
  {
    const std::jthread reader([&](const std::stop_token& over) {
      while (!over.stop_requested())
        misses += factory.getFactory("stays") != stays;
    });
    for (int i = 0; i < 500; ++i) {
      const KFLEnvFactory::ChildFactorySP comes(new ChildFactory);
      EXPECT_EQ(factory.registerEnv("comes", comes), 0);
      EXPECT_EQ(factory.unregisterEnv("comes", comes), 0);
    }
  }
  EXPECT_EQ(misses, 0);
  EXPECT_EQ(factory.unregisterEnv("stays", stays), 0);
}

}  // namespace
}  // namespace KFL
