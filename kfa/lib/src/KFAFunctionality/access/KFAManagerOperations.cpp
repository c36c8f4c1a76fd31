// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/access/KFAManagerOperations.h>

#include <functional>

#include <KFAFunctionality/access/KFAManagerForms.h>

namespace KFA {

namespace {

using Operation = KFAManagerOperation;
using Kind = KFAOperationKind;

// --- Arguments out of a message, the result into parts -----------------------------------------------------

template <class T>
int readArgument(const Operation& operation, const KFLMessageIterator& it, const char* name, T& value) {
  setErrorMessage("%s", "");
  int result = it.findChild(name);
  if (result == 0) {
    result = forms::get(it, value);
    it.leaveChild();
  } else {
    setErrorMessage("there is none");
  }
  if (result == 0) return 0;
  const std::string reason = getErrorMessage();
  setErrorMessage("the argument '%s' of %s.%s cannot be read: %s", name, operation.manager, operation.name,
                  reason.empty() ? "its text is no value of its type" : reason.c_str());
  return -1;
}

template <class Values, std::size_t... Index>
int readArguments(const Operation& operation, const KFLMessage& arguments, Values& values,
                  std::index_sequence<Index...>) {
  const KFLMessageIterator it = arguments.getIterator();
  const bool areRead =
      (... && (readArgument(operation, it, operation.parameters[Index], std::get<Index>(values)) == 0));
  return areRead ? 0 : -1;
}

// Whoever only read has lost nothing but the answer; of a change it must be said that it was made.
int failToTell(const Operation& operation) {
  const std::string reason = getErrorMessage();
  if (operation.kind == Kind::Read) {
    setErrorMessage("the result of %s.%s has no message form: %s", operation.manager, operation.name,
                    reason.c_str());
    return KFAManagerFailed;
  }
  setErrorMessage("%s.%s was done, but its result has no message form: %s", operation.manager, operation.name,
                  reason.c_str());
  return KFAManagerUnreachable;
}

template <class T>
int sendPart(const Operation& operation, const T& value, const KFAPartSink& sink, KFAPartForm form) {
  std::string part;
  if (forms::printResult(value, part, form) != 0) return failToTell(operation);
  if (sink(part) == 0) return KFAManagerDone;
  setErrorMessage("the result of %s.%s was not taken", operation.manager, operation.name);
  return KFAManagerUnreachable;
}

template <class T>
int sendResult(const Operation& operation, T& result, const KFAPartSink& sink, KFAPartForm form) {
  if constexpr (forms::isVector<T>) {
    int code = KFAManagerDone;
    for (auto item = result.begin(); item != result.end() && code == KFAManagerDone; ++item) {
      // What was sent is let go, so that a long list is not held twice.
      const typename T::value_type sent = std::move(*item);
      code = sendPart(operation, sent, sink, form);
    }
    return code;
  } else {
    return sendPart(operation, result, sink, form);
  }
}

int refuseManager(const Operation& operation, const std::string& implementation) {
  setErrorMessage("%s are not offered by this agent for the implementation \"%s\"", operation.manager,
                  implementation.c_str());
  return KFAManagerFailed;
}

// `find` gives the manager, or null, once the arguments are read.
template <auto Member, class Find>
int answerWith(const Operation& operation, const std::string& implementation, const KFLMessage& arguments,
               const KFAPartSink& sink, KFAPartForm form, Find find) {
  using Signature = forms::Signature<Member>;
  typename Signature::Values values{};
  if (readArguments(operation, arguments, values, std::make_index_sequence<Signature::kArguments>()) != 0)
    return KFAManagerFailed;
  const auto manager = find();
  if (!manager) return refuseManager(operation, implementation);
  const int code = std::apply([&](auto&... value) { return ((*manager).*Member)(value...); }, values);
  if constexpr (Signature::kResults == 1) {
    if (code == KFAManagerDone)
      return sendResult(operation, std::get<Signature::kArguments>(values), sink, form);
  }
  return code;
}

template <class Manager, auto Member>
int answerLocally(const Operation& operation, const KFALibFunctionality& managers,
                  const KFLAccessProviderSP& ap, const std::string& implementation,
                  const KFLMessage& arguments, const KFAPartSink& sink, KFAPartForm form) {
  return answerWith<Member>(operation, implementation, arguments, sink, form,
                            [&] { return managers.multiplexer<Manager>().getLocal(ap, implementation); });
}

// Environments go out as they come: the agent of a node of ten thousand does not hold them all.
int answerEnvironments(const Operation& operation, const KFALibFunctionality& managers,
                       const KFLAccessProviderSP& ap, const std::string& implementation, const KFLMessage&,
                       const KFAPartSink& sink, KFAPartForm form) {
  const auto manager = managers.multiplexer<KFAEnvM>().getLocal(ap, implementation);
  if (!manager) return refuseManager(operation, implementation);
  int sent = KFAManagerDone;
  const auto send = [&](const KFAEnvM::EnvSP& env) {
    sent = sendPart(operation, env, sink, form);
    return sent;
  };
  const int code = manager->each(std::cref(send));
  return sent != KFAManagerDone ? sent : code;
}

// The files of a node have no place among an implementation's managers.
int answerNoFiles(const Operation& operation, const KFALibFunctionality&, const KFLAccessProviderSP&,
                  const std::string& implementation, const KFLMessage&, const KFAPartSink&, KFAPartForm) {
  return refuseManager(operation, implementation);
}

// --- The table ---------------------------------------------------------------------------------------------

template <class Manager, auto Member, class... Names>
constexpr Operation describe(Operation::Answer answer, Kind kind, const char* name, Names... parameters) {
  using Signature = forms::Signature<Member>;
  using Values = typename Signature::Values;
  static_assert(sizeof...(Names) == Signature::kCount, "each parameter has a name");
  Operation made{forms::kManagerName<Manager>,
                 name,
                 kind,
                 {parameters...},
                 Signature::kArguments,
                 Signature::kResults == 1,
                 false,
                 std::is_same_v<forms::FirstOf<Values>, KFLEID>,
                 answer};
  if constexpr (Signature::kResults == 1)
    made.isList = forms::isVector<std::tuple_element_t<Signature::kArguments, Values>>;
  if constexpr (Signature::kArguments == 0) made.isAboutEnvironment = false;
  return made;
}

template <class Manager, auto Member, class... Names>
constexpr Operation operation(Kind kind, const char* name, Names... parameters) {
  return describe<Manager, Member>(&answerLocally<Manager, Member>, kind, name, parameters...);
}

constexpr Operation kOperations[] = {
    operation<KFATEM, &KFATEM::list>(Kind::Read, "list", "templates"),
    operation<KFATEM, &KFATEM::get>(Kind::Read, "get", "of", "info"),
    operation<KFATEM, &KFATEM::install>(Kind::All, "install", "which"),
    operation<KFATEM, &KFATEM::remove>(Kind::All, "remove", "which"),
    operation<KFATEM, &KFATEM::listOf>(Kind::Read, "listOf", "eid", "templates"),
    operation<KFATEM, &KFATEM::addTo>(Kind::All, "addTo", "eid", "templates"),
    operation<KFATEM, &KFATEM::removeFrom>(Kind::All, "removeFrom", "eid", "templates"),

    describe<KFAEnvM, &KFAEnvM::list>(&answerEnvironments, Kind::Read, "list", "envs"),
    operation<KFAEnvM, &KFAEnvM::get>(Kind::Read, "get", "eid", "env"),
    operation<KFAEnvM, &KFAEnvM::create>(Kind::Change, "create", "config", "eid"),
    operation<KFAEnvM, &KFAEnvM::clone>(Kind::Change, "clone", "source", "options", "eid"),
    operation<KFAEnvM, &KFAEnvM::remove>(Kind::All, "remove", "eid"),
    operation<KFAEnvM, &KFAEnvM::getConfig>(Kind::Read, "getConfig", "eid", "config"),
    operation<KFAEnvM, &KFAEnvM::setConfig>(Kind::Change, "setConfig", "eid", "changes"),
    operation<KFAEnvM, &KFAEnvM::start>(Kind::Change, "start", "eid"),
    operation<KFAEnvM, &KFAEnvM::stop>(Kind::Change, "stop", "eid"),
    operation<KFAEnvM, &KFAEnvM::getInfo>(Kind::Read, "getInfo", "info"),
    operation<KFAEnvM, &KFAEnvM::getSettings>(Kind::Read, "getSettings", "settings"),
    operation<KFAEnvM, &KFAEnvM::setSettings>(Kind::Change, "setSettings", "settings"),

    operation<KFAPkgM, &KFAPkgM::list>(Kind::Read, "list", "eid", "packages"),
    operation<KFAPkgM, &KFAPkgM::get>(Kind::Read, "get", "eid", "package", "versions"),
    operation<KFAPkgM, &KFAPkgM::check>(Kind::Read, "check", "eid", "newer"),
    operation<KFAPkgM, &KFAPkgM::install>(Kind::All, "install", "eid", "packages", "changed"),
    operation<KFAPkgM, &KFAPkgM::update>(Kind::All, "update", "eid", "packages", "changed"),
    operation<KFAPkgM, &KFAPkgM::remove>(Kind::All, "remove", "eid", "packages", "changed"),

    operation<KFAProcessM, &KFAProcessM::list>(Kind::Read, "list", "eid", "processes"),
    operation<KFAProcessM, &KFAProcessM::get>(Kind::Read, "get", "eid", "pid", "process"),
    operation<KFAProcessM, &KFAProcessM::signal>(Kind::All, "signal", "eid", "pid", "number"),
    operation<KFAProcessM, &KFAProcessM::execute>(Kind::All, "execute", "eid", "arguments", "result"),

    operation<KFANetworkM, &KFANetworkM::list>(Kind::Read, "list", "devices"),
    operation<KFANetworkM, &KFANetworkM::get>(Kind::Read, "get", "eid", "devices"),
    operation<KFANetworkM, &KFANetworkM::getShaping>(Kind::Read, "getShaping", "shaping"),
    operation<KFANetworkM, &KFANetworkM::setShaping>(Kind::Change, "setShaping", "shaping"),

    operation<KFAProcessMonitor, &KFAProcessMonitor::start>(Kind::Change, "start", "eid", "seconds"),
    operation<KFAProcessMonitor, &KFAProcessMonitor::stop>(Kind::Change, "stop", "eid"),
    operation<KFAProcessMonitor, &KFAProcessMonitor::list>(Kind::Read, "list", "eids"),
    operation<KFAProcessMonitor, &KFAProcessMonitor::get>(Kind::Read, "get", "eid", "processes"),

    operation<KFAUp2date, &KFAUp2date::list>(Kind::Read, "list", "updates"),
    operation<KFAUp2date, &KFAUp2date::listInstalled>(Kind::Read, "listInstalled", "updates"),
    operation<KFAUp2date, &KFAUp2date::check>(Kind::Read, "check", "updates"),
    operation<KFAUp2date, &KFAUp2date::install>(Kind::All, "install", "updates"),
    operation<KFAUp2date, &KFAUp2date::getConfig>(Kind::Read, "getConfig", "config"),
    operation<KFAUp2date, &KFAUp2date::setConfig>(Kind::Change, "setConfig", "config"),

    operation<KFASupport, &KFASupport::send>(Kind::Change, "send", "data", "id"),
    operation<KFASupport, &KFASupport::collect>(Kind::Change, "collect", "data", "path"),
    operation<KFASupport, &KFASupport::list>(Kind::Read, "list", "ids"),
    operation<KFASupport, &KFASupport::get>(Kind::Read, "get", "id", "data"),

    operation<KFASampleM, &KFASampleM::list>(Kind::Read, "list", "names"),
    operation<KFASampleM, &KFASampleM::get>(Kind::Read, "get", "name", "sample"),
    operation<KFASampleM, &KFASampleM::set>(Kind::Change, "set", "name", "sample"),
    operation<KFASampleM, &KFASampleM::remove>(Kind::All, "remove", "name"),
    operation<KFASampleM, &KFASampleM::check>(Kind::Read, "check", "config", "violations"),
};

struct FilesOperation {
  using Answer = int (*)(const Operation& operation, KFAFilesM& files, const KFLMessage& arguments,
                         const KFAPartSink& sink, KFAPartForm form);
  Operation operation;
  Answer answer;
};

template <auto Member>
int answerOfFiles(const Operation& operation, KFAFilesM& files, const KFLMessage& arguments,
                  const KFAPartSink& sink, KFAPartForm form) {
  return answerWith<Member>(operation, {}, arguments, sink, form, [&files] { return &files; });
}

template <auto Member, class... Names>
constexpr FilesOperation ofFiles(Kind kind, const char* name, Names... parameters) {
  return {describe<KFAFilesM, Member>(&answerNoFiles, kind, name, parameters...), &answerOfFiles<Member>};
}

constexpr FilesOperation kFilesOperations[] = {
    ofFiles<&KFAFilesM::list>(Kind::Read, "list", "folder", "parts"),
    ofFiles<&KFAFilesM::read>(Kind::Read, "read", "paths", "texts"),
    ofFiles<&KFAFilesM::change>(Kind::Change, "change", "change", "outcomes"),
    ofFiles<&KFAFilesM::changeFreely>(Kind::All, "changeFreely", "change", "outcomes"),
    ofFiles<&KFAFilesM::getHoldings>(Kind::Read, "getHoldings", "holdings"),
};

}  // namespace

std::span<const KFAManagerOperation> listManagerOperations() {
  return kOperations;
}

const KFAManagerOperation* findManagerOperation(std::string_view manager, std::string_view name) {
  for (const Operation& operation : kOperations) {
    if (operation.manager == manager && operation.name == name) return &operation;
  }
  for (const FilesOperation& of : kFilesOperations) {
    if (of.operation.manager == manager && of.operation.name == name) return &of.operation;
  }
  return nullptr;
}

int getEnvironmentOfCall(const KFAManagerOperation& operation, const KFLMessage& arguments, KFLEID& eid) {
  eid = KFLEID();
  return operation.isAboutEnvironment
             ? readArgument(operation, arguments.getIterator(), operation.parameters.front(), eid)
             : 0;
}

int answerManagerCall(const KFAManagerOperation& operation, const KFALibFunctionality& managers,
                      const KFLAccessProviderSP& ap, const std::string& implementation,
                      const KFLMessage& arguments, const KFAPartSink& sink, KFAPartForm form) {
  return operation.answer(operation, managers, ap, implementation, arguments, sink, form);
}

int answerManagerCall(const KFAManagerOperation& operation, const KFALibFunctionality& managers,
                      const KFLAccessProviderSP& ap, const std::string& implementation,
                      const KFLMessage& arguments, const KFAPartSink& sink) {
  return answerManagerCall(operation, managers, ap, implementation, arguments, sink, KFAPartForm::Text);
}

int answerFilesCall(const KFAManagerOperation& operation, KFAFilesM& files, const KFLMessage& arguments,
                    const KFAPartSink& sink, KFAPartForm form) {
  for (const FilesOperation& of : kFilesOperations) {
    if (of.operation.name == std::string_view(operation.name))
      return of.answer(operation, files, arguments, sink, form);
  }
  return refuseManager(operation, {});
}

int answerFilesCall(const KFAManagerOperation& operation, KFAFilesM& files, const KFLMessage& arguments,
                    const KFAPartSink& sink) {
  return answerFilesCall(operation, files, arguments, sink, KFAPartForm::Text);
}

}  // namespace KFA
