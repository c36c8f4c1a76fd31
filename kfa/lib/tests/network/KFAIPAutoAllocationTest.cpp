// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/network/KFAIPAutoAllocation.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace KFA {
namespace {

using Words = std::vector<std::string>;

TEST(KFAIPAutoAllocation, CompletesWhatADeviceLacks) {
  const struct {
    bool hostRouted;
    const char *had, *hadV6;  // the device's gateways before
    const char* gateway;      // the allocation's
    const char *gatewayNow, *nowV6;
  } rows[] = {
      {false, "", "", "::", "", ""},
      {false, "10.0.0.9", "fe80::9", "::", "10.0.0.9", "fe80::9"},
      {false, "", "", "::10.0.0.1", "10.0.0.1", ""},
      {false, "", "fe80::9", "::10.0.0.1", "10.0.0.1", "fe80::9"},
      {false, "10.0.0.9", "", "::10.0.0.1", "10.0.0.9", ""},
      {false, "", "", "fe80::1", "", "fe80::1"},
      {false, "10.0.0.9", "", "fe80::1", "10.0.0.9", "fe80::1"},
      {false, "", "fe80::9", "fe80::1", "", "fe80::9"},
      {false, "", "", "::ffff:10.0.0.1", "", "::ffff:10.0.0.1"},
      {true, "", "", "::10.0.0.1", "", ""},
      {true, "", "", "fe80::1", "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.gateway) + " for " + row.had + "," + row.hadV6);
    std::vector<KFANetVEth> devices(1);
    devices[0].setHostRouted(row.hostRouted);
    devices[0].setGateway(row.had);
    devices[0].setGatewayV6(row.hadV6);
    KFLIPPoolAllocation allocation;
    allocation.setGateway(KFLIPv6(row.gateway));
    IPAutoAllocation::Builder::set(allocation, devices.begin());
    EXPECT_EQ(devices[0].getGateway(), row.gatewayNow);
    EXPECT_EQ(devices[0].getGatewayV6(), row.nowV6);
    EXPECT_TRUE(devices[0].getNameServers().empty());
  }
}

TEST(KFAIPAutoAllocation, NameServersAreAddedEachTime) {
  KFLIPPoolAllocation allocation;
  allocation.setNameServers(std::vector<KFLIPv6>{KFLIPv6("fe80::53"), KFLIPv6("::10.0.0.53")});
  std::vector<KFANetVEth> devices(2);
  devices[0].setHostRouted(true);
  devices[1].setNameServers({"10.0.0.1"});
  for (auto device = devices.begin(); device != devices.end(); ++device) {
    IPAutoAllocation::Builder::set(allocation, device);
    IPAutoAllocation::Builder::set(allocation, device);
  }
  EXPECT_TRUE(devices[0].getNameServers().empty());
  EXPECT_EQ(devices[1].getNameServers(),
            (Words{"10.0.0.1", "fe80::53", "10.0.0.53", "fe80::53", "10.0.0.53"}));
}

}  // namespace
}  // namespace KFA
