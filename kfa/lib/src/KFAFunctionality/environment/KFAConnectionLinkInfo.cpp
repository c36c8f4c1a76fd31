// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAConnectionLinkInfo.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAConnectionLinkInfo> recordKFAConnectionLinkInfo(
    "KFAConnectionLinkInfo");

const KFLFieldTable& KFAConnectionLinkInfo::fields() {
  using R = KFAConnectionLinkInfo;
  static constexpr KFLField clientAddress = field<R, &R::clientAddress_>("client_ip");
  static constexpr KFLField clientPort = field<R, &R::clientPort_>("client_port");
  static constexpr KFLField link = field<R, &R::link_>(1262).required();
  static constexpr KFLField port = field<R, &R::port_>(1704);
  static constexpr KFLField written[] = {clientAddress, clientPort, link, port};
  static constexpr KFLField read[] = {link, port, clientAddress, clientPort};
  static constexpr KFLFieldTable table{"KFAConnectionLinkInfo", kTypesURI, "", written, read};
  return table;
}

}  // namespace KFA
