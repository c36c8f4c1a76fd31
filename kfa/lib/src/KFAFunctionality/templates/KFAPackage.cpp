// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/templates/KFAPackage.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAPackage> recordKFAPackage("KFAPackage");

const KFLFieldTable& KFAPackage::fields() {
  using R = KFAPackage;
  static constexpr KFLField rows[] = {
      keyed<R, &R::packages_, &R::toString>(1511).mustWrite(),
      field<R, &R::installed_>(1118).mustWrite(),
      base<R, KFATemplate>(),
  };
  static constexpr KFLFieldTable table{"KFAPackage", kTypesURI, "", rows};
  return table;
}

}  // namespace KFA
