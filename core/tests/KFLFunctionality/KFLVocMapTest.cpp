// The vocabulary map: which files it takes and refuses, how categories are found, what iterators yield.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/scoped_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLVocMap.h>

namespace {

using KFL::KFLVocIterator;
using KFL::KFLVocMap;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kHead = R"(<vocabulary version="1">)";
constexpr const char* kTail = "</vocabulary>";

std::string document(const std::string& body) {
  return kHead + body + kTail;
}

// Little-endian, of an ASCII text.
std::string utf16(const std::string& text) {
  std::string wide;
  for (const char c : text)
    wide.append({c, '\0'});
  return wide;
}

// In <category words="c">, at line 1.
std::string parameter(const std::string& text) {
  return document("<category words=\"c\">" + text + "</category>");
}

// Every parameter of a category, its attributes as name=value|, one string each.
std::vector<std::string> dump(KFLVocIterator* category) {
  std::vector<std::string> lines;
  const boost::scoped_ptr<KFLVocIterator> it(category);
  if (!it) return {"null"};
  for (int left = it->firstParameter(); left == 0; left = it->nextParameter()) {
    std::string line;
    for (const char* const name :
         {"id", "kind", "value_type", "number", "expression", "comment", "description"}) {
      std::string value;
      if (it->getStringAttribute(name, value) == 0) line += std::string(name) + "=" + value + "|";
    }
    lines.push_back(line);
  }
  return lines;
}

struct GoodRow {
  std::string xml;
  std::vector<std::string> parameters;  // of the category "c"
};

const std::vector<GoodRow>& goodRows() {
  static const std::vector<GoodRow> rows = {
      {document(""), {"null"}},
      {"<vocabulary version='1'/>", {"null"}},
      {parameter(""), {}},
      {"\xEF\xBB\xBF" + parameter("<parameter/>"), {""}},
      {"<?xml version='1.0' encoding='utf-8' standalone='yes'?><!-- c --><?pi?>" + parameter("<parameter/>"),
       {""}},
      {parameter("<parameter id='a' kind='2' value_type='0' number='-7'/>"),
       {"id=a|kind=2|value_type=0|number=-7|"}},
      {parameter("<parameter id='a.b-c_9'/><parameter id='a.b-c_9'/>"), {"id=a.b-c_9|", "id=a.b-c_9|"}},
      {parameter("<parameter number='2147483647'/><parameter number='-2147483648'/>"),
       {"number=2147483647|", "number=-2147483648|"}},
      // White space is folded, wherever the parser splits a text.
      {parameter("<parameter><comment> a\n\t b &amp; c<!-- x --> d<![CDATA[ < ]]>e\n</comment>"
                 "<expression>a&lt;=b</expression></parameter>"),
       {"expression=a<=b|comment=a b & c d < e|"}},
      {parameter("<parameter><comment/><description>  </description></parameter>"),
       {"comment=|description=|"}},
      {parameter("<parameter><comment>r\xC3\xBC&#xFC;g</comment></parameter>"),
       {"comment=r\xC3\xBC\xC3\xBCg|"}},
      {document("<category words='c'><parameter id='a'/></category><category words='d'>"
                "<parameter id='b'/></category>"),
       {"id=a|"}},
  };
  return rows;
}

struct BadRow {
  std::string xml;
  std::string where;  // line:column
  std::string text;
  bool validBySchema = false;
};

const std::vector<BadRow>& badRows() {
  static const std::vector<BadRow> rows = {
      {"<vocabulary>", "1:1", "lacks the attribute 'version'"},
      {"<vocabulary version='2'/>", "1:1", "version '2'"},
      {"<v:vocabulary xmlns:v='u' version='1'/>", "1:1", "is no vocabulary"},
      {std::string(kHead) + "\n  <category words='c'>\n", "3:1", "no element found inside <category>"},
      {std::string(kHead) + "\n  </category>", "2:5", "mismatched tag inside <vocabulary>"},
      {document("\n\n  <categori words='c'/>"), "3:3",
       "<categori> is not known inside <vocabulary>; expected <category>"},
      {document("<category/>"), "1:25", "lacks the attribute 'words'"},
      {document("<category words=' '/>"), "1:25", "give one word or more"},
      {document("<category words='a,b'/>"), "1:25", "the word 'a,b'"},
      {document("<category words='a b'/><category words='b a'/>"), "1:48", "'a b' stands twice", true},
      {document("loose"), "1:25", "text stands between elements"},
      {parameter("<param id='a'/>"), "1:45", "<param> is not known inside <category>; expected <parameter>"},
      {parameter("<parameter ID='a'/>"), "1:45", "no attribute 'ID'"},
      {parameter("<parameter id=''/>"), "1:45", "id cannot be ''"},
      {parameter("<parameter id='a&#10;b'/>"), "1:45", "id cannot be 'a?b'"},
      {parameter("<parameter id='gr\xC3\xBC'/>"), "1:45", "a letter followed by"},
      {parameter("<parameter id='_a'/>"), "1:45", "id cannot be '_a'"},
      {parameter("<parameter kind='3'/>"), "1:45", "2 (barrier and limit) or 1 (single value)"},
      {parameter("<parameter value_type='2'/>"), "1:45", "1 (integer) or 0 (fractional)"},
      {parameter("<parameter number='2147483648'/>"), "1:45", "a 32-bit whole number"},
      {parameter("<parameter number=' 1'/>"), "1:45", "a 32-bit whole number", true},
      {parameter("<parameter><id>a</id></parameter>"), "1:56", "<id> is not known inside <parameter>"},
      {parameter("<parameter><comment/>\n<comment/></parameter>"), "2:1", "<comment> stands twice"},
      {parameter("<parameter><comment>a<b/></comment></parameter>"), "1:66", "<b> stands inside <comment>"},
      {parameter("<parameter><expression>a <= b</expression></parameter>"), "1:71", "'<' is written &lt;"},
      {parameter("<parameter><comment>a & b</comment></parameter>"), "1:68", "'&' is written &amp;"},
      {parameter("<parameter><comment>\xFF</comment></parameter>"), "1:65", "invalid token"},
      {"<!DOCTYPE v [<!ENTITY a 'b'>]>\n" + document(""), "1:", "a document type declaration", true},
      {"<?xml version='1.0' encoding='ISO-8859-1'?>" + document(""), "1:1", "encoding 'ISO-8859-1'", true},
      {utf16(document("")), "1:1", "written in UTF-8"},
      {"\xFF\xFE" + utf16(document("")), "1:1", "written in UTF-8", true},
  };
  return rows;
}

TEST(KFLVocMap, TakesWhatIsWellFormed) {
  for (const GoodRow& row : goodRows()) {
    const auto map = KFLVocMap::loadFromText(row.xml, "v.xml");
    ASSERT_TRUE(map) << row.xml << "\n" << KFL::getErrorMessage();
    EXPECT_EQ(dump(map->readCategory("c")), row.parameters) << row.xml;
  }
}

TEST(KFLVocMap, RefusesTheRestAndSaysWhere) {
  for (const BadRow& row : badRows()) {
    EXPECT_FALSE(KFLVocMap::loadFromText(row.xml, "v.xml")) << row.xml;
    EXPECT_THAT(KFL::getErrorMessage(), AllOf(StartsWith("v.xml:" + row.where), HasSubstr(row.text)))
        << row.xml;
  }
}

TEST(KFLVocMap, NeitherSizeNorDepthHurts) {
  std::string deep;
  for (int i = 0; i < 200000; ++i)
    deep += "<a>";
  EXPECT_FALSE(KFLVocMap::loadFromText(deep, "v"));
  EXPECT_FALSE(KFLVocMap::loadFromText(parameter("<parameter><comment>" + deep), "v"));

  EXPECT_FALSE(
      KFLVocMap::loadFromText(parameter("<parameter id=',x" + std::string(100000, 'x') + "'/>"), "v"));
  EXPECT_LT(KFL::getErrorMessage().size(), 300U);

  EXPECT_FALSE(KFLVocMap::loadFromText(document(std::string(std::size_t{17} << 20, ' ')), "v"));
  EXPECT_THAT(KFL::getErrorMessage(), HasSubstr("at most 16777216 bytes"));

  std::string many;
  for (int i = 0; i < 100000; ++i)
    many += "<category words='c w" + std::to_string(i) + "'><parameter/></category>";
  const auto map = KFLVocMap::loadFromText(document(many), "v");
  ASSERT_TRUE(map) << KFL::getErrorMessage();
  EXPECT_EQ(dump(map->readCategory({"w99999", "c"})).size(), 1U);
}

TEST(KFLVocMap, FindsTheCategoryWithTheFewestWords) {
  const auto map = KFLVocMap::loadFromText(document(R"(
      <category words="kelvarium qos extra"><parameter id="wide"/></category>
      <category words="qos kelvarium kelvarium"><parameter id="first"/></category>
      <category words="other qos"><parameter id="second"/></category>
      <category words="tune"><parameter id="narrow"/></category>)"),
                                           "v.xml");
  ASSERT_TRUE(map) << KFL::getErrorMessage();
  using Words = std::set<std::string>;
  const std::pair<const char*, std::vector<Words>> rows[] = {
      {"id=first|", {{"qos"}, {"kelvarium"}, {"kelvarium", "qos"}}},
      {"id=second|", {{"qos", "other"}}},
      {"id=wide|", {{"extra"}}},
      {"id=narrow|", {{"tune"}}},
      {"null", {{"kelvarium", "tune"}, {"QOS"}, {"qo"}, {"kelvarium qos"}, {""}, {}}}};
  for (const auto& [expected, all] : rows) {
    for (const Words& words : all) {
      EXPECT_EQ(dump(map->readCategory(words)), std::vector<std::string>{expected});
      if (words.size() != 1) continue;
      EXPECT_EQ(dump(map->readCategory(*words.begin())), std::vector<std::string>{expected});
    }
  }
}

TEST(KFLVocIterator, AnswersByNumberAndByName) {
  const auto map = KFLVocMap::loadFromText(
      parameter("<parameter id='a' kind='1' value_type='0' number='7'><expression>x</expression>"
                "<comment>12</comment></parameter><parameter/>"),
      "v.xml");
  ASSERT_TRUE(map);
  const boost::scoped_ptr<KFLVocIterator> it(map->readCategory("c"));
  ASSERT_EQ(it->firstParameter(), 0);
  const std::vector<std::pair<int, std::string>> texts = {
      {1010, "a"}, {1304, "1"}, {1007, "7"}, {1307, "x"}, {1302, "12"}};
  for (const auto& [number, expected] : texts) {
    std::string value;
    EXPECT_EQ(it->getStringAttribute(number, value), 0) << number;
    EXPECT_EQ(value, expected);
  }
  int value = -5;
  for (const auto& [number, expected] : {std::pair(1304, 1), {1302, 12}}) {
    EXPECT_EQ(it->getIntAttribute(number, value), 0);
    EXPECT_EQ(value, expected);
  }
  EXPECT_EQ(it->getIntAttribute("value_type", value), 0);
  EXPECT_EQ(value, 0);

  value = -5;
  std::string text = "kept";
  for (const int number : {1010, 1307, 0, -1, 1303})
    EXPECT_EQ(it->getIntAttribute(number, value), -1) << number;
  EXPECT_EQ(it->getStringAttribute(0, text), -1);
  EXPECT_EQ(it->getStringAttribute("description", text), -1);
  ASSERT_EQ(it->nextParameter(), 0);
  EXPECT_EQ(it->getID(text), -1);
  EXPECT_EQ(it->getIntAttribute("kind", value), -1);
  EXPECT_EQ(text, "kept");
  EXPECT_EQ(value, -5);
}

TEST(KFLVocIterator, StandsNowhereBeforeTheFirstAndAfterTheLast) {
  const auto map = KFLVocMap::loadFromText(parameter("<parameter id='a'/>"), "v.xml");
  const boost::shared_ptr<KFLVocIterator> it(map->readCategory("c"));
  std::string id;
  EXPECT_EQ(it->getID(id), -1);
  EXPECT_EQ(it->nextParameter(), -1);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(it->firstParameter(), 0);
    EXPECT_EQ(it->getID(id), 0);
    EXPECT_EQ(it->nextParameter(), -1);
    EXPECT_EQ(it->nextParameter(), -1);
    EXPECT_EQ(it->getID(id), -1);
  }
}

TEST(KFLVocIterator, OutlivesTheMapInSeveralThreads) {
  auto map = KFLVocMap::load(KFA_SOURCE_DIR "/data/vocabulary.xml");
  ASSERT_TRUE(map) << KFL::getErrorMessage();
  const std::vector<std::string> expected = dump(map->readCategory("qos"));
  std::vector<boost::shared_ptr<KFLVocIterator>> iterators;
  iterators.reserve(4);
  for (int i = 0; i < 4; ++i)
    iterators.emplace_back(map->readCategory("qos"));
  map.reset();
  std::vector<std::size_t> counts(iterators.size());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < iterators.size(); ++i) {
    threads.emplace_back([&, i] {
      std::string id;
      for (int left = iterators[i]->firstParameter(); left == 0; left = iterators[i]->nextParameter())
        if (iterators[i]->getID(id) == 0) ++counts[i];
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(counts, std::vector(iterators.size(), expected.size()));
}

TEST(KFLVocMap, DefaultVocabularyIsComplete) {
  const auto map = KFLVocMap::load(KFA_SOURCE_DIR "/data/vocabulary.xml");
  ASSERT_TRUE(map) << KFL::getErrorMessage();
  boost::scoped_ptr<KFLVocIterator> it(map->readCategory({"kelvarium", "qos"}));
  ASSERT_TRUE(it);
  std::set<std::string> ids;
  std::set<std::pair<int, int>> forms;
  std::string text;
  for (int left = it->firstParameter(); left == 0; left = it->nextParameter()) {
    std::string id;
    int kind = 0;
    int type = -1;
    EXPECT_EQ(it->getID(id), 0);
    EXPECT_TRUE(ids.insert(id).second) << id;
    // Formulas know letters, digits and dots; a key of a file in upper case must be the id again.
    EXPECT_EQ(id.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789"), std::string::npos) << id;
    EXPECT_EQ(it->getIntAttribute("kind", kind), 0) << id;
    EXPECT_EQ(it->getIntAttribute("value_type", type), 0) << id;
    EXPECT_EQ(it->getStringAttribute("description", text), 0) << id;
    forms.emplace(kind, type);
  }
  EXPECT_EQ(forms, (std::set<std::pair<int, int>>{{2, 1}, {1, 1}, {1, 0}}));
  EXPECT_LT(ids.size(), 99U);
  for (const char* const id : {"numproc", "avnumproc", "slmmemorylimit"})
    EXPECT_EQ(ids.count(id), 1U) << id;

  it.reset(map->readCategory({"kelvarium", "tune"}));
  ASSERT_TRUE(it);
  std::set<int> numbers;
  for (int left = it->firstParameter(); left == 0; left = it->nextParameter()) {
    int number = 0;
    EXPECT_EQ(it->getIntAttribute(1007, number), 0);
    EXPECT_TRUE(numbers.insert(number).second) << number;
    EXPECT_EQ(it->getStringAttribute(1302, text), 0) << number;
    EXPECT_EQ(it->getStringAttribute(1307, text), 0) << number;
    EXPECT_EQ(text.find_first_of("()_|!"), std::string::npos) << text;
  }
  EXPECT_GE(numbers.size(), 15U);
}

class KFLVocFile : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override {
    std::filesystem::remove_all(folder_);
    ::unsetenv("KFA_VOCABULARY");
  }
  std::string write(const std::string& name, const std::string& text) const {
    std::string path = folder_ + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  const std::string folder_ = testing::TempDir() + "KFLVocMapTest." + std::to_string(::getpid());
};

TEST_F(KFLVocFile, LoadNamesTheFile) {
  const std::string good = write("good.xml", parameter("<parameter id='a'/>") + std::string(10000, '\n'));
  const std::string bad = write("bad.xml", document("\n<x/>"));
  const auto map = KFLVocMap::load(good);
  ASSERT_TRUE(map) << KFL::getErrorMessage();
  EXPECT_EQ(dump(map->readCategory("c")), std::vector<std::string>{"id=a|"});
  EXPECT_FALSE(KFLVocMap::load(bad));
  EXPECT_THAT(KFL::getErrorMessage(), StartsWith(bad + ":2:1: "));
  for (const std::string& path : {folder_ + "/none.xml", folder_, write("empty.xml", "")}) {
    EXPECT_FALSE(KFLVocMap::load(path));
    EXPECT_THAT(KFL::getErrorMessage(), StartsWith(path + ":"));
  }
}

TEST_F(KFLVocFile, DefaultPathFollowsTheEnvironment) {
  ::setenv("KFA_VOCABULARY", "/elsewhere/v.xml", 1);
  EXPECT_EQ(KFLVocMap::defaultPath(), "/elsewhere/v.xml");
  ::setenv("KFA_VOCABULARY", "", 1);
  EXPECT_TRUE(KFLVocMap::load(KFLVocMap::defaultPath())) << KFL::getErrorMessage();
}

// An independent judge over the same tables.
TEST_F(KFLVocFile, TheSchemaAgrees) {
  if (std::system("xmllint --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "xmllint is not installed";
  const auto valid = [](const std::string& path) {
    const std::string command = "xmllint --nonet --noout --schema '" KFA_SOURCE_DIR
                                "/data/schema/vocabulary.xsd' '" +
                                path + "' >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
  };
  EXPECT_TRUE(valid(KFA_SOURCE_DIR "/data/vocabulary.xml"));
  for (const GoodRow& row : goodRows())
    EXPECT_TRUE(valid(write("good.xml", row.xml))) << row.xml;
  for (const BadRow& row : badRows())
    EXPECT_EQ(valid(write("bad.xml", row.xml)), row.validBySchema) << row.xml;
}

}  // namespace
