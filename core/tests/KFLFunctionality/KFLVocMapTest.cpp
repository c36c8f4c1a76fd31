// SPDX-License-Identifier: Apache-2.0
// The vocabulary map: which files it takes and refuses, how categories are found, what iterators yield.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
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
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr const char* kHead = R"(<vocabulary version="1">)";
constexpr const char* kDefault = KFA_SOURCE_DIR "/data/vocabulary.xml";

std::string document(const std::string& body) {
  return kHead + body + "</vocabulary>";
}

// In <category words="c">, at line 1.
std::string parameter(const std::string& text) {
  return document("<category words=\"c\">" + text + "</category>");
}

std::string repeated(const std::string& text, int count) {
  std::string all;
  while (count-- > 0)
    all += text;
  return all;
}

// Every parameter of a category, its attributes as name=value|, one string each.
std::vector<std::string> dump(KFLVocIterator* category) {
  std::vector<std::string> lines;
  const boost::scoped_ptr<KFLVocIterator> it(category);
  if (!it) return {"null"};
  for (int left = it->firstParameter(); left == 0; left = it->nextParameter()) {
    std::string line;
    for (const auto& [name, number] : {std::pair("id", 1010),
                                       {"kind", 1304},
                                       {"value_type", 0},
                                       {"number", 1007},
                                       {"expression", 1307},
                                       {"comment", 1302},
                                       {"description", 0}}) {
      std::string value, same;
      const int result = it->getStringAttribute(name, value);
      if (result == 0) line += std::string(name) + "=" + value + "|";
      EXPECT_EQ(it->getStringAttribute(number, same), number == 0 ? -1 : result) << name;
      EXPECT_EQ(same, number == 0 ? "" : value);
    }
    lines.push_back(line);
  }
  return lines;
}

struct GoodRow {
  std::string xml;
  std::vector<std::string> parameters;  // of the category "c"
};

const GoodRow kGood[] = {
    {"<vocabulary version='1'/>", {"null"}},
    {parameter(""), {}},
    {"\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8' standalone='yes'?><!-- c --><?pi?>" +
         parameter("<parameter/>"),
     {""}},
    {parameter("<parameter id='a.b-c_9' kind='2' value_type='0' number='-2147483648'/>"
               "<parameter id='a.b-c_9' number='2147483647'/>"),
     {"id=a.b-c_9|kind=2|value_type=0|number=-2147483648|", "id=a.b-c_9|number=2147483647|"}},
    // White space is folded, wherever the parser splits a text.
    {parameter("<parameter><comment> a\n\t b &amp; c<!-- x --> d<![CDATA[ < ]]>e\n</comment>"
               "<expression>a&lt;=\xC3\xBC&#xFC;</expression><description>  </description></parameter>"),
     {"expression=a<=\xC3\xBC\xC3\xBC|comment=a b & c d < e|description=|"}},
    {document("<category words='c'><parameter id='a'/></category><category words='d'>"
              "<parameter id='b'/></category>"),
     {"id=a|"}},
};

struct BadRow {
  std::string xml;
  std::string where;  // line:column
  std::string text;
  bool validBySchema = false;
};

const BadRow kBad[] = {
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
    {document("<category words='a' x='b'/>"), "1:25", "<category> has no attribute 'x'; it takes"},
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
    {parameter("<parameter number=' 1'/>"), "1:45", "a 32-bit whole number"},
    {parameter("<parameter><id>a</id></parameter>"), "1:56", "<id> is not known inside <parameter>"},
    {parameter("<parameter><comment/>\n<comment/></parameter>"), "2:1", "<comment> stands twice"},
    {parameter("<parameter><comment a='1'/></parameter>"), "1:56",
     "has no attribute 'a'; it holds text only"},
    {parameter("<parameter><comment>a<b/></comment></parameter>"), "1:66", "<b> stands inside <comment>"},
    {parameter("<parameter><expression>a <= b</expression></parameter>"), "1:71", "'<' is written &lt;"},
    {parameter("<parameter><comment>a & b</comment></parameter>"), "1:68", "'&' is written &amp;"},
    {parameter("<parameter><comment>\xFF</comment></parameter>"), "1:65", "invalid token"},
    {"<!DOCTYPE v [<!ENTITY a 'b'>]>\n" + document(""), "1:", "a document type declaration", true},
    {"<?xml version='1.0' encoding='ISO-8859-1'?>" + document(""), "1:1", "encoding 'ISO-8859-1'", true},
    {std::string("<\0v\0", 4), "1:1", "written in UTF-8"},
    {std::string("\xFF\xFE<\0v\0", 6), "1:1", "written in UTF-8"},
};

boost::shared_ptr<KFLVocMap> loaded(const std::string& xml) {
  boost::shared_ptr<KFLVocMap> map = KFLVocMap::loadFromText(xml, "v.xml");
  EXPECT_TRUE(map) << xml.substr(0, 300) << "\n" << KFL::getErrorMessage();
  return map;
}

TEST(KFLVocMap, TakesWhatIsWellFormed) {
  for (const GoodRow& row : kGood)
    EXPECT_EQ(dump(loaded(row.xml)->readCategory("c")), row.parameters) << row.xml;
}

TEST(KFLVocMap, RefusesTheRestAndSaysWhere) {
  for (const BadRow& row : kBad) {
    EXPECT_FALSE(KFLVocMap::loadFromText(row.xml, "v.xml")) << row.xml;
    EXPECT_THAT(KFL::getErrorMessage(), AllOf(StartsWith("v.xml:" + row.where), HasSubstr(row.text)))
        << row.xml;
  }
}

TEST(KFLVocMap, NeitherSizeNorDepthHurts) {
  const std::string deep = repeated("<a>", 200000);
  EXPECT_FALSE(KFLVocMap::loadFromText(deep, "v"));
  EXPECT_FALSE(KFLVocMap::loadFromText(parameter("<parameter><comment>" + deep), "v"));

  EXPECT_FALSE(KFLVocMap::loadFromText(parameter("<parameter id=',x" + repeated("x", 100000) + "'/>"), "v"));
  EXPECT_LT(KFL::getErrorMessage().size(), 300U);

  EXPECT_FALSE(KFLVocMap::loadFromText(document(std::string(std::size_t{17} << 20, ' ')), "v"));
  EXPECT_THAT(KFL::getErrorMessage(), HasSubstr("at most 16777216 bytes"));

  std::string many;
  for (int i = 0; i < 100000; ++i)
    many += "<category words='c w" + std::to_string(i) + "'><parameter/></category>";
  EXPECT_EQ(dump(loaded(document(many))->readCategory({"w99999", "c"})).size(), 1U);
}

TEST(KFLVocIterator, ReadsWhereItStandsAndNowhereBesideThat) {
  const boost::scoped_ptr<KFLVocIterator> it(
      loaded(parameter("<parameter id='a' number='7'><comment>12</comment></parameter>"))->readCategory("c"));
  std::string id = "kept";
  int value = -5;
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(it->getID(id) + it->getIntAttribute("number", value) + it->nextParameter(), -3);
    ASSERT_EQ(it->firstParameter(), 0);
    EXPECT_EQ(it->getIntAttribute(1303, value) + it->getIntAttribute("kind", value), -2);
    EXPECT_EQ(it->getIntAttribute(1010, value) + it->getStringAttribute("description", id), -2);
    EXPECT_EQ(id + std::to_string(value), round == 0 ? "kept-5" : "a12")
        << "what is not there leaves the variable";
    EXPECT_EQ(it->getIntAttribute(1007, value), 0);
    EXPECT_EQ(value, 7);
    EXPECT_EQ(it->getIntAttribute("comment", value) + it->getID(id), 0);
    EXPECT_EQ(id + std::to_string(value), "a12");
    EXPECT_EQ(it->nextParameter(), -1);
  }
}

TEST(KFLVocIterator, OutlivesTheMapInSeveralThreads) {
  auto map = KFLVocMap::load(kDefault);
  ASSERT_TRUE(map) << KFL::getErrorMessage();
  const std::vector<std::string> expected = dump(map->readCategory("qos"));
  std::vector<KFLVocIterator*> iterators(4);
  std::ranges::generate(iterators, [&map] { return map->readCategory("qos"); });
  map.reset();
  std::vector<std::future<std::vector<std::string>>> dumps;
  dumps.reserve(iterators.size());
  for (KFLVocIterator* const it : iterators)
    dumps.push_back(std::async(std::launch::async, dump, it));
  for (auto& ready : dumps)
    EXPECT_EQ(ready.get(), expected);
}

TEST(KFLVocMap, DefaultVocabularyIsComplete) {
  const auto map = KFLVocMap::load(kDefault);
  ASSERT_TRUE(map) << KFL::getErrorMessage();
  std::set<std::string> ids, forms, numbers;
  for (const std::string& line : dump(map->readCategory({"kelvarium", "qos"}))) {
    // Formulas know letters, digits and dots; a key of a file in upper case must be the id again.
    ASSERT_THAT(line, MatchesRegex("id=[a-z0-9]+\\|kind=.\\|value_type=.\\|(.*\\|)?description=.*"));
    const std::size_t bar = line.find('|');
    EXPECT_TRUE(ids.insert(line.substr(3, bar - 3)).second) << line;
    forms.insert(line.substr(bar, std::strlen("|kind=1|value_type=0")));
  }
  EXPECT_THAT(forms, ElementsAre("|kind=1|value_type=0", "|kind=1|value_type=1", "|kind=2|value_type=1"));
  EXPECT_LT(ids.size(), 99U);
  EXPECT_THAT(ids, testing::IsSupersetOf({"numproc", "avnumproc", "slmmemorylimit"}));
  for (const std::string& line : dump(map->readCategory({"kelvarium", "tune"}))) {
    EXPECT_THAT(line, MatchesRegex("number=[0-9]+\\|expression=[^()_|!]*\\|comment=.*"));
    EXPECT_TRUE(numbers.insert(line.substr(0, line.find('|'))).second) << line;
  }
  EXPECT_GE(numbers.size(), 15U);
}

class KFLVocFile : public testing::Test {
 protected:
  KFLVocFile() { std::filesystem::create_directories(folder_); }
  ~KFLVocFile() override { std::filesystem::remove_all(folder_); }
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ + name, std::ios::binary) << text;
    return folder_ + name;
  }

  const std::string folder_ = testing::TempDir() + "KFLVocMapTest." + std::to_string(::getpid()) + "/";
};

TEST_F(KFLVocFile, LoadNamesTheFile) {
  const auto map = KFLVocMap::load(write("good", parameter("<parameter id='a'/>") + repeated("\n", 10000)));
  ASSERT_TRUE(map) << KFL::getErrorMessage();
  EXPECT_THAT(dump(map->readCategory("c")), ElementsAre("id=a|"));
  for (const auto& [path, where] : {std::pair(write("bad", document("\n<x/>")), ":2:1: "),
                                    {folder_ + "none", ":"},
                                    {folder_, ":"},
                                    {write("empty", ""), ":"}}) {
    EXPECT_FALSE(KFLVocMap::load(path));
    EXPECT_THAT(KFL::getErrorMessage(), StartsWith(path + where));
  }
}

TEST(KFLVocMap, DefaultPathFollowsTheEnvironment) {
  ::setenv("KFA_VOCABULARY", "/elsewhere/v.xml", 1);
  EXPECT_EQ(KFLVocMap::defaultPath(), "/elsewhere/v.xml");
  ::setenv("KFA_VOCABULARY", "", 1);
  EXPECT_TRUE(KFLVocMap::load(KFLVocMap::defaultPath())) << KFL::getErrorMessage();
  ::unsetenv("KFA_VOCABULARY");
}

// An independent judge over the same tables.
TEST_F(KFLVocFile, TheSchemaAgrees) {
  if (std::system("xmllint --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "xmllint is not installed";
  const auto valid = [](const std::string& path) {
    const std::string schema = KFA_SOURCE_DIR "/data/schema/vocabulary.xsd";
    const std::string command = "xmllint --nonet --noout --schema '" + schema + "' '" + path + "'";
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
  };
  EXPECT_TRUE(valid(kDefault));
  for (const GoodRow& row : kGood)
    EXPECT_TRUE(valid(write("good.xml", row.xml))) << row.xml;
  for (const BadRow& row : kBad)
    EXPECT_EQ(valid(write("bad.xml", row.xml)), row.validBySchema) << row.xml;
  // Numbers in every form, around the ends of their ranges.
  for (const char* const attribute : {"kind", "value_type", "number"}) {
    for (const char* const value :
         {"0",           "1",          "2",          "3",          "00",         "01",          "002",
          "-0",          "-1",         "+1",         " 1",         "1 ",         "&#9;1",       "",
          "1.0",         "0x1",        "-",          "2147483647", "2147483648", "02147483647", "-2147483648",
          "-2147483649", "1999999999", "2147483599", "9999999999"}) {
      const std::string xml = parameter(std::string("<parameter ") + attribute + "='" + value + "'/>");
      EXPECT_EQ(valid(write("number.xml", xml)), KFLVocMap::loadFromText(xml, "x") != nullptr) << xml;
    }
  }
}

}  // namespace
