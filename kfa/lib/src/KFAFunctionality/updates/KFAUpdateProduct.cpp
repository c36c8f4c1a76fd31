// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/updates/KFAUpdateProduct.h>

#include <KFLMessage/KFLRecordNamedFields.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAUpdateInstallSource> recordKFAUpdateInstallSource(
    "KFAUpdateInstallSource");
static const KFLRecordRegistration<KFAUpdateProduct> recordKFAUpdateProduct("KFAUpdateProduct");

static constexpr KFLNumberName kInstallTypes[] = {
    {KFAUpdateProduct::AutoDownload, "auto_download"},
    {KFAUpdateProduct::Automatic, "automatic"},
    {KFAUpdateProduct::Manual, "manual"},
    {KFAUpdateProduct::Disabled, "disabled"},
    {KFAUpdateProduct::Disabled, ""},
};
constinit const KFLNumberNames KFAUpdateProduct::productInstallTypes{kInstallTypes};

const KFLFieldTable& KFAUpdateInstallSource::fields() {
  using R = KFAUpdateInstallSource;
  static constexpr KFLField rows[] = {
      field<R, &R::value_>(1018).required(),
      field<R, &R::standard_>("standard"),
  };
  static constexpr KFLFieldTable table{"KFAUpdateInstallSource", kUp2dateURI, "", rows};
  return table;
}

const KFLFieldTable& KFAUpdateProduct::fields() {
  using R = KFAUpdateProduct;
  static constexpr KFLField rows[] = {
      field<R, &R::id_>(1010).required(),
      field<R, &R::name_>(1026).required(),
      named<R, &R::installType_>(1839, productInstallTypes).required(),
      field<R, &R::installSource_>(1803),
      field<R, &R::location_>(1338),
  };
  static constexpr KFLFieldTable table{"KFAUpdateProduct", kUp2dateURI, "", rows};
  return table;
}

}  // namespace KFA
