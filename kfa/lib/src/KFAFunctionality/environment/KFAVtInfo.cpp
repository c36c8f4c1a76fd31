// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAVtInfo.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAVtInfo> recordKFAVtInfo("KFAVtInfo");

KFAVtInfo::~KFAVtInfo() = default;

const KFLFieldTable& KFAVtInfo::fields() {
  using R = KFAVtInfo;
  static constexpr KFLField rows[] = {
      field<R, &R::version_>(1223),         field<R, &R::build_>(1278), field<R, &R::serviceEID_>("sve_eid"),
      list<R, &R::redirectServices_>(1323), base<R, KFLVtInfo>(),
  };
  static constexpr KFLFieldTable table{"KFAVtInfo", kTypesURI, "vt_infoType", rows};
  return table;
}

}  // namespace KFA
