// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAKeyCatalogue.h>

#include <array>
#include <memory>
#include <string_view>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAConfigRules.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>

namespace KFA {

namespace {

struct Row {
  const char* key;
  const char* without;
  const char* example;
  const char* description;
};

constexpr const char* kNothing = "nothing";

constexpr Row kRows[] = {
    {"arch", "what TECHNOLOGIES says", "x86_64", "The architecture of the programs inside."},
    {"description", kNothing, "Web server of the shop", "What the environment is for, in words."},
    {"disabled", "no", "no", "Whether it must not be started."},
    {"distribution", kNothing, "debian-12", "The distribution inside."},
    {"hostname", kNothing, "www.example.com", "The host name inside."},
    {"ip_address", kNothing, "192.0.2.101 192.0.2.102/24", "Addresses that the node routes to it."},
    {"iptables", "what the node allows", "filter mangle state", "Packet filter modules that it may use."},
    {"name", "the host name is shown", "shop", "A short name for people."},
    {"nameserver", kNothing, "192.0.2.53 198.51.100.53", "Name servers that it asks, in their order."},
    {"netif", "a host-routed venet0 alone",
     "ifname=eth0,network=lan,mac=02:00:5e:10:00:01,nettype=bridged,ip=198.51.100.20/24,dhcp=no",
     "Its virtual network devices."},
    {"offline_management", "what the node says", "yes", "Whether services answer for it while it is down."},
    {"offline_service", "those of the node", "backup panel", "The services that answer while it is down."},
    {"onboot", "no", "yes", "Whether it starts with the node."},
    {"origin_sample", kNothing, "basic", "The sample that it was made from."},
    {"ostemplate", kNothing, "debian-12/20240301", "The template of the operating system."},
    {"platform", kNothing, "linux", "The kind of operating system."},
    {"rate", kNothing, "eth0:1:10240", "Traffic rates by device and class, in kilobits per second."},
    {"ratebound", "no", "yes", "Whether RATE is an upper bound, too."},
    {"roles", kNothing, "cache web", "What the server does."},
    {"searchdomain", kNothing, "example.com shop.example.com",
     "Domains in which short names are looked for."},
    {"slmmode", "the formulas count", "all", "How memory is managed: slm, all, or by single limits."},
    {"technologies", kNothing, "x86_64", "Words for what the node needs; one is the architecture."},
    {"templates", kNothing, "postgresql/15.6 monitor-agent", "Templates of applications."},
    {"uuid", kNothing, "5b0c3f0e-8a55-4d27-9b7e-0d7f4a1c9e21",
     "An identifier that no other environment has."},
    {"ve_private", "the node's setting", "/srv/kfa/private/$VEID", "The folder of its files."},
    {"ve_root", "the node's setting", "/srv/kfa/root/$VEID",
     "The folder in which its files appear while it runs."},
    {"ve_type", "regular", "repair:107", "What it is for: regular, or to repair another one."},
};

constexpr std::string_view kNoLimit = "9223372036854775807";

// The largest unit in which the number is exact to three decimals.
std::string showBytes(long long number, std::size_t firstUnit) {
  constexpr std::array<const char*, 6> kUnits = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB"};
  std::size_t unit = firstUnit;
  auto value = static_cast<double>(number);
  for (std::size_t next = firstUnit + 1; next < kUnits.size(); ++next) {
    const double smaller =
        static_cast<double>(number) / static_cast<double>(1LL << (10 * (next - firstUnit)));
    if (smaller < 1 && smaller > -1) break;
    if (smaller * 1000 != static_cast<double>(static_cast<long long>(smaller * 1000))) continue;
    unit = next;
    value = smaller;
  }
  return KFL::doubleToStr(value) + " " + kUnits.at(unit);
}

std::string showNumber(const std::string& number, const std::string& unit) {
  if (number == kNoLimit) return "unlimited";
  long long whole = 0;
  double fraction = 0;
  if (KFL::parseInteger(number, whole) == 0) {
    const std::string_view base = std::string_view(unit).substr(0, unit.find('/'));
    if (base == "bytes" || base == "KiB")
      return showBytes(whole, base == "KiB" ? 1 : 0) + unit.substr(base.size());
  } else if (KFL::parseDouble(number, fraction) != 0) {
    return number;
  }
  return unit.empty() ? number : number + " " + unit;
}

}  // namespace

KFAKeyCatalogue::KFAKeyCatalogue(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
                                 const boost::shared_ptr<KFLVocMap>& vocabulary) {
  const KFAEnvConfigRules rules(parser);
  for (const Row& row : kRows)
    keys_[row.key] = {KFL::toUpper(row.key),
                      rules.getAcceptedForm(row.key),
                      {},
                      row.without,
                      row.example,
                      row.description,
                      false,
                      false};
  const std::unique_ptr<KFLVocIterator> it(vocabulary ? vocabulary->readCategory("qos") : nullptr);
  if (!it) return;
  for (int left = it->firstParameter(); left == 0; left = it->nextParameter()) {
    std::string id;
    if (it->getID(id) != 0) continue;
    const std::string key = KFL::toLower(id);
    const auto definition = parser->getQoSMap().find(key);
    if (definition == parser->getQoSMap().end()) continue;
    const bool isPair = definition->second.kind == 2;
    KFAKeyDescription described{definition->second.upperName,
                                rules.getAcceptedForm(key),
                                {},
                                "no limit",
                                isPair                              ? "200:240"
                                : definition->second.valueType == 0 ? "12.5"
                                                                    : "200",
                                {},
                                true,
                                definition->second.valueType == 0};
    it->getStringAttribute("unit", described.unit);
    it->getStringAttribute("description", described.description);
    keys_.emplace(key, std::move(described));
  }
}

const KFAKeyDescription* KFAKeyCatalogue::find(const std::string& key) const {
  const auto found = keys_.find(key);
  return found == keys_.end() ? nullptr : &found->second;
}

std::string KFAKeyCatalogue::showValue(const std::string& key, const std::string& value) const {
  const KFAKeyDescription* const described = find(key);
  if (described == nullptr || !described->isResource) return value;
  const std::size_t colon = value.find(':');
  if (colon == std::string::npos) return showNumber(value, described->unit);
  return showNumber(value.substr(0, colon), described->unit) + ":" +
         showNumber(value.substr(colon + 1), described->unit);
}

std::string KFAKeyCatalogue::showHeld(const std::string& key, const std::optional<long long>& barrier,
                                      long long limit) const {
  const KFAKeyDescription* const described = find(key);
  const auto textOf = [&](long long number) {
    const bool isFraction = described != nullptr && described->isFraction;
    return isFraction ? KFL::doubleToStr(static_cast<double>(number) / 100) : std::to_string(number);
  };
  return showValue(key, barrier ? textOf(*barrier) + ":" + textOf(limit) : textOf(limit));
}

}  // namespace KFA
