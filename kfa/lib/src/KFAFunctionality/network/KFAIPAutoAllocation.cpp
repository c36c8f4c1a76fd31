// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/network/KFAIPAutoAllocation.h>

#include <optional>
#include <string>
#include <utility>

#include <KFLFunctionality/KFLIPv4.h>
#include <KFLFunctionality/KFLIPv6.h>

namespace KFA::IPAutoAllocation {

namespace {

using KFL::IPv6Format::IPv4Compatible;

void setGateway(const KFLIPv6& gateway, KFANetVEth& device) {
  if (gateway.isAny()) return;
  const std::optional<KFLIPv4> embedded = IPv4Compatible::test(gateway);
  if (embedded) {
    if (device.getGateway().empty()) device.setGateway(embedded->toString());
  } else if (device.getGatewayV6().empty()) {
    device.setGatewayV6(gateway.toString());
  }
}

void addNameServers(const std::vector<KFLIPv6>& added, KFANetVEth& device) {
  std::vector<std::string> servers = device.getNameServers();
  for (const KFLIPv6& server : added)
    servers.push_back(IPv4Compatible::format(server));
  device.setNameServers(std::move(servers));
}

}  // namespace

void Builder::set(const KFLIPPoolAllocation& allocation, std::vector<KFANetVEth>::iterator device) {
  if (device->getHostRouted()) return;
  KFANetVEth changed(*device);
  setGateway(allocation.getGateway(), changed);
  const KFLIPPoolAllocation::NameServers& servers = allocation.getNameServers();
  if (servers.isSpecified()) addNameServers(servers.getValue(), changed);
  *device = std::move(changed);
}

}  // namespace KFA::IPAutoAllocation
