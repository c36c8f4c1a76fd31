// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLVtInfo.h>

#include <KFLMessage/KFLRecordRegistry.h>

KFL_DERIVED_REGISTRY(KFL::KFLVtInfo)

namespace KFL {

static const KFLRecordRegistration<KFLVtInfo> recordKFLVtInfo("KFLVtInfo");

KFLVtInfo::~KFLVtInfo() = default;

const KFLFieldTable& KFLVtInfo::fields() {
  using R = KFLVtInfo;
  static constexpr KFLField rows[] = {
      field<R, &R::technology_>("technology"),
      field<R, &R::description_>(1496),
  };
  static constexpr KFLFieldTable table{"KFLVtInfo", kTypesNamespaceURI, "vt_infoType", rows};
  return table;
}

}  // namespace KFL
