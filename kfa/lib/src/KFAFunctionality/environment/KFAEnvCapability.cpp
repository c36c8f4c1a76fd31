// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAEnvCapability.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAEnvCapability> recordKFAEnvCapability("KFAEnvCapability");

const KFLFieldTable& KFAEnvCapability::fields() {
  using R = KFAEnvCapability;
  static constexpr KFLField rows[] = {
      field<R, &R::name_>(1010).required(),
      field<R, &R::value_>(1018).required(),
  };
  static constexpr KFLFieldTable table{"KFAEnvCapability", kTypesURI, "", rows};
  return table;
}

}  // namespace KFA
