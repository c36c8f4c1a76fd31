// SPDX-License-Identifier: Apache-2.0
// Samples, templates, network and updates of a node, from its files.
#include "NodeManagers.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <set>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/network/KFANetworkShaping.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>
#include <KFAFunctionality/templates/KFAPackageKFTemplate.h>
#include <KFAFunctionality/templates/KFATemplateCache.h>
#include <KFAFunctionality/templates/KFATemplateConfigInfo.h>
#include <KFAFunctionality/updates/KFAUpdateConfig.h>
#include <KFAFunctionality/updates/KFAUpdateList.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLock.h>
#include <KFLCore/KFLFolders.h>
#include <KFLMessage/KFLMessage.h>

namespace kfad {

using namespace KFA;

int notOffered(const char* operation) {
  setErrorMessage("%s is not offered by this agent, which works on the node's files alone", operation);
  return KFAManagerFailed;
}

namespace {

int codeOf(int result) {
  return result == 0 ? KFAManagerDone : KFAManagerFailed;
}

// --- Samples -----------------------------------------------------------------------------------------------

constexpr std::string_view kSampleSuffix = ".sample";

class Samples : public KFASampleM {
 public:
  explicit Samples(const NodeFilesSP& files) : files_(files) {}

  int list(std::vector<std::string>& names) override {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(files_->paths().samples.c_str()), &closedir);
    if (!folder) return fail(files_->paths().samples);
    std::vector<std::string> found;
    while (const dirent* const entry = readdir(folder.get())) {
      const std::string_view name(entry->d_name);
      if (name.ends_with(kSampleSuffix) && name.size() > kSampleSuffix.size() && !name.starts_with('.'))
        found.emplace_back(name.substr(0, name.size() - kSampleSuffix.size()));
    }
    std::ranges::sort(found);
    names.swap(found);
    return KFAManagerDone;
  }
  int get(const std::string& name, KFAEnvConfig& sample) override {
    std::string path, text;
    if (findFile(name, path) != 0) return KFAManagerNotFound;
    KFAEnvConfig read;
    if (KFAConfigFile(path).read(text) != 0 || files_->parse(text, path, read) != 0) return KFAManagerFailed;
    sample = read;
    return KFAManagerDone;
  }
  int set(const std::string& name, const KFAEnvConfig& sample) override {
    std::string path, text;
    if (checkName(name) != 0) return KFAManagerFailed;
    path = pathOf(name);
    return codeOf(files_->apply(sample, "", path, text) == 0 ? KFAConfigFile(path).replace(text, {}) : -1);
  }
  int remove(const std::string& name) override {
    std::string path;
    if (findFile(name, path) != 0) return KFAManagerNotFound;
    return unlink(path.c_str()) == 0 ? int(KFAManagerDone) : fail(path);
  }
  int check(const KFAEnvConfig& config, KFAQoSValidationList& violations) override {
    KFAQoSValidationList found;
    if (validateQoSes(&found, files_->vocabulary(), config) < 0) return KFAManagerFailed;
    violations.swap(found);
    return KFAManagerDone;
  }

 private:
  static int fail(const std::string& path) {
    setErrorMessage("%s: %s", path.c_str(), std::strerror(errno));
    return KFAManagerFailed;
  }
  std::string pathOf(const std::string& name) const {
    return files_->paths().samples + "/" + name + std::string(kSampleSuffix);
  }
  // A name is that of a file in the folder and nowhere else: 0, or -1 with an error text.
  static int checkName(const std::string& name) {
    const bool isRight = !name.empty() && name.size() <= 200 && !name.starts_with('.') &&
                         name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
    if (isRight) return 0;
    setErrorMessage("'%s' is no name of a sample; one without slashes that begins with no dot would be right",
                    name.c_str());
    return -1;
  }
  int findFile(const std::string& name, std::string& path) const {
    if (checkName(name) != 0) return -1;
    path = pathOf(name);
    if (access(path.c_str(), F_OK) == 0) return 0;
    setErrorMessage("there is no sample '%s'", name.c_str());
    return -1;
  }

  const NodeFilesSP files_;
};

// --- Templates ---------------------------------------------------------------------------------------------

// Lets go of the process's cache before that is destroyed, so that a lock which somebody keeps does not end the agent by a
// check.
class CacheEnd {
 public:
  ~CacheEnd() {
    if (cache_) cache_->reinit();
  }
  void note(const boost::intrusive_ptr<KFATemplateCachePrototype>& cache) {
    const KFL::KFLLockGuard guard(lock_);
    cache_ = cache;
  }

 private:
  KFL::KFLLock lock_;
  boost::intrusive_ptr<KFATemplateCachePrototype> cache_ KFL_GUARDED_BY(lock_);
};

// Calls `take` with each template of the cache: a code of the managers.
template <class Take>
int eachCached(Take take) {
  const auto cache = KFATemplateCachePrototype::createInstance();
  static CacheEnd end;
  end.note(cache);
  KFATemplateCachePrototype::Snapshot snapshot;
  if (!cache || cache->hold(snapshot) != 0) return KFAManagerFailed;
  for (std::uint32_t i = 0; i < snapshot.size(); ++i) {
    KFATemplateObject object;
    if (KFATemplateCachePrototype::read(snapshot, i, object) != 0) return KFAManagerFailed;
    take(object);
  }
  return KFAManagerDone;
}

// The names of the cached templates, alone and with their versions; 1 when there is no cache.
int listTemplateNames(std::vector<std::string>& names) {
  if (access((KFL::getUploadsFolder() + "/template.cache").c_str(), F_OK) != 0) return 1;
  std::set<std::string> found;
  const int code = eachCached([&found](const KFATemplateObject& object) {
    found.insert(object.getName());
    const std::string& version = object.getVersion().getValue();
    if (!version.empty()) found.insert(object.getName() + "/" + version);
  });
  names.assign(found.begin(), found.end());
  return code == KFAManagerDone ? 0 : -1;
}

class Templates : public KFATEM {
 public:
  explicit Templates(const NodeFilesSP& files) : files_(files) {}

  // Those in the cache; one that several environments have is one.
  int list(std::vector<PackageSP>& templates) override {
    std::vector<PackageSP> found;
    std::set<std::string> seen;
    const int code = eachCached([&](KFATemplateObject& object) {
      object.setEnvironments({});
      if (seen.insert(object.getStringID()).second)
        found.push_back(boost::make_shared<KFAPackageKFTemplate>(object));
    });
    if (code == KFAManagerDone) templates.swap(found);
    return code;
  }
  int get(const KFATemplate&, KFATemplateConfigInfo&) override { return notOffered("templates.get"); }
  int install(const KFATemplate&) override { return notOffered("templates.install"); }
  int remove(const KFATemplate&) override { return notOffered("templates.remove"); }
  int listOf(const KFLEID& eid, std::vector<KFATemplate>& templates) override {
    int veid = 0;
    KFAEnvConfig config;
    if (const int code = files_->find(eid, veid, config); code != KFAManagerDone) return code;
    KFAEnvConfig::Templates configured;
    if (config.getTemplates(configured) != 0) return KFAManagerFailed;
    templates = configured.isSpecified() ? configured.getValue() : std::vector<KFATemplate>();
    return KFAManagerDone;
  }
  int addTo(const KFLEID&, const std::vector<KFATemplate>&) override { return notOffered("templates.addTo"); }
  int removeFrom(const KFLEID&, const std::vector<KFATemplate>&) override {
    return notOffered("templates.removeFrom");
  }

 private:
  const NodeFilesSP files_;
};

// --- Records in files of their own -------------------------------------------------------------------------

template <class Record>
int readRecord(const std::string& path, const char* operation, Record& record) {
  if (path.empty()) return notOffered(operation);
  std::string text;
  KFLMessage message;
  Record read;
  if (KFAConfigFile(path).read(text) != 0) return KFAManagerFailed;
  if (message.parse(text) != 0 || message.getIterator().getObj(read) != 0) {
    const std::string reason = getErrorMessage();
    setErrorMessage("%s: %s", path.c_str(), reason.c_str());
    return KFAManagerFailed;
  }
  record = read;
  return KFAManagerDone;
}

template <class Record>
int writeRecord(const std::string& path, const char* operation, const Record& record, const char* root) {
  if (path.empty()) return notOffered(operation);
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  it.setName(root, Record::fields().namespaceUri());
  if (it.putObj(record) != 0) return KFAManagerFailed;
  const std::string text = message.toPrettyString();
  return codeOf(text.empty() ? -1 : KFAConfigFile(path).replace(text, {}));
}

// --- Network -----------------------------------------------------------------------------------------------

// Ranges name classes that are there: 0, or -1 with an error text.
int checkShaping(const KFANetConfiguration& shaping) {
  std::set<std::string> classes;
  for (const KFANetworkShapingClass& one : shaping.getClasses())
    classes.insert(one.getID());
  for (const KFANetworkShapingIPRange& range : shaping.getIPRanges()) {
    if (classes.contains(range.getShapingClassID())) continue;
    setErrorMessage("the addresses %s are of the class '%s', which is not there",
                    range.getAddress().toString().c_str(), range.getShapingClassID().c_str());
    return -1;
  }
  return 0;
}

class Network : public KFANetworkM {
 public:
  explicit Network(const NodeFilesSP& files) : files_(files) {}

  int list(std::vector<DeviceSP>&) override { return notOffered("network.list"); }
  int get(const KFLEID& eid, std::vector<KFANetVEth>& devices) override {
    int veid = 0;
    KFAEnvConfig config;
    if (const int code = files_->find(eid, veid, config); code != KFAManagerDone) return code;
    KFAEnvConfig::NetVEths configured;
    if (config.getNetVEths(configured) != 0) return KFAManagerFailed;
    devices = configured.isSpecified() ? configured.getValue() : std::vector<KFANetVEth>();
    return KFAManagerDone;
  }
  int getShaping(KFANetConfiguration& shaping) override {
    return readRecord(files_->paths().shaping, "network.getShaping", shaping);
  }
  int setShaping(const KFANetConfiguration& shaping) override {
    if (checkShaping(shaping) != 0) return KFAManagerFailed;
    return writeRecord(files_->paths().shaping, "network.setShaping", shaping, "net_configuration");
  }

 private:
  const NodeFilesSP files_;
};

// --- Updates -----------------------------------------------------------------------------------------------

class Updates : public KFAUp2date {
 public:
  explicit Updates(const NodeFilesSP& files) : files_(files) {}

  int list(KFAUpdateList&) override { return notOffered("updates.list"); }
  int listInstalled(KFAUpdateList&) override { return notOffered("updates.listInstalled"); }
  int check(KFAUpdateList&) override { return notOffered("updates.check"); }
  int install(const KFAUpdateList&) override { return notOffered("updates.install"); }
  int getConfig(KFAUpdateConfig& config) override {
    return readRecord(files_->paths().updates, "updates.getConfig", config);
  }
  int setConfig(const KFAUpdateConfig& config) override {
    return writeRecord(files_->paths().updates, "updates.setConfig", config, "update_config");
  }

 private:
  const NodeFilesSP files_;
};

// --- Registration ------------------------------------------------------------------------------------------

template <class Manager>
struct Factory : KFLLocalFactory<boost::shared_ptr<Manager>> {
  explicit Factory(const boost::shared_ptr<Manager>& made) : manager(made) {}
  boost::shared_ptr<Manager> create(const KFLAccessProviderSP&) override { return manager; }
  const boost::shared_ptr<Manager> manager;
};

template <class Manager>
void registerOne(KFALibFunctionality& managers, const boost::shared_ptr<Manager>& manager) {
  managers.multiplexer<Manager>().registerLocal(kTechnology, boost::make_shared<Factory<Manager>>(manager));
}

}  // namespace

boost::shared_ptr<KFASampleM> makeSamples(const NodeFilesSP& files) {
  return boost::make_shared<Samples>(files);
}
boost::shared_ptr<KFATEM> makeTemplates(const NodeFilesSP& files) {
  return boost::make_shared<Templates>(files);
}
boost::shared_ptr<KFANetworkM> makeNetwork(const NodeFilesSP& files) {
  return boost::make_shared<Network>(files);
}
boost::shared_ptr<KFAUp2date> makeUpdates(const NodeFilesSP& files) {
  return boost::make_shared<Updates>(files);
}

boost::shared_ptr<KFAFilesM> makeFiles(const NodePaths& paths) {
  return makeFolderFiles(paths.environments, &listTemplateNames);
}

void registerNodeManagers(KFALibFunctionality& managers, const NodeFilesSP& files) {
  registerOne(managers, makeEnvironments(files));
  registerOne(managers, makeSamples(files));
  registerOne(managers, makeTemplates(files));
  registerOne(managers, makeNetwork(files));
  registerOne(managers, makeUpdates(files));
}

}  // namespace kfad
