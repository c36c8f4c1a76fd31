// SPDX-License-Identifier: Apache-2.0
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
  const std::pair<const char*, const char*> rows[] = {
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
      {"ARCH=x86\nARCH=x86\n", "ARCH=x86\n"},
      {"NAME=web HOSTNAME=web.example.com\n", "NAME=web\nHOSTNAME=web.example.com\n"},
      {" NAME='a  b'  ONBOOT=no\r", "NAME='a  b'\nONBOOT=no"},
      {"DESCRIPTION=web server\n", "DESCRIPTION=\"web server\"\n"},
      {"\xef\xbb\xbf"
       "ARCH=x86\r\nARCH=x86_64\n",
       "\xef\xbb\xbf"
       "ARCH=x86\nARCH=x86_64\n"},
      {"ONBOOT = yes\nONBOOT=no\n", "ONBOOT=no\n"},
      {"ARCH=ia64\nTECHNOLOGIES = x86\nNAME=a\r\n", "ARCH=ia64\nTECHNOLOGIES = x86\nNAME=a\n"},
      {"ONBOOT=no\nONBOOT=yes\n(\nONBOOT=no\n)\n", "ONBOOT=yes\n(\nONBOOT=no\n)\n"},
      {"if :; then ls; fi; (. /x)\nONBOOT=no\nONBOOT=yes\n", "if :; then ls; fi; (. /x)\nONBOOT=yes\n"},
      {"ONBOOT=true\ncat <<EOF\nDISABLED=true\nNAME = a\nNAME=a HOSTNAME=b\r\nEOF\n",
       "ONBOOT=\"yes\"\ncat <<EOF\nDISABLED=true\nNAME = a\nNAME=a HOSTNAME=b\nEOF\n"},
      {"NAME=\"open\nONBOOT=true\n", "NAME=\"open\nONBOOT=\"yes\"\n"},
      {"CPULIMIT=abc\nCPULIMIT=5\n", "CPULIMIT=5\n"},
  };
  // What has no one right answer stays, and so do: what is nobody's business, what did not assign where that would come to
  // count in the place of what did, and a line where a shell may not come to it, or to the one that counts; or where that
  // one gives nothing.
  const char* const stays[] = {
      "ONBOOT=\"no\"\nONBOOT = yes\n",
      "NAME=\"ok\"\nNAME: bad name\n",
      "HOSTNAME=a\nNAME=x HOSTNAME=b\n",
      "NAME=w\nNAME=x NAME=y\n",
      "ARCH = x86\nARCH=x86_64\n",
      "ARCH=x86\nARCH=x86_64\n",
      "NAME=a\\\r\nONBOOT=no\n",
      "ONBOOT=maybe\n",
      "NUMPROC=many\n",
      "NAME=\"\xe2\x80\x9cweb\xe2\x80\x9d\"  # \xe2\x80\x9cx\xe2\x80\x9d\n",
      "colour: red\nCOLOUR = red\ncolour=red\ncolour=blue\n",
      "ONBOOT=no; id\nONBOOT=yes\n",
      "NAME=a; id\nNAME = b | c\nROLES=(a b)\nNAME=a OTHER=b\nNAME=a id\\ x=1\n",
      "NAME=\"open\nONBOOT=no\nONBOOT=yes\n",
      "",
      "if [ -f /x ]; then\nONBOOT=no\nfi\nONBOOT=yes\n",
      "f() {\nONBOOT=no\n}\nONBOOT=yes\n",
      "true &&\nONBOOT=no\nONBOOT=yes\n",
      "false && \\\nONBOOT=no\nONBOOT=yes\n",
      "cat <<EOF\nONBOOT=no\nEOF\nONBOOT=yes\n",
      "ONBOOT=no\nwhile\nONBOOT=yes\ndo :; done\n",
      "CPULIMIT=5\nCPULIMIT=abc\n",
      "TECHNOLOGIES=x86\nTECHNOLOGIES=foo\nARCH=a\n",
  };
  const auto expectFixed = [](const std::string& before, const std::string& after) {
    std::vector<KFA::KFAConfigFix> fixes;
    EXPECT_EQ(fixConfig(envRules(), before, fixes), after) << before;
    EXPECT_EQ(fixes.empty(), before == after) << before;
  };
  for (const auto& [before, after] : rows)
    expectFixed(before, after);
  for (const char* const text : stays)
    expectFixed(text, text);
}

// The values that a record takes of a text, but those with marks that a fix takes out.
Map takenOf(const std::string& text) {
  KFA::KFAEnvironmentKeys keys(envParser());
  Map taken;
  if (keys.read(text, "f") != 0) return taken;
  for (const auto& [key, value] : keys.getTexts()) {
    if (value.find_first_of("\r\xe2") != std::string::npos) continue;
    // A line that gives nothing leaves what an earlier one gave.
    const bool isIdle = envRules().passesOver(key, value);
    if (isIdle || envRules().accept(key, value) == 0) keys.getOrText(key, taken[key]);
    std::string arch;
    const bool isOther = isIdle && key == "technologies" && keys.getTexts().count("arch") == 0;
    if (isOther && keys.get("arch", arch)) taken["arch"] = arch;
  }
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
      "IP_ADDRESS=1.2.3.4", "NETIF: ifname=venet0,nettype=host-routed,ip=9.9.9.9", "NUMPROC = 3:4",
      "TECHNOLOGIES=foo", "CPULIMIT=5", "CPULIMIT=abc", "if :; then", "fi"};
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
    // Nothing is found in a line behind a byte order mark.
    const auto former = errorsOf(text.starts_with('\xef') ? text.substr(3) : text);
    for (const std::string& error : errorsOf(fixed))
      ASSERT_EQ(former.count(error), 1U) << text << error;
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
      SCOPED_TRACE(first + "----\n" + second);
      const KFA::KFAEnvironmentKeys before = read(first);
      KFA::KFAChangeList changes = compareEnvironments(before, read(second));
      std::string arch;
      const std::string* const line = before.getText("arch");
      const bool isOverruled = line != nullptr && before.get("arch", arch) && arch != *line;
      for (const KFA::KFAChange& change : changes)
        EXPECT_TRUE(!change.wasUnset || isOverruled || !before.getText(change.key)) << change.toString();
      const std::string there = after(first, changes);
      EXPECT_TRUE(compareEnvironments(read(there), read(second)).empty());
      std::for_each(changes.begin(), changes.end(), [](auto& change) { change.reverse(); });
      const std::string back = after(there, changes);
      EXPECT_TRUE(compareEnvironments(read(back), before).empty()) << back;
    }
  }
}

// --- Merging ------------------------------------------------------------------------------------------------------------

// What the lines of a key say, but for what only says the same again.
std::string saidOf(const std::string& text, char key) {
  std::string said;
  for (std::size_t at = 0; (at = text.find(std::string{key, '='}, at)) != std::string::npos; ++at) {
    const char value = text[text.find_first_not_of('"', at + 2)];
    if (said.empty() || said.back() != value) said += value;
  }
  return said;
}

// Who changed what a key says decides; both, and differently, is a conflict, in which no line of ours is missing. Gives
// how many there are. Where keys repeat, there may be more.
int expectMerged(const std::string& base, const std::string& ours, const std::string& theirs, bool repeats) {
  const KFA::KFAConfigMerge merged = KFA::mergeConfig(base, ours, theirs);
  int conflicts = 0;
  for (const char key : std::string("abcdef")) {
    SCOPED_TRACE(key);
    const std::string was = saidOf(base, key), one = saidOf(ours, key), two = saidOf(theirs, key);
    const bool clashes = one != two && one != was && two != was;
    const bool isConflict = std::ranges::count(merged.conflicts, std::string(1, key)) > 0;
    EXPECT_TRUE(isConflict == clashes || (isConflict && repeats));
    conflicts += isConflict ? 1 : 0;
    if (isConflict)
      EXPECT_TRUE(one.empty() || saidOf(merged.text, key).find(one.back()) != std::string::npos);
    else
      EXPECT_EQ(saidOf(merged.text, key), one == was ? two : one);
  }
  return conflicts;
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

// The merge of each key for itself, by the book, and of each comment; what one copy alone did is done.
TEST(ConfigMergeTest, AgreesWithAMergeOfEachKey) {
  std::mt19937 random(11);
  int conflicts = 0;
  const std::vector<std::pair<std::string, std::string>> keys = {
      {"a", "0"}, {"b", "1"}, {"c", "2"}, {"d", "0"}};
  const std::set<std::string> comments = {"# one", "# two"};
  const std::string base = "a=0\nb=1\nc=2\nd=0\n# one\n# two\n";
  ASSERT_EQ(KFA::mergeConfig(base, base, base).text, base);
  for (int round = 0; round < 5000 && !HasFailure(); ++round) {
    const Generated ours = changed(random, keys, comments, "ours");
    const Generated theirs = changed(random, keys, comments, "theirs");
    SCOPED_TRACE(base + "OURS\n" + ours.text + "THEIRS\n" + theirs.text);
    conflicts += expectMerged(base, ours.text, theirs.text, false) > 0 ? 1 : 0;
    const std::string merged = KFA::mergeConfig(base, ours.text, theirs.text).text;
    for (const std::string comment : {"# ours", "# theirs", "# one", "# two"}) {
      const auto had = ours.comments.count(comment) + theirs.comments.count(comment);
      EXPECT_EQ(has(merged, comment + "\n"), had > comments.count(comment)) << comment << "\n" << merged;
    }
    EXPECT_EQ(KFA::mergeConfig(base, ours.text, ours.text).text, ours.text);
  }
  EXPECT_GT(conflicts, 500);
  EXPECT_LT(conflicts, 4500);
}

TEST(ConfigMergeTest, GivesARepeatedKeyWhatOneCopySays) {
  std::mt19937 random(12);
  const auto make = [&random] {
    std::string text;
    for (auto left = random() % 6; left > 0; --left)
      text += std::string(random() % 3 == 0 ? "b=" : "a=") + (random() % 2 == 0 ? "0\n" : "1\n");
    return text;
  };
  int conflicts = 0;
  for (int round = 0; round < 5000 && !HasFailure(); ++round) {
    const std::string base = make(), ours = random() % 4 == 0 ? base : make(), theirs = make();
    SCOPED_TRACE(base + "--\n" + ours + "--\n" + theirs);
    conflicts += expectMerged(base, ours, theirs, true);
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

// A comment behind a value that both copies have is that of the one that changed it, however the value is quoted.
TEST(ConfigMergeTest, MergesCommentsBehindValues) {
  const struct {
    const char *base, *ours, *theirs, *merged;
  } rows[] = {
      {"A=3 # k", "A=3", "A=\"3\" # k", "A=3"},
      {"A=3 # k", "A=\"3\" # k", "A=3", "A=\"3\""},
      {"A=3 # k", "A=\"3\" # k", "A=3 # t", "A=\"3\" # t"},
      {"A=3 # k", "A=3 # o", "A='3' # k", "A=3 # o"},
      {"A=3 # k", "A=3 # o", "A=\"3\"", "A=3 # o"},
      {"A=3 # k", "A=3", "A=3 # t", "# t\nA=3"},
      {"A=1 # k", "A=3", "A=3 # k", "A=3"},
      {"", "A=3", "A=\"3\" # t", "A=3 # t"},
      {"", "A=3 # o", "A=3 # t", "# t\nA=3 # o"},
  };
  for (const auto& row : rows) {
    const KFA::KFAConfigMerge merged = KFA::mergeConfig(row.base, row.ours, row.theirs);
    EXPECT_EQ(merged.text, row.merged + std::string("\n"))
        << row.base << " | " << row.ours << " | " << row.theirs;
    EXPECT_TRUE(merged.conflicts.empty());
  }
}

}  // namespace
