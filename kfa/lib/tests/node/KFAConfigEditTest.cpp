// SPDX-License-Identifier: Apache-2.0
#include <optional>
#include <random>
#include <set>

#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/node/KFAConfigFix.h>
#include <KFAFunctionality/node/KFAConfigMerge.h>
#include <KFAFunctionality/node/KFAEnvironmentDiff.h>

#include "../files/FilesTest.h"

namespace {

using Map = std::map<std::string, std::string>;

// --- Fixing -------------------------------------------------------------------------------------------------------------

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
      {"NETIF: ifname=eth0,dhcp=yes\n", "NETIF=\"ifname=eth0,dhcp=yes\"\n"},
      {"NAME=\xe2\x80\x9cweb 1\xe2\x80\x9d\n", "NAME=\"web 1\"\n"},
      {"ONBOOT\xc2\xa0=\xc2\xa0yes\n", "ONBOOT=\"yes\"\n"},
      {"ONBOOT=no\nNAME=a\nONBOOT=yes\n", "NAME=a\nONBOOT=yes\n"},
      {"ARCH=x86\nARCH=x86_64\n", "ARCH=x86\n"},
      {"NAME=web HOSTNAME=web.example.com\n", "NAME=web\nHOSTNAME=web.example.com\n"},
      {" NAME='a  b'  ONBOOT=no\r", "NAME='a  b'\nONBOOT=no"},
      {"DESCRIPTION=web server\n", "DESCRIPTION=\"web server\"\n"},
      // What did not assign does not come to count in the place of what did.
      {"ONBOOT=\"no\"\nONBOOT = yes\n", "ONBOOT=\"no\"\nONBOOT = yes\n"},
      {"NAME=\"ok\"\nNAME: bad name\n", "NAME=\"ok\"\nNAME: bad name\n"},
      {"HOSTNAME=a\nNAME=x HOSTNAME=b\n", "HOSTNAME=a\nNAME=x HOSTNAME=b\n"},
      {"NAME=w\nNAME=x NAME=y\n", "NAME=w\nNAME=x NAME=y\n"},
      {"ARCH = x86\nARCH=x86_64\n", "ARCH = x86\nARCH=x86_64\n"},
      {"\xef\xbb\xbf"
       "ARCH=x86\r\nARCH=x86_64\n",
       "\xef\xbb\xbf"
       "ARCH=x86\nARCH=x86_64\n"},
      {"ONBOOT = yes\nONBOOT=no\n", "ONBOOT=no\n"},
      {"ARCH=ia64\nTECHNOLOGIES = x86\nNAME=a\r\n", "ARCH=ia64\nTECHNOLOGIES = x86\nNAME=a\n"},
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
  }
}

// The values that a record takes of a text, but those with marks that a fix takes out.
Map takenOf(const std::string& text) {
  KFA::KFAEnvironmentKeys keys(envParser());
  Map taken;
  if (keys.read(text, "f") != 0) return taken;
  for (const auto& [key, value] : keys.getTexts())
    if (value.find_first_of("\r\xe2") == std::string::npos && envRules().accept(key, value) == 0)
      keys.getOrText(key, taken[key]);
  return taken;
}

// Over texts put together from good and bad lines: fixing twice is fixing once, no value that was taken changes, and no
// finding is new.
TEST(ConfigFixTest, KeepsWhatWasTaken) {
  static const std::string lines[] = {
      "ONBOOT=yes", "HOSTNAME=a.b\r",
      // Some with a fault.
      "ONBOOT = no", "onboot=TRUE", "NAME=\"a b\"  # c", "NAME: x y", "NAME=\xe2\x80\x98q\xe2\x80\x99",
      "# note", "", "BACKUP = x", "ARCH=x86", "ARCH=arm", "DISABLED=1", "IP_ADDRESS= 1.2.3.4", "NUMPROC=1:2",
      "IP_ADDRESS=dhcp", "export A=1", "NAME=z; id", "NAME=k HOSTNAME=l", "ROLES=(a b)",
      // Some that could come to say otherwise.
      "HOSTNAME=m NAME=n", "ARCH = x86_64", "TECHNOLOGIES = ia64", "TECHNOLOGIES=x86", "ONBOOT=yes \r",
      "IP_ADDRESS=1.2.3.4", "NETIF: ifname=venet0,nettype=host-routed,ip=9.9.9.9", "NUMPROC = 3:4"};
  std::mt19937 random(5);
  const auto errorsOf = [](const std::string& text) {
    std::set<std::string> keys;
    for (const auto& finding : checkConfig(envRules(), text))
      if (finding.severity == KFA::KFAConfigFinding::Severity::Error) keys.insert(finding.text);
    return keys;
  };
  for (int round = 0; round < 2000; ++round) {
    std::string text = random() % 5 == 0 ? "\xef\xbb\xbf" : "";
    for (auto left = random() % 7; left > 0; --left)
      text += lines[random() % std::size(lines)] + "\n";
    std::vector<KFA::KFAConfigFix> fixes;
    const std::string fixed = fixConfig(envRules(), text, fixes);
    std::vector<KFA::KFAConfigFix> again;
    ASSERT_EQ(fixConfig(envRules(), fixed, again), fixed) << text;
    ASSERT_TRUE(again.empty()) << text;
    for (const std::string& error : errorsOf(fixed))
      ASSERT_EQ(errorsOf(text).count(error), 1U) << text << error;
    const Map after = takenOf(fixed);
    for (const auto& [key, value] : takenOf(text)) {
      const auto found = after.find(key);
      ASSERT_TRUE(found != after.end() && found->second == value) << key << "\n" << text << "----\n" << fixed;
    }
  }
}

// --- Comparing ----------------------------------------------------------------------------------------------------------

// Over all pairs of files that say the architecture in one way and another: the differences of two make the second of the
// first, and read backwards the first of the second. What they say was unset was.
TEST(EnvironmentDiffTest, LeadsThereAndBackForEveryArchitecture) {
  std::vector<std::string> files;
  for (const std::string arch : {"", "ARCH=\"ia64\"\n", "ARCH=\"x86\"\n", "ARCH=i386\n", "ARCH=\"x86;\"\n"})
    for (const std::string technologies :
         {"", "TECHNOLOGIES=\"x86 nptl\"\n", "TECHNOLOGIES=\"nptl x86_64\"\n", "TECHNOLOGIES=ia64\n"})
      files.push_back(arch + technologies);
  const auto read = [](const std::string& text) {
    KFA::KFAEnvironmentKeys keys(envParser());
    EXPECT_EQ(keys.read(text, "f"), 0);
    return keys;
  };
  const auto after = [&](const std::string& text, KFA::KFAChangeList changes) {
    std::string result;
    EXPECT_EQ(applyChanges(envRules(), changes, {}, text, "f", result), 0) << text << KFL::getErrorMessage();
    return result;
  };
  for (const std::string& first : files) {
    for (const std::string& second : files) {
      const KFA::KFAEnvironmentKeys before = read(first);
      KFA::KFAChangeList changes = compareEnvironments(before, read(second));
      std::string arch;
      const std::string* const line = before.getText("arch");
      const bool isOverruled = line != nullptr && before.get("arch", arch) && arch != *line;
      for (const KFA::KFAChange& change : changes)
        EXPECT_TRUE(!change.wasUnset || isOverruled || before.getText(change.key) == nullptr)
            << first << "----\n"
            << second << change.toString();
      const std::string there = after(first, changes);
      EXPECT_TRUE(compareEnvironments(read(there), read(second)).empty()) << first << "----\n" << second;
      std::for_each(changes.begin(), changes.end(), [](auto& change) { change.reverse(); });
      const std::string back = after(there, changes);
      EXPECT_TRUE(compareEnvironments(read(back), before).empty()) << first << "----\n" << second << back;
    }
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

// Of copies that repeat keys: what each line of a key says, in their order, is that of the copy that changed it; whatever else
// would come out is a conflict, in which no line of either copy is missing.
TEST(ConfigMergeTest, GivesARepeatedKeyWhatOneCopySays) {
  std::mt19937 random(12);
  const auto make = [&random] {
    std::string text;
    for (auto left = random() % 6; left > 0; --left)
      text += std::string(random() % 3 == 0 ? "b=" : "a=") + (random() % 2 == 0 ? "0\n" : "1\n");
    return text;
  };
  // Without what only says the same again.
  const auto saidOf = [](const std::string& text, char key) {
    std::string said;
    for (std::size_t at = 0; (at = text.find(std::string(1, key) + "=", at)) != std::string::npos; ++at)
      if (said.empty() || said.back() != text[at + 2]) said += text[at + 2];
    return said;
  };
  int conflicts = 0;
  for (int round = 0; round < 5000; ++round) {
    const std::string base = make(), ours = random() % 4 == 0 ? base : make(), theirs = make();
    const KFA::KFAConfigMerge merged = KFA::mergeConfig(base, ours, theirs);
    const std::string inputs = base + "--\n" + ours + "--\n" + theirs + "--\n" + merged.text;
    for (const char key : {'a', 'b'}) {
      const std::string was = saidOf(base, key), one = saidOf(ours, key), two = saidOf(theirs, key);
      const bool isConflict =
          std::count(merged.conflicts.begin(), merged.conflicts.end(), std::string(1, key)) > 0;
      conflicts += isConflict;
      if (isConflict) {
        const std::string last = one.empty() ? "" : std::string{key, '=', one.back()};
        ASSERT_TRUE(has(merged.text, last)) << inputs;
      } else {
        ASSERT_TRUE(one == two || one == was || two == was) << inputs;
        ASSERT_EQ(saidOf(merged.text, key), one == was ? two : one) << inputs;
      }
    }
  }
  EXPECT_GT(conflicts, 500);
  EXPECT_LT(conflicts, 9000);
  EXPECT_EQ(KFA::mergeConfig("A=1\nX=\nA=1\n", "X=\nA=1\n", "A=2\nX=\nA=1\n").text,
            "X=\n<<<<<<< ours\nA=1\n=======\nA=2\nA=1\n>>>>>>> theirs\n");
}

TEST(ConfigMergeTest, MarksAConflictAsGitDoes) {
  const KFA::KFAConfigMerge merged = KFA::mergeConfig("# top\nA=1  # why\nB=1\n", "# top\nA=2\nB=1  # mine\n",
                                                      "# top\nA=3\nB=1  # theirs\nC=4\n", {"HEAD", "topic"});
  EXPECT_EQ(merged.conflicts, std::vector<std::string>{"a"});
  EXPECT_EQ(merged.text,
            "# top\n<<<<<<< HEAD\nA=2\n=======\nA=3\n>>>>>>> topic\n# theirs\nB=1  # mine\nC=4\n");
}

}  // namespace
