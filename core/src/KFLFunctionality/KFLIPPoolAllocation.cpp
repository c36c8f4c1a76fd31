// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLIPPoolAllocation.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLIPPoolAllocation> recordKFLIPPoolAllocation("KFLIPPoolAllocation");

const KFLFieldTable& KFLIPPoolAllocation::fields() {
  using R = KFLIPPoolAllocation;
  static constexpr KFLField rows[] = {
      field<R, &R::gateway_>("gateway").required(),
      container<R, &R::nameServers_>("nameservers", 1281),
  };
  static constexpr KFLFieldTable table{"KFLIPPoolAllocation", kTypesNamespaceURI, "", rows};
  return table;
}

}  // namespace KFL
