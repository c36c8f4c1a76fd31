// SPDX-License-Identifier: Apache-2.0
// The environments of a node: their configuration files and the global one.
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFAFunctionality/environment/KFAEnv.h>
#include <KFAFunctionality/environment/KFAVtInfo.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAFileReplacement.h>
#include <KFAFunctionality/files/KFAGlobalConfigRules.h>
#include <KFAFunctionality/files/KFAKFConfigBashParser.h>
#include <KFAFunctionality/migration/KFAMigratorCloneOptions.h>
#include <KFLCommon/KFLError.h>

#include "NodeManagers.h"

namespace kfad {

using namespace KFA;

namespace {

constexpr int kFirstVeid = 101;

bool exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

bool isMounted(const std::string& path) {
  std::ifstream mounts("/proc/self/mounts");
  for (std::string device, folder, rest; mounts >> device >> folder && std::getline(mounts, rest);) {
    if (folder == path) return true;
  }
  return false;
}

int refuse(const std::string& what, const std::string& why) {
  setErrorMessage("%s: %s", what.c_str(), why.c_str());
  return KFAManagerFailed;
}

class Environments : public KFAEnvM {
 public:
  explicit Environments(const NodeFilesSP& files) : files_(files) {}

  int list(std::vector<EnvSP>& envs) override;
  int each(const Take& take) override;
  int get(const KFLEID& eid, EnvSP& env) override;
  int create(const KFAEnvConfig& config, KFLEID& eid) override;
  int clone(const KFLEID& source, const KFAMigratorCloneOptions& options, KFLEID& eid) override;
  int remove(const KFLEID& eid) override;
  int getConfig(const KFLEID& eid, KFAEnvConfig& config) override;
  int setConfig(const KFLEID& eid, const KFAEnvConfig& changes) override;
  int start(const KFLEID&) override { return notOffered("environments.start"); }
  int stop(const KFLEID&) override { return notOffered("environments.stop"); }
  int getInfo(KFAVtInfo& info) override;
  int getSettings(KFAVtSettings& settings) override;
  int setSettings(const KFAVtSettings& settings) override;

 private:
  // Puts a new file in place, under a VEID that was asked for or else the first free one.
  int add(const std::string& text, int veid, bool mayChoose);
  int addWithUUID(const KFAEnvConfig& config, std::string text, const KFLEID& eid, int veid, bool mayChoose);
  int findFolder(int veid, const char* key, const KFAEnvConfig::Text& configured, std::string& path) const;

  const NodeFilesSP files_;
};

boost::shared_ptr<KFAEnv> makeEnv(const KFLEID& eid, KFAEnvConfig&& config) {
  return boost::make_shared<KFAEnv>(eid, boost::make_shared<KFAEnvConfig>(std::move(config)));
}

int Environments::list(std::vector<EnvSP>& envs) {
  std::vector<EnvSP> found;
  const int code = each([&found](const EnvSP& env) {
    found.push_back(env);
    return 0;
  });
  if (code == KFAManagerDone) envs.swap(found);
  return code;
}

int Environments::each(const Take& take) {
  return files_->each(
      [&take](int, NodeFiles::Entry& entry) { return take(makeEnv(entry.eid, std::move(entry.config))); });
}

int Environments::get(const KFLEID& eid, EnvSP& env) {
  KFAEnvConfig config;
  const int code = getConfig(eid, config);
  if (code == KFAManagerDone) env = makeEnv(eid, std::move(config));
  return code;
}

int Environments::getConfig(const KFLEID& eid, KFAEnvConfig& config) {
  int veid = 0;
  return files_->find(eid, veid, config);
}

int Environments::setConfig(const KFLEID& eid, const KFAEnvConfig& changes) {
  int veid = 0;
  KFAEnvConfig config;
  if (const int code = files_->find(eid, veid, config); code != KFAManagerDone) return code;
  int newVeid = veid;
  if (changes.getVeid(newVeid) == 0 && newVeid != veid)
    return refuse(files_->pathOf(veid), "an environment keeps its VEID");
  const KFAConfigFile file(files_->pathOf(veid));
  const int result =
      file.update([&](const std::string& before,
                      std::string& after) { return files_->apply(changes, before, file.getPath(), after); },
                  {});
  return result == 0 ? KFAManagerDone : KFAManagerFailed;
}

int Environments::add(const std::string& text, int veid, bool mayChoose) {
  for (;; ++veid) {
    const std::string path = files_->pathOf(veid);
    if (mayChoose && exists(path)) continue;
    KFAFileReplacement file;
    if (file.lock(path, {}, true, 0644) != 0) return KFAManagerFailed;
    if (!file.exists())
      return file.commit(text) == 0 ? veid : refuse(path, "another file was put there meanwhile");
    if (!mayChoose) return refuse(path, "the VEID is in use");
  }
}

// The environment is known by its UUID from then on.
int Environments::addWithUUID(const KFAEnvConfig& config, std::string text, const KFLEID& eid, int veid,
                              bool mayChoose) {
  KFAEnvConfig changes(config);
  changes.setUUID(eid.toString());
  std::string result;
  if (files_->apply(changes, text, files_->pathOf(veid), result) != 0) return KFAManagerFailed;
  return add(result, veid, mayChoose) > 0 ? KFAManagerDone : KFAManagerFailed;
}

int Environments::create(const KFAEnvConfig& config, KFLEID& eid) {
  int veid = kFirstVeid;
  const bool isGiven = config.getVeid(veid) == 0;
  if (veid < 1) return refuse(std::to_string(veid), "this is no VEID; a number from 1 on would be right");
  const KFLEID made = KFLEID(KFL::KFLGUID::generate().toString());
  const int code = addWithUUID(config, "", made, veid, !isGiven);
  if (code == KFAManagerDone) eid = made;
  return code;
}

int Environments::clone(const KFLEID& source, const KFAMigratorCloneOptions& options, KFLEID& eid) {
  int veid = 0;
  KFAEnvConfig config;
  if (const int code = files_->find(source, veid, config); code != KFAManagerDone) return code;
  if (options.getKeepSource().isSpecified() && !options.getKeepSource().getValue())
    return notOffered("environments.clone in the place of its source");
  std::string text;
  if (KFAConfigFile(files_->pathOf(veid)).read(text) != 0) return KFAManagerFailed;
  KFAEnvConfig changes;
  if (options.getConfig()) changes = *options.getConfig();
  if (options.getName().isSpecified()) changes.setName(options.getName());
  const bool isGiven = !options.getVeids().empty();
  const int first = isGiven ? *options.getVeids().begin() : kFirstVeid;
  const KFLEID made =
      options.getEIDs().empty() ? KFLEID(KFL::KFLGUID::generate().toString()) : options.getEIDs().front();
  const int code = addWithUUID(changes, text, made, first, !isGiven);
  if (code == KFAManagerDone) eid = made;
  return code;
}

// The folder of an environment by its own configuration, or else by the global one: 0, or -1 with an error text when
// neither says.
int Environments::findFolder(int veid, const char* key, const KFAEnvConfig::Text& configured,
                             std::string& path) const {
  KFAVtSettings settings;
  if (configured.isSpecified()) {
    path = configured.getValue();
  } else {
    std::string text;
    if (KFAConfigFile(files_->paths().global).read(text) != 0 ||
        readGlobalConfig(text, files_->paths().global, settings) != 0)
      return -1;
    const auto found = settings.getValues().find(key);
    if (found == settings.getValues().end())
      return refuse(files_->paths().global, std::string("there is no ") + key);
    path = found->second;
  }
  KFAEnvConfig::veidSubstitute(veid, path);
  return 0;
}

// Files cannot take an environment's disks away: one that still has them, or is in use, is refused.
int Environments::remove(const KFLEID& eid) {
  int veid = 0;
  KFAEnvConfig config;
  if (const int code = files_->find(eid, veid, config); code != KFAManagerDone) return code;
  KFAEnvConfig::Text root, area;
  config.getVERootVar(root);
  config.getVEPrivateVar(area);
  std::string rootPath, areaPath;
  if (findFolder(veid, "ve_root", root, rootPath) != 0 || findFolder(veid, "ve_private", area, areaPath) != 0)
    return KFAManagerFailed;
  const std::string path = files_->pathOf(veid);
  if (isMounted(rootPath)) return refuse(path, "its root " + rootPath + " is mounted; stop it first");
  if (exists(areaPath))
    return refuse(path, "its files in " + areaPath + " cannot be removed; this is not offered by this agent");
  if (unlink(path.c_str()) != 0) return refuse(path, "it cannot be removed");
  return KFAManagerDone;
}

int Environments::getInfo(KFAVtInfo& info) {
  KFAVtInfo made;
  made.setTechnology(std::string(kTechnology));
  made.setDescription(std::string("known by its files"));
  made.setVersion(KFA_VERSION);
  info = made;
  return KFAManagerDone;
}

int Environments::getSettings(KFAVtSettings& settings) {
  const std::string& path = files_->paths().global;
  std::string text;
  KFAVtSettings read;
  if (path.empty()) return notOffered("environments.getSettings");
  if (KFAConfigFile(path).read(text) != 0 || readGlobalConfig(text, path, read) != 0) return KFAManagerFailed;
  settings = read;
  return KFAManagerDone;
}

// The keys of the global file that have another value in the settings.
KFAConfigChanges changedKeys(const KFAVtSettings& before, const KFAVtSettings& after) {
  KFAConfigChanges changes;
  KFAKFConfigBashParser::ParameterParserGet was(before), keys(after);
  std::string key, value, old;
  while (keys.getNext(key, key) == kParameterDone) {
    if (keys.get(key, value) != kParameterDone) continue;
    if (was.get(key, old) != kParameterDone || old != value) changes.emplace_back(key, value);
  }
  return changes;
}

int Environments::setSettings(const KFAVtSettings& settings) {
  const std::string& path = files_->paths().global;
  if (path.empty()) return notOffered("environments.setSettings");
  const auto edit = [&](const std::string& text, std::string& after) {
    KFAVtSettings before;
    if (readGlobalConfig(text, path, before) != 0) return -1;
    const KFAConfigChanges changes = changedKeys(before, settings);
    after = text;
    return changes.empty() ? 0 : setConfigValues(KFAGlobalConfigRules(), changes, {}, text, path, after);
  };
  return KFAConfigFile(path).update(edit, {}) == 0 ? KFAManagerDone : KFAManagerFailed;
}

}  // namespace

boost::shared_ptr<KFAEnvM> makeEnvironments(const NodeFilesSP& files) {
  return boost::make_shared<Environments>(files);
}

}  // namespace kfad
