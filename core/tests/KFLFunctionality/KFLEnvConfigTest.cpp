// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLEnvConfig.h>

#include <algorithm>

#include <KFLFunctionality/KFLVEnvConfig.h>

#include "../KFLMessage/Records.h"

namespace KFL {
namespace {

using Text = KFLEnvConfig::Text;
using Texts = KFLEnvConfig::Texts;
using TextSet = KFLEnvConfig::TextSet;

std::size_t count(const KFLEnvConfig& config, const std::string& name) {
  return static_cast<std::size_t>(std::ranges::count(namesOf(config.getIterator()), name));
}

// --- Properties --------------------------------------------------------------------------------------------

TEST(KFLEnvConfig, ListsLeaveEmptyTextsOutAndAddToWhatIsThere) {
  using List = std::vector<std::string>;
  KFLEnvConfig config;
  for (const auto& [set, expected] :
       {std::pair(List{"", "a", "", "b"}, List{"a", "b"}), {List{""}, List{}}}) {
    ASSERT_EQ(config.setNameservers(Texts(set)), 0);
    Texts got;
    ASSERT_EQ(config.getNameservers(got), 0);
    EXPECT_EQ(got, Texts(expected));
  }
  EXPECT_EQ(namesOf(config.getIterator()), Names{"nameserver"});
  TextSet domains(std::set<std::string>{"kept"});
  config.setSearchDomains(std::set<std::string>{"b", "a"});
  EXPECT_EQ(config.getSearchDomains(domains), 0);
  EXPECT_EQ(domains, TextSet(std::set<std::string>{"a", "b", "kept"}));
}

TEST(KFLEnvConfig, ListOfRecordsStopsAtTheMarkerAndFailsAtAMalformedItem) {
  const std::string good = "<qos><id>a</id><hard>1</hard></qos>";
  for (const auto& [second, result] : {std::pair("<qos/>", 0), {"<qos><id>b</id><hard>x</hard></qos>", -1}}) {
    KFLVEnvConfig config;
    KFLVEnvConfig::QoSes qoses;
    ASSERT_EQ(readFrom(good + second, config), 0);
    EXPECT_EQ(config.getQoSes(qoses), result);
    EXPECT_EQ(qoses.getValue().size(), 1U) << "what came before is kept";
  }
}

TEST(KFLVEnvConfig, DisabledIsPlain) {
  KFLVEnvConfig config;
  bool disabled = true;
  EXPECT_EQ(config.getDisabled(disabled), -1);
  EXPECT_TRUE(disabled);
  config.initMsg();
  EXPECT_EQ(config.getDisabled(disabled), -1);
  EXPECT_FALSE(disabled);
  for (const bool set : {true, false}) {
    config.setDisabled(set);
    EXPECT_EQ(config.getDisabled(disabled), 0);
    EXPECT_EQ(disabled, set);
  }
  EXPECT_EQ(count(config, "disabled"), 1U);
}

TEST(KFLVEnvConfig, OneQoSAmongMany) {
  KFLVEnvConfig config;
  KFLOptionalProperty<KFLQoS> qos;
  EXPECT_EQ(config.getQoS("a", qos), -1);
  long long hard = 0;
  for (const char* const id : {"c", "b", "a", "b"}) {
    KFLQoS one(id);
    one.setHard(++hard);
    EXPECT_EQ(config.setQoS(one), 0);
  }
  ASSERT_EQ(config.getQoS("a", qos), 0);
  EXPECT_EQ(qos.getValue().getHard(), 3);
  qos.value().setID("b");
  ASSERT_EQ(config.getQoS(qos), 0);
  EXPECT_EQ(qos.getValue().getHard(), 4);
  EXPECT_EQ(count(config, "qos"), 3U);

  qos.setSpecified(false);
  config.setQoS(qos);
  EXPECT_EQ(config.getQoS("b", qos), 0);
  EXPECT_FALSE(qos.isSpecified());
  EXPECT_EQ(count(config, "qos"), 2U);
}

// --- The subtree -------------------------------------------------------------------------------------------

TEST(KFLEnvConfig, WhatIsNotKnownStaysAndComesLast) {
  KFLMessage message;
  ASSERT_EQ(message.parse("<c xmlns=\"urn:a\"><strange x=\"1\">mixed<deep/></strange><type>t</type>"
                          "<name>n</name><other/></c>"),
            0);
  KFLVEnvConfig config;
  message.getIterator().getObj(config);
  config.setHostname("h");
  config.setDescription("d");
  config.setName("new");
  // A new element goes before the first one of a later place, those without a place included.
  std::string text;
  ASSERT_EQ(config.getIterator().print(text), 0);
  const std::string ns = std::string(" xmlns=\"") + kTypesNamespaceURI + "\">";
  EXPECT_EQ(text, "<c xmlns=\"urn:a\"><name" + ns + "new</name><description" + ns +
                      "d</description><hostname" + ns +
                      "h</hostname><strange x=\"1\">mixed<deep/></strange><type>t</type><other/></c>");
}

TEST(KFLEnvConfig, CopiesAreIndependentAndCursorsShare) {
  KFLMessage message;
  ASSERT_EQ(message.parse("<c><name>n</name></c>"), 0);
  KFLMessageIterator it = message.getIterator();
  it.selectNamespace("urn:another");
  KFLVEnvConfig inPlace(&it, EnvConfigReal);
  KFLVEnvConfig copy(inPlace);
  KFLVEnvConfig assigned;
  assigned = inPlace;
  inPlace.setName("changed");
  EXPECT_NE(message.toString().find(">changed<"), std::string::npos);
  Text name;
  for (const KFLVEnvConfig* const config : {&copy, &assigned}) {
    EXPECT_EQ(config->getKind(), EnvConfigReal);
    config->getName(name);
    EXPECT_EQ(name, Text("n"));
  }
  copy = KFLVEnvConfig();
  EXPECT_FALSE(copy.hasMsg());

  KFLVEnvConfig moved(std::move(inPlace));
  moved.setName("by the moved one");
  moved.setHostname("h");
  EXPECT_EQ(message.toString().find("urn:another"), std::string::npos) << message.toString();
  EXPECT_NE(message.toString().find(">by the moved one<"), std::string::npos);
  it = KFLMessageIterator();
  EXPECT_FALSE(KFLEnvConfig(&it, EnvConfigVirtual).hasMsg());
  EXPECT_FALSE(KFLEnvConfig(nullptr, EnvConfigVirtual).hasMsg());
  message = KFLMessage();
  EXPECT_EQ(moved.getName(name), 0) << "the configuration keeps the tree";
  EXPECT_EQ(name, Text("by the moved one"));
}

TEST(KFLEnvConfig, GuardSelectsForItsScopeAlone) {
  KFLMessage message("m");
  KFLMessageIterator it = message.getIterator();
  const auto add = [&it](const auto& uri, const char* name) {
    const KFLEnvConfig::NamespaceSetterGuard guard(it, uri);
    it.addEmptyChild(name);
  };
  const char* const literal = "urn:b";
  const char* const null = nullptr;
  add(std::string("urn:a"), "a");
  add(literal, "b");
  it.selectNamespace("urn:kept");
  add(std::string(), "c");
  add(null, "d");
  add(std::string("urn:a"), "a");
  it.addEmptyChild("e");
  std::string found;
  for (int left = it.firstChild(); left == 0; left = it.nextSibling())
    found += std::string(it.getName()) + "=" + std::string(it.getNamespace()) + " ";
  EXPECT_EQ(found, "a=urn:a b=urn:b c=urn:kept d=urn:kept a=urn:a e= ");
}

}  // namespace
}  // namespace KFL
