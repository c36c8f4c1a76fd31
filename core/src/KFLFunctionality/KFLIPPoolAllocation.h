// SPDX-License-Identifier: Apache-2.0
// What a pool of IP addresses supplies for one network: the gateway and the name servers to be used with its
// addresses. A plain value. IPv4 addresses stand in the IPv6 form that carries them.
#ifndef KFLFUNCTIONALITY_KFLIPPOOLALLOCATION_H
#define KFLFUNCTIONALITY_KFLIPPOOLALLOCATION_H

#include <vector>

#include <KFLCommon/KFLProperty.h>
#include <KFLFunctionality/KFLIPv6.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLIPPoolAllocation {
 public:
  using NameServers = KFLOptionalProperty<std::vector<KFLIPv6>>;

  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLIPPoolAllocation>;
  // A message without a gateway cannot be read.
  using Reader = KFLRecordReader<KFLIPPoolAllocation>;

  // The any-address when the network has none.
  const KFLIPv6& getGateway() const { return gateway_; }
  void setGateway(const KFLIPv6& gateway) { gateway_ = gateway; }
  const NameServers& getNameServers() const { return nameServers_; }
  void setNameServers(const NameServers& servers) { nameServers_ = servers; }

 private:
  KFLIPv6 gateway_;
  NameServers nameServers_;
};

}  // namespace KFL

#endif
