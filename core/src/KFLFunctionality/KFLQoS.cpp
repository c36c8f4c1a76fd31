// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLQoS.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLQoS> recordKFLQoS("KFLQoS");

const KFLFieldTable& KFLQoS::fields() {
  using R = KFLQoS;
  static constexpr KFLField rows[] = {
      field<R, &R::id_>(1010).required().mustWrite(),
      field<R, &R::soft_>(1066).mustWrite(),
      field<R, &R::hard_>(1067).required().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFLQoS", kTypesNamespaceURI, "", rows};
  return table;
}

}  // namespace KFL
