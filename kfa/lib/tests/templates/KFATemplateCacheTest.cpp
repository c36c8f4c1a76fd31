// SPDX-License-Identifier: Apache-2.0
// String IDs of templates, and the cache that the processes of a node share.
#include <chrono>

#include <KFAFunctionality/templates/KFATemplateCache.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLFileLock.h>
#include <KFLCore/KFLFolders.h>

#include "../files/FilesTest.h"

namespace {

using KFA::KFATemplateCachePrototype;
using KFA::KFATemplateObject;
using KFL::KFLEID;

KFATemplateObject makeTemplate(const std::string& name) {
  KFATemplateObject object;
  object.setName(name);
  object.setArchitecture("x86_64");
  object.setVersion(std::string("1.2"));
  object.setOS(std::string("debian"));
  object.setKind("app");
  return object;
}

TEST(KFATemplateObject, StringID) {
  KFATemplateObject object = makeTemplate("nginx");
  EXPECT_EQ(object.getStringID(), "nginx.app.x86_64.debian.1.2");
  object.setOsTemplate(true);
  EXPECT_EQ(object.getStringID(), "nginx.app.x86_64..1.2");
  const KFLEID first("11111111-1111-1111-1111-111111111111");
  object.setEnvironments({KFLEID("22222222-2222-2222-2222-222222222222"), first});
  EXPECT_EQ(object.getStringID(), "nginx.app.x86_64..1.2." + first.toString());
  EXPECT_EQ(KFATemplateObject().getStringID(), "....");
}

class KFATemplateCache : public testing::Test {
 protected:
  KFATemplateCache() { KFL::setUploadsFolder((folder_ / "").string()); }
  // The instance of the process goes with its file.
  ~KFATemplateCache() override {
    if (const auto cache = KFATemplateCachePrototype::createInstance()) cache->reinit();
    KFL::setUploadsFolder("");
  }
  std::string path() const { return folder_ / "template.cache"; }

  const TemporaryFolder folder_;
};

TEST_F(KFATemplateCache, TheProcessesOfANodeShareIt) {
  const auto cache = KFATemplateCachePrototype::createInstance();
  ASSERT_NE(cache, nullptr) << KFL::getErrorMessage();
  EXPECT_EQ(cache, KFATemplateCachePrototype::createInstance());
  EXPECT_EQ(cache->getPath(), path());
  const KFLEID user = KFLEID::generate();
  KFATemplateObject object = makeTemplate("nginx");
  object.setEnvironments({user});
  ASSERT_EQ(cache->putTemplate(object), 0) << KFL::getErrorMessage();

  const auto inAnother = [&] {
    const auto there = KFATemplateCachePrototype::createInstance();
    KFATemplateObject found;
    const bool same = there && there->find(object.getStringID(), found) == 0 &&
                      found.getEnvironments().count(user) == 1 && found.getOS().getValue() == "debian";
    return same && there->putTemplate(makeTemplate("child")) == 0 ? 0 : 1;
  };
  EXPECT_EQ(statusOfChild(inAnother), 0);
  KFATemplateObject found;
  const std::string id = makeTemplate("child").getStringID();
  EXPECT_EQ(cache->find(id, found), 0);
  EXPECT_EQ(cache->remove(id), 0);
  EXPECT_EQ(cache->find(id, found), 1);
  // No text is too long to be looked for.
  EXPECT_EQ(cache->find(std::string(400, 'x'), found), 1);
  EXPECT_EQ(cache->remove(std::string(400, 'x')), 0);
}

void endWithoutTheLock(const std::string& path) {
  boost::intrusive_ptr<KFATemplateCachePrototype> cache(new KFATemplateCachePrototype(path));
  KFL::KFLFileLock other;
  if (cache->initialize(true, true) != 0 || other.open(path) != 0 || other.tryLock() != 0) return;
  cache->setLockTimeout(std::chrono::milliseconds(1));
  cache.reset();
}

TEST_F(KFATemplateCache, OneThatEndsWithoutItsLockAborts) {
  EXPECT_DEATH(endWithoutTheLock(path()), "KFLCacheLogic.*~KFLCacheLogic");
}

TEST_F(KFATemplateCache, AFileAtFaultIsReplaced) {
  auto cache = KFATemplateCachePrototype::createInstance();
  ASSERT_EQ(cache->putTemplate(makeTemplate("nginx")), 0);
  cache->reinit();
  std::fstream(path(), std::ios::in | std::ios::out | std::ios::binary).seekp(28).write("\0", 1);
  KFL::setLogLevel(KFL::kLogFatal);
  cache = KFATemplateCachePrototype::createInstance();
  KFL::setLogLevel(KFL::kLogWarning);
  ASSERT_NE(cache, nullptr) << KFL::getErrorMessage();
  KFATemplateCachePrototype::Snapshot snapshot;
  ASSERT_EQ(cache->hold(snapshot), 0);
  EXPECT_EQ(snapshot.size(), 0U);
}

TEST_F(KFATemplateCache, WithoutItsFolderThereIsNone) {
  KFL::setUploadsFolder(folder_ / "missing");
  KFL::setLogLevel(KFL::kLogFatal);
  EXPECT_EQ(KFATemplateCachePrototype::createInstance(), nullptr);
  KFL::setLogLevel(KFL::kLogWarning);
  EXPECT_NE(KFL::getErrorMessage().find("No such file or directory"), std::string::npos);
  KFL::setUploadsFolder(folder_.path());
  EXPECT_NE(KFATemplateCachePrototype::createInstance(), nullptr) << "the next call tries again";
}

TEST_F(KFATemplateCache, WhatCannotBeKeptIsRefused) {
  const auto cache = KFATemplateCachePrototype::createInstance();
  EXPECT_EQ(cache->putTemplate(makeTemplate(std::string(250, 'n'))), KFL::kCacheBadKey);
  EXPECT_EQ(cache->putTemplate(makeTemplate("\x01")), -1) << "no message can carry it";
  KFL::KFLCacheChanges changes;
  changes.put("key", "<no message");
  ASSERT_EQ(cache->apply(changes), 0);
  KFATemplateObject found;
  EXPECT_EQ(cache->find("key", found), -1);

  // An item of a former build has a root without a namespace.
  std::string text;
  ASSERT_EQ(KFL::KFLObjectItem<KFATemplateObject>::write(makeTemplate("old"), text), 0);
  const std::size_t at = text.find(" xmlns=\"");
  text.erase(at, text.find('"', text.find('"', at) + 1) + 1 - at);
  changes.put("old", text);
  ASSERT_EQ(cache->apply(changes), 0);
  EXPECT_EQ(cache->find("old", found), 0);
  EXPECT_EQ(found.getName(), "old");
}

}  // namespace
