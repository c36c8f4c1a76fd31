// SPDX-License-Identifier: Apache-2.0
// One virtual Ethernet device of an environment: an entry of the NETIF key of its configuration file, and an
// element of its record. A plain value.
//
// An entry is one line of these fields, each ending in a comma:
//
//   ifname=eth0,                   device
//   network=,                      network of the node
//   mac=00:11:22:33:44:55,         MAC address
//   nettype=bridged,               or host-routed
//   gw=10.0.0.1,gw6=fe80::ff,      IPv4 and IPv6 gateway, each left out when there is none
//   ip=10.0.0.5/24:10.0.1.5/24,    IPv4 addresses, a colon between two
//   dhcp=no,dhcp6=yes,             DHCP for IPv4 and IPv6; dhcp6 is left out when it is off
//   ip6=fe80::1/64,fe80::2/64,     IPv6 addresses, a comma behind each, up to the end of the entry
//
// The trap: nothing may follow ip6=, since all that does is taken as addresses.
#ifndef KFAFUNCTIONALITY_NETWORK_KFANETVETH_H
#define KFAFUNCTIONALITY_NETWORK_KFANETVETH_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <KFLFunctionality/KFLNetNIC.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFANetVEth : public KFLNetNIC {
 public:
  static const KFLFieldTable& fields();
  // A device without an interface name can be neither written nor read.
  using Writer = KFLRecordWriter<KFANetVEth>;
  using Reader = KFLRecordReader<KFANetVEth>;

  KFANetVEth() = default;
  KFANetVEth(const KFANetVEth&) = default;
  KFANetVEth(KFANetVEth&&) = default;
  KFANetVEth& operator=(const KFANetVEth&) = default;
  KFANetVEth& operator=(KFANetVEth&&) = default;
  ~KFANetVEth() override;

  // Takes what it understands of one NETIF entry into the device, and skips the rest. Addresses are added to
  // those that are there; everything else is replaced. A flag is set when its value is a beginning of "yes"
  // (nettype: of "host-routed"), the empty value included.
  void fromString(const std::string& text);
  // The NETIF entry of the device; empty for a host-routed "venet0", whose addresses have a key of their own.
  // While DHCP is on no addresses are written. WINS and name servers have no text form.
  std::string toString() const;

  const std::vector<std::string>& getWinsServers() const { return winsServers_; }
  void setWinsServers(std::vector<std::string> servers) { winsServers_ = std::move(servers); }
  const std::vector<std::string>& getNameServers() const { return nameServers_; }
  void setNameServers(std::vector<std::string> servers) { nameServers_ = std::move(servers); }
  // Whether the node routes packets to the device; a device that is not host-routed is bridged.
  bool getHostRouted() const { return hostRouted_; }
  void setHostRouted(bool hostRouted) { hostRouted_ = hostRouted; }

 private:
  void takeFields(std::string_view entry);

  std::vector<std::string> winsServers_;
  std::vector<std::string> nameServers_;
  bool hostRouted_ = false;
};

}  // namespace KFA

#endif
