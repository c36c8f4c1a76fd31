// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/access/KFAManagerStub.h>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFLCommon/KFLCheck.h>

#include <KFAFunctionality/access/KFAManagerForms.h>

namespace KFA {

KFAManagerChannel::~KFAManagerChannel() = default;

namespace {

// --- Arguments into a message, the result out of parts -----------------------------------------------------

template <class T>
int putArgument(const KFAManagerOperation& operation, KFLMessageIterator& it, const char* name,
                const T& value) {
  it.addChild(name);
  const int result = forms::put(it, value);
  it.leaveChild();
  it.selectNamespaceId(0);
  if (result == 0) return 0;
  const std::string reason = getErrorMessage();
  setErrorMessage("the argument '%s' of %s.%s has no message form: %s", name, operation.manager,
                  operation.name, reason.c_str());
  return -1;
}

template <class Values, std::size_t... Index>
int printArguments(const KFAManagerOperation& operation, const Values& values, std::string& text,
                   std::index_sequence<Index...>) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  it.setName(forms::kArguments, kTypesURI);
  const bool arePut =
      (... && (putArgument(operation, it, operation.parameters[Index], std::get<Index>(values)) == 0));
  return arePut && message.print(text) == 0 ? 0 : -1;
}

template <class T>
class Received {
 public:
  // One part: 0, or -1 with an error text.
  int add(const std::string& part) {
    ++parts_;
    if constexpr (forms::isVector<T>)
      return forms::parseResult(part, value_.emplace_back());
    else
      return forms::parseResult(part, value_);
  }
  bool isComplete() const { return forms::isVector<T> || parts_ == 1; }
  T& value() { return value_; }

 private:
  T value_{};
  std::size_t parts_ = 0;
};

int refuseAnswer(const KFAManagerOperation& operation, const std::string& reason) {
  setErrorMessage("the answer to %s.%s cannot be read: %s", operation.manager, operation.name,
                  reason.c_str());
  return KFAManagerUnreachable;
}

template <class T>
int receive(KFAManagerChannel& channel, const KFAManagerOperation& operation, const std::string& arguments,
            T& result) {
  Received<T> received;
  std::string reason;
  const int code = channel.call(operation, arguments, [&](const std::string& part) {
    if (received.add(part) == 0) return 0;
    reason = getErrorMessage();
    return -1;
  });
  if (!reason.empty()) return refuseAnswer(operation, reason);
  if (code != KFAManagerDone) return code;
  if (!received.isComplete()) return refuseAnswer(operation, "it does not have one part");
  result = std::move(received.value());
  return code;
}

// Hands each item of a list on as it comes.
template <class T>
int receiveEach(KFAManagerChannel& channel, const KFAManagerOperation& operation,
                const std::string& arguments, const boost::function<int(const T&)>& take) {
  std::string reason;
  bool isEnough = false;
  const int code = channel.call(operation, arguments, [&](const std::string& part) {
    T item{};
    if (forms::parseResult(part, item) != 0) {
      reason = getErrorMessage();
      return -1;
    }
    isEnough = take(item) != 0;
    return isEnough ? -1 : 0;
  });
  if (!reason.empty()) return refuseAnswer(operation, reason);
  return isEnough ? KFAManagerDone : code;
}

// --- The managers ------------------------------------------------------------------------------------------

template <class Manager>
class Stub : public Manager {
 public:
  explicit Stub(const boost::shared_ptr<KFAManagerChannel>& channel) : channel_(channel) {}

 protected:
  template <auto Member, class... Parameters>
  int call(const char* name, Parameters&... parameters) {
    using Signature = forms::Signature<Member>;
    const KFAManagerOperation& operation = find(name);
    const auto values = std::tie(parameters...);
    std::string arguments;
    if (printArguments(operation, values, arguments, std::make_index_sequence<Signature::kArguments>()) != 0)
      return KFAManagerFailed;
    if constexpr (Signature::kResults == 1)
      return receive(*channel_, operation, arguments, std::get<Signature::kArguments>(values));
    else
      return channel_->call(operation, arguments, [](const std::string&) { return 0; });
  }
  // A list without arguments, item by item.
  template <class T>
  int callEach(const char* name, const boost::function<int(const T&)>& take) {
    const KFAManagerOperation& operation = find(name);
    std::string arguments;
    if (printArguments(operation, std::tuple<>(), arguments, std::make_index_sequence<0>()) != 0)
      return KFAManagerFailed;
    return receiveEach<T>(*channel_, operation, arguments, take);
  }

 private:
  static const KFAManagerOperation& find(const char* name) {
    const KFAManagerOperation* const operation = findManagerOperation(forms::kManagerName<Manager>, name);
    KFL_CHECK(operation != nullptr, kModule, "KFAManagerStub");
    return *operation;
  }

  const boost::shared_ptr<KFAManagerChannel> channel_;
};

template <class Manager>
class StubOf;

template <>
class StubOf<KFATEM> : public Stub<KFATEM> {
 public:
  using Stub::Stub;
  int list(std::vector<PackageSP>& templates) override { return call<&KFATEM::list>("list", templates); }
  int get(const KFATemplate& of, KFATemplateConfigInfo& info) override {
    return call<&KFATEM::get>("get", of, info);
  }
  int install(const KFATemplate& which) override { return call<&KFATEM::install>("install", which); }
  int remove(const KFATemplate& which) override { return call<&KFATEM::remove>("remove", which); }
  int listOf(const KFLEID& eid, std::vector<KFATemplate>& templates) override {
    return call<&KFATEM::listOf>("listOf", eid, templates);
  }
  int addTo(const KFLEID& eid, const std::vector<KFATemplate>& templates) override {
    return call<&KFATEM::addTo>("addTo", eid, templates);
  }
  int removeFrom(const KFLEID& eid, const std::vector<KFATemplate>& templates) override {
    return call<&KFATEM::removeFrom>("removeFrom", eid, templates);
  }
};

template <>
class StubOf<KFAEnvM> : public Stub<KFAEnvM> {
 public:
  using Stub::Stub;
  int list(std::vector<EnvSP>& envs) override { return call<&KFAEnvM::list>("list", envs); }
  int each(const Take& take) override { return callEach<EnvSP>("list", take); }
  int get(const KFLEID& eid, EnvSP& env) override { return call<&KFAEnvM::get>("get", eid, env); }
  int create(const KFAEnvConfig& config, KFLEID& eid) override {
    return call<&KFAEnvM::create>("create", config, eid);
  }
  int clone(const KFLEID& source, const KFAMigratorCloneOptions& options, KFLEID& eid) override {
    return call<&KFAEnvM::clone>("clone", source, options, eid);
  }
  int remove(const KFLEID& eid) override { return call<&KFAEnvM::remove>("remove", eid); }
  int getConfig(const KFLEID& eid, KFAEnvConfig& config) override {
    return call<&KFAEnvM::getConfig>("getConfig", eid, config);
  }
  int setConfig(const KFLEID& eid, const KFAEnvConfig& changes) override {
    return call<&KFAEnvM::setConfig>("setConfig", eid, changes);
  }
  int start(const KFLEID& eid) override { return call<&KFAEnvM::start>("start", eid); }
  int stop(const KFLEID& eid) override { return call<&KFAEnvM::stop>("stop", eid); }
  int getInfo(KFAVtInfo& info) override { return call<&KFAEnvM::getInfo>("getInfo", info); }
  int getSettings(KFAVtSettings& settings) override {
    return call<&KFAEnvM::getSettings>("getSettings", settings);
  }
  int setSettings(const KFAVtSettings& settings) override {
    return call<&KFAEnvM::setSettings>("setSettings", settings);
  }
};

template <>
class StubOf<KFAPkgM> : public Stub<KFAPkgM> {
 public:
  using Stub::Stub;
  using Packages = std::vector<KFAPackageInfo>;
  int list(const KFLEID& eid, Packages& packages) override {
    return call<&KFAPkgM::list>("list", eid, packages);
  }
  int get(const KFLEID& eid, const KFAPackageInfo& package,
          std::vector<KFAPackageVersion>& versions) override {
    return call<&KFAPkgM::get>("get", eid, package, versions);
  }
  int check(const KFLEID& eid, Packages& newer) override {
    return call<&KFAPkgM::check>("check", eid, newer);
  }
  int install(const KFLEID& eid, const Packages& packages, Packages& changed) override {
    return call<&KFAPkgM::install>("install", eid, packages, changed);
  }
  int update(const KFLEID& eid, const Packages& packages, Packages& changed) override {
    return call<&KFAPkgM::update>("update", eid, packages, changed);
  }
  int remove(const KFLEID& eid, const Packages& packages, Packages& changed) override {
    return call<&KFAPkgM::remove>("remove", eid, packages, changed);
  }
};

template <>
class StubOf<KFAProcessM> : public Stub<KFAProcessM> {
 public:
  using Stub::Stub;
  int list(const KFLEID& eid, std::vector<KFAProcess>& processes) override {
    return call<&KFAProcessM::list>("list", eid, processes);
  }
  int get(const KFLEID& eid, int pid, KFAProcess& process) override {
    return call<&KFAProcessM::get>("get", eid, pid, process);
  }
  int signal(const KFLEID& eid, int pid, int number) override {
    return call<&KFAProcessM::signal>("signal", eid, pid, number);
  }
  int execute(const KFLEID& eid, const std::vector<std::string>& arguments,
              KFACommandResult& result) override {
    return call<&KFAProcessM::execute>("execute", eid, arguments, result);
  }
};

template <>
class StubOf<KFANetworkM> : public Stub<KFANetworkM> {
 public:
  using Stub::Stub;
  int list(std::vector<DeviceSP>& devices) override { return call<&KFANetworkM::list>("list", devices); }
  int get(const KFLEID& eid, std::vector<KFANetVEth>& devices) override {
    return call<&KFANetworkM::get>("get", eid, devices);
  }
  int getShaping(KFANetConfiguration& shaping) override {
    return call<&KFANetworkM::getShaping>("getShaping", shaping);
  }
  int setShaping(const KFANetConfiguration& shaping) override {
    return call<&KFANetworkM::setShaping>("setShaping", shaping);
  }
};

template <>
class StubOf<KFAProcessMonitor> : public Stub<KFAProcessMonitor> {
 public:
  using Stub::Stub;
  int start(const KFLEID& eid, int seconds) override {
    return call<&KFAProcessMonitor::start>("start", eid, seconds);
  }
  int stop(const KFLEID& eid) override { return call<&KFAProcessMonitor::stop>("stop", eid); }
  int list(std::vector<KFLEID>& eids) override { return call<&KFAProcessMonitor::list>("list", eids); }
  int get(const KFLEID& eid, std::vector<KFAProcess>& processes) override {
    return call<&KFAProcessMonitor::get>("get", eid, processes);
  }
};

template <>
class StubOf<KFAUp2date> : public Stub<KFAUp2date> {
 public:
  using Stub::Stub;
  int list(KFAUpdateList& updates) override { return call<&KFAUp2date::list>("list", updates); }
  int listInstalled(KFAUpdateList& updates) override {
    return call<&KFAUp2date::listInstalled>("listInstalled", updates);
  }
  int check(KFAUpdateList& updates) override { return call<&KFAUp2date::check>("check", updates); }
  int install(const KFAUpdateList& updates) override {
    return call<&KFAUp2date::install>("install", updates);
  }
  int getConfig(KFAUpdateConfig& config) override {
    return call<&KFAUp2date::getConfig>("getConfig", config);
  }
  int setConfig(const KFAUpdateConfig& config) override {
    return call<&KFAUp2date::setConfig>("setConfig", config);
  }
};

template <>
class StubOf<KFASupport> : public Stub<KFASupport> {
 public:
  using Stub::Stub;
  int send(const KFAProblemReportData& data, std::string& id) override {
    return call<&KFASupport::send>("send", data, id);
  }
  int collect(const KFAProblemReportData& data, std::string& path) override {
    return call<&KFASupport::collect>("collect", data, path);
  }
  int list(std::vector<std::string>& ids) override { return call<&KFASupport::list>("list", ids); }
  int get(const std::string& id, KFAProblemReportData& data) override {
    return call<&KFASupport::get>("get", id, data);
  }
};

template <>
class StubOf<KFASampleM> : public Stub<KFASampleM> {
 public:
  using Stub::Stub;
  int list(std::vector<std::string>& names) override { return call<&KFASampleM::list>("list", names); }
  int get(const std::string& name, KFAEnvConfig& sample) override {
    return call<&KFASampleM::get>("get", name, sample);
  }
  int set(const std::string& name, const KFAEnvConfig& sample) override {
    return call<&KFASampleM::set>("set", name, sample);
  }
  int remove(const std::string& name) override { return call<&KFASampleM::remove>("remove", name); }
  int check(const KFAEnvConfig& config, KFAQoSValidationList& violations) override {
    return call<&KFASampleM::check>("check", config, violations);
  }
};

template <>
class StubOf<KFAFilesM> : public Stub<KFAFilesM> {
 public:
  using Stub::Stub;
  int list(const std::string& folder, std::vector<KFAFileNames>& parts) override {
    return call<&KFAFilesM::list>("list", folder, parts);
  }
  int read(const std::vector<std::string>& paths, std::vector<KFAFileText>& texts) override {
    return call<&KFAFilesM::read>("read", paths, texts);
  }
  int change(const KFAFilesChange& change, std::vector<KFAFileOutcome>& outcomes) override {
    return call<&KFAFilesM::change>("change", change, outcomes);
  }
  int changeFreely(const KFAFilesChange& change, std::vector<KFAFileOutcome>& outcomes) override {
    return call<&KFAFilesM::changeFreely>("changeFreely", change, outcomes);
  }
  int getHoldings(KFANodeHoldings& holdings) override {
    return call<&KFAFilesM::getHoldings>("getHoldings", holdings);
  }
};

}  // namespace

template <class Manager>
boost::shared_ptr<Manager> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>& channel) {
  return boost::make_shared<StubOf<Manager>>(channel);
}

template boost::shared_ptr<KFATEM> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>&);
template boost::shared_ptr<KFAEnvM> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>&);
template boost::shared_ptr<KFAPkgM> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>&);
template boost::shared_ptr<KFAProcessM> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>&);
template boost::shared_ptr<KFANetworkM> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>&);
template boost::shared_ptr<KFAProcessMonitor> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>&);
template boost::shared_ptr<KFAUp2date> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>&);
template boost::shared_ptr<KFASupport> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>&);
template boost::shared_ptr<KFASampleM> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>&);
template boost::shared_ptr<KFAFilesM> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>&);

}  // namespace KFA
