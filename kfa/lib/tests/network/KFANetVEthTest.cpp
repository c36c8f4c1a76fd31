// NETIF entries and the message form of network devices.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFLMessage/KFLMessage.h>

namespace {

using KFA::KFANetVEth;

std::string joined(const KFANetVEth& device) {
  std::string text;
  for (const auto& address : device.getIPAddresses())
    text += "[" + address.toString() + "]";
  return text;
}

// Every field of a device: name|network|mac|type|gateways|flags|addresses.
std::string dump(const KFANetVEth& device) {
  return device.getName() + "|" + device.getNetwork() + "|" + device.getMAC() + "|" +
         (device.getHostRouted() ? "routed" : "bridged") + "|" + device.getGateway() + "|" +
         device.getGatewayV6() + "|" + (device.getDHCP() ? "4" : "") + (device.getDHCPv6() ? "6" : "") + "|" +
         joined(device);
}

KFANetVEth read(const std::string& text) {
  KFANetVEth device;
  device.fromString(text);
  return device;
}

struct Row {
  const char* text;
  const char* fields;
};

constexpr Row kRows[] = {
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
    {"dhcp=no", "|||bridged||||"},
    {"nettype=", "|||routed||||"},
    {"nettype=host", "|||routed||||"},
    {"nettype=bridged", "|||bridged||||"},
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
  for (const Row& row : kRows)
    EXPECT_EQ(dump(read(row.text)), row.fields) << row.text;
}

TEST(KFANetVEth, EntryWithANulByteIsTakenWhole) {
  EXPECT_EQ(read(std::string("ifname=a\0b,mac=m", 16)).getName(), std::string("a\0b", 3));
  EXPECT_FALSE(read(std::string("dhcp=\0", 6)).getDHCP());
}

// What is written reads back to the same device, and what is read back is written the same.
TEST(KFANetVEth, WrittenReadsBackToTheSame) {
  for (const Row& row : kRows) {
    KFANetVEth device = read(row.text);
    if (device.getDHCP()) device.setIPAddresses({});  // while DHCP is on, addresses have no text
    const std::string text = device.toString();
    KFANetVEth again = read(text);
    EXPECT_EQ(again.toString(), text) << row.text;
    std::vector<KFL::KFLIPAddress> sorted;
    for (const bool v6 : {false, true}) {
      for (const auto& address : device.getIPAddresses())
        if (KFL::KFLIPv6::isResembling(address.toString()) == v6) sorted.push_back(address);
    }
    device.setIPAddresses(sorted);
    EXPECT_EQ(dump(again), dump(device)) << text;
  }
}

TEST(KFANetVEth, EntriesAreWritten) {
  const struct {
    const char* read;
    const char* written;
  } rows[] = {
      {"ifname=eth0,mac=00:11:22:33:44:55,ip=10.0.0.5/24:10.0.1.5/24,ip6=fe80::1/64",
       "ifname=eth0,network=,mac=00:11:22:33:44:55,nettype=bridged,ip=10.0.0.5/24:10.0.1.5/"
       "24,dhcp=no,ip6=fe80::1/64,"},
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
  for (const auto& row : rows)
    EXPECT_EQ(read(row.read).toString(), row.written);
}

TEST(KFANetVEth, DeviceWithoutNameCannotBeRead) {
  const struct {
    const char* xml;
    int result;
    const char* fields;
  } rows[] = {
      {"<d><name>eth0</name><host_routed/></d>", 0, "eth0|||routed||||"},
      {"<d><name>eth0</name></d>", 0, "eth0|||bridged||||"},
      {"<d><name/><host_routed/></d>", -1, nullptr},
      {"<d><mac>m</mac></d>", -1, nullptr},
  };
  for (const auto& row : rows) {
    KFL::KFLMessage message;
    ASSERT_EQ(message.parse(row.xml), 0);
    KFANetVEth device = read("nettype=host-routed,mac=former");
    EXPECT_EQ(message.getIterator().getObj(device), row.result) << row.xml;
    if (row.fields != nullptr) {
      EXPECT_EQ(dump(device), row.fields);
    }
  }
}

TEST(KFANetVEth, IsANetDeviceByItsTag) {
  KFL::KFLMessage message;
  auto it = message.getIterator();
  const KFANetVEth device = read("ifname=eth0");
  ASSERT_EQ(
      it.putObject(static_cast<const KFL::KFLNetDevice&>(device), KFL::KFLWriterDerived<KFL::KFLNetDevice>()),
      0);
  EXPECT_EQ(it.getTypeTag(), "net_vethType");
  boost::shared_ptr<KFL::KFLNetDevice> back;
  ASSERT_EQ(it.getObject(back, KFL::KFLReaderDerived<KFL::KFLNetDevice>()), 0);
  const auto* veth = dynamic_cast<const KFANetVEth*>(back.get());
  ASSERT_NE(veth, nullptr);
  EXPECT_EQ(veth->getName(), "eth0");
}

}  // namespace
