// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeCheck.h>

#include <algorithm>
#include <array>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <tuple>

#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLVEnvConfig.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/node/KFAKeyCatalogue.h>
#include <KFAFunctionality/node/KFAQoSAdvice.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>

#include "../files/FilesTest.h"
#include "../resources/Vocabularies.h"

namespace {

using Finding = KFA::KFANodeFinding;

std::vector<Finding> check(const std::vector<std::string>& texts, KFA::KFANodeCheckOptions options = {}) {
  KFA::KFANodeCheck node(envParser(), std::move(options));
  int veid = 101;
  for (const std::string& text : texts) {
    node.add({"/nowhere/" + std::to_string(veid) + ".conf", veid}, text);
    ++veid;
  }
  return node.finish();
}

TEST(NodeCheckTest, JudgesAFile) {
  // The findings as "line:column rule".
  const std::pair<std::string, std::vector<const char*>> rows[] = {
      {"",
       {"ONBOOT=yes\nNAME=web\n", "", "# nothing yet\n", "ONBOOT=yes\ncolour: red\n",
        "NAME=\"\xe2\x80\x9cx\xe2\x80\x9d\xc2\xa0\"\n", "UUID=5b0c3f0e-8a55-4d27-9b7e-0d7f4a1c9e21\n",
        "NAMESERVER=\"192.0.2.1 2001:db8::1\"\n", "HOSTNAME=web-1.example.com.\n",
        "NETIF=\"ifname=eth0,mac=02:00:5e:10:00:01\"\n", "NUMPROC=240:300\n"}},
      {"1:1 no-configuration ",
       {"<html>\n<body>\n",
        "\x7f"
        "ELF\x01\x02\n"}},
      {"1:5 colon ", {"NAME: web\nONBOOT=yes\n"}},
      {"1:6 odd-quote ", {"NAME=\xe2\x80\x9cx\xe2\x80\x9d\n"}},
      {"1:6 unworkable-value ", {"UUID=5b0c3f0e\n", "ARCH=sparc\n"}},
      {"1:12 unworkable-value ", {"NAMESERVER=\"192.0.2.1 ns1\"\n", "DISKWEIGHT=-1\n"}},
      {"1:14 unworkable-value ", {"SEARCHDOMAIN=\"example.com 192.0.2.1/24\"\n"}},
      {"1:10 unworkable-value ", {"HOSTNAME=web_1\n", "HOSTNAME=-web\n"}},
      {"1:7 unworkable-value ", {"NETIF=\"ifname=eth0,mac=hello\"\n"}},
      {"1:9 unworkable-value ", {"NUMPROC=300:240\n"}},
      {"1:9 missing-environment ", {"VE_TYPE=repair:1\n"}},
      {"1:15 missing-sample ", {"ORIGIN_SAMPLE=x\n"}},
      {"1:1 foreign-key ", {"BACKUP=x\n"}},
  };
  for (const auto& [expected, texts] : rows) {
    for (const char* const text : texts) {
      std::string places;
      for (const Finding& finding : check({text}))
        places +=
            std::to_string(finding.line) + ":" + std::to_string(finding.column) + " " + finding.rule + " ";
      EXPECT_EQ(places, expected) << text;
    }
  }
  const auto marked = check({"\xef\xbb\xbfONBOOT=yes\nNAME=a\n"});
  ASSERT_FALSE(marked.empty());
  EXPECT_EQ(marked[0].rule, "byte-order-mark");
  EXPECT_TRUE(check({"BACKUP=x\n"}, {KFA::parseForeignKeys("# ours\nBackup keep # two\n"), {}, {}}).empty());
  EXPECT_EQ(check({"OSTEMPLATE=a/1\nTEMPLATES=\"b c\"\n"}, {{}, {{"a/1", "b"}}, {}}).size(), 1U);
}

// Pairs planted among a thousand environments are found, each once and at its line, and nothing else is.
TEST(NodeCheckTest, FindsWhatWasPlantedBetweenFiles) {
  const std::tuple<std::string, std::string, std::string> plants[] = {
      {"duplicate-address", "IP_ADDRESS=203.0.113.7", "NETIF=ifname=eth0,ip=203.0.113.7/24"},
      {"duplicate-address", "IP_ADDRESS=2001:db8:7::1", "IP_ADDRESS=2001:DB8:7:0::1/64"},
      {"duplicate-mac", "NETIF=ifname=eth0,mac=02:AA:00:00:00:01", "NETIF=ifname=eth1,mac=02-aa-00-00-00-01"},
      {"duplicate-uuid", "UUID=5b0c3f0e-8a55-4d27-9b7e-0d7f4a1c9e21",
       "UUID={5B0C3F0E-8A55-4D27-9B7E-0D7F4A1C9E21}"},
      {"duplicate-name", "NAME=twin", "NAME='twin'"},
      {"duplicate-hostname", "HOSTNAME=Twin.example.com", "HOSTNAME=twin.example.com."},
      {"duplicate-private", "VE_PRIVATE=/srv/x", "VE_PRIVATE=/srv//y/../x/"},
  };
  std::mt19937 random(1);
  for (const auto& [rule, one, other] : plants) {
    std::vector<std::string> texts;
    for (int i = 0; i < 1000; ++i)
      texts.push_back("VE_ROOT=/r/$VEID\n" + (i % 2 == 0 ? "IP_ADDRESS=10.0." + std::to_string(i / 250) +
                                                               "." + std::to_string(i % 250) + "\n"
                                                         : ""));
    const std::size_t first = random() % 500;
    const std::size_t second = 500 + random() % 500;
    texts[first] = "\n\n" + one + "\n";
    texts[second] = "\n" + other + "\n";
    const auto findings = check(texts);
    ASSERT_EQ(findings.size(), 1U) << rule << findings.front().text;
    EXPECT_EQ(findings[0].rule, rule);
    EXPECT_EQ(findings[0].veid, static_cast<int>(101 + second));
    EXPECT_EQ(findings[0].line, 2U);
    EXPECT_EQ(findings[0].lineText, other);
    EXPECT_EQ(findings[0].related, "/nowhere/" + std::to_string(101 + first) + ".conf:3");
    EXPECT_EQ(findings[0].severity, Finding::Severity::Error);
  }
  // Not twins: an environment's own two keys, unnamed areas, who repairs whom, and networks apart only warn.
  EXPECT_TRUE(check({"IP_ADDRESS=10.0.0.1\nNETIF=ifname=eth0,nettype=host-routed,ip=10.0.0.1\n"}).empty());
  EXPECT_TRUE(check({"VE_PRIVATE=/p/$VEID\n", "VE_PRIVATE=/p/${VEID}\n"}).empty());
  const auto apart =
      check({"NETIF=ifname=a,network=x,ip=10.0.0.1\n", "NETIF=ifname=a,network=y,ip=10.0.0.1\n"});
  ASSERT_EQ(apart.size(), 1U);
  EXPECT_EQ(apart[0].severity, Finding::Severity::Warning);
}

// What the check of a node remembers of values, and what it leaves out of the second reading, change no finding: of the
// lines of a file it says what the rules alone say.
TEST(NodeCheckTest, SaysOfLinesWhatTheRulesSay) {
  std::mt19937 random(5);
  const auto any = [&random](std::initializer_list<const char*> words) {
    return std::string(words.begin()[random() % words.size()]);
  };
  const auto device = [&any] {
    return "ifname=" + any({"e", "venet0"}) + any({"", ",nettype=bridged", ",nettype=b"}) +
           any({"", ",nettype=host-routed", ",nettype=h", ",nettype=", ",nettype=host"}) +
           any({"", ",ip=1.1.1.1", ",ip=2.2.2.2", ",ip=2.2.2.2:1.1.1.1", ",dhcp=yes"});
  };
  KFA::KFANodeCheck node(envParser(), {});
  std::set<std::string> ofLines;
  for (const auto& rule : KFA::nodeRules().subspan(1, 10))
    ofLines.insert(rule.name);
  std::size_t overruled = 0;
  for (int veid = 0; veid < 5000; ++veid) {
    std::string text = "NUMPROC=" + std::to_string(random() % 5000) + any({"", "x", ":1"}) + "\n";
    for (auto left = random() % 6; left > 0; --left)
      text += any({"ARCH=x86\n", "ARCH=i386\n", "ARCH=ia64\n", "TECHNOLOGIES=x86\n",
                   "TECHNOLOGIES='ia64 nptl'\n", "TECHNOLOGIES=nptl\n", "IP_ADDRESS=1.1.1.1\n",
                   "IP_ADDRESS=2.2.2.2\n", "IP_ADDRESS=dhcp\n", "IP_ADDRESS=''\n", "ONBOOT=maybe\n"}) +
              (random() % 2 == 0 ? "NETIF='" + device() + any({"'\n", ";'\n"}) : "") +
              (random() % 9 == 0 ? "NETIF=\"" + device() + ";" + device() + "\"\n" : "");
    const auto show = [](const auto& finding) {
      return std::to_string(finding.line) + ":" + std::to_string(finding.column) + " " + finding.rule + " " +
             finding.text;
    };
    std::vector<std::string> expected;
    std::vector<std::string> found;
    for (const auto& finding : KFA::checkConfig(envRules(), text)) {
      expected.push_back(show(finding));
      overruled += finding.rule == "overruled-value" ? 1 : 0;
    }
    for (const Finding& finding : node.add({std::to_string(veid) + ".conf", veid}, text))
      if (ofLines.count(finding.rule) != 0) found.push_back(show(finding));
    ASSERT_EQ(found, expected) << text;
  }
  EXPECT_GT(overruled, 500U);
}

TEST(NodeCheckTest, HoldsSumsAgainstTheNode) {
  const std::string one =
      "ONBOOT=yes\nPHYSMEMORY=1073741824\nMEMORYGUARANTEE=50\nDISKSPACE=1048576\nCPUGUARANTEE=150\n";
  KFA::KFANodeCheck node(envParser(), {{}, {}, {3LL << 29, 2LL << 30, 30000}});
  for (int i = 1; i <= 3; ++i)
    node.add({std::to_string(i) + ".conf", i}, one);
  node.add({"4.conf", 4}, "ONBOOT=no\n" + one.substr(11));
  EXPECT_EQ(node.getStartedOnBoot(), 3U);
  EXPECT_EQ(node.getGuaranteed().memory, 3LL << 29);
  EXPECT_EQ(node.getGuaranteed().disk, 3LL << 30);
  EXPECT_EQ(node.getGuaranteed().cpu, 45000);
  std::set<std::string> rules;
  for (const Finding& finding : node.finish())
    rules.insert(finding.rule);
  EXPECT_EQ(rules, (std::set<std::string>{"node-disk", "node-cpu"}));
  EXPECT_GT(KFA::KFANodeResources::ofMachine("/").memory, 0);
}

// --- The catalogue ------------------------------------------------------------------------------------------------------

TEST(KeyCatalogueTest, DescribesEveryKeyByWhatItTakes) {
  const auto vocabulary = KFL::KFLVocMap::load(KFA_SOURCE_DIR "/data/vocabulary.xml");
  const KFA::KFAKeyCatalogue catalogue(envParser(), vocabulary);
  EXPECT_EQ(catalogue.getKeys().size(), 27 + envParser()->getQoSMap().size());
  for (const auto& [key, described] : catalogue.getKeys()) {
    EXPECT_EQ(envRules().accept(key, described.example), 0) << KFL::getErrorMessage();
    EXPECT_FALSE(described.form.empty() || described.without.empty() || described.description.empty()) << key;
  }
  const char* const rows[][3] = {
      {"physmemory", "1073741824:1207959552", "1 GiB:1.125 GiB"},
      {"physmemory", "1000", "1000 bytes"},
      {"diskspace", "10485760", "10 GiB"},
      {"cpulimit", "12.5", "12.5 %"},
      {"numproc", "200:240", "200:240"},
      {"diskgrace", "60", "60 s"},
      {"physmemory", "9223372036854775807", "unlimited"},
      {"diskbandwidth", "1048576", "1 MiB/s"},
      {"hostname", "1073741824", "1073741824"},
      {"physmemory", "much", "much"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(catalogue.showValue(row[0], row[1]), row[2]);
}

// --- Advice -------------------------------------------------------------------------------------------------------------

// A vocabulary with the file of an environment.
struct Case {
  KFL::KFLVocMapSP vocabulary;
  boost::shared_ptr<KFA::KFAEnvConfigBashParser> parser;
  KFL::KFLVEnvConfig none;
  KFA::KFAQVTune tune;

  explicit Case(const KFL::KFLVocMapSP& map)
      : vocabulary(map), parser(KFA::KFAEnvConfigBashParser::getInstance(map)), tune(none, map) {
    EXPECT_EQ(tune.init(), 0);
  }

  std::set<KFL::KFLQoS> read(const KFA::KFAConfigChanges& values) const {
    KFA::KFAEnvConfig record;
    std::string text;
    for (const auto& [key, value] : values)
      text += key + "=\"" + value + "\"\n";
    std::istringstream in(text);
    EXPECT_EQ(parser->getConfig(in, record), 0) << text;
    KFL::KFLOptionalProperty<std::set<KFL::KFLQoS>> qoses;
    EXPECT_EQ(record.getQoSes(qoses), 0);
    return qoses.getValue();
  }

  // By formula, and parameter that QOS stands for: 0, 1, or -1 where it cannot be told.
  std::map<std::pair<int, int>, int> judge(const KFA::KFAConfigChanges& values) const {
    const KFA::KFAQVTuneParameters parameters = KFA::tuneParameters(read(values));
    std::map<std::pair<int, int>, int> results;
    for (const KFA::KFAQVFormula& formula : tune.formulas) {
      const KFA::KFAQVParamIDList one{-1};
      for (const int id : formula.notation.hasMultiple != 0 ? *formula.notation.multipleList : one) {
        KFA::KFAQVParamIDSet used;
        results[{formula.identifier, id}] =
            std::max(-1, tune.checkByFormula(tune.arrange(parameters), formula.notation, used, id));
      }
    }
    return results;
  }
};

void put(KFA::KFAConfigChanges& values, const std::string& key, const std::string& value) {
  for (auto& [known, text] : values)
    if (known == key) text = value;
}

// Over small worlds: the advice holds when it is followed, and hardly ever takes a key more than the fewest that trying
// everything finds.
TEST(QoSAdviceTest, HoldsAndNeedsNoKeyTooMany) {
  const Case one(vocabularyOf({{"a", 2}, {"b", 2}, {"c", 2}},
                              {"a.soft <= a.hard", "a.hard * 2 <= b.hard && b.soft <= b.hard",
                               "c.soft >= a.soft + 1", "c.hard == a.hard + 3"}));
  using World = std::array<unsigned, 6>;
  std::vector<World> good;
  for (unsigned number = 0; number < 7 * 7 * 7 * 7 * 7 * 7; ++number) {
    World world;
    std::ranges::generate(world, [left = 7 * number]() mutable { return (left /= 7) % 7; });
    const auto& [aSoft, aHard, bSoft, bHard, cSoft, cHard] = world;
    if (aSoft <= aHard && aHard * 2 <= bHard && bSoft <= bHard && cSoft >= aSoft + 1 && cHard == aHard + 3)
      good.push_back(world);
  }
  std::mt19937 random(2);
  std::size_t advised = 0;
  std::size_t excess = 0;
  for (int round = 0; round < 120; ++round) {
    World start;
    std::ranges::generate(start, [&] { return random() % 4; });
    std::size_t fewest = 3;
    for (const World& world : good) {
      std::size_t keys = 0;
      for (const std::size_t i : {0, 2, 4})
        keys += world[i] != start[i] || world[i + 1] != start[i + 1] ? 1 : 0;
      fewest = std::min(fewest, keys);
    }
    KFA::KFAConfigChanges values;
    for (const std::size_t i : {0, 1, 2})
      values.emplace_back(std::string(1, "abc"[i]),
                          std::to_string(start[2 * i]) + ":" + std::to_string(start[2 * i + 1]));
    SCOPED_TRACE(testing::PrintToString(values));
    const KFA::KFAQoSAdvice advice = adviseQoS(one.tune, *one.parser, one.read(values));
    EXPECT_TRUE(advice.left.empty());
    EXPECT_LE(advice.changes.size(), fewest + 1);
    EXPECT_GE(advice.changes.size(), fewest);
    excess += advice.changes.size() - fewest;
    advised += advice.changes.empty() ? 0 : 1;
    for (const KFA::KFAChange& change : advice.changes)
      put(values, change.key, *change.value);
    for (const auto& [check, result] : one.judge(values))
      EXPECT_EQ(result, 0) << check.first;
  }
  EXPECT_GT(advised, 60U);
  EXPECT_LE(excess, advised / 20);
}

std::string showAdvice(const KFA::KFAQoSAdvice& advice) {
  std::string text;
  for (const KFA::KFAChange& change : advice.changes)
    text += change.key + "=" + *change.value + " ";
  for (const int number : advice.left)
    text += "!" + std::to_string(number) + " ";
  return text;
}

TEST(QoSAdviceTest, FindsTheWay) {
  const TestParameters pairs{{"a", 2}, {"b", 2}};
  using Formulas = std::vector<std::string>;
  const std::tuple<TestParameters, Formulas, KFA::KFAConfigChanges, std::string> rows[] = {
      // What cannot be told any more is not cured.
      {{{"a", 1}, {"b", 1}}, {"b <= 0", "a / b >= 100"}, {{"a", "50"}, {"b", "5"}}, "a=500 !1 "},
      {{{"a", 1}, {"b", 1}}, {"b <= 0", "a / b >= 10"}, {{"a", "50"}, {"b", "5"}}, "!1 "},
      // What a file can hold: 99.99 is read as 99.98, and far up every second number is.
      {{{"f", kFraction}}, {"f >= 9999"}, {{"f", "50"}}, "f=100 "},
      {{{"f", kFraction}}, {"f <= 9999"}, {{"f", "200"}}, "f=99.98 "},
      {{{"f", kFraction}}, {"f == 9999"}, {{"f", "200"}}, "!1 "},
      {{{"f", kFraction}}, {"f > 2000000000"}, {{"f", "1"}}, "f=20000002 "},
      // Both sides of a pair, up to no limit at all.
      {pairs,
       {"a.soft <= a.hard && a.hard <= b.hard && b.hard <= 16"},
       {{"a", "20:40"}, {"b", "8:16"}},
       "a=16:16 "},
      {{{"a", 1}}, {"a * 2 < 0"}, {{"a", "5"}}, "!1 "},
      {{{"a", 1}, {"b", 1}},
       {"a >= b", "b >= 2mb * 2mb * 2mb - 1"},
       {{"a", "5"}, {"b", "9223372036854775807"}},
       "a=9223372036854775807 "},
      // A number that was moved too far comes back.
      {pairs, {"b.soft / 3 > a.hard * 3", "50 < b.hard"}, {{"a", "100"}, {"b", "1:0"}}, "b=903:51 "},
      // One without a way, and one that would break another, leave the others theirs.
      {pairs, {"a < 0", "b > 7"}, {{"a", "1"}, {"b", "2"}}, "b=8:2 !1 "},
      {pairs, {"a.hard <= 5", "a.hard >= 10", "b.hard < 3"}, {{"a", "10"}, {"b", "2:9"}}, "b=2:2 !1 "},
      // However the vocabulary spells the average that nobody gave.
      {{{"AvNumProc", 2}, {"NumProc", 2}}, {"AvNumProc <= 10"}, {{"numproc", "50:60"}}, "numproc=21:60 "},
  };
  for (const auto& [parameters, formulas, values, advice] : rows) {
    const Case one(vocabularyOf(parameters, formulas));
    EXPECT_EQ(showAdvice(adviseQoS(one.tune, *one.parser, one.read(values))), advice) << formulas[0];
  }
  // Many at once, each of which is easily cured.
  const Case all(KFL::KFLVocMap::load(KFA_SOURCE_DIR "/data/vocabulary.xml"));
  const KFA::KFAConfigChanges many{
      {"numproc", "2:1"},       {"openfiles", "2:1"},      {"physmemory", "2:1"},  {"swapspace", "2:1"},
      {"kernelmemory", "1:0"},  {"tcpsendbuffers", "2:1"}, {"diskspace", "512:1"}, {"diskinodes", "1:0"},
      {"virtualmemory", "2:1"}, {"lockedmemory", "9:9"},   {"cpulimit", "50"},     {"cpuguarantee", "100"}};
  const KFA::KFAConfigChanges chained{
      {"numproc", "300:240"}, {"avnumproc", "400:400"}, {"openfiles", "512:640"}, {"tcpsockets", "400:440"},
      {"physmemory", "8:9"},  {"virtualmemory", "4:5"}, {"cpulimit", "50"},       {"cpuguarantee", "62.5"}};
  for (const auto& values : {many, chained})
    EXPECT_TRUE(adviseQoS(all.tune, *all.parser, all.read(values)).left.empty());
}

// Over any formulas: a file takes the advice, which cures what it says, breaks nothing, and in which no number could be
// nearer to what it was by one, by half of the way, or altogether.
TEST(QoSAdviceTest, IsTakenCuresAndBreaksNothing) {
  std::mt19937 random(3);
  const auto any = [&random](std::initializer_list<const char*> words) {
    return std::string(words.begin()[random() % words.size()]);
  };
  const auto side = [&any] { return any({"p", "q", "r", "f"}) + any({".soft", ".hard"}); };
  const auto sum = [&] {
    return any({"", "", "", "9999 + ", "2000000000 - "}) + side() +
           any({"", "", "", " * 3", " / 7", " + 10", " - 50"}) + (random() % 6 == 0 ? " / " + side() : "");
  };
  const auto compare = [&] { return sum() + any({" <= ", " >= ", " < ", " > ", " == "}) + sum(); };
  const auto number = [&any] {
    return any({"0", "1", "5", "50", "99", "100", "300", "1000", "123456789", "9223372036854775807"});
  };
  std::size_t cured = 0;
  for (int round = 0; round < 400; ++round) {
    std::vector<std::string> formulas;
    for (auto left = 1 + random() % 4; left > 0; --left)
      formulas.push_back(compare() + (random() % 4 == 0 ? " && " + compare() : ""));
    if (random() % 3 == 0) formulas.push_back("QOS.hard >= " + number().substr(0, 4));
    const Case one(vocabularyOf({{"p", 2}, {"q", 2}, {"r", 1}, {"f", kFraction}}, formulas));
    const KFA::KFAConfigChanges start{{"p", number() + any({":", ":1"}) + number()},
                                      {random() % 8 == 0 ? "x" : "q", number() + any({"", ":20"})},
                                      {"r", number()},
                                      {"f", any({"0", "1", "50", "99.5", "12.25", "20000000"})}};
    SCOPED_TRACE(testing::PrintToString(formulas) + testing::PrintToString(start));
    const KFA::KFAQoSAdvice advice = adviseQoS(one.tune, *one.parser, one.read(start));
    auto after = start;
    for (const KFA::KFAChange& change : advice.changes) {
      EXPECT_EQ(KFA::KFAEnvConfigRules(one.parser).accept(change.key, *change.value), 0)
          << KFL::getErrorMessage();
      put(after, change.key, *change.value);
    }
    const auto before = one.judge(start);
    const auto results = one.judge(after);
    for (const auto& [check, result] : results) {
      const bool isLeft = std::ranges::count(advice.left, check.first) != 0;
      EXPECT_TRUE(result == 0 || result == before.at(check)) << check.first;
      EXPECT_TRUE(result != 1 || isLeft) << check.first;
      EXPECT_GE(std::ranges::count(advice.violated, check.first), before.at(check));
    }
    cured += advice.changes.empty() || !advice.left.empty() ? 0 : 1;
    const auto isAsGood = [&](const KFA::KFAChange& change, const std::string& value) {
      auto trial = after;
      put(trial, change.key, value);
      for (const auto& [check, result] : one.judge(trial))
        if (result != 0 && result != results.at(check)) return false;
      return true;
    };
    for (const KFA::KFAChange& change : advice.changes) {
      EXPECT_FALSE(isAsGood(change, *change.before)) << showAdvice(advice);
      if (change.key == "f") continue;
      const auto sidesOf = [](const std::string& text) {
        return std::array{KFL::strToLonglong(text), KFL::strToLonglong(text.substr(text.find(':') + 1))};
      };
      const auto was = sidesOf(*change.before);
      const auto is = sidesOf(*change.value);
      for (const std::size_t i : {0, 1}) {
        for (const long long nearer : {is[i] + (was[i] > is[i] ? 1 : -1), is[i] / 2 + was[i] / 2, was[i]}) {
          auto trial = is;
          trial[i] = nearer;
          if (is[i] == was[i] || nearer == is[i]) continue;
          const std::string text = change.key == "r"
                                       ? std::to_string(nearer)
                                       : std::to_string(trial[0]) + ":" + std::to_string(trial[1]);
          EXPECT_FALSE(isAsGood(change, text)) << showAdvice(advice) << change.key << "=" << text;
        }
      }
    }
  }
  EXPECT_GT(cured, 90U);
}

}  // namespace
