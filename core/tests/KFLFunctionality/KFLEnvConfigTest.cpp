#include <KFLFunctionality/KFLEnvConfig.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KFLFunctionality/KFLVEnvConfig.h>
#include <KFLMessage/KFLMessage.h>

namespace KFL {
namespace {

using Text = KFLEnvConfig::Text;
using Texts = KFLEnvConfig::Texts;
using TextSet = KFLEnvConfig::TextSet;

KFLVEnvConfig readConfig(const std::string& xml) {
  KFLMessage message;
  EXPECT_EQ(message.parse(xml), 0);
  KFLVEnvConfig config;
  EXPECT_EQ(message.getIterator().getObj(config), 0);
  return config;
}

std::vector<std::string> names(const KFLEnvConfig& config) {
  std::vector<std::string> all;
  const KFLMessageIterator it = config.getIterator();
  if (it.firstChild() != 0) return all;
  do
    all.emplace_back(it.getName());
  while (it.nextSibling() == 0);
  return all;
}

std::size_t count(const KFLEnvConfig& config, const std::string& name) {
  return static_cast<std::size_t>(std::ranges::count(names(config), name));
}

// --- Properties --------------------------------------------------------------------------------------------

struct TextRow {
  const char* element;
  int (KFLEnvConfig::*get)(Text&) const;
  int (KFLEnvConfig::*set)(const Text&);
};
constexpr TextRow kTexts[] = {
    {"name", &KFLEnvConfig::getName, &KFLEnvConfig::setName},
    {"description", &KFLEnvConfig::getDescription, &KFLEnvConfig::setDescription},
    {"hostname", &KFLEnvConfig::getHostname, &KFLEnvConfig::setHostname},
    {"architecture", &KFLEnvConfig::getArchitecture, &KFLEnvConfig::setArchitecture},
    {"type", &KFLEnvConfig::getType, &KFLEnvConfig::setType},
};

TEST(KFLEnvConfig, TextsAreAbsentThenSetThenAbsentAgain) {
  for (const TextRow& row : kTexts) {
    SCOPED_TRACE(row.element);
    KFLVEnvConfig config;
    Text value(std::string("as it was"));
    EXPECT_EQ((config.*row.get)(value), -1) << "without a message";
    EXPECT_TRUE(value.isSpecified());

    config.initMsg();
    EXPECT_EQ((config.*row.get)(value), 0);
    EXPECT_FALSE(value.isSpecified());

    for (const char* const text : {"first", "", "second"}) {
      EXPECT_EQ((config.*row.set)(std::string(text)), 0);
      EXPECT_EQ((config.*row.get)(value), 0);
      EXPECT_EQ(value, Text(std::string(text)));
      EXPECT_EQ(names(config), std::vector<std::string>{row.element});
    }
    EXPECT_EQ((config.*row.set)(Text()), 0);
    EXPECT_EQ((config.*row.get)(value), 0);
    EXPECT_FALSE(value.isSpecified());
    EXPECT_TRUE(names(config).empty());
  }
}

TEST(KFLEnvConfig, ListsKeepOrderAndTellEmptyFromAbsent) {
  using List = std::vector<std::string>;
  KFLEnvConfig config;
  Texts value;
  EXPECT_EQ(config.getNameservers(value), -1);
  const struct {
    List set, expected;
    std::size_t elements;
  } rows[] = {
      {{"10.0.0.3", "10.0.0.1", "10.0.0.3"}, {"10.0.0.3", "10.0.0.1", "10.0.0.3"}, 3},
      {{}, {}, 1},
      {{"10.0.0.9"}, {"10.0.0.9"}, 1},
      {{"", "a", "", "b"}, {"a", "b"}, 2},
      {{""}, {}, 1},
  };
  for (const auto& row : rows) {
    ASSERT_EQ(config.setNameservers(row.set), 0);
    EXPECT_EQ(count(config, "nameserver"), row.elements);
    Texts got;
    ASSERT_EQ(config.getNameservers(got), 0);
    EXPECT_EQ(got, Texts(row.expected));
  }
  EXPECT_EQ(config.setNameservers(Texts()), 0);
  EXPECT_EQ(config.getNameservers(value), 0);
  EXPECT_FALSE(value.isSpecified());
  EXPECT_EQ(count(config, "nameserver"), 0U);

  TextSet domains(std::set<std::string>{"kept"});
  config.setSearchDomains(std::set<std::string>{"b", "a"});
  EXPECT_EQ(config.getSearchDomains(domains), 0);
  EXPECT_EQ(domains, TextSet(std::set<std::string>{"a", "b", "kept"})) << "a getter adds to the container";
}

TEST(KFLEnvConfig, ListOfRecordsStopsAtTheMarkerAndFailsAtAMalformedItem) {
  const auto get = [](const std::string& items, KFLVEnvConfig::QoSes& qoses) {
    return readConfig("<c>" + items + "</c>").getQoSes(qoses);
  };
  const std::string good = "<qos><id>a</id><hard>1</hard></qos>";
  KFLVEnvConfig::QoSes qoses;
  EXPECT_EQ(get(good + "<qos/>", qoses), 0);
  EXPECT_EQ(qoses.getValue().size(), 1U);
  qoses.reset();
  EXPECT_EQ(get(good + "<qos><id>b</id><hard>x</hard></qos>", qoses), -1);
  EXPECT_EQ(qoses.getValue().size(), 1U) << "what came before it is kept";
}

TEST(KFLVEnvConfig, DisabledIsPlain) {
  KFLVEnvConfig config;
  bool disabled = true;
  EXPECT_EQ(config.getDisabled(disabled), -1);
  EXPECT_TRUE(disabled);
  config.initMsg();
  EXPECT_EQ(config.getDisabled(disabled), -1);
  EXPECT_FALSE(disabled);
  config.setDisabled(true);
  EXPECT_EQ(config.getDisabled(disabled), 0);
  EXPECT_TRUE(disabled);
  config.setDisabled(false);
  EXPECT_EQ(config.getDisabled(disabled), 0);
  EXPECT_FALSE(disabled);
  EXPECT_EQ(count(config, "disabled"), 1U);
}

TEST(KFLVEnvConfig, OneQoSAmongMany) {
  KFLVEnvConfig config;
  KFLOptionalProperty<KFLQoS> qos;
  EXPECT_EQ(config.getQoS("a", qos), -1);
  for (const char* const id : {"c", "a", "b"}) {
    KFLQoS one(id);
    one.setHard(*id);
    EXPECT_EQ(config.setQoS(one), 0);
  }
  ASSERT_EQ(config.getQoS("b", qos), 0);
  ASSERT_TRUE(qos.isSpecified());
  EXPECT_EQ(qos.getValue().getHard(), 'b');

  KFLQoS changed("b");
  changed.setSoft(5LL);
  changed.setHard(7);
  config.setQoS(changed);
  ASSERT_EQ(config.getQoS(qos), 0);
  EXPECT_EQ(qos.getValue().getSoft(), KFLOptionalProperty<long long>(5LL));
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
  ASSERT_EQ(
      message.parse("<c xmlns=\"urn:a\"><strange x=\"1\">mixed<deep/></strange><type>t</type><name>n</name>"
                    "<other/></c>"),
      0);
  KFLVEnvConfig config;
  message.getIterator().getObj(config);
  config.setHostname(std::string("h"));
  config.setDescription(std::string("d"));
  config.setName(std::string("new"));
  KFLMessage written("c");
  const KFLMessageIterator after = written.getIterator();
  ASSERT_EQ(written.getIterator().putObj(config), 0);
  const KFLMessageIterator before = message.getIterator();
  for (const char* const name : {"strange", "type", "other"}) {
    SCOPED_TRACE(name);
    ASSERT_EQ(before.findChild(name), 0);
    ASSERT_EQ(after.findChild(name), 0);
    EXPECT_TRUE(before.isEqualTree(after));
    before.leaveChild();
    after.leaveChild();
  }
  // A new element goes before the first one of a later place, those without a place included.
  EXPECT_EQ(names(config),
            (std::vector<std::string>{"name", "description", "hostname", "strange", "type", "other"}));
}

TEST(KFLEnvConfig, CopiesAreIndependentAndCursorsShare) {
  KFLMessage message;
  ASSERT_EQ(message.parse("<m><c><name>n</name></c></m>"), 0);
  KFLMessageIterator it = message.getIterator();
  ASSERT_EQ(it.findChild("c"), 0);
  KFLVEnvConfig inPlace(&it, EnvConfigReal);
  KFLVEnvConfig copy(inPlace);
  KFLVEnvConfig assigned;
  assigned = inPlace;
  EXPECT_EQ(copy.getKind(), EnvConfigReal);
  EXPECT_EQ(assigned.getKind(), EnvConfigReal);

  inPlace.setName(std::string("changed"));
  EXPECT_NE(message.toString().find("changed"), std::string::npos) << message.toString();
  for (const KFLVEnvConfig* const config : {&copy, &assigned}) {
    Text name;
    config->getName(name);
    EXPECT_EQ(name, Text(std::string("n")));
  }
  copy = KFLVEnvConfig();
  EXPECT_FALSE(copy.hasMsg());

  KFLVEnvConfig moved(std::move(inPlace));
  moved.setName(std::string("by the moved one"));
  EXPECT_NE(message.toString().find("by the moved one"), std::string::npos);
  const KFLMessageIterator nothing;
  EXPECT_FALSE(KFLEnvConfig(&nothing, EnvConfigVirtual).hasMsg());
  EXPECT_FALSE(KFLEnvConfig(nullptr, EnvConfigVirtual).hasMsg());
  message = KFLMessage();
  Text name;
  EXPECT_EQ(moved.getName(name), 0) << "the configuration keeps the tree";
  EXPECT_EQ(name, Text(std::string("by the moved one")));
}

TEST(KFLEnvConfig, GuardSelectsForItsScopeAlone) {
  KFLMessage message("m");
  KFLMessageIterator it = message.getIterator();
  const std::string text = "urn:a";
  const char* const literal = "urn:b";
  const std::string empty;
  const char* const null = nullptr;
  const auto add = [&it](const auto& uri, const char* name) {
    const KFLEnvConfig::NamespaceSetterGuard guard(it, uri);
    it.addEmptyChild(name);
  };
  add(text, "a");
  add(literal, "b");
  it.selectNamespace("urn:kept");
  add(empty, "c");
  add(null, "d");
  add(text, "a");
  it.addEmptyChild("e");
  std::string found;
  ASSERT_EQ(it.firstChild(), 0);
  do
    found += std::string(it.getName()) + "=" + std::string(it.getNamespace()) + " ";
  while (it.nextSibling() == 0);
  EXPECT_EQ(found, "a=urn:a b=urn:b c=urn:kept d=urn:kept a=urn:a e= ");
}

}  // namespace
}  // namespace KFL
