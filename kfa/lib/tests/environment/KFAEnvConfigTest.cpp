// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAEnvConfig.h>

#include <algorithm>
#include <functional>
#include <random>
#include <set>
#include <tuple>
#include <type_traits>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFLFunctionality/KFLEnv.h>

#include "../Records.h"

namespace KFA {
namespace {

using Text = KFLEnvConfig::Text;

Names names(const KFAEnvConfig& config) {
  return namesOf(config.getIterator());
}

// --- Properties, one row each ------------------------------------------------------------------------------

// What a row of the table asks of its property; `check` runs the whole life of it.
struct Row {
  const char* element;
  std::string_view uri;
  std::size_t elements;  // that the value needs
  std::function<void(const Row&)> check;
  std::function<void(KFAEnvConfig&)> set;
};

template <class T>
constexpr bool isList = requires(T value) {
  value.clear();
}
&&!std::is_same_v<T, std::string>;

// Compares what the values are in a message, since not all of them compare by all that they hold.
template <class T>
void expectSame(const T& a, const T& b) {
  if constexpr (isList<T>) {
    ASSERT_EQ(a.size(), b.size());
    auto other = b.begin();
    for (const auto& item : a)
      expectSame(item, *other++);
  } else {
    KFLMessage messages[2];
    KFLMessageIterator its[] = {messages[0].getIterator(), messages[1].getIterator()};
    KFL::fields::putOne(its[0], a, {});
    KFL::fields::putOne(its[1], b, {});
    EXPECT_TRUE(its[0].isEqualTree(its[1]));
  }
}

// Elements that others put there, one before all others and one behind.
void addStrays(const KFAEnvConfig& config, const char* element) {
  KFLMessageIterator it = config.getIterator();
  const KFLMessageIterator first(it);
  it.addEmptyChild(element);
  first.firstChild();
  it.setInsertionPoint(first);
  it.addEmptyChild(element);
}

template <class Get, class Set, class T>
void checkLife(const Row& row, Get get, Set set, const T& value) {
  using Optional = KFLOptionalProperty<T>;
  KFAEnvConfig config;
  Optional got(value);
  EXPECT_EQ((config.*get)(got), -1) << "without a message";
  EXPECT_TRUE(got.isSpecified());
  config.initMsg();
  addStrays(config, "veid");
  config.setVeid(1);
  EXPECT_EQ((config.*get)(got), 0);
  EXPECT_FALSE(got.isSpecified());

  for (int i = 0; i < 2; ++i) {
    addStrays(config, row.element);
    EXPECT_EQ((config.*set)(value), 0);
    got = Optional();
    EXPECT_EQ((config.*get)(got), 0);
    ASSERT_TRUE(got.isSpecified());
    expectSame(got.getValue(), value);
    EXPECT_EQ(static_cast<std::size_t>(std::ranges::count(names(config), row.element)), row.elements);
  }
  const KFLMessageIterator it = config.getIterator();
  ASSERT_EQ(it.findChild(row.element), 0);
  EXPECT_EQ(it.getNamespace(), row.uri);

  if constexpr (isList<T>) {
    EXPECT_EQ((config.*set)(T()), 0);
    EXPECT_EQ(std::ranges::count(names(config), row.element), 1);
    got = Optional();
    EXPECT_EQ((config.*get)(got), 0);
    EXPECT_TRUE(got.isSpecified() && got.getValue().empty());
  }
  addStrays(config, row.element);
  EXPECT_EQ((config.*set)(Optional()), 0);
  EXPECT_EQ((config.*get)(got), 0);
  EXPECT_FALSE(got.isSpecified());
  EXPECT_EQ(names(config), Names{"veid"});
}

template <class Class, class T>
Row row(const char* element, int (Class::*get)(KFLOptionalProperty<T>&) const,
        int (Class::*set)(const KFLOptionalProperty<T>&), const std::type_identity_t<T>& value,
        std::size_t elements = 1) {
  const bool isOurs = std::is_same_v<Class, KFAEnvConfig>;
  return {element, isOurs ? kTypesURI : KFL::kTypesNamespaceURI, elements,
          [=](const Row& self) { checkLife(self, get, set, value); },
          [=](KFAEnvConfig& config) { (config.*set)(value); }};
}

#define ROW(element, Name, ...) row(element, &KFAEnvConfig::get##Name, &KFAEnvConfig::set##Name, __VA_ARGS__)

KFANetVEth device(const char* name, const char* address) {
  KFANetVEth made;
  made.setName(name);
  made.addIPAddress(address);
  return made;
}

const std::string kText = "text <&> \xC3\xA9";
const std::set<std::string> kWords{"b", "a"};

std::vector<Row> rows() {
  return {ROW("ve_root", VERootVar, kText),
          ROW("ve_private", VEPrivateVar, ""),
          ROW("on_boot", OnBoot, true),
          ROW("rate_bound", RateBound, false),
          ROW("offline_management", OfflineManagement, true),
          ROW("slm_mode", SLMMode, kText),
          ROW("is_sample", Sample, true),
          ROW("origin_sample", OriginSample, kText),
          ROW("allow_reboot", AllowReboot, true),
          ROW("uuid", UUID, kText),
          ROW("ts_mode", TSMode, -2147483647 - 1),
          ROW("iptables", IPTables, kWords, 2),
          ROW("role", ServerRoles, kWords, 2),
          ROW("offline_service", OfflineServices, kWords, 2),
          ROW("ts_license_server", TSLicenseServers, kWords, 2),
          ROW("capability", Capabilities, {KFAEnvCapability("b", true), KFAEnvCapability("a")}, 2),
          ROW("distribution", Distribution, KFADistribution("debian", "12")),
          ROW("os_template", OsTemplate, KFATemplate("debian", "12")),
          ROW("template", Templates, {KFATemplate("b", "1"), KFATemplate("a"), KFATemplate("b", "1")}, 3),
          ROW("wins_server", WinsServers, {"10.0.0.2", "dhcp"}, 2),
          ROW("interface_rate", RatesList, {KFLInterfaceRate("eth0", 1, 100), KFLInterfaceRate("odd")}, 2),
          ROW("net_device", NetVEths, {device("eth1", "10.0.0.5/24"), device("eth0", "dhcp")}, 2),
          ROW("ve_type", VEType, KFAVPSType(KFAVPSType::kRepair, 102))};
}

std::vector<Row> rowsOfTheCore() {
  return {ROW("name", Name, kText),
          ROW("description", Description, ""),
          ROW("hostname", Hostname, kText),
          ROW("architecture", Architecture, kText),
          ROW("type", Type, kText),
          ROW("nameserver", Nameservers, {"b", "a", "b"}, 3),
          ROW("search_domain", SearchDomains, kWords, 2),
          ROW("address", Addresses, {"10.0.0.5/24", "dhcp"}, 2),
          ROW("qos", QoSes, {KFLQoS("b"), KFLQoS("a")}, 2),
          ROW("class_id", ClassID, -1),
          ROW("config_customized", ConfigCustomized, true)};
}

TEST(KFAEnvConfig, EveryPropertyIsAbsentThenSetThenAbsentAgain) {
  for (const auto& all : {rows(), rowsOfTheCore()}) {
    for (const Row& row : all) {
      SCOPED_TRACE(row.element);
      row.check(row);
    }
  }
}

TEST(KFAEnvConfig, TakingOutWhatIsNotThereAddsNothing) {
  KFAEnvConfig config;
  EXPECT_EQ(config.setCapability({}), 0);
  EXPECT_EQ(config.setQoS({}), 0);
  EXPECT_EQ(names(config), Names());
  ASSERT_EQ(config.setCapabilities(KFAEnvConfig::Capabilities(std::set<KFAEnvCapability>())), 0);
  EXPECT_EQ(config.setCapability({}), 0);
  EXPECT_EQ(names(config), Names{"capability"});
}

TEST(KFAEnvConfig, EmptyItemsOfListsAreLeftOut) {
  using Rates = std::vector<KFLInterfaceRate>;
  KFAEnvConfig config;
  ASSERT_EQ(config.setWinsServers(std::vector<KFLIPAddress>{"", "10.0.0.2", ""}), 0);
  ASSERT_EQ(config.setRatesList(Rates{KFLInterfaceRate(), KFLInterfaceRate("eth0", 1, 8)}), 0);
  ASSERT_EQ(config.setAddresses(std::vector<KFLIPAddress>{""}), 0);
  KFAEnvConfig::Addresses servers, addresses;
  KFAEnvConfig::Rates rates;
  ASSERT_EQ(config.getWinsServers(servers), 0);
  EXPECT_EQ(servers.getValue(), std::vector<KFLIPAddress>{"10.0.0.2"});
  ASSERT_EQ(config.getRatesList(rates), 0);
  EXPECT_EQ(rates.getValue(), Rates{KFLInterfaceRate("eth0", 1, 8)});
  ASSERT_EQ(config.getAddresses(addresses), 0);
  EXPECT_TRUE(addresses.isSpecified() && addresses.getValue().empty());
}

TEST(KFAEnvConfig, OneCapabilityAmongMany) {
  using One = KFLOptionalProperty<KFAEnvCapability>;
  KFAEnvConfig config;
  One one(KFAEnvCapability("net_admin", true));
  EXPECT_EQ(config.getCapability(one), -1);
  EXPECT_EQ(config.setCapability(one), 0);
  EXPECT_EQ(config.setCapability(One(KFAEnvCapability("chown", true))), 0);
  EXPECT_EQ(config.setCapability(One(KFAEnvCapability("net_admin", false))), 0);
  EXPECT_EQ(config.getCapability(one), 0);
  ASSERT_TRUE(one.isSpecified());
  EXPECT_FALSE(one.getValue().getValue());
  One other(KFAEnvCapability("sys_time", true));
  EXPECT_EQ(config.getCapability(other), 0);
  EXPECT_FALSE(other.isSpecified());
  EXPECT_EQ(names(config), (Names{"capability", "capability"}));
}

// --- Order -------------------------------------------------------------------------------------------------

TEST(KFAEnvConfig, PositionsOfTheElements) {
  const char* const order[] = {
      "veid", "ve_root", "ve_private", "on_boot", "template", "disabled", "offline_management", "os_template",
      // Behind the distribution.
      "distribution", "capability", "iptables", "config_customized", "class_id", "ve_type", "offline_service",
      "wins_server", "net_device", "ts_license_server", "ts_mode", "uuid", "allow_reboot", "rate_bound",
      "interface_rate", "slm_mode", "origin_sample", "is_sample", "role", "disk_list"};
  const KFAEnvConfig config;
  for (int position = 0; position < 28; ++position)
    EXPECT_EQ(config.getPositionOfTheTag(order[position]), position) << order[position];
  for (const char* const none : {"hostname", "", "VEID", "veid "})
    EXPECT_EQ(config.getPositionOfTheTag(none), -1) << none;
}

TEST(KFAEnvConfig, AnyOrderOfSettersGivesTheOrderOfTheElements) {
  std::vector<std::function<void(KFAEnvConfig&)>> setters;
  for (const Row& row : rows())
    setters.push_back(row.set);
  const HardDisk::List::KfFS disks;
  setters.emplace_back([](KFAEnvConfig& c) { c.setVeid(101); });
  setters.emplace_back([](KFAEnvConfig& c) { c.setDisabled(true); });
  setters.emplace_back([](KFAEnvConfig& c) { c.setClassID(1); });
  setters.emplace_back([](KFAEnvConfig& c) { c.setConfigCustomized(true); });
  setters.emplace_back([&](KFAEnvConfig& c) { c.setHardDisks(&disks); });
  std::mt19937 random(3);
  std::string first;
  for (int round = 0; round < 30; ++round) {
    std::ranges::shuffle(setters, random);
    KFLMessage message;
    ASSERT_EQ(message.parse("<c><unknown/></c>"), 0);
    const KFLMessageIterator it = message.getIterator();
    KFAEnvConfig config(&it, EnvConfigVirtual);
    config.setHostname(std::string("h"));
    for (int pass = 0; pass < 2; ++pass)
      for (const auto& set : setters)
        set(config);
    if (first.empty()) first = message.toString();
    EXPECT_EQ(message.toString(), first);
  }
  KFLMessage message;
  ASSERT_EQ(message.parse(first), 0);
  const KFLMessageIterator it = message.getIterator();
  const KFAEnvConfig config(&it, EnvConfigVirtual);
  const Names order = names(config);
  ASSERT_EQ(order.size(), 40U);
  for (std::size_t i = 1; i + 2 < order.size(); ++i)
    EXPECT_LE(config.getPositionOfTheTag(order[i - 1]), config.getPositionOfTheTag(order[i])) << order[i];
  EXPECT_EQ(order[order.size() - 2], "unknown");
  EXPECT_EQ(order.back(), "hostname");
}

// --- Paths -------------------------------------------------------------------------------------------------

TEST(KFAEnvConfig, VeidIsPutIntoTexts) {
  const std::tuple<int, std::string, std::string> rows[] = {
      {101, "$VEID/${VEID}/$VEID", "101/101/101"},
      {0, "$VEIDx$VEID", "0x0"},
      {-5, "a${VEID}", "a-5"},
      {1, "$$VEIDVEID", "$1VEID"},
      {1, "${VE$VEIDID}", "${VE1ID}"},
      {1, "${$VEID}${VEID", "${1}${VEID"},
      {1, "$veid $VE ID", "$veid $VE ID"},
      {1, "", ""},
  };
  for (auto [veid, text, expected] : rows) {
    KFAEnvConfig::veidSubstitute(veid, text);
    EXPECT_EQ(text, expected);
  }
}

TEST(KFAEnvConfig, PathsNeedTheVariableAndTheVeid) {
  KFAEnvConfig config;
  std::string path = "kept";
  EXPECT_EQ(config.getVERoot(path), -1);
  config.setVERootVar(std::string("/srv/root/$VEID"));
  EXPECT_EQ(config.getVERoot(path), -1);
  config.setVeid(101);
  EXPECT_EQ(config.getVEPrivate(path), -1);
  EXPECT_EQ(path, "kept");
  EXPECT_EQ(config.getVERoot(path), 0);
  EXPECT_EQ(path, "/srv/root/101");
  config.setVEPrivateVar(std::string("/p/${VEID}"));
  EXPECT_EQ(config.getVEPrivate(path), 0);
  EXPECT_EQ(path, "/p/101");
}

// --- Disks -------------------------------------------------------------------------------------------------

namespace Disk = HardDisk::List;
using DisksSP = boost::shared_ptr<Disk::Base>;

const char* const kGuid = "2f1c9a4e-7b30-4c58-9d7e-0a4b6c1d2e3f";

template <class Image>
DisksSP images(const char* guid) {
  Image image;
  image.setGUID(KFLGUID(guid));
  return boost::make_shared<Disk::Images<Image>>(std::vector<Image>{image, Image()});
}

TEST(KFAEnvConfig, BoundDisksAreNeverReplaced) {
  HardDisk::KfFS area;
  area.setName("/srv/private/101");
  const Disk::KfFS freeArea;
  const struct {
    const char* what;
    DisksSP disks;
    int result;
  } rows[] = {
      {"an area with a path", boost::make_shared<Disk::KfFS>(area), -1},
      {"an area without", boost::make_shared<Disk::KfFS>(), 0},
      {"an image with a GUID", images<HardDisk::Zloop>(kGuid), -1},
      {"an image without", images<HardDisk::Zloop>(""), 0},
      {"a loopback image with a GUID", images<HardDisk::Loopback>(kGuid), -1},
      {"no images", boost::make_shared<Disk::Images<HardDisk::Loopback>>(), 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    KFAEnvConfig config;
    DisksSP disks = boost::make_shared<Disk::KfFS>();
    EXPECT_EQ(config.getHardDisks(disks), 0);
    EXPECT_EQ(disks, nullptr);
    ASSERT_EQ(config.setHardDisks(row.disks.get()), 0);
    ASSERT_EQ(config.getHardDisks(disks), 0);
    ASSERT_NE(disks, nullptr);
    EXPECT_EQ(typeid(*disks), typeid(*row.disks));

    const KFAEnvConfig before(config);
    EXPECT_EQ(config.setHardDisks(&freeArea), row.result);
    EXPECT_TRUE(row.result == 0 || config.getIterator().isEqualTree(before.getIterator()));
    EXPECT_EQ(config.setHardDisks(nullptr), row.result);
    EXPECT_EQ(config.getHardDisks(disks), 0);
    EXPECT_EQ(disks == nullptr, row.result == 0);
    EXPECT_EQ(names(config).size(), row.result == 0 ? 0U : 1U);
  }
}

struct ForeignList : Disk::Base {
  int accept(Disk::Visitor&) const override { return 0; }
};

TEST(KFAEnvConfig, DisksWithoutAFactoryAreNotWritten) {
  KFAEnvConfig config;
  const ForeignList foreign;
  EXPECT_EQ(config.setHardDisks(&foreign), -1);
  EXPECT_TRUE(names(config).empty());
  addStrays(config, "disk_list");
  EXPECT_EQ(config.setHardDisks(nullptr), 0);
  EXPECT_TRUE(names(config).empty());
}

// --- In messages and searches ------------------------------------------------------------------------------

TEST(KFAEnvConfig, SearchesByNumberAndParent) {
  const KFLEID parent(kGuid);
  const auto config = boost::make_shared<KFAEnvConfig>();
  config->setVeid(101);
  const auto make = [](const KFLEnv::VirtualConfigSP& virtualConfig, const KFLEID& of) {
    const auto env = boost::make_shared<KFLEnv>(KFLEID(), virtualConfig, nullptr);
    env->setParentEID(of);
    return boost::shared_ptr<const KFLEnv>(env);
  };
  const auto found = make(config, parent);
  const auto ofPlainClass = make(boost::make_shared<KFLVEnvConfig>(*config), parent);
  const auto ofOther = make(config, KFLEID());
  const auto nameless = make(boost::make_shared<KFAEnvConfig>(), parent);
  const auto bare = make(nullptr, parent);
  const KFAEnvConfig::MatchVeid byVeid;
  const KFAEnvConfig::MatchVeidParent byBoth(parent, 101);
  const struct {
    boost::shared_ptr<const KFLEnv> env;
    bool byVeid, byBoth;
  } rows[] = {{found, true, true},      {ofPlainClass, true, true}, {ofOther, true, false},
              {nameless, false, false}, {bare, false, false},       {nullptr, false, false}};
  for (const auto& row : rows) {
    EXPECT_EQ(byVeid(101, row.env), row.byVeid);
    EXPECT_EQ(byBoth(row.env), row.byBoth);
    EXPECT_FALSE(byVeid(102, row.env));
  }
}

}  // namespace
}  // namespace KFA
