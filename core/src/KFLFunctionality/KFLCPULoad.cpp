// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLCPULoad.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLCPULoad> recordKFLCPULoad("KFLCPULoad");

const KFLFieldTable& KFLCPULoad::fields() {
  using R = KFLCPULoad;
  static constexpr KFLField rows[] = {
      field<R, &R::user_>("user_time").required().mustWrite(),
      field<R, &R::nice_>("nice_time").required().mustWrite(),
      field<R, &R::system_>("system_time").required().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFLCPULoad", kTypesNamespaceURI, "", rows};
  return table;
}

}  // namespace KFL
