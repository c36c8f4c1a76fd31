// SPDX-License-Identifier: Apache-2.0
// What is asked of any implementation of the nine managers, and how it answers, as text: the same script run on two ways
// to one node must read the same.
#ifndef KFA_TESTS_MANAGERSCRIPT_H
#define KFA_TESTS_MANAGERSCRIPT_H

#include <fstream>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <KFAFunctionality/access/KFALibFunctionality.h>
#include <KFAFunctionality/access/KFAManagerForms.h>
#include <KFAFunctionality/access/KFAMemoryNode.h>
#include <KFLCommon/KFLError.h>

// The managers of one node, whichever way they are reached.
struct Managers {
  boost::shared_ptr<KFA::KFATEM> templates;
  boost::shared_ptr<KFA::KFAEnvM> environments;
  boost::shared_ptr<KFA::KFAPkgM> packages;
  boost::shared_ptr<KFA::KFAProcessM> processes;
  boost::shared_ptr<KFA::KFANetworkM> network;
  boost::shared_ptr<KFA::KFAProcessMonitor> monitor;
  boost::shared_ptr<KFA::KFAUp2date> updates;
  boost::shared_ptr<KFA::KFASupport> support;
  boost::shared_ptr<KFA::KFASampleM> samples;
};

// Each of them by `get`, which is given the type of the manager.
template <class Get>
Managers managersBy(Get get) {
  return {get.template operator()<KFA::KFATEM>(),      get.template operator()<KFA::KFAEnvM>(),
          get.template operator()<KFA::KFAPkgM>(),     get.template operator()<KFA::KFAProcessM>(),
          get.template operator()<KFA::KFANetworkM>(), get.template operator()<KFA::KFAProcessMonitor>(),
          get.template operator()<KFA::KFAUp2date>(),  get.template operator()<KFA::KFASupport>(),
          get.template operator()<KFA::KFASampleM>()};
}

inline Managers localManagers(const KFA::KFALibFunctionality& of, const std::string& implementation) {
  return managersBy(
      [&]<class Manager>() { return of.multiplexer<Manager>().getLocal(nullptr, implementation); });
}

// The record of a file in examples/messages.
template <class Record>
Record exampleOf(const std::string& file) {
  std::ifstream in(std::string(KFA_SOURCE_DIR) + "/examples/messages/" + file);
  KFL::KFLMessage message;
  Record record;
  EXPECT_EQ(message.parse({std::istreambuf_iterator<char>(in), {}}), 0) << file;
  EXPECT_EQ(message.getIterator().getObj(record), 0) << file;
  return record;
}

inline const KFL::KFLEID kFirst("11111111-0000-4000-8000-000000000001");
inline const KFL::KFLEID kSecond("11111111-0000-4000-8000-000000000002");
inline const KFL::KFLEID kThird("11111111-0000-4000-8000-000000000003");
inline const KFL::KFLEID kNobody("99999999-0000-4000-8000-000000000009");

inline KFA::KFAMemoryNode::Content exampleNode() {
  using namespace KFA;
  KFAMemoryNode::Content node;
  auto config = exampleOf<KFAEnvConfig>("venvconfig.xml");
  node.environments[kFirst] = {config, true};
  config.setVeid(7);
  node.environments[kSecond] = {config};
  auto process = exampleOf<KFAProcess>("process.xml");
  process.command = std::string("/bin/sh\0-c\0\xff\x01<&>", 16);
  node.environments[kFirst].processes = {{412, process}, {413, process}};
  node.environments[kFirst].packages = {exampleOf<KFAPackageInfo>("packageinfo.xml")};
  KFAPackageInfo newer = exampleOf<KFAPackageInfo>("packageinfo.xml");
  KFAPackageVersion version = newer.getVersion();
  version.setVersion("99");
  newer.setVersion(version);
  node.repository = {newer};
  node.samples["basic"] = config;
  node.samples[""] = KFAEnvConfig();
  node.templates = {
      boost::make_shared<KFAPackageKFTemplate>(exampleOf<KFAPackageKFTemplate>("packagekftemplate.xml"))};
  node.templateInfos["web"] = exampleOf<KFATemplateConfigInfo>("templateconfiginfo.xml");
  node.devices = {boost::make_shared<KFLNetNIC>(exampleOf<KFLNetNIC>("netnic.xml")),
                  boost::make_shared<KFANetVEth>(exampleOf<KFANetVEth>("netveth.xml"))};
  node.info = exampleOf<KFAVtInfo>("vtinfo.xml");
  node.settings = exampleOf<KFAVtSettings>("vtsettings.xml");
  node.updates = exampleOf<KFAUpdateList>("updatelist.xml");
  node.nextEID = kThird;
  return node;
}

// Calls, and keeps what they gave.
class ManagerScript {
 public:
  // The whole script, in which every operation is called, the likely refusals of each included; managers that are not
  // there are left out.
  static std::string run(const Managers& managers) {
    ManagerScript script;
    if (managers.environments) script.callEnvironments(*managers.environments);
    if (managers.samples) script.callSamples(*managers.samples);
    if (managers.templates) script.callTemplates(*managers.templates);
    if (managers.packages) script.callPackages(*managers.packages);
    if (managers.processes) script.callProcesses(*managers.processes);
    if (managers.monitor) script.callMonitor(*managers.monitor);
    if (managers.network) script.callNetwork(*managers.network);
    if (managers.updates) script.callUpdates(*managers.updates);
    if (managers.support) script.callSupport(*managers.support);
    script.callEnds(*managers.environments, *managers.samples);
    return script.text_;
  }

 private:
  template <class Manager, class Owner, class... Parameters, class... Arguments>
  void call(const char* name, Manager& manager, int (Owner::*member)(Parameters...),
            Arguments&&... arguments) {
    KFL::setErrorMessage("%s", "");
    const int code = (manager.*member)(arguments...);
    text_ += std::string(name) + ": " + std::to_string(code);
    if (code < 0) text_ += " " + KFL::getErrorMessage();
    text_ += "\n";
    (addResult<Parameters>(arguments), ...);
  }
  template <class Parameter, class T>
  void addResult(const T& value) {
    if constexpr (!std::is_const_v<std::remove_reference_t<Parameter>> &&
                  std::is_lvalue_reference_v<Parameter>)
      print(value);
  }
  template <class T>
  void print(const T& value) {
    if constexpr (KFA::forms::isVector<T>) {
      for (const auto& item : value)
        print(item);
    } else if constexpr (KFA::forms::isPointer<T>) {
      if (value) printOne(value);
    } else {
      printOne(value);
    }
  }
  template <class T>
  void printOne(const T& value) {
    std::string xml;
    EXPECT_EQ(KFA::forms::printResult(value, xml), 0) << KFL::getErrorMessage();
    text_ += "  " + xml + "\n";
  }

  void callEnvironments(KFA::KFAEnvM& m) {
    using M = KFA::KFAEnvM;
    std::vector<M::EnvSP> envs;
    M::EnvSP env;
    KFA::KFAEnvConfig config, changes;
    KFA::KFAVtSettings settings;
    KFA::KFAVtInfo info;
    KFL::KFLEID eid;
    call("list", m, &M::list, envs);
    call("get", m, &M::get, kFirst, env);
    call("get nobody", m, &M::get, kNobody, env);
    call("get no id", m, &M::get, KFL::KFLEID(), env);
    call("getConfig", m, &M::getConfig, kFirst, config);
    call("getConfig nobody", m, &M::getConfig, kNobody, config);
    call("create in use", m, &M::create, config, eid);
    config.setVeid(103);
    call("create", m, &M::create, config, eid);
    changes.setHostname(std::string("a <b> & \"c\" \r\n\t d\u20ac "));
    changes.setSearchDomains(std::set<std::string>());
    call("setConfig", m, &M::setConfig, kFirst, changes);
    call("setConfig of nothing", m, &M::setConfig, kFirst, KFA::KFAEnvConfig());
    call("getConfig changed", m, &M::getConfig, kFirst, config);
    for (const auto member : {&M::start, &M::stop, &M::start}) {
      call("run", m, member, kSecond);
      call("run nobody", m, member, kNobody);
    }
    call("getInfo", m, &M::getInfo, info);
    call("getSettings", m, &M::getSettings, settings);
    settings.addValue("added", "yes");
    call("setSettings", m, &M::setSettings, settings);
    call("getSettings changed", m, &M::getSettings, settings);
    call("list again", m, &M::list, envs);
  }
  void callSamples(KFA::KFASampleM& m) {
    using M = KFA::KFASampleM;
    std::vector<std::string> names{"before"};
    KFA::KFAEnvConfig sample;
    KFA::KFAQoSValidationList violations;
    call("list", m, &M::list, names);
    for (const std::string name : {"basic", "", "none", "a/b <\u20ac>"})
      call("get", m, &M::get, name, sample);
    call("get basic", m, &M::get, std::string("basic"), sample);
    call("set", m, &M::set, std::string("web"), sample);
    call("check", m, &M::check, sample, violations);
    call("check of nothing", m, &M::check, KFA::KFAEnvConfig(), violations);
    call("list", m, &M::list, names);
  }
  void callTemplates(KFA::KFATEM& m) {
    using M = KFA::KFATEM;
    using KFA::KFATemplate;
    std::vector<M::PackageSP> templates;
    std::vector<KFATemplate> names;
    KFA::KFATemplateConfigInfo info;
    call("list", m, &M::list, templates);
    call("get", m, &M::get, KFATemplate("web"), info);
    call("get none", m, &M::get, KFATemplate("none", "1"), info);
    call("install", m, &M::install, KFATemplate("mail", "2"));
    call("addTo", m, &M::addTo, kFirst, std::vector{KFATemplate("mail", "2"), KFATemplate("x")});
    call("addTo nobody", m, &M::addTo, kNobody, std::vector<KFATemplate>());
    call("listOf", m, &M::listOf, kFirst, names);
    call("remove used", m, &M::remove, KFATemplate("mail", "2"));
    call("removeFrom", m, &M::removeFrom, kFirst, std::vector{KFATemplate("mail", "2")});
    call("remove", m, &M::remove, KFATemplate("mail", "2"));
    call("remove again", m, &M::remove, KFATemplate("mail", "2"));
    call("listOf", m, &M::listOf, kFirst, names);
    call("listOf nobody", m, &M::listOf, kNobody, names);
  }
  void callPackages(KFA::KFAPkgM& m) {
    using M = KFA::KFAPkgM;
    std::vector<KFA::KFAPackageInfo> packages, changed;
    std::vector<KFA::KFAPackageVersion> versions;
    KFA::KFAPackageInfo unknown;
    unknown.setName("unknown");
    call("list", m, &M::list, kFirst, packages);
    call("get", m, &M::get, kFirst, unknown, versions);
    if (!packages.empty()) call("get", m, &M::get, kFirst, packages.front(), versions);
    call("check", m, &M::check, kFirst, changed);
    call("update", m, &M::update, kFirst, packages, changed);
    call("install", m, &M::install, kSecond, packages, changed);
    call("install unknown", m, &M::install, kSecond, std::vector{unknown}, changed);
    call("remove", m, &M::remove, kSecond, packages, changed);
    call("remove again", m, &M::remove, kSecond, packages, changed);
    call("list", m, &M::list, kSecond, packages);
    call("list nobody", m, &M::list, kNobody, packages);
  }
  void callProcesses(KFA::KFAProcessM& m) {
    using M = KFA::KFAProcessM;
    std::vector<KFA::KFAProcess> processes;
    KFA::KFAProcess process;
    KFA::KFACommandResult result;
    call("list", m, &M::list, kFirst, processes);
    call("get", m, &M::get, kFirst, 412, process);
    call("get none", m, &M::get, kFirst, -1, process);
    call("signal", m, &M::signal, kFirst, 412, 15);
    call("list", m, &M::list, kFirst, processes);
    for (const KFL::KFLEID& eid : {kFirst, kNobody})
      call("execute", m, &M::execute, eid, std::vector<std::string>{"/bin/echo", "", " two\nlines "}, result);
    call("execute nothing", m, &M::execute, kFirst, std::vector<std::string>(), result);
  }
  void callMonitor(KFA::KFAProcessMonitor& m) {
    using M = KFA::KFAProcessMonitor;
    std::vector<KFL::KFLEID> eids;
    std::vector<KFA::KFAProcess> processes;
    call("get unwatched", m, &M::get, kFirst, processes);
    call("start", m, &M::start, kFirst, 5);
    call("start at once", m, &M::start, kFirst, 0);
    call("list", m, &M::list, eids);
    call("get", m, &M::get, kFirst, processes);
    call("stop", m, &M::stop, kFirst);
    call("stop again", m, &M::stop, kFirst);
    call("list", m, &M::list, eids);
  }
  void callNetwork(KFA::KFANetworkM& m) {
    using M = KFA::KFANetworkM;
    std::vector<M::DeviceSP> devices;
    std::vector<KFA::KFANetVEth> veths;
    KFA::KFANetConfiguration shaping;
    call("list", m, &M::list, devices);
    call("get", m, &M::get, kFirst, veths);
    call("get nobody", m, &M::get, kNobody, veths);
    call("setShaping", m, &M::setShaping, exampleOf<KFA::KFANetConfiguration>("netconfiguration.xml"));
    call("getShaping", m, &M::getShaping, shaping);
  }
  void callUpdates(KFA::KFAUp2date& m) {
    using M = KFA::KFAUp2date;
    KFA::KFAUpdateList updates;
    KFA::KFAUpdateConfig config;
    call("list", m, &M::list, updates);
    call("install", m, &M::install, updates);
    call("listInstalled", m, &M::listInstalled, updates);
    call("check", m, &M::check, updates);
    call("setConfig", m, &M::setConfig, exampleOf<KFA::KFAUpdateConfig>("updateconfig.xml"));
    call("getConfig", m, &M::getConfig, config);
  }
  void callSupport(KFA::KFASupport& m) {
    using M = KFA::KFASupport;
    std::string id, path;
    std::vector<std::string> ids;
    KFA::KFAProblemReportData data;
    call("send", m, &M::send, exampleOf<KFA::KFAProblemReportData>("problemreportdata.xml"), id);
    call("collect", m, &M::collect, exampleOf<KFA::KFAProblemReportData>("problemreportdata.xml"), path);
    call("list", m, &M::list, ids);
    call("get", m, &M::get, id, data);
    call("get none", m, &M::get, std::string("none"), data);
  }
  // What takes things away comes last.
  void callEnds(KFA::KFAEnvM& environments, KFA::KFASampleM& samples) {
    KFL::KFLEID eid;
    auto options = exampleOf<KFA::KFAMigratorCloneOptions>("migratorcloneoptions.xml");
    call("clone nobody", environments, &KFA::KFAEnvM::clone, kNobody, options, eid);
    for (const KFL::KFLEID& gone : {kFirst, kThird, kThird})
      call("remove", environments, &KFA::KFAEnvM::remove, gone);
    call("remove sample", samples, &KFA::KFASampleM::remove, std::string("web"));
    call("remove sample again", samples, &KFA::KFASampleM::remove, std::string("web"));
  }

  std::string text_;
};

#endif
