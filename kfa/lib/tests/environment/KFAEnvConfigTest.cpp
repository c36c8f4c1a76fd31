// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAEnvConfig.h>

#include <algorithm>
#include <functional>
#include <random>
#include <set>
#include <tuple>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFLFunctionality/KFLEnv.h>

#include "../MessageExamples.h"
#include "KFLMessage/Records.h"
#include "Properties.h"

namespace KFA {
namespace {

using Text = KFLEnvConfig::Text;

Names names(const KFAEnvConfig& config) {
  return namesOf(config.getIterator());
}

// That of the message in examples/messages, which has every element.
KFAEnvConfig example() {
  KFLMessage message;
  KFAEnvConfig config;
  EXPECT_EQ(message.parse(examples().find(KFL::findRecordType("KFAEnvConfig"))->second.xml), 0);
  EXPECT_EQ(message.getIterator().getObj(config), 0);
  return config;
}

// The names of its elements, each once, in their order.
Names exampleNames() {
  Names all = names(example());
  all.erase(std::unique(all.begin(), all.end()), all.end());
  return all;
}

// --- Properties --------------------------------------------------------------------------------------------

// Elements that others put there, one before all others and one behind.
void addStrays(const KFAEnvConfig& config, const std::string& element) {
  KFLMessageIterator it = config.getIterator();
  const KFLMessageIterator first(it);
  it.addEmptyChild(element);
  first.firstChild();
  it.setInsertionPoint(first);
  it.addEmptyChild(element);
}

// The property is absent, then as in the example, then empty if it can be, then absent again.
template <class Class, class T>
void expectLife(const std::string& element, int (Class::*get)(KFLOptionalProperty<T>&) const,
                int (Class::*set)(const KFLOptionalProperty<T>&)) {
  const KFAEnvConfig full = example();
  KFAEnvConfig config;
  KFLOptionalProperty<T> value, got;
  EXPECT_EQ((full.*get)(value), 0);
  EXPECT_EQ((config.*get)(value), -1) << "without a message";
  ASSERT_TRUE(value.isSpecified());
  config.initMsg();
  addStrays(config, "veid");
  config.setVeid(1);
  got = value;
  EXPECT_EQ((config.*get)(got), 0);
  EXPECT_FALSE(got.isSpecified());
  for (int i = 0; i < 2; ++i) {
    addStrays(config, element);
    EXPECT_EQ((config.*set)(value), 0);
    EXPECT_EQ(printedOf(config.getIterator(), element), printedOf(full.getIterator(), element));
    EXPECT_EQ(std::ranges::count(names(full), element) + 1U, names(config).size());
  }
  if constexpr (requires(T empty) { empty.clear(); }) {
    EXPECT_EQ((config.*set)(T()), 0);
    EXPECT_EQ(names(config), (Names{"veid", element}));
    got = {};
    EXPECT_EQ((config.*get)(got), 0);
    EXPECT_TRUE(got.isSpecified() && got.getValue().empty());
  }
  addStrays(config, element);
  EXPECT_EQ((config.*set)({}), 0);
  EXPECT_EQ((config.*get)(got), 0);
  EXPECT_FALSE(got.isSpecified());
  EXPECT_EQ(names(config), Names{"veid"});
}

TEST(KFAEnvConfig, EveryPropertyIsAbsentThenSetThenAbsentAgain) {
  Names left = exampleNames();
  for (const char* const other : {"veid", "disabled", "disk_list"})
    std::erase(left, other);
  forEachProperty([&](const char* name, auto get, auto set) {
    SCOPED_TRACE(name);
    ASSERT_FALSE(left.empty());
    expectLife(left.front(), get, set);
    left.erase(left.begin());
  });
  EXPECT_EQ(left, Names());
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
  // Taking out what is not there adds nothing, and an element that says that there are none stays.
  EXPECT_EQ(config.setCapability({}) | config.setQoS({}), 0);
  EXPECT_EQ(names(config), Names());
  ASSERT_EQ(config.setCapabilities(KFAEnvConfig::Capabilities(std::set<KFAEnvCapability>())), 0);
  EXPECT_EQ(config.setCapability({}), 0);
  EXPECT_EQ(names(config), Names{"capability"});
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
  const KFAEnvConfig config;
  int position = 0;
  for (const std::string& name : exampleNames())
    EXPECT_EQ(config.getPositionOfTheTag(name), position < 28 ? position++ : -1) << name;
  for (const char* const none : {"", "VEID", "veid "})
    EXPECT_EQ(config.getPositionOfTheTag(none), -1) << none;
}

// What has no place of its own stands behind.
TEST(KFAEnvConfig, AnyOrderOfSettersGivesTheOrderOfTheElements) {
  const KFAEnvConfig full = example();
  boost::shared_ptr<HardDisk::List::Base> disks;
  ASSERT_EQ(full.getHardDisks(disks), 0);
  std::vector<std::function<void(KFAEnvConfig&)>> setters = {
      [](KFAEnvConfig& to) { to.setVeid(101); }, [](KFAEnvConfig& to) { to.setDisabled(true); },
      [&](KFAEnvConfig& to) { to.setHardDisks(disks.get()); }};
  forEachProperty(
      [&]<class Class, class T>(const char*, int (Class::*get)(T&) const, int (Class::*set)(const T&)) {
        T value;
        EXPECT_EQ((full.*get)(value), 0);
        setters.emplace_back([=](KFAEnvConfig& to) { (to.*set)(value); });
      });
  Names expected = names(full);
  const std::size_t size = expected.size();
  expected.erase(std::ranges::find(expected, "name"), expected.end());
  expected.emplace_back("unknown");
  std::mt19937 random(3);
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
    Names order = names(config);
    EXPECT_EQ(order.size(), size + 1);
    order.resize(expected.size());
    EXPECT_EQ(order, expected);
  }
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
  EXPECT_EQ(KFL::getErrorMessage().find("the configuration has no message"), 0U) << KFL::getErrorMessage();
  config.setVERootVar(std::string("/srv/root/$VEID"));
  EXPECT_EQ(config.getVERoot(path), -1);
  config.setVeid(101);
  EXPECT_EQ(config.getVEPrivate(path), -1);
  EXPECT_NE(KFL::getErrorMessage().find(": element ve_private is missing"), std::string::npos)
      << KFL::getErrorMessage();
  EXPECT_EQ(path, "kept");
  EXPECT_EQ(config.getVERoot(path), 0);
  EXPECT_EQ(path, "/srv/root/101");
  config.setVEPrivateVar(std::string("/p/${VEID}"));
  EXPECT_EQ(config.getVEPrivate(path), 0);
  EXPECT_EQ(path, "/p/101");
}

TEST(KFAEnvConfig, WhatCannotBeReadIsToldOrPassedOver) {
  KFAEnvConfig config;
  const char* const xml =
      "<veid>x</veid><disabled>x</disabled><on_boot>2</on_boot><net_device><dhcp/></net_device>";
  ASSERT_EQ(readFrom(xml, config), 0);
  int veid = 0;
  bool isDisabled = false;
  KFAEnvConfig::Flag onBoot;
  KFAEnvConfig::NetVEths devices;
  EXPECT_EQ(config.getOnBoot(onBoot), 0);
  EXPECT_EQ(config.getVeid(veid) & config.getDisabled(isDisabled), -1);
  EXPECT_EQ(config.getNetVEths(devices), -1);
  EXPECT_TRUE(KFL::getErrorMessage().starts_with("/r/net_device: ")) << KFL::getErrorMessage();
}

// --- Disks -------------------------------------------------------------------------------------------------

namespace Disk = HardDisk::List;
static_assert(std::string_view(Disk::KfFS::s_COMPLEX_TYPE) == "ct_kffs");
static_assert(std::string_view(Disk::Images<HardDisk::Zloop>::s_COMPLEX_TYPE) == "ct_zloop_disk");

using DisksSP = boost::shared_ptr<Disk::Base>;

const char* const kGuid = "2f1c9a4e-7b30-4c58-9d7e-0a4b6c1d2e3f";

template <class Image>
DisksSP images(const char* guid) {
  Image image;
  image.setGUID(KFLGUID(guid));
  return boost::make_shared<Disk::Images<Image>>(std::vector<Image>{image, Image()});
}

struct Naming : Disk::Visitor {
  int visit(const Disk::KfFS&) override { return 1; }
  int visit(const Disk::Images<HardDisk::Zloop>&) override { return 2; }
  int visit(const Disk::Images<HardDisk::Loopback>&) override { return 3; }
};

TEST(KFAEnvConfig, BoundDisksAreNeverReplaced) {
  HardDisk::KfFS area;
  area.setName("/srv/private/101");
  const Disk::KfFS freeArea;
  const struct {
    const char* what;
    DisksSP disks;
    int kind, result;
  } rows[] = {
      {"an area with a path", boost::make_shared<Disk::KfFS>(area), 1, -1},
      {"an area without", boost::make_shared<Disk::KfFS>(), 1, 0},
      {"an image with a GUID", images<HardDisk::Zloop>(kGuid), 2, -1},
      {"an image without", images<HardDisk::Zloop>(""), 2, 0},
      {"a loopback image with a GUID", images<HardDisk::Loopback>(kGuid), 3, -1},
      {"no images", boost::make_shared<Disk::Images<HardDisk::Loopback>>(), 3, 0},
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
    Naming naming;
    EXPECT_EQ(disks->accept(naming), row.kind);

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
