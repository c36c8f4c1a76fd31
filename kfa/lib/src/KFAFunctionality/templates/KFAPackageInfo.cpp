// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/templates/KFAPackageInfo.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAPackageInfo> recordKFAPackageInfo("KFAPackageInfo");

const KFLFieldTable& KFAPackageInfo::fields() {
  using R = KFAPackageInfo;
  static constexpr KFLField rows[] = {
      field<R, &R::name_>(1026).required().mustWrite(),
      field<R, &R::description_>(1496).required().mustWrite(),
      field<R, &R::kind_>(1007).required().mustWrite(),
      field<R, &R::version_>(1223).required().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFAPackageInfo", kTypesURI, "", rows};
  return table;
}

}  // namespace KFA
