// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLOS.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLOS> recordKFLOS("KFLOS");

const KFLFieldTable& KFLOS::fields() {
  using R = KFLOS;
  static constexpr KFLField rows[] = {
      field<R, &R::name_>(1026).mustWrite(),
      field<R, &R::version_>(1223).mustWrite(),
      field<R, &R::platform_>("platform").mustWrite(),
      field<R, &R::kernel_>("kernel").mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFLOS", kTypesNamespaceURI, "", rows};
  return table;
}

}  // namespace KFL
