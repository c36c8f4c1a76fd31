// SPDX-License-Identifier: Apache-2.0
// NETIF entries: what is unusual in them, and the form in which devices are written. What fields a device has is held
// against those that were put into its text by the fuzz target NetifFuzz.
#include <KFAFunctionality/network/KFANetVEth.h>

#include <utility>

#include <gtest/gtest.h>

namespace {

KFA::KFANetVEth read(const std::string& text) {
  KFA::KFANetVEth device;
  device.fromString(text);
  return device;
}

TEST(KFANetVEth, EntriesAreReadAndWritten) {
  const std::pair<const char*, const char*> rows[] = {
      {"gw6=h,gw=g,ip6=::1,dhcp,::2/64,10.0.0.1/ff::",
       "ifname=,network=,mac=,nettype=bridged,gw=g,gw6=h,ip=dhcp:10.0.0.1/ff::,dhcp=no,ip6=::1,::2/64,"},
      {"", "ifname=,network=,mac=,nettype=bridged,dhcp=no"},
      {"ifname=venet0,nettype=host-routed,ip=10.0.0.1", ""},
      {"ifname=venet0,ip=1", "ifname=venet0,network=,mac=,nettype=bridged,ip=1,dhcp=no"},
      {"ifname=venet1,nettype=", "ifname=venet1,network=,mac=,nettype=host-routed,dhcp=no"},
      {"dhcp=yes,dhcp6=yes,ip=1,ip6=::1", "ifname=,network=,mac=,nettype=bridged,dhcp=yes,dhcp6=yes"},
      {"dhcp6=y,ip6=::1,::2", "ifname=,network=,mac=,nettype=bridged,dhcp=no,dhcp6=yes,ip6=::1,::2,"},
      // Blanks before a name are skipped, those behind '=' kept.
      {" \t\v\f\r\nifname= e ,\tmac=m", "ifname= e ,network=,mac=m,nettype=bridged,dhcp=no"},
      {"ifname =e,ip=:1::2:", "ifname=,network=,mac=,nettype=bridged,ip=1:2,dhcp=no"},
      // Near misses.
      {"IFNAME=e,Mac=m,ipx=1,ip 6=a,ifnam=e,xifname=e,ifname,nettype=host-routed ,dhcp=Yes",
       "ifname=,network=,mac=,nettype=bridged,dhcp=no"},
  };
  for (const auto& [text, written] : rows)
    EXPECT_EQ(read(text).toString(), written) << text;
  EXPECT_EQ(read(std::string("ifname=a\0b,mac=m", 16)).getName(), std::string("a\0b", 3));
  EXPECT_FALSE(read(std::string("dhcp=\0", 6)).getDHCP());
}

}  // namespace
