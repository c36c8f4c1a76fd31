// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/network/KFANetVEth.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static KFLDerivedParserFactoryT<KFANetVEth, KFLNetDevice, std::string, KFANetVEth::Reader, KFANetVEth::Writer>
    factoryKFANetVEth;
static const KFLRecordRegistration<KFANetVEth> recordKFANetVEth("KFANetVEth");

namespace {

constexpr std::string_view kYes = "yes";
constexpr std::string_view kHostRouted = "host-routed";
constexpr std::string_view kBridged = "bridged";
constexpr std::string_view kV6Field = "ip6=";
constexpr const char* kHostRoutedDevice = "venet0";

void addAddresses(KFANetVEth& device, std::string_view text, char separator) {
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    if (end != begin) device.addIPAddress(std::string(text.substr(begin, end - begin)));
    begin = end + 1;
  }
}

// Every beginning of the word counts as the word, the empty one included.
bool isBeginning(std::string_view value, std::string_view word) {
  return word.starts_with(value);
}

struct FieldRow {
  std::string_view prefix;
  void (*take)(KFANetVEth& device, std::string_view value);
};

constexpr FieldRow kFields[] = {
    {"ifname=", [](KFANetVEth& device, std::string_view value) { device.setName(std::string(value)); }},
    {"mac=", [](KFANetVEth& device, std::string_view value) { device.setMAC(std::string(value)); }},
    {"ip=", [](KFANetVEth& device, std::string_view value) { addAddresses(device, value, ':'); }},
    {"dhcp=", [](KFANetVEth& device, std::string_view value) { device.setDHCP(isBeginning(value, kYes)); }},
    {"dhcp6=",
     [](KFANetVEth& device, std::string_view value) { device.setDHCPv6(isBeginning(value, kYes)); }},
    {"gw=", [](KFANetVEth& device, std::string_view value) { device.setGateway(std::string(value)); }},
    {"gw6=", [](KFANetVEth& device, std::string_view value) { device.setGatewayV6(std::string(value)); }},
    {"network=", [](KFANetVEth& device, std::string_view value) { device.setNetwork(std::string(value)); }},
    {"nettype=", [](KFANetVEth& device,
                    std::string_view value) { device.setHostRouted(isBeginning(value, kHostRouted)); }},
};

void takeField(KFANetVEth& device, std::string_view field) {
  for (const FieldRow& row : kFields) {
    if (!field.starts_with(row.prefix)) continue;
    row.take(device, field.substr(row.prefix.size()));
    return;
  }
}

std::string_view trimFront(std::string_view text) {
  const auto* first = std::find_if_not(text.begin(), text.end(), [](char c) { return isSpace(c); });
  return text.substr(static_cast<std::size_t>(first - text.begin()));
}

// Enough for the names of all fields and the flags.
constexpr std::size_t kFixedLength = 96;

std::size_t estimateLength(const KFANetVEth& device) {
  std::size_t length = kFixedLength + device.getName().size() + device.getNetwork().size() +
                       device.getMAC().size() + device.getGateway().size() + device.getGatewayV6().size();
  for (const KFLIPAddress& address : device.getIPAddresses())
    length += address.toStringWithNetwork().size() + 1;
  return length;
}

void append(std::string& out, std::string_view name, std::string_view value) {
  out.append(name).append(value);
}

// Appends the addresses of one kind with a separator behind each; false when there is none.
bool appendAddresses(std::string& out, const KFANetVEth& device, bool v6, std::string_view name,
                     char separator) {
  bool any = false;
  for (const KFLIPAddress& address : device.getIPAddresses()) {
    if (KFLIPv6::isResembling(address.toString()) != v6) continue;
    if (!any) out += name;
    append(out, address.toStringWithNetwork(), {&separator, 1});
    any = true;
  }
  return any;
}

// A device without a name is none.
int checkName(const KFANetVEth& device) {
  if (!device.getName().empty()) return 0;
  setErrorMessage("a network device has no interface name; one such as eth0 would be right");
  return -1;
}

// The card's part.
int putCard(KFLMessageIterator& it, const void* record, const KFLField&) {
  const auto& device = *static_cast<const KFANetVEth*>(record);
  return checkName(device) == 0 ? it.putObj<KFLNetNIC>(device) : -1;
}
int getCard(const KFLMessageIterator& it, void* record, const KFLField&) {
  auto& device = *static_cast<KFANetVEth*>(record);
  const int result = it.getObj<KFLNetNIC>(device);
  return result == 0 ? checkName(device) : result;
}

}  // namespace

KFANetVEth::~KFANetVEth() = default;

const KFLFieldTable& KFANetVEth::fields() {
  using R = KFANetVEth;
  static constexpr KFLField rows[] = {
      base<R, KFLNetNIC>().writtenBy(&putCard).readBy(&getCard),
      list<R, &R::winsServers_>("wins_server"),
      list<R, &R::nameServers_>(1281),
      presence<R, &R::hostRouted_>("host_routed"),
  };
  static constexpr KFLFieldTable table{"KFANetVEth", kTypesURI, "net_vethType", rows};
  return table;
}

void KFANetVEth::fromString(const std::string& text) {
  KFANetVEth device(*this);
  device.takeFields(text);
  *this = std::move(device);
}

void KFANetVEth::takeFields(std::string_view entry) {
  for (std::size_t begin = 0; begin < entry.size();) {
    const std::size_t end = std::min(entry.find(',', begin), entry.size());
    const std::string_view field = trimFront(entry.substr(begin, end - begin));
    if (field.starts_with(kV6Field)) {
      const auto valueAt = static_cast<std::size_t>(field.data() - entry.data()) + kV6Field.size();
      addAddresses(*this, entry.substr(valueAt), ',');
      return;
    }
    takeField(*this, field);
    begin = end + 1;
  }
}

std::string KFANetVEth::toString() const {
  std::string out;
  if (hostRouted_ && getName() == kHostRoutedDevice) return out;
  out.reserve(estimateLength(*this));
  append(out, "ifname=", getName());
  append(out, ",network=", getNetwork());
  append(out, ",mac=", getMAC());
  append(out, ",nettype=", hostRouted_ ? kHostRouted : kBridged);
  if (!getGateway().empty()) append(out, ",gw=", getGateway());
  if (!getGatewayV6().empty()) append(out, ",gw6=", getGatewayV6());
  out += ',';
  if (!getDHCP() && appendAddresses(out, *this, false, "ip=", ':')) out.back() = ',';
  append(out, "dhcp=", getDHCP() ? kYes : "no");
  if (getDHCPv6()) append(out, ",dhcp6=", kYes);
  if (!getDHCP()) appendAddresses(out, *this, true, ",ip6=", ',');
  return out;
}

}  // namespace KFA
