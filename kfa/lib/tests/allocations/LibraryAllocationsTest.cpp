// SPDX-License-Identifier: Apache-2.0
// Memory that runs out in configuration files, the files of a node, network entries, vocabularies, formulas, access points,
// schemas and caches.
#include <set>

#include <boost/make_shared.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFAFunctionality/access/KFAEnvM.h>
#include <KFAFunctionality/access/KFALibFunctionality.h>
#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAConfigFolder.h>
#include <KFAFunctionality/files/KFAGlobalConfigRules.h>
#include <KFAFunctionality/files/KFAKFConfigBashParser.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/node/KFAChangeList.h>
#include <KFAFunctionality/node/KFAConfigFix.h>
#include <KFAFunctionality/node/KFAConfigMerge.h>
#include <KFAFunctionality/node/KFAEnvironmentDiff.h>
#include <KFAFunctionality/node/KFAEnvironmentFilter.h>
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>
#include <KFAFunctionality/node/KFAKeyCatalogue.h>
#include <KFAFunctionality/node/KFANodeCheck.h>
#include <KFAFunctionality/node/KFANodeSelection.h>
#include <KFAFunctionality/node/KFAValueCheck.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>
#include <KFAFunctionality/resources/KFAQoSTune.h>
#include <KFLCore/KFLCacheFile.h>
#include <KFLCore/KFLCacheSnapshot.h>
#include <KFLMessage/KFLSchemaText.h>

#include "../files/FilesTest.h"
#include "../resources/Vocabularies.h"
#include "AllocationLaw.h"

namespace {

using namespace KFA;
using Values = std::map<std::string, std::string>;

const std::string kLong(300, 'l');

std::string textOf(const Values& values) {
  std::string text;
  for (const auto& [key, value] : values)
    text += key + "=" + value + "\n";
  return text;
}

std::string textOf(const KFAEnvConfig& config) {
  if (!config.hasMsg()) return "no message";
  std::string text;
  EXPECT_EQ(config.getIterator().print(text), 0);
  return text;
}

// --- Parsers --------------------------------------------------------------------------------------------------------

// A file that is read in pieces, so that lines are joined.
template <class Record>
struct Reading {
  Reading(const std::string& text, Record r) : record(std::move(r)) {
    makeFile(folder / "file", text);
    in.rdbuf()->pubsetbuf(piece, sizeof(piece));
    in.open(folder / "file");
  }
  std::istream& begin() {
    in.clear();
    return in.seekg(0);
  }
  TemporaryFolder folder;
  char piece[7];
  std::ifstream in;
  Record record;
  std::string out;
};

KFAEnvConfig configOf(const std::string& text) {
  KFAEnvConfig config;
  config.initMsg();
  std::istringstream in(text);
  envParser()->getConfig(in, config);
  return config;
}

KFAVtSettings settingsOf(const std::string& text) {
  KFAVtSettings settings;
  std::istringstream in(text);
  EXPECT_EQ(KFAKFConfigBashParser::getInstance()->getConfig(in, settings), 0);
  return settings;
}

std::string textOf(const KFAVtSettings& settings) {
  std::ostringstream out;
  EXPECT_EQ(KFAKFConfigBashParser::getInstance()->putConfig(settings, out, nullptr, false), 0);
  return out.str();
}

// A file is read into the record, and the record is written over it.
template <class Parser, class Record>
void expectFile(const char* what, const Parser& parser, const std::string& text, const Record& record) {
  using Subject = std::shared_ptr<Reading<Record>>;
  AllocationLaws laws(what, [](Subject& s) { return textOf(s->record) + s->out; });
  const auto prepare = [&] { return std::make_shared<Reading<Record>>(text, record); };
  laws("read", prepare, [&](Subject& s) { return parser->getConfig(s->begin(), s->record); });
  // Into a stream of its own; what came out is taken when the call is done.
  laws("written", prepare, [&](Subject& s) {
    std::ostringstream out;
    const int result = parser->putConfig(s->record, out, &s->begin(), true);
    if (result == 0) s->out = out.str();
    return result;
  });
}

TEST(Allocations, OfFilesReadAndWritten) {
  const std::string file = contentOf(exampleFiles().front());
  const std::string global = contentOf(KFA_SOURCE_DIR "/examples/node/global.conf");
  const KFAEnvConfig other = configOf("HOSTNAME=\"other\"\nNUMPROC=\"5:6\"\nIP_ADDRESS=\"10.9.8.7\"\n");
  const auto raw = KFARawConfigBashParser::getInstance();
  expectFile("new environment", envParser(), file, KFAEnvConfig());
  expectFile("environment", envParser(), file, other);
  expectFile("faulty environment", envParser(), file + "\nHOSTNAME=\"open\n", other);
  expectFile("global file", KFAKFConfigBashParser::getInstance(), global,
             settingsOf("TEMPLATE=\"/t\"\nX=\"y\"\n"));
  expectFile("any file", raw, file, Values{{"a", "b"}});
  expectFile("any file with a long value", raw, file, Values{{"hostname", kLong}, {"z", "1"}});
}

struct OneKey {
  KFAEnvConfig config;
  std::string value;
  KFAConfigChanges changes{};
};

TEST(Allocations, OfEveryKeyAndOfDifferences) {
  Values samples;
  for (const auto& path : exampleFiles())
    samples.merge(valuesOf(contentOf(path)));
  const auto parser = envParser();
  AllocationLaws laws("keys", [](OneKey& k) {
    std::string text = textOf(k.config) + k.value;
    for (const auto& [key, value] : k.changes)
      text += key + "=" + value + ";";
    return text;
  });
  const auto from = [](const std::string& text) {
    return [=] { return OneKey{configOf(text), {}, {{"a", "b"}}}; };
  };
  for (const auto& [name, sample] : samples) {
    const std::string& key = name;
    const std::string& value = sample;
    if (!parser->isKey(key)) continue;
    laws(key + " put", from("NUMPROC=\"1:2\"\n"), [&](OneKey& k) {
      KFAEnvConfigBashParser::ParameterParserPut put(k.config, *parser);
      return put.put(key, value.c_str());
    });
    laws(key + " got", from(key + "=\"" + value + "\"\n"), [&](OneKey& k) {
      return KFAEnvConfigBashParser::ParameterParserGet(k.config, *parser).get(key, k.value);
    });
  }
  laws("difference", from(contentOf(exampleFiles().front())),
       [&](OneKey& k) { return parser->diffConfig(configOf("ONBOOT=\"no\"\n"), k.config, k.changes); });
}

// --- Files in place -------------------------------------------------------------------------------------------------

struct Place {
  std::shared_ptr<TemporaryFolder> folder = std::make_shared<TemporaryFolder>();
  std::string text;
};

TEST(Allocations, OfChangesOfAFile) {
  const std::string content = contentOf(exampleFiles().front());
  const auto prepare = [content] {
    Place place;
    makeFile(place.folder->path() / "101.conf", content);
    return place;
  };
  AllocationLaws laws("changes", [](Place& p) {
    std::string text = p.text;
    // A backup is made before the file is changed, and may be all that was done.
    for (const std::string& name : p.folder->names())
      if (!name.ends_with(".old")) text += name + ":" + contentOf(p.folder->path() / name) + "\n";
    return text;
  });
  const KFAEnvConfigRules rules(envParser());
  const KFAConfigChanges changes = {{"HOSTNAME", kLong.substr(0, 60)}, {"numproc", "77:88"}};
  const KFAConfigChanges wrong = {{"ONBOOT", "maybe"}};
  KFAReplaceOptions backup;
  backup.backupSuffix = ".old";
  backup.lockTimeout = 1000;
  const auto file = [](Place& p, const char* name = "101.conf") {
    return KFAConfigFile(p.folder->path() / name);
  };
  laws("set", prepare, [&](Place& p) { return file(p).set(rules, changes, {}, {}); });
  laws("set with a backup", prepare, [&](Place& p) { return file(p).set(rules, changes, {}, backup); });
  laws("refused", prepare, [&](Place& p) { return file(p).set(rules, wrong, {}, {}); });
  laws("replaced", prepare, [&](Place& p) { return file(p).replace("A=1\n", {}); });
  laws("made", prepare, [&](Place& p) { return file(p, "new.conf").replace("A=1\n", {}); });
  laws("read", prepare, [&](Place& p) { return file(p).read(p.text); });
}

// --- The files of a node --------------------------------------------------------------------------------------------

// What is looked up and made of texts, each as one text; what it goes into is empty before and after a failure.
class TextLaws {
 public:
  explicit TextLaws(const char* what) : laws_(what, &stateOf) {}

  template <class Make>
  void operator()(const std::string& name, Make make) {
    const auto empty = [] { return std::string(); };
    laws_(name, empty, [&make](std::string& text) {
      std::string made;
      int result = 0;
      if constexpr (std::is_invocable_v<Make, std::string&>) result = make(made);
      if constexpr (!std::is_invocable_v<Make, std::string&>) made = make();
      if (result == 0) text.swap(made);
      return result;
    });
  }

 private:
  static std::string stateOf(const std::string& text) { return text; }

  AllocationLaws<std::string (*)(const std::string&)> laws_;
};

std::string textOf(const KFAChangeList& changes) {
  std::string text;
  for (const KFAChange& change : changes)
    text += change.toString() + "\n";
  return text;
}

constexpr const char* kChangeText = "HOSTNAME='a name that is long enough for a block'\nNUMPROC='5:6'\n";
constexpr const char* kFaulty = "HOSTNAME = x\nNUMPROC=\"5:x\"\nIP_ADDRESS='1.2.3.4'\nNUMPROC=\"1\"\nX=\"op";

TEST(Allocations, OfSelectionsOfANode) {
  using Selection = std::shared_ptr<KFANodeSelection>;
  const std::string folder = KFA_SOURCE_DIR "/examples/node/conf";
  AllocationLaws laws("selections", [](Selection& selection) {
    std::string text;
    for (const KFAEnvironmentFile& each : selection->getFiles())
      text += each.path + " ";
    return text;
  });
  const auto fresh = [&] { return std::make_shared<KFANodeSelection>(folder, [] { return envParser(); }); };
  for (const char* const word : {"101-110", "10*.conf", "HOSTNAME=*", folder.c_str()})
    laws(word, fresh, [word](Selection& selection) { return selection->add(word); });
}

TEST(Allocations, OfTheFilesOfANode) {
  const std::string file = contentOf(exampleFiles().front());
  const auto parser = envParser();
  const KFAEnvConfigRules rules(parser);
  const auto keysOf = [&](const std::string& text) {
    KFAEnvironmentKeys keys(parser);
    keys.read(text, "101.conf");
    return keys;
  };
  TextLaws laws("files of a node");
  laws("folder listed and read", [&](std::string& text) {
    KFAConfigFolder node(KFA_SOURCE_DIR "/examples/node/conf", parser);
    std::vector<int> veids;
    int result = node.list(veids);
    for (const int veid : veids) {
      const std::string_view key = "hostname";
      KFAEnvConfig record;
      KFAEnvConfig part;
      result += node.read(veid, record) + node.readKeys(veid, {&key, 1}, part);
      text += textOf(record) + textOf(part);
    }
    return result;
  });
  laws("global file judged", [&] {
    const KFAGlobalConfigRules global;
    KFAConfigChanges changes = {{"lockdir", kLong}, {"template", "/t"}};
    global.order(changes);
    std::string text = std::to_string(global.accept("lockdir", kLong));
    for (const auto& [key, value] : changes)
      text += key;
    KFAVtSettings settings;
    return text + std::to_string(readGlobalConfig("LOCKDIR=\"/l\"\n", "g", settings)) + textOf(settings);
  });
  laws("changes read and applied", [&](std::string& text) {
    KFAChangeList changes;
    const int result = parseChangeList(kChangeText, "changes", changes);
    return result != 0 ? result : applyChanges(rules, changes, {}, file, "101.conf", text);
  });
  laws("file mended", [&] {
    std::vector<KFAConfigFix> fixes;
    std::string text = fixConfig(rules, kFaulty, fixes);
    for (const KFAConfigFix& fix : fixes)
      text += fix.what;
    return text;
  });
  laws("files merged", [&] {
    const KFAConfigMerge merged = mergeConfig(file, file + "A=\"1\"\n", "HOSTNAME=\"theirs\"\n" + file);
    return merged.text + std::to_string(merged.conflicts.size());
  });
  laws("environments compared",
       [&] { return textOf(compareEnvironments(keysOf(file), keysOf("ONBOOT=\"yes\"\n"))); });
  laws("environment looked up", [&] {
    const KFAEnvironmentKeys keys = keysOf(file);
    std::string text = keys.getEffectiveAddresses();
    for (const std::string& address : keys.getAddresses())
      text += address;
    return text + findUnworkable(keys, "ip_address", "1.2.3.4/33") + normalMac("0:1:2:3:4:5");
  });
  laws("condition judged", [&] {
    KFAEnvironmentFilter filter;
    const int result = filter.parse(*parser, "HOSTNAME=*a*,ONBOOT!=yes");
    return std::to_string(result) + std::to_string(filter.matches(keysOf(file), 101));
  });
  laws("keys described", [&] {
    const KFAKeyCatalogue catalogue(parser, KFL::KFLVocMapSP());
    return catalogue.find("hostname")->form + catalogue.showValue("numproc", "5:6");
  });
  laws("files and node checked", [&] {
    KFANodeCheck check(parser, {});
    check.add({"101.conf", 101}, file);
    check.add({"102.conf", 102}, kFaulty);
    std::string text;
    for (const KFANodeFinding& finding : check.finish())
      text += finding.rule + finding.text + "\n";
    return text;
  });
  laws("schema written", [] {
    KFL::KFLSchemaText schema("urn:one");
    schema.open("xs:complexType", KFL::attribute("name", kLong));
    schema.add("xs:element", KFL::attribute("type", schema.refer("urn:other", "t")));
    schema.close();
    return schema.finish();
  });
}

// --- Entries, vocabularies, formulas --------------------------------------------------------------------------------

TEST(Allocations, OfNetworkEntries) {
  using Device = std::pair<KFANetVEth, std::string>;
  const std::string text =
      "ifname=eth0,mac=00:11:22:33:44:55,network=a network with a long name,gw=10.0.0.1,"
      "ip=10.0.0.5/24:10.0.1.5/24,dhcp=no,ip6=fe80::1/64,fe80::2/64,";
  const auto prepare = [] {
    Device device;
    device.first.fromString("ifname=eth9,ip=1.2.3.4/8");
    return device;
  };
  AllocationLaws laws("network entries", [](Device& d) { return d.first.toString() + d.second; });
  laws("read", prepare, [=](Device& d) { return d.first.fromString(text), 0; });
  laws("written", prepare, [](Device& d) { return d.second = d.first.toString(), 0; });
}

std::string parametersOf(const KFL::KFLVocMapSP& map) {
  std::string text = map ? "vocabulary" : "none";
  const std::unique_ptr<KFL::KFLVocIterator> it(map ? map->readCategory("qos") : nullptr);
  std::string id;
  for (int left = it ? it->firstParameter() : -1; left == 0; left = it->nextParameter())
    if (it->getID(id) == 0) text += " " + id;
  return text;
}

TEST(Allocations, OfVocabularies) {
  using MapSP = KFL::KFLVocMapSP;
  using ParserSP = boost::shared_ptr<KFAEnvConfigBashParser>;
  const auto small = vocabularyOf({{"numproc", 2}, {"kmemsize", 2}, {"quotatime", 1}}, {});
  const auto noMap = [] { return MapSP(); };
  const auto noParser = [] { return ParserSP(); };
  const auto filled = [] { return boost::make_shared<KFAEnvConfigBashParser>(*envParser()); };
  AllocationLaws maps("vocabularies", &parametersOf);
  maps("loaded", noMap, [](MapSP& map) {
    return (map = KFL::KFLVocMap::load(KFA_SOURCE_DIR "/data/vocabulary.xml")) ? 0 : -1;
  });
  AllocationLaws parsers("parsers", [](ParserSP& parser) {
    std::string text = parser ? "parser" : "none";
    for (const auto& [key, definition] : parser ? parser->getQoSMap() : KFAEnvConfigBashParser::QoSMap())
      text += " " + key + (parser->isKey(key) ? "" : " unknown");
    return text;
  });
  parsers("made", noParser,
          [&](ParserSP& parser) { return (parser = KFAEnvConfigBashParser::getInstance(small)) ? 0 : -1; });
  parsers("filled again", filled, [&](ParserSP& parser) { return parser->initQoSMap(small); });
}

struct Formulas {
  KFAEnvConfig config;
  boost::shared_ptr<KFAQVTune> tune;
  KFAQVPolishNotation notation;
  KFAQVFailedFormulas failures;
  KFAQoSValidationList validations;
  std::string text;
};

TEST(Allocations, OfFormulas) {
  std::set<KFL::KFLQoS> qoses;
  KFAQVTuneParameters values;
  TestParameters parameters;
  for (const char* const id : {"numproc", "kmemsize", "avnumproc", "a_parameter_with_a_long_name"}) {
    KFL::KFLQoS qos(id);
    qos.setSoft(9);
    qos.setHard(5);
    qoses.insert(qos);
    values[id] = {2, 1, {}};
    parameters.emplace_back(id, 2);
  }
  const auto vocabulary = vocabularyOf(
      parameters,
      {"numproc.soft <= numproc.hard", "kmemsize.soft >= numproc.soft * 40000", "QOS.soft <= QOS.hard"});
  const auto fresh = [=] {
    Formulas made;
    made.config.setQoSes(qoses);
    made.tune = boost::make_shared<KFAQVTune>(made.config, vocabulary);
    return made;
  };
  const auto initialised = [=] {
    Formulas made = fresh();
    EXPECT_EQ(made.tune->init(), 0);
    return made;
  };
  AllocationLaws laws("formulas", [](Formulas& f) {
    std::string text = std::to_string(f.tune->count) + f.tune->toString(f.notation) + f.text;
    for (const KFAQVTuneFailure& failure : f.failures)
      text += failure.formula->expression + std::to_string(failure.params.size());
    for (const KFAQoSValidation& validation : f.validations)
      text += validation.getExpression();
    for (const KFAQVFormula& formula : f.tune->formulas)
      text += formula.expression;
    return text;
  });
  const std::string formula =
      "numproc.soft + kmemsize.hard * 3 + a_parameter_with_a_long_name.soft <= 12 && numproc.hard > 1";
  laws("vocabulary's compiled", fresh, [](Formulas& f) { return f.tune->init(); });
  laws("compiled", initialised, [&](Formulas& f) { return f.tune->formFormula(formula, f.notation); });
  laws("faulty compiled", initialised, [](Formulas& f) {
    KFAQVFormulaError error;
    const int result = f.tune->formFormula("numproc.soft <= a_name_that_nobody_knows", f.notation, &error);
    f.text = std::move(error.reason);
    f.notation = {};
    return result;
  });
  laws("checked", initialised, [&](Formulas& f) { return f.tune->checkParameters(values, f.failures); });
  laws("configuration validated", fresh,
       [&](Formulas& f) { return validateQoSes(&f.validations, vocabulary, f.config); });
}

// --- Access points --------------------------------------------------------------------------------------------------

struct Factory : KFLLocalFactory<boost::shared_ptr<KFAEnvM>>, KFLAgentFactory<boost::shared_ptr<KFAEnvM>> {
  using Manager = boost::shared_ptr<KFAEnvM>;
  Manager create(const KFLAccessProviderSP&) override { return made(); }
  Manager create(const KFLEID&, const KFLAccessProviderSP&) override { return made(); }
  Manager create(const KFLEID&, const KFLAccessProviderSP&, const std::string&) override { return made(); }
  // No manager: it only tells an answer from none.
  Manager made() { return Manager(boost::make_shared<int>(), reinterpret_cast<KFAEnvM*>(this)); }
};

struct Access {
  std::shared_ptr<KFALibFunctionality> library = std::make_shared<KFALibFunctionality>();
  boost::shared_ptr<Factory> factory = boost::make_shared<Factory>();
};

TEST(Allocations, OfAccessPoints) {
  const std::string name = "an implementation with a long name";
  const auto prepare = [name] {
    Access access;
    EXPECT_EQ(access.library->multiplexer<KFAEnvM>().registerAgent(name, access.factory), 0);
    return access;
  };
  const auto state = [name](Access& a) {
    const bool isLocal = a.library->getKFAEnvMLocal(nullptr, name) != nullptr;
    return std::string(isLocal ? "local" : "") +
           (a.library->getKFAEnvMAgent(KFL::KFLEID(), nullptr, name) ? "agent" : "");
  };
  const auto managers = [](Access & a) -> auto& {
    return a.library->multiplexer<KFAEnvM>();
  };
  AllocationLaws laws("access points", state);
  laws("registered", prepare, [&](Access& a) { return managers(a).registerLocal(name, a.factory); });
  laws("registered twice", prepare, [&](Access& a) { return managers(a).registerAgent(name, a.factory); });
  laws("taken out", prepare, [&](Access& a) { return managers(a).unregisterAgent(name, a.factory); });
  laws("extra data set", prepare, [&](Access& a) { return managers(a).setExtraData(name, kLong), 0; });
  laws("got", prepare, [&](Access& a) {
    managers(a).setExtraData(name, kLong);
    return a.library->getKFAEnvMAgent(KFL::KFLEID(), nullptr, name) ? 0 : 7;
  });
}

// --- The cache ------------------------------------------------------------------------------------------------------

struct Cached {
  std::shared_ptr<TemporaryFolder> folder = std::make_shared<TemporaryFolder>();
  boost::intrusive_ptr<KFL::KFLCacheFile> cache{new KFL::KFLCacheFile(folder->path() / "cache")};
  std::string text;
};

int putText(KFL::KFLCacheFile& cache, const std::string& key, const std::string& text) {
  KFL::KFLCacheChanges changes;
  changes.put(key, text);
  return cache.apply(changes);
}

TEST(Allocations, OfCaches) {
  const auto closed = [] {
    Cached made;
    EXPECT_EQ(made.cache->initialize(true, false), 0);
    EXPECT_EQ(putText(*made.cache, "there", kLong), 0);
    made.cache->reinit();
    return made;
  };
  const auto open = [closed] {
    Cached made = closed();
    EXPECT_EQ(made.cache->initialize(true, false), 0);
    return made;
  };
  // As another user of the file sees it.
  const auto state = [](Cached& c) {
    const boost::intrusive_ptr<KFL::KFLCacheFile> other(new KFL::KFLCacheFile(c.cache->getPath()));
    std::string text = c.text;
    KFL::KFLCacheSnapshot snapshot;
    if (other->initialize(true, false) != 0 || other->hold(snapshot) != 0)
      return text + KFL::getErrorMessage();
    for (std::uint32_t i = 0; i < snapshot.size(); ++i)
      text += std::string(snapshot.getKey(i)) + "=" + std::string(snapshot.getText(i)) + ";";
    return text;
  };
  AllocationLaws laws("caches", state);
  laws("opened", closed, [](Cached& c) { return c.cache->initialize(true, false); });
  laws("put", open, [](Cached& c) { return putText(*c.cache, "a key", kLong + kLong); });
  laws("removed", open, [](Cached& c) {
    KFL::KFLCacheChanges changes;
    changes.remove("there");
    return c.cache->apply(changes);
  });
  laws("held and read", open, [](Cached& c) {
    KFL::KFLCacheSnapshot snapshot;
    if (const int result = c.cache->hold(snapshot); result != 0) return result;
    c.text = snapshot.getText(0);
    return 0;
  });
  laws("repaired", open, [](Cached& c) {
    bool alone = false;
    return c.cache->repair(alone);
  });
  laws("brought to disk", open, [](Cached& c) { return c.cache->sync(); });
}

}  // namespace
