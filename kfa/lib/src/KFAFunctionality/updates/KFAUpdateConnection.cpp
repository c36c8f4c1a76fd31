// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/updates/KFAUpdateConnection.h>

#include <KFLMessage/KFLRecordNamedFields.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAUpdateConnectionSettings> recordKFAUpdateConnectionSettings(
    "KFAUpdateConnectionSettings");
static const KFLRecordRegistration<KFAUpdateProxySettings> recordKFAUpdateProxySettings(
    "KFAUpdateProxySettings");
static const KFLRecordRegistration<KFAUpdateConnection> recordKFAUpdateConnection("KFAUpdateConnection");

static constexpr KFLNumberName kProxyTypes[] = {
    {KFAUpdateProxySettings::Explorer, "explorer"},
    {KFAUpdateProxySettings::Custom, "custom"},
    {KFAUpdateProxySettings::NoProxy, "no_proxy"},
};
constinit const KFLNumberNames KFAUpdateProxySettings::proxyTypes{kProxyTypes};

// The address is written once when it is specified and then once more in any case. Agents rely on the second element,
// so neither side may mend this: a reader takes the first one as it stands, an empty one included.
int KFAUpdateConnectionSettings::writeUrl(KFLMessageIterator& it, const KFAUpdateConnectionSettings& settings,
                                          const KFLField& row) {
  const Text& url = settings.url_;
  if (url.isSpecified() && it.putValue(url.getValue(), row.id) != 0) return -1;
  it.putValue(url.getValue(), row.id);
  return 0;
}

int KFAUpdateConnectionSettings::readUrl(const KFLMessageIterator& it, KFAUpdateConnectionSettings& settings,
                                         const KFLField& row) {
  Text& url = settings.url_;
  url.setSpecified(it.getValue(url.value(), row.id) == 0);
  if (!url.isSpecified()) url.reset();
  return 0;
}

const KFLFieldTable& KFAUpdateConnectionSettings::fields() {
  using R = KFAUpdateConnectionSettings;
  static constexpr KFLField rows[] = {
      special<R, std::string, &R::writeUrl, &R::readUrl>(1012).atMost(2).mustWrite(),
      field<R, &R::login_>(1025).mustWrite(),
      field<R, &R::password_>(1032).mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFAUpdateConnectionSettings", kUp2dateURI, "", rows};
  return table;
}

const KFLFieldTable& KFAUpdateProxySettings::fields() {
  using R = KFAUpdateProxySettings;
  static constexpr KFLField rows[] = {
      named<R, &R::type_>(1007, proxyTypes).wellFormed(),
      base<R, KFAUpdateConnectionSettings>(),
  };
  static constexpr KFLFieldTable table{"KFAUpdateProxySettings", kUp2dateURI, "", rows};
  return table;
}

const KFLFieldTable& KFAUpdateConnection::fields() {
  using R = KFAUpdateConnection;
  static constexpr KFLField rows[] = {
      inlined<R, &R::direct_>(),
      field<R, &R::proxy_>(1843),
      field<R, &R::proxyExceptions_>(1795),
      field<R, &R::repository_>(1101),
  };
  static constexpr KFLFieldTable table{"KFAUpdateConnection", kUp2dateURI, "", rows};
  return table;
}

}  // namespace KFA
