// SPDX-License-Identifier: Apache-2.0
// The managers that work on a node's files: what they read is what the files say, and what they write changes nothing
// else.
#include <set>

#include <KFAFunctionality/environment/KFAEnv.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/migration/KFAMigratorCloneOptions.h>
#include <KFAFunctionality/network/KFANetworkShaping.h>
#include <KFAFunctionality/templates/KFATemplateCache.h>
#include <KFAFunctionality/updates/KFAUpdateConfig.h>
#include <KFLCore/KFLFolders.h>

#include "NodeFolder.h"

namespace {

using namespace KFA;

class NodeManagersTest : public testing::Test {
 protected:
  std::vector<KFAEnvM::EnvSP> listed() const {
    std::vector<KFAEnvM::EnvSP> envs;
    EXPECT_EQ(environments->list(envs), KFAManagerDone) << KFL::getErrorMessage();
    return envs;
  }
  // The id of an environment by its number.
  KFLEID idOf(int veid) const {
    for (const auto& env : listed()) {
      if (env->getSortKey() == static_cast<std::size_t>(veid)) return env->getEID();
    }
    return KFLEID();
  }

  const NodeFolder folder;
  const kfad::NodeFilesSP files = folder.files();
  const boost::shared_ptr<KFAEnvM> environments = kfad::makeEnvironments(files);
  const boost::shared_ptr<KFASampleM> samples = kfad::makeSamples(files);
};

TEST_F(NodeManagersTest, EachEnvironmentIsFoundByTheIdThatItIsListedWith) {
  const auto envs = listed();
  std::set<KFLEID> eids;
  std::size_t lastKey = 0;
  for (const auto& env : envs) {
    EXPECT_GT(env->getSortKey(), lastKey);
    lastKey = env->getSortKey();
    EXPECT_TRUE(env->getEID().isValid() && eids.insert(env->getEID()).second) << lastKey;
    KFAEnvM::EnvSP found;
    ASSERT_EQ(environments->get(env->getEID(), found), KFAManagerDone) << KFL::getErrorMessage();
    EXPECT_EQ(found->getSortKey(), env->getSortKey());
    EXPECT_EQ(found->getTitle(), env->getTitle());
  }
  EXPECT_EQ(envs.size(), 16U) << "the file that is not well formed is left out, and hides no other";
  EXPECT_EQ(idOf(7), KFLEID(NodeFolder::kKnown)) << "of two with one UUID the lower number has it";
  EXPECT_EQ(idOf(101), KFLEID("5b0c3f0e-8a55-4d27-9b7e-0d7f4a1c9e21"));
  const KFLEID twin = idOf(8);
  std::filesystem::remove(folder.conf(7));
  KFAEnvConfig config;
  EXPECT_EQ(environments->getConfig(KFLEID(NodeFolder::kKnown), config), KFAManagerDone);
  int veid = 0;
  EXPECT_EQ(config.getVeid(veid), 0);
  EXPECT_EQ(veid, 8) << "the only one left with the UUID";
  EXPECT_EQ(environments->getConfig(twin, config), KFAManagerDone)
      << "the id that it was listed with stays good";
  EXPECT_EQ(environments->getConfig(KFLEID(NodeFolder::kNode), config), KFAManagerNotFound);
}

TEST_F(NodeManagersTest, ChangeTouchesItsOwnLinesAlone) {
  const KFLEID eid(NodeFolder::kKnown);
  KFAEnvConfig changes, config;
  changes.setOnBoot(true);
  changes.setName(std::string("web 1"));
  ASSERT_EQ(environments->setConfig(eid, changes), KFAManagerDone) << KFL::getErrorMessage();
  EXPECT_EQ(contentOf(folder.conf(7)), "VE_PRIVATE=\"/nonexistent/$VEID\"\nUUID=\"" +
                                           std::string(NodeFolder::kKnown) +
                                           "\"\nONBOOT=\"yes\" # by hand\nNAME=\"web 1\"\n");
  const std::string after = contentOf(folder.conf(7));
  const auto refuses = [&](const KFAEnvConfig& wrong, const char* text) {
    EXPECT_TRUE(refused(environments->setConfig(eid, wrong), text)) << text;
    EXPECT_EQ(contentOf(folder.conf(7)), after) << text;
  };
  KFAEnvConfig unsafe, moved, foreign;
  unsafe.setHostname(std::string("$(reboot)"));
  refuses(unsafe, "7.conf");
  moved.setVeid(12);
  refuses(moved, "VEID");
  foreign.setTSMode(3);
  foreign.setSample(true);
  refuses(foreign, "cannot hold");
  // What was read can be set again, and changes nothing.
  for (const auto& env : listed()) {
    const std::string path = folder.conf(static_cast<int>(env->getSortKey()));
    const std::string before = contentOf(path);
    ASSERT_EQ(environments->getConfig(env->getEID(), config), KFAManagerDone);
    EXPECT_EQ(environments->setConfig(env->getEID(), config), KFAManagerDone) << KFL::getErrorMessage();
    EXPECT_EQ(contentOf(path), before) << path;
  }
}

TEST_F(NodeManagersTest, EnvironmentsComeAndGo) {
  KFAEnvConfig config, read;
  KFLEID first, second, copy;
  config.setName(std::string("new"));
  config.setVERootVar(std::string("/nonexistent/root/$VEID"));
  config.setVEPrivateVar(std::string(folder / "area-$VEID"));
  ASSERT_EQ(environments->create(config, first), KFAManagerDone) << KFL::getErrorMessage();
  EXPECT_EQ(first, idOf(115)) << "the first free number";
  config.setVeid(200);
  ASSERT_EQ(environments->create(config, second), KFAManagerDone) << KFL::getErrorMessage();
  EXPECT_EQ(second, idOf(200));
  EXPECT_EQ(environments->create(config, copy), KFAManagerFailed) << "its number is in use";
  config.setVeid(0);
  EXPECT_EQ(environments->create(config, copy), KFAManagerFailed);

  KFAMigratorCloneOptions options;
  options.setName(std::string("copy"));
  options.setVeids({201});
  options.setEIDs({KFLEID("33333333-0000-4000-8000-000000000001")});
  ASSERT_EQ(environments->clone(second, options, copy), KFAManagerDone) << KFL::getErrorMessage();
  EXPECT_EQ(copy, idOf(201));
  EXPECT_EQ(copy, options.getEIDs().front());
  KFAEnvConfig::Text name;
  ASSERT_EQ(environments->getConfig(copy, read), KFAManagerDone);
  read.getName(name);
  EXPECT_EQ(name.getValue(), "copy");
  EXPECT_EQ(environments->clone(KFLEID(NodeFolder::kNode), options, copy), KFAManagerNotFound);

  std::filesystem::create_directory(folder / "area-200");
  EXPECT_EQ(environments->remove(second), KFAManagerFailed) << "it has files";
  std::filesystem::remove(folder / "area-200");
  EXPECT_EQ(environments->remove(second), KFAManagerDone) << KFL::getErrorMessage();
  EXPECT_EQ(environments->remove(second), KFAManagerNotFound);
  EXPECT_FALSE(std::filesystem::exists(folder.conf(200)));
  config.setVERootVar(std::string("/"));
  config.setVeid(202);
  ASSERT_EQ(environments->create(config, second), KFAManagerDone) << KFL::getErrorMessage();
  EXPECT_EQ(environments->remove(second), KFAManagerFailed) << "its root is mounted";
  EXPECT_TRUE(refused(environments->start(first), "not offered"));
}

TEST_F(NodeManagersTest, SamplesAreFilesOfTheirFolderAndOfNoOther) {
  std::vector<std::string> names;
  KFAEnvConfig sample, read;
  ASSERT_EQ(samples->list(names), KFAManagerDone);
  EXPECT_EQ(names, std::vector<std::string>{"basic"});
  ASSERT_EQ(samples->get("basic", sample), KFAManagerDone) << KFL::getErrorMessage();
  for (const std::string name : {"", ".", "..", "../conf/7", "a/b", "/etc/passwd", ".hidden"}) {
    EXPECT_EQ(samples->set(name, sample), KFAManagerFailed) << name;
    EXPECT_EQ(samples->get(name, read), KFAManagerNotFound) << name;
    EXPECT_EQ(samples->remove(name), KFAManagerNotFound) << name;
  }
  ASSERT_EQ(samples->set("web shop", sample), KFAManagerDone) << KFL::getErrorMessage();
  ASSERT_EQ(samples->get("web shop", read), KFAManagerDone);
  EXPECT_TRUE(read.getIterator().isEqualTree(sample.getIterator()));
  EXPECT_EQ(samples->remove("web shop"), KFAManagerDone);
  ASSERT_EQ(samples->list(names), KFAManagerDone);
  EXPECT_EQ(names, std::vector<std::string>{"basic"});
  KFAQoSValidationList violations;
  ASSERT_EQ(environments->getConfig(idOf(101), read), KFAManagerDone);
  EXPECT_EQ(samples->check(read, violations), KFAManagerDone) << KFL::getErrorMessage();
  EXPECT_EQ(samples->check(KFAEnvConfig(), violations), KFAManagerFailed);
}

TEST_F(NodeManagersTest, SettingsChangeTheirKeysInTheGlobalFile) {
  KFAVtSettings settings, read;
  const std::string before = contentOf(folder / "global.conf");
  ASSERT_EQ(environments->getSettings(settings), KFAManagerDone) << KFL::getErrorMessage();
  ASSERT_EQ(environments->setSettings(settings), KFAManagerDone) << KFL::getErrorMessage();
  EXPECT_EQ(contentOf(folder / "global.conf"), before);
  settings.setLockDir(std::string("/run/kfa"));
  ASSERT_EQ(environments->setSettings(settings), KFAManagerDone) << KFL::getErrorMessage();
  std::string expected = before;
  expected.replace(expected.find("/var/lock/kfa"), 13, "/run/kfa");
  EXPECT_EQ(contentOf(folder / "global.conf"), expected);
}

TEST_F(NodeManagersTest, RecordsInFilesOfTheirOwnAreKept) {
  const auto network = kfad::makeNetwork(files);
  const auto updates = kfad::makeUpdates(files);
  KFANetConfiguration shaping, read;
  EXPECT_EQ(network->getShaping(read), KFAManagerFailed) << "there is no file yet";
  KFANetworkShapingIPRange range;
  range.setShapingClassID("2");
  range.setAddress(KFLIPAddress("10.0.0.0"));
  shaping.setIPRanges({range});
  EXPECT_EQ(network->setShaping(shaping), KFAManagerFailed) << "its class is not there";
  KFANetworkShapingClass one;
  one.setID("2");
  shaping.setClasses({one});
  ASSERT_EQ(network->setShaping(shaping), KFAManagerDone) << KFL::getErrorMessage();
  ASSERT_EQ(network->getShaping(read), KFAManagerDone) << KFL::getErrorMessage();
  ASSERT_EQ(read.getIPRanges().size(), 1U);
  EXPECT_EQ(read.getIPRanges().front().getShapingClassID(), "2");
  KFAUpdateConfig config;
  EXPECT_EQ(updates->setConfig(config), KFAManagerDone) << KFL::getErrorMessage();
  EXPECT_EQ(updates->getConfig(config), KFAManagerDone) << KFL::getErrorMessage();
  std::ofstream(folder / "shaping.xml") << "<net_configuration>";
  EXPECT_TRUE(refused(network->getShaping(read), "shaping.xml"));
}

TEST_F(NodeManagersTest, ATemplateOfSeveralEnvironmentsIsListedOnce) {
  // The process has one cache; what it had before goes.
  if (const auto former = KFATemplateCachePrototype::createInstance()) former->reinit();
  KFL::setUploadsFolder(folder / "samples");
  const auto cache = KFATemplateCachePrototype::createInstance();
  ASSERT_NE(cache, nullptr) << KFL::getErrorMessage();
  KFATemplateObject object;
  for (const char* const name : {"nginx", "nginx", "mail"}) {
    object.setName(name);
    object.setEnvironments({KFLEID::generate()});
    ASSERT_EQ(cache->putTemplate(object), 0) << KFL::getErrorMessage();
  }
  std::vector<KFATEM::PackageSP> listed;
  EXPECT_EQ(kfad::makeTemplates(files)->list(listed), KFAManagerDone) << KFL::getErrorMessage();
  std::multiset<std::string> names;
  for (const KFATEM::PackageSP& one : listed)
    names.insert(one->getName());
  EXPECT_EQ(names, (std::multiset<std::string>{"mail", "nginx"}));
  cache->reinit();
  KFL::setUploadsFolder("");
}

}  // namespace
