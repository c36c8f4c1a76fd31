// SPDX-License-Identifier: Apache-2.0
// What is asked of any implementation of the nine managers, and how it answers, as text: the same script run on two ways
// to one node must read the same.
#ifndef KFA_TESTS_MANAGERSCRIPT_H
#define KFA_TESTS_MANAGERSCRIPT_H

#include <any>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeindex>
#include <vector>

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>
#include <boost/preprocessor/seq/for_each.hpp>
#include <boost/preprocessor/stringize.hpp>
#include <boost/preprocessor/variadic/to_seq.hpp>

#include <KFAFunctionality/access/KFALibFunctionality.h>
#include <KFAFunctionality/access/KFAManagerForms.h>
#include <KFAFunctionality/access/KFAMemoryNode.h>
#include <KFLCommon/KFLError.h>

// The managers of one node, whichever way they are reached.
template <class... Manager>
using ManagersOf = std::tuple<boost::shared_ptr<Manager>...>;
using Managers = ManagersOf<KFA::KFATEM, KFA::KFAEnvM, KFA::KFAPkgM, KFA::KFAProcessM, KFA::KFANetworkM,
                            KFA::KFAProcessMonitor, KFA::KFAUp2date, KFA::KFASupport, KFA::KFASampleM>;

// Each of them by `get`, which is given the type of the manager.
template <class Get>
Managers managersBy(Get get) {
  return [&]<class... Manager>(const ManagersOf<Manager...>*) {
    return Managers(get.template operator()<Manager>()...);
  }(static_cast<const Managers*>(nullptr));
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
  // The whole script, in which every operation is called with each of some arguments, and again when they have changed the
  // node; managers that are not there are left out.
  static std::string run(const Managers& managers) {
    ManagerScript script(managers);
    script.makeEnvironment(*std::get<boost::shared_ptr<KFA::KFAEnvM>>(managers));
    for (int pass = 0; pass < 2; ++pass)
      script.callAll();
    for (int pass = 0; pass < 2; ++pass)
      script.removeAll();
    return script.text_;
  }

 private:
  explicit ManagerScript(const Managers& managers) : managers_(managers) {
    using namespace KFA;
    KFAEnvConfig config;
    config.setHostname(std::string("a <b> & \"c\" \r\n\t d\u20ac "));
    config.setSearchDomains(std::set<std::string>());
    KFAPackageInfo unknown;
    unknown.setName("unknown");
    of<KFLEID>() = {kFirst, KFLEID()};
    of<int>() = {412, 0};
    of<std::string>() = {"basic", "", "a/b <\u20ac>"};
    of<std::vector<std::string>>() = {{}, {"/bin/echo", "", " two\nlines "}};
    of<KFATemplate>() = {KFATemplate("web"), KFATemplate("mail", "2")};
    of<std::vector<KFATemplate>>() = {{}, {KFATemplate("mail", "2"), KFATemplate("x")}};
    of<KFAEnvConfig>() = {KFAEnvConfig(), config};
    of<KFAVtSettings>() = {exampleOf<KFAVtSettings>("vtsettings.xml")};
    of<KFAVtSettings>()[0].addValue("added", "yes");
    of<KFAPackageInfo>() = {unknown, exampleOf<KFAPackageInfo>("packageinfo.xml")};
    of<std::vector<KFAPackageInfo>>() = {{unknown}, {of<KFAPackageInfo>()[1]}};
    of<KFANetConfiguration>() = {exampleOf<KFANetConfiguration>("netconfiguration.xml")};
    of<KFAUpdateConfig>() = {exampleOf<KFAUpdateConfig>("updateconfig.xml")};
    of<KFAProblemReportData>() = {exampleOf<KFAProblemReportData>("problemreportdata.xml")};
  }

  // The arguments of a type: those from the start, and behind them what a call gave last.
  template <class T>
  std::vector<T>& of() {
    std::any& values = values_[typeid(T)];
    if (!values.has_value()) values = std::vector<T>(1);
    return std::any_cast<std::vector<T>&>(values);
  }
  template <class T>
  void keep(const T& value) {
    if (!hasLast_.insert(typeid(T)).second) of<T>().pop_back();
    of<T>().push_back(value);
  }

  template <class Manager, class Owner, class... Parameters>
  void call(const char* name, Manager& manager, int (Owner::*member)(Parameters...),
            std::remove_cvref_t<Parameters>... values) {
    KFL::setErrorMessage("%s", "");
    const int code = (manager.*member)(values...);
    text_ += std::string(name) + ": " + std::to_string(code);
    if (code < 0) text_ += " " + KFL::getErrorMessage();
    text_ += "\n";
    (addResult<Parameters>(code, values), ...);
  }
  template <class Parameter>
  static constexpr bool isResult =
      std::is_lvalue_reference_v<Parameter> && !std::is_const_v<std::remove_reference_t<Parameter>>;
  template <class Parameter, class T>
  void addResult(int code, const T& value) {
    if constexpr (isResult<Parameter>) {
      print(value);
      if (code == KFA::KFAManagerDone) keep(value);
    }
  }
  template <class T>
  void print(const T& value) {
    if constexpr (KFA::forms::isVector<T>) {
      for (const auto& item : value)
        print(item);
    } else if constexpr (!KFA::forms::isPointer<T>) {
      printOne(value);
    } else if (value) {
      printOne(value);
    }
  }
  template <class T>
  void printOne(const T& value) {
    std::string xml;
    EXPECT_EQ(KFA::forms::printResult(value, xml), 0) << KFL::getErrorMessage();
    text_ += "  " + xml + "\n";
  }

  // With each argument behind those that are chosen; a result begins as what a call gave last.
  template <class Manager, class Owner, class... Parameters, class... Chosen>
  void callEach(const char* name, int (Owner::*member)(Parameters...), const Chosen&... chosen) {
    constexpr std::size_t kAt = sizeof...(Chosen);
    const auto& manager = std::get<boost::shared_ptr<Manager>>(managers_);
    if constexpr (kAt == sizeof...(Parameters)) {
      if (manager) call(name, *manager, member, chosen...);
    } else {
      using Parameter = std::tuple_element_t<kAt, std::tuple<Parameters...>>;
      const std::vector<std::remove_cvref_t<Parameter>> values = of<std::remove_cvref_t<Parameter>>();
      for (std::size_t i = isResult<Parameter> ? values.size() - 1 : 0; i < values.size(); ++i)
        callEach<Manager>(name, member, chosen..., values[i]);
    }
  }

// NOLINTBEGIN(bugprone-macro-parentheses): a class and one of its members
#define KFA_CALL(r, Manager, Name) \
  callEach<KFA::Manager>(BOOST_PP_STRINGIZE(Manager.Name), &KFA::Manager::Name);
// NOLINTEND(bugprone-macro-parentheses)
#define KFA_CALLS(Manager, ...) \
  BOOST_PP_SEQ_FOR_EACH(KFA_CALL, Manager, BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__))
  void callAll() {
    KFA_CALLS(KFAEnvM, list, get, getConfig, setConfig, start, getInfo, setSettings, getSettings)
    KFA_CALLS(KFASampleM, list, get, set, check)
    KFA_CALLS(KFATEM, list, get, install, addTo, listOf)
    KFA_CALLS(KFAPkgM, list, get, check, update, install)
    KFA_CALLS(KFAProcessM, list, get, signal, execute)
    KFA_CALLS(KFAProcessMonitor, get, start, list)
    KFA_CALLS(KFANetworkM, list, get, setShaping, getShaping)
    KFA_CALLS(KFAUp2date, list, install, listInstalled, check, setConfig, getConfig)
    KFA_CALLS(KFASupport, collect, send, list, get)
  }
  void removeAll() {
    KFA_CALLS(KFATEM, remove, removeFrom)
    KFA_CALLS(KFAPkgM, remove)
    KFA_CALLS(KFAProcessMonitor, stop)
    KFA_CALLS(KFASampleM, remove)
    KFA_CALLS(KFAEnvM, remove, stop)
  }
  // One is made, which has an id that is known.
  void makeEnvironment(KFA::KFAEnvM& m) {
    auto config = exampleOf<KFA::KFAEnvConfig>("venvconfig.xml");
    call("KFAEnvM.create in use", m, &KFA::KFAEnvM::create, config, KFL::KFLEID());
    config.setVeid(103);
    call("KFAEnvM.create", m, &KFA::KFAEnvM::create, config, KFL::KFLEID());
    call("KFAEnvM.clone nobody", m, &KFA::KFAEnvM::clone, kNobody,
         exampleOf<KFA::KFAMigratorCloneOptions>("migratorcloneoptions.xml"), KFL::KFLEID());
  }

  const Managers managers_;
  std::map<std::type_index, std::any> values_;
  std::set<std::type_index> hasLast_;
  std::string text_;
};

#endif
