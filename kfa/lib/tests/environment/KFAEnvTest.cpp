// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAEnv.h>

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <boost/smart_ptr/make_shared.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLFunctionality/KFLEnvFactory.h>
#include <KFLMessage/KFLMessage.h>

namespace KFA {
namespace {

using Text = KFLEnvConfig::Text;
using AddressList = std::vector<KFLIPAddress>;

const KFLEID kEID("6d2a1f58-3c94-4b07-a1e5-9f80b7c2d413");

void takeLine(const LogRecord& record, void* lines) {
  static_cast<std::vector<std::string>*>(lines)->push_back(
      std::to_string(record.level) + "|" + record.module + "|" + record.file + "|" +
      std::to_string(record.line) + "|" + record.function + "|" + record.signature + "|" +
      std::string(record.text));
}

TEST(KFAEnv, SortKeyIsTheVeid) {
  const auto config = boost::make_shared<KFAEnvConfig>();
  const KFAEnv env(kEID, config);
  std::vector<std::string> lines;
  setLogSink(&takeLine, &lines);
  EXPECT_EQ(env.getSortKey(), 0U);
  EXPECT_EQ(lines,
            std::vector<std::string>{"1|KFAFunctionality|KFAEnv|631|getSortKey|virtual size_t "
                                     "KFA::KFAEnv::getSortKey() const|[getSortKey] Failed to get veid"});
  config->setVeid(101);
  EXPECT_EQ(env.getSortKey(), 101U);
  EXPECT_EQ(lines.size(), 1U);
  setLogSink(nullptr, nullptr);
  EXPECT_EQ(KFAEnv().getSortKey(), 0U);
}

// Of any of them that are there, an empty text included, but no empty list of addresses.
TEST(KFAEnv, TitleIsTheFirstOfItsSources) {
  for (unsigned given = 0; given < 256; ++given) {
    const auto virtualConfig = boost::make_shared<KFAEnvConfig>();
    const auto config = boost::make_shared<KFLEnvConfig>();
    const auto text = [&](std::size_t size) { return std::string((given & 128U) != 0 ? size : 0, 't'); };
    const std::pair<std::string, std::function<void()>> sources[] = {
        {text(1), [&] { virtualConfig->setName(text(1)); }},
        {text(2), [&] { config->setName(text(2)); }},
        {text(3), [&] { virtualConfig->setHostname(text(3)); }},
        {text(4), [&] { config->setHostname(text(4)); }},
        {"#-1", [&] { virtualConfig->setVeid(-1); }},
        {"10.0.0.1", [&] { virtualConfig->setAddresses(AddressList{"10.0.0.1"}); }},
        {"10.0.0.2", [&] {
           config->setAddresses(AddressList{"10.0.0.2", "10.0.0.3"});
         }}};
    std::string title = kEID.toString();
    virtualConfig->setAddresses(AddressList{});
    for (std::size_t i = std::size(sources); i-- > 0;) {
      if ((given >> i & 1U) == 0) continue;
      sources[i].second();
      title = sources[i].first;
    }
    KFAEnv env(kEID, virtualConfig);
    env.setConfig(config);
    EXPECT_EQ(env.getTitle(), title) << given;
  }
  EXPECT_EQ(KFAEnv(kEID, nullptr).getTitle(), kEID.toString());
}

TEST(KFAEnv, CopyOfAnyEnvironment) {
  const auto config = boost::make_shared<KFAEnvConfig>();
  KFLEnv env(kEID, config, boost::make_shared<KFLEnvConfig>());
  env.setParentEID(KFLEID("a8c0e1d2-5b7f-4936-8e4d-2c1b0f9a8d76"));
  env.setStatus(4);
  env.setAlertType(kAlertCount - 1, 10);
  const KFAEnv copy(env);
  EXPECT_EQ(copy.getEID(), kEID);
  EXPECT_EQ(copy.getParentEID(), env.getParentEID());
  EXPECT_EQ(copy.getStatus(), 4);
  EXPECT_EQ(copy.getAlertType(kAlertCount - 1), 10);
  EXPECT_EQ(copy.getVirtualConfig(), config);
  EXPECT_EQ(copy.getConfig(), env.getConfig());
}

// The configuration that the registry makes is the element, not a copy of it.
TEST(KFAEnv, AConfigurationByItsTagWorksInPlace) {
  KFAEnv env(kEID, boost::make_shared<KFAEnvConfig>());
  env.setConfig(boost::make_shared<KFAEnvConfig>());
  dynamic_cast<KFAEnvConfig&>(*env.getVirtualConfig()).setVeid(101);
  env.getConfig()->setHostname("real");
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  ASSERT_EQ(it.putObj(env, "env"), 0);

  KFAEnv read;
  ASSERT_EQ(it.getObj(read, "env"), 0);
  // Both parts keep their class.
  const auto config = boost::dynamic_pointer_cast<KFAEnvConfig>(read.getConfig());
  ASSERT_NE(config, nullptr) << message.toString();
  EXPECT_EQ(config->getIterator().getTypeTag(), "venv_configType");
  EXPECT_EQ(config->getKind(), KFL::EnvConfigReal);
  read.getVirtualConfig()->setHostname("virtual");
  EXPECT_NE(message.toString().find("<hostname>virtual</hostname>"), std::string::npos) << message.toString();
  const KFAEnvConfig copy(*read.getVirtualConfig());

  // Written back over the element that it stands on, and then without any message.
  ASSERT_EQ(it.putObj(read, "env"), 0);
  KFAEnv again;
  ASSERT_EQ(it.getObj(again, "env"), 0);
  message = KFLMessage();
  it.clear();
  again.getVirtualConfig()->setDescription("apart");
  for (const KFLEnvConfig* const one : {read.getVirtualConfig().get(), again.getVirtualConfig().get()}) {
    Text hostname;
    EXPECT_EQ(one->getHostname(hostname), 0);
    EXPECT_EQ(hostname, Text("virtual"));
  }
  Text description;
  EXPECT_EQ(copy.getDescription(description), 0);
  EXPECT_FALSE(description.isSpecified());
}

// Getters of copies of one environment, from two threads at a time.
TEST(KFAEnv, CopiesAreReadByAnyNumberOfThreads) {
  const auto config = boost::make_shared<KFAEnvConfig>();
  config->setVeid(101);
  config->setAddresses(AddressList{"10.0.0.1", "10.0.0.2"});
  config->setQoSes(std::set<KFLQoS>{KFLQoS("a"), KFLQoS("b")});
  config->setTemplates(std::vector<KFATemplate>{KFATemplate("a"), KFATemplate("b")});
  KFAEnv first(kEID, config);
  first.setStatus(1);
  const KFAEnv second(first);
  std::atomic<int> wrong{0};
  const auto ask = [&wrong](const KFAEnv& env) {
    const auto held = boost::dynamic_pointer_cast<const KFAEnvConfig>(env.getVirtualConfig());
    for (int i = 0; i < 3000; ++i) {
      KFLOptionalProperty<KFLQoS> qos;
      KFAEnvConfig::Templates templates;
      boost::shared_ptr<HardDisk::List::Base> disks;
      wrong += env.getTitle() != "#101";
      wrong += env.getSortKey() != 101U;
      wrong += held->getQoS("b", qos) != 0 || !qos.isSpecified();
      wrong += held->getTemplates(templates) != 0 || templates.getValue().size() != 2;
      wrong += held->getHardDisks(disks) != 0 || KFAEnvConfig(*held).getIterator().countChildren() != 7;
    }
  };
  {
    const std::jthread one([&] { ask(first); });
    const std::jthread other([&] { ask(second); });
  }
  EXPECT_EQ(wrong, 0);
}

TEST(KFAEnv, TheTechnologyIsRegistered) {
  EXPECT_EQ(KFAEnv::type.str(), "kelvarium");
  const auto factory = KFLEnvFactory::getInstance()->getFactory(KFAEnv::type);
  ASSERT_NE(factory, nullptr);
  for (const std::size_t length : {0U, 15U, 16U, 4000U})
    EXPECT_EQ(KFLEnvFactory::getInstance()->getFactory(std::string(length, 'k')), nullptr);
  EXPECT_EQ(KFLEnvFactory::getInstance()->registerEnv(std::string(16, 'k'), factory), -1);
  EXPECT_NE(KFL::getErrorMessage().find("1 to 15 characters"), std::string::npos) << KFL::getErrorMessage();
  EXPECT_NE(dynamic_cast<KFAEnv*>(factory->createEnv().get()), nullptr);

  KFLMessage message;
  ASSERT_EQ(message.parse("<c><veid>101</veid></c>"), 0);
  const auto core = boost::make_shared<KFLEnvCoreBasic>();
  core->type = KFAEnv::type;
  core->virtualConfig = message.getIterator();
  for (const boost::shared_ptr<KFLEnv>& env : {factory->createEnv(core), boost::make_shared<KFLEnv>(core)}) {
    const auto config = boost::dynamic_pointer_cast<KFAEnvConfig>(env->getVirtualConfig());
    ASSERT_NE(config, nullptr);
    config->setOnBoot(true);
  }
  EXPECT_EQ(factory->createEnv(core)->getSortKey(), 101U);
  const auto config = boost::dynamic_pointer_cast<KFAEnvConfig>(factory->createVEnvConfig(core));
  ASSERT_NE(config, nullptr);
  KFLOptionalProperty<bool> onBoot;
  EXPECT_EQ(config->getOnBoot(onBoot), 0);
  EXPECT_EQ(onBoot, KFLOptionalProperty<bool>(true)) << "all of them work on the same element";
}

}  // namespace
}  // namespace KFA
