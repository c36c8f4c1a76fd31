// SPDX-License-Identifier: Apache-2.0
// NETIF entries and the message form of network devices.
#include <algorithm>

#include <KFAFunctionality/network/KFANetVEth.h>

#include "../Records.h"

namespace {

using KFA::KFANetVEth;

// Every field of a device: name|network|mac|type|gateways|flags|addresses.
std::string dump(const KFANetVEth& device) {
  std::string text = device.getName() + "|" + device.getNetwork() + "|" + device.getMAC() + "|" +
                     (device.getHostRouted() ? "routed" : "bridged") + "|" + device.getGateway() + "|" +
                     device.getGatewayV6() + "|" + (device.getDHCP() ? "4" : "") +
                     (device.getDHCPv6() ? "6" : "") + "|";
  for (const auto& address : device.getIPAddresses())
    text += "[" + address.toString() + "]";
  return text;
}

KFANetVEth read(const std::string& text) {
  KFANetVEth device;
  device.fromString(text);
  return device;
}

// Texts, and the fields that they give.
constexpr std::pair<const char*, const char*> kRows[] = {
    {"ifname=eth0,network=n,mac=m,nettype=host-routed,gw=g,gw6=h,ip=1:2,dhcp=no,dhcp6=yes,ip6=a,b,",
     "eth0|n|m|routed|g|h|6|[1][2][a][b]"},
    {"", "|||bridged||||"},
    {",,,", "|||bridged||||"},
    {"dhcp=yes,,gw=g,ifname=e,", "e|||bridged|g||4|"},
    // blanks before a name are skipped, those behind '=' kept
    {" \t\v\f\r\nifname= e ,\tmac=m", " e ||m|bridged||||"},
    {"ifname =e", "|||bridged||||"},
    // a later field overwrites; addresses add up
    {"ifname=a,ifname=b,ip=1,ip=2,dhcp=yes,dhcp=no", "b|||bridged||||[1][2]"},
    {"ip=:1::2:", "|||bridged||||[1][2]"},
    {"ip=", "|||bridged||||"},
    // what begins "yes" or "host-routed" counts as it
    {"dhcp=", "|||bridged|||4|"},
    {"dhcp=y,dhcp6=ye", "|||bridged|||46|"},
    {"dhcp=Yes", "|||bridged||||"},
    {"dhcp=yess", "|||bridged||||"},
    {"nettype=", "|||routed||||"},
    {"nettype=host", "|||routed||||"},
    {"nettype=host-routed ", "|||bridged||||"},
    // all that follows ip6= is an address
    {"ip6=a,, b,mac=m", "|||bridged||||[a][ b][mac=m]"},
    {"ip6=", "|||bridged||||"},
    {"ip6=,a", "|||bridged||||[a]"},
    {"  ip6=a:b", "|||bridged||||[a:b]"},
    // near misses
    {"IFNAME=e,Mac=m,ipx=1,ip 6=a,ifnam=e,xifname=e,ifname", "|||bridged||||"},
    {"ifname=a=b", "a=b|||bridged||||"},
    {"gw6=h,gw=", "|||bridged||h||"},
};

TEST(KFANetVEth, EntriesAreRead) {
  for (const auto& [text, fields] : kRows)
    EXPECT_EQ(dump(read(text)), fields) << text;
}

TEST(KFANetVEth, EntryWithANulByteIsTakenWhole) {
  EXPECT_EQ(read(std::string("ifname=a\0b,mac=m", 16)).getName(), std::string("a\0b", 3));
  EXPECT_FALSE(read(std::string("dhcp=\0", 6)).getDHCP());
}

// What is written reads back to the same device, and what is read back is written the same.
TEST(KFANetVEth, WrittenReadsBackToTheSame) {
  for (const auto& row : kRows) {
    KFANetVEth device = read(row.first);
    if (device.getDHCP()) device.setIPAddresses({});  // while DHCP is on, addresses have no text
    const std::string text = device.toString();
    KFANetVEth again = read(text);
    EXPECT_EQ(again.toString(), text) << row.first;
    std::vector<KFL::KFLIPAddress> sorted = device.getIPAddresses();
    std::stable_partition(sorted.begin(), sorted.end(), [](const auto& address) {
      return !KFL::KFLIPv6::isResembling(address.toString());
    });
    device.setIPAddresses(sorted);
    EXPECT_EQ(dump(again), dump(device)) << text;
  }
}

TEST(KFANetVEth, EntriesAreWritten) {
  const std::pair<const char*, const char*> rows[] = {
      {"ifname=e,mac=m,ip=1/24:2/24,ip6=fe80::1/64",
       "ifname=e,network=,mac=m,nettype=bridged,ip=1/24:2/24,dhcp=no,ip6=fe80::1/64,"},
      {"", "ifname=,network=,mac=,nettype=bridged,dhcp=no"},
      {"ifname=venet0,nettype=host-routed,ip=10.0.0.1", ""},
      {"ifname=venet0,ip=10.0.0.1", "ifname=venet0,network=,mac=,nettype=bridged,ip=10.0.0.1,dhcp=no"},
      {"ifname=venet1,nettype=host-routed", "ifname=venet1,network=,mac=,nettype=host-routed,dhcp=no"},
      {"gw=1,gw6=::2,network=n", "ifname=,network=n,mac=,nettype=bridged,gw=1,gw6=::2,dhcp=no"},
      {"dhcp=yes,dhcp6=yes,ip=1,ip6=::1", "ifname=,network=,mac=,nettype=bridged,dhcp=yes,dhcp6=yes"},
      {"dhcp6=yes,ip6=::1,::2", "ifname=,network=,mac=,nettype=bridged,dhcp=no,dhcp6=yes,ip6=::1,::2,"},
      {"ip6=::1,dhcp,::2/64,10.0.0.1/ff::",
       "ifname=,network=,mac=,nettype=bridged,ip=dhcp:10.0.0.1/ff::,dhcp=no,ip6=::1,::2/64,"},
  };
  for (const auto& [text, written] : rows)
    EXPECT_EQ(read(text).toString(), written);
}

TEST(KFANetVEth, DeviceWithoutNameCannotBeRead) {
  for (const char* const content : {"<name/><host_routed/>", "<mac>m</mac>"}) {
    KFANetVEth device;
    EXPECT_EQ(readFrom(content, device), -1) << content;
  }
  KFANetVEth device = read("nettype=host-routed,mac=former");
  EXPECT_EQ(readFrom("<name>eth0</name>", device), 0);
  EXPECT_EQ(dump(device), "eth0|||bridged||||");
}

}  // namespace
