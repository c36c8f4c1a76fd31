// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLNetNIC.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static KFLDerivedParserFactoryT<KFLNetNIC, KFLNetDevice, std::string, KFLNetNIC::Reader, KFLNetNIC::Writer>
    factoryKFLNetNIC;
static const KFLRecordRegistration<KFLNetNIC> recordKFLNetNIC("KFLNetNIC");

KFLNetNIC::~KFLNetNIC() = default;

const KFLFieldTable& KFLNetNIC::fields() {
  using R = KFLNetNIC;
  static constexpr KFLField rows[] = {
      field<R, &R::name_>(1026).mustWrite(),
      list<R, &R::addresses_>(2047).required().mustWrite(),
      field<R, &R::network_>("network").whenNotEmpty().mustWrite(),
      field<R, &R::gateway_>("gateway").whenNotEmpty().mustWrite(),
      field<R, &R::gatewayV6_>("gateway_v6").whenNotEmpty().mustWrite(),
      field<R, &R::dhcp_>("dhcp").whenNotEmpty().mustWrite(),
      field<R, &R::dhcpV6_>("dhcp_v6").whenNotEmpty().mustWrite(),
      field<R, &R::mac_>("mac").whenNotEmpty().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFLNetNIC", kTypesNamespaceURI, "net_nicType", rows};
  return table;
}

}  // namespace KFL
