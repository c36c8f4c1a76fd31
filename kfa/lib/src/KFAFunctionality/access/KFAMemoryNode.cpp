// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/access/KFAMemoryNode.h>

#include <algorithm>
#include <utility>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLock.h>

#include <KFAFunctionality/access/KFAEnvM.h>
#include <KFAFunctionality/access/KFAPkgM.h>
#include <KFAFunctionality/access/KFAProcessMonitor.h>
#include <KFAFunctionality/access/KFASampleM.h>
#include <KFAFunctionality/access/KFASupport.h>
#include <KFAFunctionality/access/KFAUp2date.h>
#include <KFAFunctionality/environment/KFAEnv.h>
#include <KFAFunctionality/migration/KFAMigratorCloneOptions.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/templates/KFAPackageKFTemplate.h>
#include <KFAFunctionality/templates/KFAPackageVersion.h>

namespace KFA {

struct KFAMemoryNode::Shared {
  explicit Shared(Content with) : content(std::move(with)) {}
  KFLLock lock;
  Content content KFL_GUARDED_BY(lock);
};

namespace {

using Content = KFAMemoryNode::Content;
using Environment = KFAMemoryNode::Environment;

int notFound(const char* what, const std::string& name) {
  setErrorMessage("there is no %s \"%s\"", what, name.c_str());
  return KFAManagerNotFound;
}
int refuse(const char* what, const std::string& name) {
  setErrorMessage("%s: %s", name.c_str(), what);
  return KFAManagerFailed;
}

// What stands under a key goes to `found` through `take`.
template <class Map, class Key, class Take>
int find(Map& map, const Key& key, const char* what, const std::string& name, Take take) {
  const auto at = map.find(key);
  return at == map.end() ? notFound(what, name) : take(at->second);
}

template <class Map, class Value>
void listKeys(const Map& map, std::vector<Value>& keys) {
  keys.clear();
  for (const auto& [key, value] : map)
    keys.push_back(key);
}

// What every manager of the node does under its lock.
template <class Manager>
class Of : public Manager {
 public:
  explicit Of(const boost::shared_ptr<KFAMemoryNode::Shared>& shared) : shared_(shared) {}

 protected:
  template <class Work>
  int with(Work work) {
    const KFLLockGuard guard(shared_->lock);
    return work(shared_->content);
  }
  template <class Work>
  int withEnvironment(const KFLEID& eid, Work work) {
    return with([&](Content& node) {
      return find(node.environments, eid, "environment", eid.toString(),
                  [&](Environment& env) { return work(env); });
    });
  }
  // A copy out of the node, or into it.
  template <class T>
  int get(T Content::*member, T& out) {
    return with([&](Content& node) {
      out = node.*member;
      return KFAManagerDone;
    });
  }
  template <class T>
  int set(T Content::*member, const T& value) {
    return with([&](Content& node) {
      node.*member = value;
      return KFAManagerDone;
    });
  }

 private:
  const boost::shared_ptr<KFAMemoryNode::Shared> shared_;
};

boost::shared_ptr<KFAEnv> makeEnv(const KFLEID& eid, const Environment& env) {
  auto made = boost::make_shared<KFAEnv>(eid, boost::make_shared<KFAEnvConfig>(env.config));
  made->setStatus(env.isRunning ? 1 : 0);
  return made;
}

// Replaces the elements of a configuration that the changes have.
void merge(const KFAEnvConfig& changes, KFAEnvConfig& config) {
  config.initMsg();
  KFLMessageIterator to = config.getIterator();
  const KFLMessageIterator from = changes.getIterator();
  if (!from.isValid() || from.firstChild() != 0) return;
  do
    to.removeChildren(std::string(from.getName()));
  while (from.nextSibling() == 0);
  from.leaveChild();
  to.copyContent(from);
}

class Environments : public Of<KFAEnvM> {
 public:
  using Of::Of;
  int list(std::vector<EnvSP>& envs) override {
    return with([&](Content& node) {
      envs.clear();
      for (const auto& [eid, env] : node.environments)
        envs.push_back(makeEnv(eid, env));
      std::ranges::stable_sort(envs, {}, [](const EnvSP& env) { return env->getSortKey(); });
      return KFAManagerDone;
    });
  }
  int get(const KFLEID& eid, EnvSP& env) override {
    return withEnvironment(eid, [&](Environment& found) {
      env = makeEnv(eid, found);
      return KFAManagerDone;
    });
  }
  int create(const KFAEnvConfig& config, KFLEID& eid) override {
    return with([&](Content& node) { return add(node, {config}, eid); });
  }
  int clone(const KFLEID& source, const KFAMigratorCloneOptions& options, KFLEID& eid) override {
    return with([&](Content& node) {
      return find(node.environments, source, "environment", source.toString(), [&](const Environment& env) {
        Environment copy{env.config};
        if (options.getName().isSpecified()) copy.config.setName(options.getName());
        copy.config.setVeid(freeVeid(node));
        return add(node, std::move(copy), eid);
      });
    });
  }
  int remove(const KFLEID& eid) override {
    return with([&](Content& node) {
      return find(node.environments, eid, "environment", eid.toString(), [&](const Environment& env) {
        if (env.isRunning) return refuse("it is running; stop it first", eid.toString());
        node.environments.erase(eid);
        return int(KFAManagerDone);
      });
    });
  }
  int getConfig(const KFLEID& eid, KFAEnvConfig& config) override {
    return withEnvironment(eid, [&](Environment& env) {
      config = env.config;
      return KFAManagerDone;
    });
  }
  int setConfig(const KFLEID& eid, const KFAEnvConfig& changes) override {
    return withEnvironment(eid, [&](Environment& env) {
      merge(changes, env.config);
      return KFAManagerDone;
    });
  }
  int start(const KFLEID& eid) override { return run(eid, true); }
  int stop(const KFLEID& eid) override { return run(eid, false); }
  int getInfo(KFAVtInfo& info) override { return Of::get(&Content::info, info); }
  int getSettings(KFAVtSettings& settings) override { return Of::get(&Content::settings, settings); }
  int setSettings(const KFAVtSettings& settings) override { return set(&Content::settings, settings); }

 private:
  int run(const KFLEID& eid, bool isRunning) {
    return withEnvironment(eid, [&](Environment& env) {
      env.isRunning = isRunning;
      return KFAManagerDone;
    });
  }
  static bool isUsed(const Content& node, int veid) {
    return std::ranges::any_of(node.environments, [&](const auto& entry) {
      int used = 0;
      return entry.second.config.getVeid(used) == 0 && used == veid;
    });
  }
  static int freeVeid(const Content& node) {
    int veid = 101;
    while (isUsed(node, veid))
      ++veid;
    return veid;
  }
  static int add(Content& node, Environment env, KFLEID& eid) {
    int veid = 0;
    if (env.config.getVeid(veid) != 0)
      env.config.setVeid(freeVeid(node));
    else if (isUsed(node, veid))
      return refuse("the VEID is in use", std::to_string(veid));
    eid = node.nextEID.isValid() ? node.nextEID : KFLEID::generate();
    node.nextEID = KFLEID();
    node.environments.insert_or_assign(eid, std::move(env));
    return KFAManagerDone;
  }
};

class Samples : public Of<KFASampleM> {
 public:
  using Of::Of;
  int list(std::vector<std::string>& names) override {
    return with([&](Content& node) {
      listKeys(node.samples, names);
      return KFAManagerDone;
    });
  }
  int get(const std::string& name, KFAEnvConfig& sample) override {
    return with([&](Content& node) {
      return find(node.samples, name, "sample", name, [&](const KFAEnvConfig& found) {
        sample = found;
        return KFAManagerDone;
      });
    });
  }
  int set(const std::string& name, const KFAEnvConfig& sample) override {
    return with([&](Content& node) {
      node.samples.insert_or_assign(name, sample);
      return KFAManagerDone;
    });
  }
  int remove(const std::string& name) override {
    return with([&](Content& node) {
      return node.samples.erase(name) != 0 ? int(KFAManagerDone) : notFound("sample", name);
    });
  }
  int check(const KFAEnvConfig& config, KFAQoSValidationList& violations) override {
    KFAQoSValidationList found;
    const KFLVocMapSP vocabulary = KFLVocMap::load(KFLVocMap::defaultPath());
    if (!vocabulary || validateQoSes(&found, vocabulary, config) < 0) return KFAManagerFailed;
    violations.swap(found);
    return KFAManagerDone;
  }
};

auto isOf(const KFATemplate& which) {
  return [&which](const KFATEM::PackageSP& package) { return package->getName() == which.getName(); };
}

class Templates : public Of<KFATEM> {
 public:
  using Of::Of;
  using Names = std::vector<KFATemplate>;
  int list(std::vector<PackageSP>& templates) override { return Of::get(&Content::templates, templates); }
  int get(const KFATemplate& of, KFATemplateConfigInfo& info) override {
    return with([&](Content& node) {
      return find(node.templateInfos, of.getName(), "template", of.toString(),
                  [&](const KFATemplateConfigInfo& found) {
                    info = found;
                    return KFAManagerDone;
                  });
    });
  }
  int install(const KFATemplate& which) override {
    return with([&](Content& node) {
      if (std::ranges::none_of(node.templates, isOf(which))) {
        const auto package = boost::make_shared<KFAPackageKFTemplate>();
        package->setName(which.getName());
        package->setUpToDate(true);
        node.templates.push_back(package);
      }
      return KFAManagerDone;
    });
  }
  int remove(const KFATemplate& which) override {
    return with([&](Content& node) {
      for (const auto& [eid, env] : node.environments) {
        if (std::ranges::find(env.templates, which) != env.templates.end())
          return refuse(("the environment " + eid.toString() + " uses it").c_str(), which.toString());
      }
      const bool isThere = std::erase_if(node.templates, isOf(which)) != 0;
      return isThere ? int(KFAManagerDone) : notFound("template", which.toString());
    });
  }
  int listOf(const KFLEID& eid, Names& templates) override {
    return withEnvironment(eid, [&](Environment& env) {
      templates = env.templates;
      return KFAManagerDone;
    });
  }
  int addTo(const KFLEID& eid, const Names& templates) override {
    return withEnvironment(eid, [&](Environment& env) {
      for (const KFATemplate& added : templates) {
        if (std::ranges::find(env.templates, added) == env.templates.end()) env.templates.push_back(added);
      }
      return KFAManagerDone;
    });
  }
  int removeFrom(const KFLEID& eid, const Names& templates) override {
    return withEnvironment(eid, [&](Environment& env) {
      std::erase_if(env.templates, [&](const KFATemplate& had) {
        return std::ranges::find(templates, had) != templates.end();
      });
      return KFAManagerDone;
    });
  }
};

template <class Packages>
auto named(Packages& packages, const std::string& name) {
  return std::ranges::find(packages, name, &KFAPackageInfo::getName);
}

class Packages : public Of<KFAPkgM> {
 public:
  using Of::Of;
  using List = std::vector<KFAPackageInfo>;
  int list(const KFLEID& eid, List& packages) override {
    return withEnvironment(eid, [&](Environment& env) {
      packages = env.packages;
      return KFAManagerDone;
    });
  }
  int get(const KFLEID& eid, const KFAPackageInfo& package,
          std::vector<KFAPackageVersion>& versions) override {
    return change(eid, [&](Environment&, const List& repository) {
      std::vector<KFAPackageVersion> found;
      for (const KFAPackageInfo& has : repository) {
        if (has.getName() == package.getName()) found.push_back(has.getVersion());
      }
      versions.swap(found);
      return KFAManagerDone;
    });
  }
  int check(const KFLEID& eid, List& newer) override {
    return change(eid, [&](Environment& env, const List& repository) {
      List found;
      for (const KFAPackageInfo& has : repository) {
        const auto at = named(env.packages, has.getName());
        if (at != env.packages.end() && at->getVersion().getVersion() != has.getVersion().getVersion())
          found.push_back(has);
      }
      newer.swap(found);
      return KFAManagerDone;
    });
  }
  int install(const KFLEID& eid, const List& packages, List& changed) override {
    return put(eid, packages, changed, false);
  }
  int update(const KFLEID& eid, const List& packages, List& changed) override {
    return put(eid, packages, changed, true);
  }
  int remove(const KFLEID& eid, const List& packages, List& changed) override {
    return withEnvironment(eid, [&](Environment& env) {
      List left = env.packages, gone;
      for (const KFAPackageInfo& package : packages) {
        const auto at = named(left, package.getName());
        if (at == left.end()) return notFound("installed package", package.getName());
        gone.push_back(*at);
        left.erase(at);
      }
      env.packages.swap(left);
      changed.swap(gone);
      return int(KFAManagerDone);
    });
  }

 private:
  template <class Work>
  int change(const KFLEID& eid, Work work) {
    return with([&](Content& node) {
      return find(node.environments, eid, "environment", eid.toString(),
                  [&](Environment& env) { return int(work(env, node.repository)); });
    });
  }
  // The newest of each package, which must be there already when it is only brought up to date.
  int put(const KFLEID& eid, const List& packages, List& changed, bool mustBeThere) {
    return change(eid, [&](Environment& env, const List& repository) {
      List all = env.packages, done;
      for (const KFAPackageInfo& package : packages) {
        const auto newest = named(repository, package.getName());
        const auto at = named(all, package.getName());
        if (newest == repository.end() || (mustBeThere && at == all.end()))
          return notFound("package", package.getName());
        if (at != all.end()) all.erase(at);
        all.push_back(*newest);
        done.push_back(*newest);
      }
      env.packages.swap(all);
      changed.swap(done);
      return int(KFAManagerDone);
    });
  }
};

int listProcesses(const Environment& env, std::vector<KFAProcess>& processes) {
  processes.clear();
  for (const auto& [pid, process] : env.processes)
    processes.push_back(process);
  return KFAManagerDone;
}

class Processes : public Of<KFAProcessM> {
 public:
  using Of::Of;
  int list(const KFLEID& eid, std::vector<KFAProcess>& processes) override {
    return withEnvironment(eid, [&](Environment& env) { return listProcesses(env, processes); });
  }
  int get(const KFLEID& eid, int pid, KFAProcess& process) override {
    return withProcess(eid, pid, [&](Environment&, const KFAProcess& found) { process = found; });
  }
  // Every signal ends the process.
  int signal(const KFLEID& eid, int pid, int) override {
    return withProcess(eid, pid, [&](Environment& env, const KFAProcess&) { env.processes.erase(pid); });
  }
  // The program prints its arguments, one a line.
  int execute(const KFLEID& eid, const std::vector<std::string>& arguments,
              KFACommandResult& result) override {
    return withEnvironment(eid, [&](Environment& env) {
      if (!env.isRunning) return refuse("it is not running", eid.toString());
      if (arguments.empty()) return refuse("there is no program to run", eid.toString());
      KFACommandResult ended;
      for (const std::string& argument : arguments)
        ended.output += argument + "\n";
      result = ended;
      return int(KFAManagerDone);
    });
  }

 private:
  template <class Work>
  int withProcess(const KFLEID& eid, int pid, Work work) {
    return withEnvironment(eid, [&](Environment& env) {
      return find(env.processes, pid, "process", std::to_string(pid), [&](const KFAProcess& process) {
        work(env, process);
        return KFAManagerDone;
      });
    });
  }
};

class Monitor : public Of<KFAProcessMonitor> {
 public:
  using Of::Of;
  int start(const KFLEID& eid, int seconds) override {
    if (seconds < 1) return refuse("the interval is from 1 second on", eid.toString());
    return withEnvironment(eid, [&](Environment& env) {
      env.watchSeconds = seconds;
      return KFAManagerDone;
    });
  }
  int stop(const KFLEID& eid) override {
    return withWatched(eid, [](Environment& env) {
      env.watchSeconds = 0;
      return KFAManagerDone;
    });
  }
  int list(std::vector<KFLEID>& eids) override {
    return with([&](Content& node) {
      eids.clear();
      for (const auto& [eid, env] : node.environments) {
        if (env.watchSeconds > 0) eids.push_back(eid);
      }
      return KFAManagerDone;
    });
  }
  int get(const KFLEID& eid, std::vector<KFAProcess>& processes) override {
    return withWatched(eid, [&](Environment& env) { return listProcesses(env, processes); });
  }

 private:
  template <class Work>
  int withWatched(const KFLEID& eid, Work work) {
    return withEnvironment(eid, [&](Environment& env) {
      return env.watchSeconds > 0 ? int(work(env)) : notFound("watched environment", eid.toString());
    });
  }
};

class Network : public Of<KFANetworkM> {
 public:
  using Of::Of;
  int list(std::vector<DeviceSP>& devices) override { return Of::get(&Content::devices, devices); }
  int get(const KFLEID& eid, std::vector<KFANetVEth>& devices) override {
    return withEnvironment(eid, [&](Environment& env) {
      KFAEnvConfig::NetVEths configured;
      env.config.getNetVEths(configured);
      devices = configured.isSpecified() ? configured.getValue() : std::vector<KFANetVEth>();
      return KFAManagerDone;
    });
  }
  int getShaping(KFANetConfiguration& shaping) override { return Of::get(&Content::shaping, shaping); }
  int setShaping(const KFANetConfiguration& shaping) override { return set(&Content::shaping, shaping); }
};

class Updates : public Of<KFAUp2date> {
 public:
  using Of::Of;
  int list(KFAUpdateList& updates) override { return get(&Content::updates, updates); }
  int listInstalled(KFAUpdateList& updates) override { return get(&Content::installedUpdates, updates); }
  int check(KFAUpdateList& updates) override { return get(&Content::updates, updates); }
  int install(const KFAUpdateList& updates) override {
    return with([&](Content& node) {
      node.installedUpdates.insert(node.installedUpdates.begin(), updates.begin(), updates.end());
      return KFAManagerDone;
    });
  }
  int getConfig(KFAUpdateConfig& config) override { return get(&Content::updateConfig, config); }
  int setConfig(const KFAUpdateConfig& config) override { return set(&Content::updateConfig, config); }
};

class Support : public Of<KFASupport> {
 public:
  using Of::Of;
  int send(const KFAProblemReportData& data, std::string& id) override {
    return with([&](Content& node) {
      id = "report-" + std::to_string(node.reports.size() + 1);
      node.reports.emplace(id, data);
      return KFAManagerDone;
    });
  }
  int collect(const KFAProblemReportData&, std::string& path) override {
    path = "/nonexistent/report";
    return KFAManagerDone;
  }
  int list(std::vector<std::string>& ids) override {
    return with([&](Content& node) {
      listKeys(node.reports, ids);
      std::ranges::reverse(ids);
      return KFAManagerDone;
    });
  }
  int get(const std::string& id, KFAProblemReportData& data) override {
    return with([&](Content& node) {
      return find(node.reports, id, "report", id, [&](const KFAProblemReportData& found) {
        data = found;
        return KFAManagerDone;
      });
    });
  }
};

template <class Manager>
struct Factory : KFLLocalFactory<boost::shared_ptr<Manager>> {
  explicit Factory(const boost::shared_ptr<Manager>& made) : manager(made) {}
  boost::shared_ptr<Manager> create(const KFLAccessProviderSP&) override { return manager; }
  const boost::shared_ptr<Manager> manager;
};

}  // namespace

KFAMemoryNode::KFAMemoryNode(Content content) : shared_(boost::make_shared<Shared>(std::move(content))) {}

KFAMemoryNode::~KFAMemoryNode() = default;

int KFAMemoryNode::registerManagers(KFALibFunctionality& managers, const std::string& implementation) const {
  const auto add = [&]<class Manager>(const boost::shared_ptr<Manager>& manager) {
    return managers.multiplexer<Manager>().registerLocal(implementation,
                                                         boost::make_shared<Factory<Manager>>(manager)) == 0;
  };
  const bool areIn = add.operator()<KFATEM>(boost::make_shared<Templates>(shared_)) &&
                     add.operator()<KFAEnvM>(boost::make_shared<Environments>(shared_)) &&
                     add.operator()<KFAPkgM>(boost::make_shared<Packages>(shared_)) &&
                     add.operator()<KFAProcessM>(boost::make_shared<Processes>(shared_)) &&
                     add.operator()<KFANetworkM>(boost::make_shared<Network>(shared_)) &&
                     add.operator()<KFAProcessMonitor>(boost::make_shared<Monitor>(shared_)) &&
                     add.operator()<KFAUp2date>(boost::make_shared<Updates>(shared_)) &&
                     add.operator()<KFASupport>(boost::make_shared<Support>(shared_)) &&
                     add.operator()<KFASampleM>(boost::make_shared<Samples>(shared_));
  return areIn ? 0 : -1;
}

}  // namespace KFA
