// SPDX-License-Identifier: Apache-2.0
// The message forms of what the managers' operations take and give, chosen by the C++ types of their parameters. Not
// installed.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAMANAGERFORMS_H
#define KFAFUNCTIONALITY_ACCESS_KFAMANAGERFORMS_H

#include <cstddef>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLEnv.h>
#include <KFLFunctionality/KFLNetDevice.h>
#include <KFLFunctionality/KFLPackage.h>
#include <KFLMessage/KFLMessage.h>

#include <KFAFunctionality/access/KFAEnvM.h>
#include <KFAFunctionality/access/KFAFilesM.h>
#include <KFAFunctionality/access/KFANetworkM.h>
#include <KFAFunctionality/access/KFAPkgM.h>
#include <KFAFunctionality/access/KFAProcessM.h>
#include <KFAFunctionality/access/KFAProcessMonitor.h>
#include <KFAFunctionality/access/KFASampleM.h>
#include <KFAFunctionality/access/KFASupport.h>
#include <KFAFunctionality/access/KFATEM.h>
#include <KFAFunctionality/access/KFAUp2date.h>
#include <KFAFunctionality/environment/KFAEnv.h>
#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/environment/KFAVtInfo.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/migration/KFAMigratorCloneOptions.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/network/KFANetworkShaping.h>
#include <KFAFunctionality/support/KFAProblemReportData.h>
#include <KFAFunctionality/templates/KFAPackageInfo.h>
#include <KFAFunctionality/templates/KFAPackageKFTemplate.h>
#include <KFAFunctionality/templates/KFAPackageVersion.h>
#include <KFAFunctionality/templates/KFATemplate.h>
#include <KFAFunctionality/templates/KFATemplateConfigInfo.h>
#include <KFAFunctionality/updates/KFAUpdateConfig.h>
#include <KFAFunctionality/updates/KFAUpdateList.h>

namespace KFA {
#pragma GCC visibility push(hidden)

namespace forms {

inline constexpr const char* kArguments = "arguments";
inline constexpr const char* kResult = "result";
inline constexpr const char* kItem = "item";

// The names of the managers in calls.
template <class Manager>
inline constexpr const char* kManagerName = nullptr;
template <>
inline constexpr const char* kManagerName<KFATEM> = "templates";
template <>
inline constexpr const char* kManagerName<KFAEnvM> = "environments";
template <>
inline constexpr const char* kManagerName<KFAPkgM> = "packages";
template <>
inline constexpr const char* kManagerName<KFAProcessM> = "processes";
template <>
inline constexpr const char* kManagerName<KFANetworkM> = "network";
template <>
inline constexpr const char* kManagerName<KFAProcessMonitor> = "monitor";
template <>
inline constexpr const char* kManagerName<KFAUp2date> = "updates";
template <>
inline constexpr const char* kManagerName<KFASupport> = "support";
template <>
inline constexpr const char* kManagerName<KFASampleM> = "samples";
template <>
inline constexpr const char* kManagerName<KFAFilesM> = kFilesManager;

// The base class whose registry knows the classes of a polymorphic object.
template <class T>
struct RegistryOf {
  using Base = T;
};
template <>
struct RegistryOf<KFAEnv> {
  using Base = KFLEnv;
};
template <>
struct RegistryOf<KFAPackageKFTemplate> {
  using Base = KFLPackage;
};

template <class T>
inline constexpr bool isVector = false;
template <class T>
inline constexpr bool isVector<std::vector<T>> = true;

template <class T>
inline constexpr bool isPointer = false;
template <class T>
inline constexpr bool isPointer<boost::shared_ptr<T>> = true;

// Into the current element: 0, or another value.
template <class T>
int put(KFLMessageIterator& it, const T& value) {
  if constexpr (isVector<T>) {
    int result = 0;
    for (auto item = value.begin(); item != value.end() && result == 0; ++item) {
      it.addChild(kItem);
      result = put(it, *item);
      it.leaveChild();
      it.selectNamespaceId(0);
    }
    return result;
  } else if constexpr (isPointer<T>) {
    return it.putObject(value, KFLWriterDerived<typename RegistryOf<typename T::element_type>::Base>());
  } else {
    return KFL::fields::putOne(it, value, {});
  }
}

// From the current element, into a fresh value: 0, or -1.
template <class T>
int get(const KFLMessageIterator& it, T& value) {
  if constexpr (isVector<T>) {
    int result = 0;
    for (int left = it.findChild(kItem); left == 0; left = it.findNextChild(kItem)) {
      result = get(it, value.emplace_back());
      if (result != 0) break;
    }
    if (!value.empty()) it.leaveChild();
    return result;
  } else if constexpr (isPointer<T>) {
    using Object = typename T::element_type;
    using Base = typename RegistryOf<Object>::Base;
    boost::shared_ptr<Base> made;
    if (it.getObject(made, KFLReaderDerived<Base>()) != 0) return -1;
    value = boost::dynamic_pointer_cast<Object>(made);
    if (value) return 0;
    setErrorMessage("it has the type '%s', which is of another kind", std::string(it.getTypeTag()).c_str());
    return -1;
  } else {
    return KFL::fields::getOne(it, value, {});
  }
}

// One value as a message of its own: 0, or -1 with an error text.
template <class T>
int printResult(const T& value, std::string& part, KFAPartForm form = KFAPartForm::Text) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  it.setName(kResult, kTypesURI);
  if (put(it, value) != 0) return -1;
  return form == KFAPartForm::Packed ? message.pack(part) : message.print(part);
}
template <class T>
int parseResult(const std::string& part, T& value) {
  KFLMessage message;
  if ((KFLMessage::isPacked(part) ? message.unpack(part) : message.parse(part)) != 0) return -1;
  const KFLMessageIterator it = message.getIterator();
  if (it.getName() == kResult) return get(it, value);
  setErrorMessage("the root is '%s'; '%s' would be right", std::string(it.getName()).c_str(), kResult);
  return -1;
}

// What the parameters of one operation are: arguments, and behind them a result if the last one is a reference to what
// may be changed.
template <auto Member>
struct Signature;
template <class Owner, class... Parameters, int (Owner::*Member)(Parameters...)>
struct Signature<Member> {
  using Values = std::tuple<std::remove_cvref_t<Parameters>...>;
  static constexpr std::size_t kCount = sizeof...(Parameters);

  template <class Parameter>
  static constexpr bool isResult =
      std::is_lvalue_reference_v<Parameter> && !std::is_const_v<std::remove_reference_t<Parameter>>;

  static constexpr std::size_t kResults = (0 + ... + (isResult<Parameters> ? 1 : 0));
  static constexpr std::size_t kArguments = kCount - kResults;
  static_assert(kResults <= 1, "an operation has one result at most");

  static constexpr bool lastIsResult() {
    const bool results[] = {isResult<Parameters>..., false};
    return kResults == 0 || results[kCount - 1];
  }
  static_assert(lastIsResult(), "the result is the last parameter");
};

template <class Values>
struct First {
  using Type = void;
};
template <class T, class... Rest>
struct First<std::tuple<T, Rest...>> {
  using Type = T;
};
template <class Values>
using FirstOf = typename First<Values>::Type;

}  // namespace forms

#pragma GCC visibility pop
}  // namespace KFA

#endif
