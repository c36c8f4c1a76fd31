// SPDX-License-Identifier: Apache-2.0
#include <optional>
#include <random>
#include <set>

#include <KFAFunctionality/node/KFAConfigFix.h>
#include <KFAFunctionality/node/KFAConfigMerge.h>

#include "../files/FilesTest.h"

namespace {

using Map = std::map<std::string, std::string>;

// --- Fixing -------------------------------------------------------------------------------------------------------------

// That what is fixed stays so, and gets no worse, is a law of the fuzz target KfactlFuzz.
TEST(ConfigFixTest, MakesTheOneRightEdit) {
  const struct {
    const char* before;
    const char* after;
  } rows[] = {
      {"\xef\xbb\xbfONBOOT=yes\n", "ONBOOT=yes\n"},
      {"ONBOOT=yes\r\n# note\r\nNAME=a", "ONBOOT=yes\n# note\nNAME=a"},
      {"ONBOOT=true   # why\n", "ONBOOT=\"yes\"   # why\n"},
      {"DISABLED='0'\n", "DISABLED=\"no\"\n"},
      {"ONBOOT = yes\n", "ONBOOT=\"yes\"\n"},
      {"ONBOOT= yes # x\n", "ONBOOT=\"yes\"  # x\n"},
      {"  NAME: web 1\n", "  NAME=\"web 1\"\n"},
      {"ONBOOT: On\n", "ONBOOT=\"yes\"\n"},
      {"NAME = 'web 1'\n", "NAME='web 1'\n"},
      {"NAME=\xe2\x80\x9cweb 1\xe2\x80\x9d\n", "NAME=\"web 1\"\n"},
      {"ONBOOT\xc2\xa0=\xc2\xa0yes\n", "ONBOOT=\"yes\"\n"},
      {"ONBOOT=no\nNAME=a\nONBOOT=yes\n", "NAME=a\nONBOOT=yes\n"},
      {"ARCH=x86\nARCH=x86_64\n", "ARCH=x86\n"},
      {"NAME=web HOSTNAME=web.example.com\n", "NAME=web\nHOSTNAME=web.example.com\n"},
      {" NAME='a  b'  ONBOOT=no\r", "NAME='a  b'\nONBOOT=no"},
      {"DESCRIPTION=web server\n", "DESCRIPTION=\"web server\"\n"},
      // What has no one right answer stays, and so does what is nobody's business.
      {"ONBOOT=maybe\n", "ONBOOT=maybe\n"},
      {"NUMPROC=many\n", "NUMPROC=many\n"},
      {"NAME=\"\xe2\x80\x9cweb\xe2\x80\x9d\"  # \xe2\x80\x9cx\xe2\x80\x9d\n",
       "NAME=\"\xe2\x80\x9cweb\xe2\x80\x9d\"  # \xe2\x80\x9cx\xe2\x80\x9d\n"},
      {"colour: red\nCOLOUR = red\ncolour=red\ncolour=blue\n",
       "colour: red\nCOLOUR = red\ncolour=red\ncolour=blue\n"},
      {"ONBOOT=no; id\nONBOOT=yes\n", "ONBOOT=no; id\nONBOOT=yes\n"},
      {"NAME=a; id\nNAME = b | c\nROLES=(a b)\nNAME=a OTHER=b\nNAME=a id\\ x=1\n",
       "NAME=a; id\nNAME = b | c\nROLES=(a b)\nNAME=a OTHER=b\nNAME=a id\\ x=1\n"},
      {"NAME=\"open\nONBOOT=no\nONBOOT=yes\n", "NAME=\"open\nONBOOT=no\nONBOOT=yes\n"},
      {"", ""},
  };
  for (const auto& row : rows) {
    std::vector<KFA::KFAConfigFix> fixes;
    EXPECT_EQ(fixConfig(envRules(), row.before, fixes), row.after) << row.before;
    EXPECT_EQ(fixes.empty(), std::string(row.before) == row.after) << row.before;
    EXPECT_EQ(fixConfig(envRules(), row.after, fixes), row.after) << row.before;
  }
}

// --- Merging ------------------------------------------------------------------------------------------------------------

std::optional<std::string> valueOf(const Map& values, const std::string& key) {
  const auto found = values.find(key);
  return found == values.end() ? std::nullopt : std::optional(found->second);
}

struct Generated {
  std::string text;
  std::set<std::string> comments;
};

// A copy with keys changed, taken out, put in and moved, and comments of its own.
Generated changed(std::mt19937& random, std::vector<std::pair<std::string, std::string>> keys,
                  std::set<std::string> comments, const std::string& mark) {
  for (auto changes = random() % 4; changes > 0; --changes) {
    const auto key = std::string(1, static_cast<char>('a' + random() % 6));
    const auto found =
        std::find_if(keys.begin(), keys.end(), [&](const auto& pair) { return pair.first == key; });
    const std::string value = std::to_string(random() % 3);
    if (found == keys.end())
      keys.insert(keys.begin() + static_cast<std::ptrdiff_t>(random() % (keys.size() + 1)), {key, value});
    else if (random() % 3 == 0)
      keys.erase(found);
    else
      found->second = value;
  }
  if (!keys.empty() && random() % 4 == 0) std::rotate(keys.begin(), keys.begin() + 1, keys.end());
  if (!comments.empty() && random() % 4 == 0) comments.erase(comments.begin());
  if (random() % 2 == 0) comments.insert("# " + mark);
  Generated made{{}, comments};
  auto comment = comments.begin();
  for (const auto& [key, value] : keys) {
    if (comment != comments.end()) made.text += *comment++ + "\n";
    made.text += key + (random() % 2 == 0 ? "=\"" + value + "\"\n" : "=" + value + "\n");
  }
  for (; comment != comments.end(); ++comment)
    made.text += *comment + "\n";
  return made;
}

// The merge of each key for itself, by the book: who changed it decides; both, and differently, is a conflict.
TEST(ConfigMergeTest, AgreesWithAMergeOfEachKey) {
  std::mt19937 random(11);
  std::size_t conflicts = 0;
  for (int round = 0; round < 5000; ++round) {
    const std::vector<std::pair<std::string, std::string>> keys = {
        {"a", "0"}, {"b", "1"}, {"c", "2"}, {"d", "0"}};
    const std::set<std::string> comments = {"# one", "# two"};
    std::string base;
    for (const auto& [key, value] : keys)
      base += key + "=" + value + "\n";
    base += "# one\n# two\n";
    const Generated ours = changed(random, keys, comments, "ours");
    const Generated theirs = changed(random, keys, comments, "theirs");
    const KFA::KFAConfigMerge merged = KFA::mergeConfig(base, ours.text, theirs.text);
    const std::string inputs =
        "BASE\n" + base + "OURS\n" + ours.text + "THEIRS\n" + theirs.text + "MERGED\n" + merged.text;
    const Map before = valuesOf(base);
    const Map left = valuesOf(ours.text);
    const Map right = valuesOf(theirs.text);
    std::set<std::string> expected;
    const bool isClean = merged.conflicts.empty();
    const Map result = isClean ? valuesOf(merged.text) : Map();
    for (const char c : std::string("abcdef")) {
      const std::string key(1, c);
      const auto was = valueOf(before, key), one = valueOf(left, key), two = valueOf(right, key);
      const bool clashes = one != two && one != was && two != was;
      if (clashes) expected.insert(key);
      if (clashes || !isClean) continue;
      ASSERT_EQ(valueOf(result, key), one == was ? two : one) << key << "\n" << inputs;
    }
    ASSERT_EQ(std::set<std::string>(merged.conflicts.begin(), merged.conflicts.end()), expected) << inputs;
    conflicts += expected.empty() ? 0 : 1;
    for (const std::string comment : {"# ours", "# theirs", "# one", "# two"}) {
      const bool wasThere = comments.count(comment) != 0;
      const bool wanted = wasThere ? ours.comments.count(comment) != 0 && theirs.comments.count(comment) != 0
                                   : ours.comments.count(comment) != 0 || theirs.comments.count(comment) != 0;
      ASSERT_EQ(merged.text.find(comment + "\n") != std::string::npos, wanted) << comment << "\n" << inputs;
    }
    ASSERT_EQ(KFA::mergeConfig(base, base, base).text, base);
    if (theirs.text.ends_with('\n') || theirs.text.empty()) {
      ASSERT_EQ(KFA::mergeConfig(base, ours.text, ours.text).text, ours.text) << inputs;
    }
  }
  EXPECT_GT(conflicts, 500U);
  EXPECT_LT(conflicts, 4500U);
}

TEST(ConfigMergeTest, MarksAConflictAsGitDoes) {
  const KFA::KFAConfigMerge merged = KFA::mergeConfig("# top\nA=1  # why\nB=1\n", "# top\nA=2\nB=1  # mine\n",
                                                      "# top\nA=3\nB=1  # theirs\nC=4\n", {"HEAD", "topic"});
  EXPECT_EQ(merged.conflicts, std::vector<std::string>{"a"});
  EXPECT_EQ(merged.text,
            "# top\n<<<<<<< HEAD\nA=2\n=======\nA=3\n>>>>>>> topic\n# theirs\nB=1  # mine\nC=4\n");
}

}  // namespace
