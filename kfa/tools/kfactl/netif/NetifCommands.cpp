// SPDX-License-Identifier: Apache-2.0
// kfactl netif: the NETIF key taken apart.
#include <nlohmann/json.hpp>

#include <boost/make_shared.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAConfigRules.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/network/KFANetVEth.h>

#include "terminal/Cli.h"
#include "terminal/Document.h"

namespace kfactl {

namespace {

Document addressesOf(const KFA::KFANetVEth& device, bool v6) {
  Document addresses = Document::array();
  for (const KFL::KFLIPAddress& address : device.getIPAddresses())
    if (KFL::KFLIPv6::isResembling(address.toString()) == v6)
      addresses.push_back(address.toStringWithNetwork());
  return addresses;
}

// In the order and by the names in which the fields are written.
Document describe(const KFA::KFANetVEth& device) {
  return {{"ifname", device.getName()},       {"network", device.getNetwork()},
          {"mac", device.getMAC()},           {"nettype", device.getHostRouted() ? "host-routed" : "bridged"},
          {"gw", device.getGateway()},        {"gw6", device.getGatewayV6()},
          {"ip", addressesOf(device, false)}, {"dhcp", device.getDHCP()},
          {"dhcp6", device.getDHCPv6()},      {"ip6", addressesOf(device, true)}};
}

void printTable(Session& session, const Document& devices) {
  Table table({"DEVICE", "FIELD", "VALUE"});
  for (const Document& device : devices) {
    const std::string name = device.at("ifname");
    for (const auto& [field, value] : device.items()) {
      if (value.is_array())
        for (const Document& address : value)
          table.add({name, field, address.get_ref<const std::string&>()});
      else if (value.is_boolean())
        table.add({name, field, value.get<bool>() ? "yes" : "no"});
      else if (const auto& text = value.get_ref<const std::string&>(); !text.empty() && field != "ifname")
        table.add({name, field, text});
    }
  }
  table.print(session.out());
}

int show(Session& session) {
  const std::string& text = session.argument(0);
  Document devices = Document::array();
  KFL::getToken entries(text.c_str(), ";");
  for (std::string_view entry; entries.next(entry);) {
    KFA::KFANetVEth device;
    device.fromString(std::string(entry));
    devices.push_back(describe(device));
  }
  if (session.format() == Format::Table)
    printTable(session, devices);
  else
    printDocument(session, devices, "devices", "device");

  const KFA::KFAEnvConfigRules rules(boost::make_shared<KFA::KFAEnvConfigBashParser>());
  if (rules.accept("netif", text) == 0) return kFine;
  printError(KFL::getErrorMessage());
  return kFinding;
}

constexpr Command kCommands[] = {
    {"show", "TEXT", "Take a NETIF value apart",
     "The devices of the value with their fields. Status 1 when something in it is not understood, or would "
     "be lost if\n"
     "the value was read and written again; a line on standard error says what.\n\n"
     "Examples:\n"
     "  kfactl netif show 'ifname=eth0,mac=00:11:22:33:44:55,ip=10.0.0.5/24,dhcp=no'\n"
     "  kfactl --format json netif show \"$(kfactl raw get 101.conf NETIF)\"",
     withoutOptions<show>},
};

}  // namespace

extern const Group netifGroup;
const Group netifGroup{"netif", "Values of the key NETIF", kCommands,
                       "  kfactl netif show \"$(kfactl config get 101.conf NETIF)\""};

}  // namespace kfactl
