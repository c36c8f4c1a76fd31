// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>

#include <random>
#include <tuple>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFLMessage/KFLMessage.h>

#include "FilesTest.h"

namespace {

using KFA::KFAEnvConfig;
using KFA::KFAEnvConfigBashParser;
using Changes = std::vector<std::pair<std::string, std::string>>;

KFAEnvConfig read(const std::string& text) {
  std::istringstream in(text);
  KFAEnvConfig record;
  EXPECT_EQ(envParser()->getConfig(in, record), 0) << text;
  return record;
}

// Reads the text, and gives what a key is then written as: "(none)" when it is not.
std::string readBack(const std::string& text, const std::string& key) {
  const KFAEnvConfig record = read(text);
  KFAEnvConfigBashParser::ParameterParserGet parser(record, *envParser());
  std::string value;
  const int result = parser.get(key, value);
  if (result == KFA::kParameterWithoutValue) return "(none)";
  return result == 0 ? value : std::to_string(result);
}

// Key, text of the file, and what the key is written as where that is not what stands there: what does, the rules take.
const std::tuple<const char*, const char*, const char*> kValues[] = {
    // Flags: yes in any case, everything else is no.
    {"onboot", "ONBOOT=Yes", "yes"},
    {"onboot", "ONBOOT=", "no"},
    {"onboot", "OnBoot=yes\nONBOOT=no", "no"},
    {"disabled", "", "(none)"},
    // Texts.
    {"hostname", "HOSTNAME=", "(none)"},
    {"name", "NAME=a\nNAME=''", "(none)"},
    {"templates", "TEMPLATES=' a/1  b\tc/2 '", "a/1 b c/2"},
    // Lists keep their order, sets do not.
    {"ip_address", "IP_ADDRESS='10.0.0.2  10.0.0.1/24'", "10.0.0.2 10.0.0.1/24"},
    {"searchdomain", "SEARCHDOMAIN='b a b'", "a b"},
    {"rate", "RATE='eth0:1:1024 nonsense'", "eth0:1:1024 nonsense"},
    // The environment type.
    {"ve_type", "VE_TYPE=repair:x", "repair:0"},
    {"ve_type", "VE_TYPE=temporary", "regular"},
    // The architecture: the first one stays, unless TECHNOLOGIES names one.
    {"arch", "ARCH=x86\nARCH=x86_64", "x86"},
    {"arch", "TECHNOLOGIES='nptl x86_64 x86'\nARCH=ia64", "x86_64"},
    {"arch", "ARCH=ia64\nTECHNOLOGIES=x86", "x86"},
    {"arch", "ARCH=ia64\nTECHNOLOGIES=nptl", "ia64"},
    {"technologies", "TECHNOLOGIES=x86_64", "(none)"},
    // Devices: the host-routed venet0 is always there, and has no text.
    {"netif", "", ""},
    {"netif", "NETIF='ifname=venet0'", "ifname=venet0,network=,mac=,nettype=bridged,dhcp=no"},
    // Resources: a pair, a number, a fraction.
    {"numproc", "NUMPROC=' 7x:+8'", "7:8"},
    {"numproc", "NUMPROC=plenty", "0"},
    {"numproc", "NUMPROC=1:2:3", "1:2"},
    {"numproc", "NUMPROC=1:2\nNumProc=3:4", "3:4"},
    {"cpulimit", "CPULIMIT=12.345", "12.34"},
    {"cpulimit", "CPULIMIT=-0.999", "-0.99"},
    {"cpulimit", "CPULIMIT=1e30", "(none)"},
    {"cpulimit", "CPULIMIT=nan", "(none)"},
    {"cpulimit", "CPULIMIT=abc", "(none)"},
    {"cpulimit", "CPULIMIT=7\nCPULIMIT=abc", "7"},
    {"netif", "NETIF='ifname=eth0;mac=00:11:22:33:44:55'", ""},
    {"netif", "NETIF='ifname=venet0'\nNETIF='ifname=eth0;mac=1;ifname=eth1'",
     "ifname=venet0,network=,mac=,nettype=bridged,dhcp=no"},
    {"onbot", "ONBOT=yes", "-1001"},
};

TEST(EnvConfigBashParser, ConvertsValues) {
  for (const auto& [key, text, written] : kValues)
    EXPECT_EQ(readBack(text, key), written) << text;
}

// A fresh record is filled without looking for what it cannot have; one that holds something gets every element in its
// place, too.
TEST(EnvConfigBashParser, FillsAFreshRecordAsAnyOther) {
  std::mt19937 random(4);
  std::vector<std::string> lines;
  for (const auto& [key, text, written] : kValues)
    lines.emplace_back(text);
  std::istringstream example(contentOf(KFA_SOURCE_DIR "/examples/node/conf/110.conf"));
  for (std::string line; std::getline(example, line);)
    lines.push_back(line);
  for (int file = 0; file < 500; ++file) {
    std::string text;
    for (std::size_t n = random() % 60; n > 0; --n)
      text += lines[random() % lines.size()] + '\n';
    if (file % 8 == 0) text += "NAME=\"open\nONBOOT=yes\n";
    KFL::KFLMessage message;
    ASSERT_EQ(message.parse("<virtual_config><unknown/></virtual_config>"), 0);
    KFL::KFLMessageIterator root = message.getIterator();
    KFAEnvConfig other(&root, KFL::EnvConfigVirtual);
    KFAEnvConfig fresh;
    std::istringstream in[] = {std::istringstream(text), std::istringstream(text)};
    EXPECT_EQ(envParser()->getConfig(in[0], fresh), envParser()->getConfig(in[1], other));
    root.removeChildren("unknown");
    root.setName("", "");
    EXPECT_TRUE(other.getIterator().isEqualTree(fresh.getIterator())) << text;
  }
}

// The devices of a record, as elements in a row, and what a file makes of them.
TEST(EnvConfigBashParser, DevicesAreStoredOnlyWhereTheFileOrTheCompletionGaveThem) {
  const std::string known = "<net_device><name>venet0</name><unknown>1</unknown></net_device>";
  const std::string unreadable =
      "<net_device><name>eth0</name></net_device><net_device><mac>1</mac></net_device>";
  const std::string other = "<net_device><name>eth0</name><unknown>1</unknown></net_device>";
  const std::string noAddress = "<address><nested/></address>";
  const struct {
    std::string record, file;
    bool isKept;
  } rows[] = {
      {known, "ONBOOT=yes", true},
      {unreadable, "ONBOOT=yes", true},
      {other + noAddress, "", true},
      {other, "", false},
      {known, "NETIF=ifname=eth1", false},
      {noAddress, "NETIF=ifname=eth1", false},
      {known, "NETIF=ifname=eth1\\;mac=1", true},
      {known, "NETIF=mac=1\\;ifname=eth1", true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.record + " " + row.file);
    KFL::KFLMessage message;
    ASSERT_EQ(message.parse("<venv_config>" + row.record + "</venv_config>"), 0);
    const auto devicesOf = [](const KFAEnvConfig& config) {
      std::string all;
      auto it = config.getIterator();
      for (int left = it.findChild(2053); left == 0; left = it.findNextChild(2053)) {
        std::string one;
        it.print(one);
        all += one;
      }
      return all;
    };
    const KFL::KFLMessageIterator root = message.getIterator();
    KFAEnvConfig config(&root, KFL::EnvConfigVirtual);
    const std::string before = devicesOf(config);
    if (const std::string key = "NETIF="; row.file.starts_with(key)) {
      KFAEnvConfig copy(config);
      KFAEnvConfigBashParser::ParameterParserPut parser(copy, *envParser());
      EXPECT_EQ(parser.put("netif", row.file.substr(key.size()).c_str()), row.isKept ? -1 : 0);
      EXPECT_EQ(devicesOf(copy) == before, row.isKept) << devicesOf(copy);
    }
    std::istringstream in(row.file);
    EXPECT_EQ(envParser()->getConfig(in, config), 0);
    EXPECT_EQ(devicesOf(config) == before, row.isKept) << devicesOf(config);
  }
}

// The vocabulary spells the id in the record; files, lookups and replacements know it in any case of letters.
TEST(EnvConfigBashParser, ResourcesAreSpelledAsInTheVocabulary) {
  const auto vocabulary = KFL::KFLVocMap::loadFromText(
      "<vocabulary version='1'><category words='kelvarium qos'><parameter id='NumProc' kind='2'/>"
      "</category></vocabulary>",
      "test");
  const auto parser = KFAEnvConfigBashParser::getInstance(vocabulary);
  ASSERT_NE(parser, nullptr);
  KFAEnvConfig record;
  std::istringstream in("numproc=1:2");
  ASSERT_EQ(parser->getConfig(in, record), 0);
  KFL::KFLVEnvConfig::QoSes qoses;
  ASSERT_EQ(record.getQoSes(qoses), 0);
  ASSERT_EQ(qoses.getValue().size(), 1U);
  EXPECT_EQ(qoses.getValue().begin()->getID(), "NumProc");
  KFL::KFLQoS other("NUMPROC");
  other.setHard(7);
  EXPECT_EQ(record.setQoS(other), 0);
  std::string value;
  EXPECT_EQ(KFAEnvConfigBashParser::ParameterParserGet(record, *parser).get("numproc", value), 0);
  EXPECT_EQ(value, "7");
  std::istringstream existing("NumPROC=1:2\n");
  std::ostringstream out;
  EXPECT_EQ(parser->putConfig(record, out, &existing, true), 0);
  EXPECT_EQ(out.str().substr(0, out.str().find('\n')), "NumPROC=\"7\"");
}

// Type and resources are set even where there are none, once all lines are read.
TEST(EnvConfigBashParser, SetsTheTypeUnlessItStopsAtAMalformedLine) {
  for (const bool isMalformed : {false, true}) {
    std::istringstream in(isMalformed ? "ONBOOT=yes\nNAME='open\nHOSTNAME=x\n" : "ONBOOT=yes\n");
    KFAEnvConfig record;
    EXPECT_EQ(envParser()->getConfig(in, record), isMalformed ? -1 : 0);
    KFAEnvConfig::Flag onBoot;
    KFAEnvConfig::Text type;
    KFAEnvConfig::QoSes qoses;
    record.getOnBoot(onBoot);
    record.getType(type);
    record.getQoSes(qoses);
    EXPECT_TRUE(onBoot.isSpecified());
    EXPECT_EQ(type, isMalformed ? KFAEnvConfig::Text() : KFAEnvConfig::Text("kelvarium"));
    EXPECT_EQ(qoses.isSpecified(), !isMalformed);
    EXPECT_TRUE(qoses.getValue().empty());
  }
}

std::string keysOf(const KFAEnvConfigBashParser& parser) {
  const KFAEnvConfig record;
  KFAEnvConfigBashParser::ParameterParserGet keys(record, parser);
  std::string names;
  for (std::string key; keys.getNext("", key) == 0;)
    names += key + " ";
  return names;
}

constexpr const char* kVocabulary =
    "<vocabulary version='1'><category words='qos'>"
    "<parameter id='Zeta' kind='1' value_type='0'/><parameter id='Alpha'/>"
    "<parameter id='Mid' kind='1'/><parameter id='ALPHA' kind='1'/></category></vocabulary>";

TEST(EnvConfigBashParser, HandsOutTheFirstResourceKeyThenTheTableThenTheOthers) {
  const auto parser = KFAEnvConfigBashParser::getInstance(KFL::KFLVocMap::loadFromText(kVocabulary, "test"));
  ASSERT_TRUE(parser);
  const std::string expected =
      "alpha arch description disabled distribution hostname ip_address iptables name nameserver netif "
      "offline_management offline_service onboot origin_sample ostemplate platform rate ratebound roles "
      "searchdomain slmmode technologies templates uuid ve_private ve_root ve_type mid zeta ";
  EXPECT_EQ(keysOf(*parser), expected);
  EXPECT_TRUE(keysOf(KFAEnvConfigBashParser()).empty());
  // The first definition of an id counts; what the vocabulary leaves out is a pair of integers.
  const auto& alpha = parser->getQoSMap().at("alpha");
  EXPECT_EQ(alpha.kind, 2);
  EXPECT_EQ(alpha.valueType, 1);
  EXPECT_EQ(alpha.upperName, "ALPHA");
}

TEST(EnvConfigBashParser, NeedsTheCategoryOfResources) {
  KFAEnvConfigBashParser parser;
  const char* vocabulary = "<vocabulary version='1'><category words='tune'/></vocabulary>";
  EXPECT_EQ(parser.initQoSMap(KFL::KFLVocMap::loadFromText(vocabulary, "test")), -1);
  EXPECT_EQ(KFL::getErrorMessage(), "can't read qos category from vocabulary");
  EXPECT_FALSE(KFAEnvConfigBashParser::getInstance(boost::shared_ptr<KFL::KFLVocMap>()));
}

std::string write(const KFAEnvConfig& record, const std::string& existing) {
  std::istringstream in(existing);
  std::ostringstream out;
  EXPECT_EQ(envParser()->putConfig(record, out, &in, true), 0);
  return out.str();
}

TEST(EnvConfigBashParser, PutsTheAddressesOfTheFirstHostRoutedDeviceIntoIpAddress) {
  const KFAEnvConfig other =
      read("NETIF='ifname=eth0,nettype=host-routed,ip=10.1.0.1'\nIP_ADDRESS=10.0.0.1\n");
  EXPECT_EQ(write(other, "IP_ADDRESS=10.0.0.1\n").substr(0, 22), "IP_ADDRESS=\"10.1.0.1\"\n");
  // The record itself is as it was.
  KFAEnvConfig::Addresses addresses;
  other.getAddresses(addresses);
  EXPECT_EQ(addresses.getValue().front().toString(), "10.0.0.1");
}

TEST(EnvConfigBashParser, TellsWhichKeysDiffer) {
  const std::string text = contentOf(KFA_SOURCE_DIR "/examples/node/conf/110.conf");
  const KFAEnvConfig before = read(text);
  Changes changes;
  EXPECT_EQ(envParser()->diffConfig(before, before, changes), 0);
  EXPECT_TRUE(changes.empty());
  const KFAEnvConfig after =
      read(text + "ONBOOT=no\nNUMPROC=1:2\nHOSTNAME=\nIP_ADDRESS=10.9.9.9\nLOADLIMIT=2.5\n");
  EXPECT_EQ(envParser()->diffConfig(before, after, changes), 0);
  EXPECT_EQ(
      changes,
      (Changes{{"ip_address", "10.9.9.9"}, {"onboot", "no"}, {"loadlimit", "2.5"}, {"numproc", "1:2"}}));
}

}  // namespace
