// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/network/KFAIPAutoAllocation.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace KFA {
namespace {

using Words = std::vector<std::string>;

// Whatever gateways the device had, and none is given to one that is routed by the node.
TEST(KFAIPAutoAllocation, CompletesWhatADeviceLacks) {
  const struct {
    const char *gateway, *v4, *v6;  // the allocation's, and what it is for a device
  } rows[] = {{"::", "", ""},
              {"nonsense", "", ""},
              {"::1", "", "::1"},
              {"::0.0.0.2", "0.0.0.2", ""},
              {"::10.0.0.1", "10.0.0.1", ""},
              {"fe80::1", "", "fe80::1"},
              {"::ffff:10.0.0.1", "", "::ffff:10.0.0.1"}};
  for (const auto& row : rows) {
    for (unsigned had = 0; had < 8; ++had) {
      SCOPED_TRACE(row.gateway + std::string(" for ") + std::to_string(had));
      const std::string v4 = (had & 1U) != 0 ? "10.0.0.9" : "", v6 = (had & 2U) != 0 ? "fe80::9" : "";
      const bool isRouted = (had & 4U) != 0;
      std::vector<KFANetVEth> devices(1);
      devices[0].setHostRouted(isRouted);
      devices[0].setGateway(v4);
      devices[0].setGatewayV6(v6);
      KFLIPPoolAllocation allocation;
      allocation.setGateway(KFLIPv6(row.gateway));
      IPAutoAllocation::Builder::set(allocation, devices.begin());
      EXPECT_EQ(devices[0].getGateway(), v4.empty() && !isRouted ? row.v4 : v4);
      EXPECT_EQ(devices[0].getGatewayV6(), v6.empty() && !isRouted ? row.v6 : v6);
      EXPECT_TRUE(devices[0].getNameServers().empty());
    }
  }
}

TEST(KFAIPAutoAllocation, NameServersAreAddedEachTime) {
  KFLIPPoolAllocation allocation;
  allocation.setNameServers(std::vector<KFLIPv6>{KFLIPv6("::"), KFLIPv6("::10.0.0.53")});
  std::vector<KFANetVEth> devices(2);
  devices[0].setHostRouted(true);
  devices[1].setNameServers({"10.0.0.1"});
  for (auto device = devices.begin(); device != devices.end(); ++device) {
    IPAutoAllocation::Builder::set(allocation, device);
    IPAutoAllocation::Builder::set(allocation, device);
  }
  EXPECT_TRUE(devices[0].getNameServers().empty());
  EXPECT_EQ(devices[1].getNameServers(), (Words{"10.0.0.1", "::", "10.0.0.53", "::", "10.0.0.53"}));
}

}  // namespace
}  // namespace KFA
