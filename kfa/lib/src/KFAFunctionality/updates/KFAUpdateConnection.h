// SPDX-License-Identifier: Apache-2.0
// How the update service reaches its source: an address with an account, directly or through a proxy. Plain values.
#ifndef KFAFUNCTIONALITY_UPDATES_KFAUPDATECONNECTION_H
#define KFAFUNCTIONALITY_UPDATES_KFAUPDATECONNECTION_H

#include <string>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLNumberNames.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

// An address and the account to use there.
//
// The trap: a specified address stands in a message twice, one that is not specified once, as an empty element. So
// what was written without an address is read back with an empty one.
class KFAUpdateConnectionSettings {
 public:
  using Text = KFLOptionalProperty<std::string>;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAUpdateConnectionSettings>;
  // Always succeeds; the first address counts.
  using Reader = KFLRecordReader<KFAUpdateConnectionSettings>;

  const Text& getUrl() const { return url_; }
  void setUrl(const Text& url) { url_ = url; }
  const Text& getLogin() const { return login_; }
  void setLogin(const Text& login) { login_ = login; }
  const Text& getPassword() const { return password_; }
  void setPassword(const Text& password) { password_ = password; }

 private:
  static int writeUrl(KFLMessageIterator& it, const KFAUpdateConnectionSettings& settings,
                      const KFLField& row);
  static int readUrl(const KFLMessageIterator& it, KFAUpdateConnectionSettings& settings,
                     const KFLField& row);

  Text url_;
  Text login_;
  Text password_;
};

// Which proxy is used; the settings are those of a custom one.
class KFAUpdateProxySettings : public KFAUpdateConnectionSettings {
 public:
  enum ProxyType { Explorer = 1, Custom = 2, NoProxy = 3 };
  // "explorer" (the settings of the system), "custom", "no_proxy".
  static const KFLNumberNames proxyTypes;

  static const KFLFieldTable& fields();
  // -1 for a type that has no name.
  using Writer = KFLRecordWriter<KFAUpdateProxySettings>;
  // -1 for an unknown name; where there is none, the type is NoProxy.
  using Reader = KFLRecordReader<KFAUpdateProxySettings>;

  // A ProxyType.
  int getType() const { return type_; }
  void setType(int type) { type_ = type; }

 private:
  int type_ = NoProxy;
};

// The whole connection.
class KFAUpdateConnection {
 public:
  using Text = KFLOptionalProperty<std::string>;

  static const KFLFieldTable& fields();
  // 0 also for a proxy that cannot be written, of which an empty element is left.
  using Writer = KFLRecordWriter<KFAUpdateConnection>;
  // A proxy that cannot be read is left unspecified.
  using Reader = KFLRecordReader<KFAUpdateConnection>;

  // The update source itself; its elements stand among the connection's own.
  const KFAUpdateConnectionSettings& getDirect() const { return direct_; }
  void setDirect(const KFAUpdateConnectionSettings& direct) { direct_ = direct; }
  const KFLOptionalProperty<KFAUpdateProxySettings>& getProxy() const { return proxy_; }
  void setProxy(const KFLOptionalProperty<KFAUpdateProxySettings>& proxy) { proxy_ = proxy; }
  // The hosts that are reached without the proxy.
  const Text& getProxyExceptions() const { return proxyExceptions_; }
  void setProxyExceptions(const Text& exceptions) { proxyExceptions_ = exceptions; }
  const Text& getRepository() const { return repository_; }
  void setRepository(const Text& repository) { repository_ = repository; }

 private:
  KFAUpdateConnectionSettings direct_;
  KFLOptionalProperty<KFAUpdateProxySettings> proxy_;
  Text proxyExceptions_;
  Text repository_;
};

}  // namespace KFA

#endif
