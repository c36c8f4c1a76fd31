// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLVtSettings.h>

#include <KFLMessage/KFLRecordRegistry.h>

KFL_DERIVED_REGISTRY(KFL::KFLVtSettings)

namespace KFL {

static const KFLRecordRegistration<KFLVtSettings> recordKFLVtSettings("KFLVtSettings");

KFLVtSettings::~KFLVtSettings() = default;

const KFLFieldTable& KFLVtSettings::fields() {
  using R = KFLVtSettings;
  static constexpr KFLField rows[] = {
      field<R, &R::technology_>("technology"),
      field<R, &R::enabled_>(1248),
  };
  static constexpr KFLFieldTable table{"KFLVtSettings", kTypesNamespaceURI, "vt_settingsType", rows};
  return table;
}

}  // namespace KFL
