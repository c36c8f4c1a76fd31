// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAVPSType.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAVPSType> recordKFAVPSType("KFAVPSType");

const KFLFieldTable& KFAVPSType::fields() {
  using R = KFAVPSType;
  static constexpr KFLField rows[] = {
      field<R, &R::subType_>(1002).keptWhenAbsent(),
      field<R, &R::type_>(1007).required(),
  };
  static constexpr KFLFieldTable table{"KFAVPSType", kTypesURI, "", rows};
  return table;
}

}  // namespace KFA
