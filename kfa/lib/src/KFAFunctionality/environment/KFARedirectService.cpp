// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFARedirectService.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFARedirectService> recordKFARedirectService("KFARedirectService");

const KFLFieldTable& KFARedirectService::fields() {
  using R = KFARedirectService;
  static constexpr KFLField rows[] = {
      field<R, &R::name_>(1010).required(),
      field<R, &R::port_>(1704).required(),
      field<R, &R::address_>(1652).required().orEmptyItem(),
      presence<R, &R::default_>(1305),
  };
  static constexpr KFLFieldTable table{"KFARedirectService", kTypesURI, "redirect_serviceType", rows};
  return table;
}

}  // namespace KFA
