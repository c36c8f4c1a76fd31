// SPDX-License-Identifier: Apache-2.0
// A network card: an interface with its addresses and gateways. A plain value.
#ifndef KFLFUNCTIONALITY_KFLNETNIC_H
#define KFLFUNCTIONALITY_KFLNETNIC_H

#include <string>
#include <utility>
#include <vector>

#include <KFLFunctionality/KFLIPAddress.h>
#include <KFLFunctionality/KFLNetDevice.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLNetNIC : public KFLNetDevice {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLNetNIC, kTypesNamespace, 167>;
  // What a message leaves out is empty, or false.
  using Reader = KFLRecordReader<KFLNetNIC>;

  KFLNetNIC() = default;
  KFLNetNIC(const KFLNetNIC&) = default;
  KFLNetNIC(KFLNetNIC&&) = default;
  KFLNetNIC& operator=(const KFLNetNIC&) = default;
  KFLNetNIC& operator=(KFLNetNIC&&) = default;
  ~KFLNetNIC() override;

  // The name of the interface, such as eth0.
  const std::string& getName() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  // IPv4 and IPv6, each with its network part where it has one.
  const std::vector<KFLIPAddress>& getIPAddresses() const { return addresses_; }
  void setIPAddresses(std::vector<KFLIPAddress> addresses) { addresses_ = std::move(addresses); }
  void addIPAddress(KFLIPAddress address) { addresses_.push_back(std::move(address)); }
  // The network of the node that the card is connected to.
  const std::string& getNetwork() const { return network_; }
  void setNetwork(std::string network) { network_ = std::move(network); }
  const std::string& getGateway() const { return gateway_; }
  void setGateway(std::string gateway) { gateway_ = std::move(gateway); }
  const std::string& getGatewayV6() const { return gatewayV6_; }
  void setGatewayV6(std::string gateway) { gatewayV6_ = std::move(gateway); }
  // Whether the IPv4 addresses come from a DHCP server.
  bool getDHCP() const { return dhcp_; }
  void setDHCP(bool dhcp) { dhcp_ = dhcp; }
  bool getDHCPv6() const { return dhcpV6_; }
  void setDHCPv6(bool dhcp) { dhcpV6_ = dhcp; }
  const std::string& getMAC() const { return mac_; }
  void setMAC(std::string mac) { mac_ = std::move(mac); }

 private:
  std::string name_;
  std::vector<KFLIPAddress> addresses_;
  std::string network_;
  std::string gateway_;
  std::string gatewayV6_;
  bool dhcp_ = false;
  bool dhcpV6_ = false;
  std::string mac_;
};

}  // namespace KFL

#endif
