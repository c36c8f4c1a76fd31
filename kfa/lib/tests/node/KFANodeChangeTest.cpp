// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeChange.h>

#include <signal.h>

#include <random>

#include <KFLCommon/KFLText.h>
#include <KFLCommon/KFLThreads.h>

#include <KFAFunctionality/node/KFAChangeList.h>

#include "../files/FilesTest.h"
#include "KFLCommon/KFLSystemFaults.h"

namespace {

namespace fs = std::filesystem;
using KFA::KFAChange;
using KFA::KFAChangeList;
using KFA::KFANodeChange;
using State = KFANodeChange::File::State;

const KFA::KFARawConfigRules rules;

std::string randomValue(std::mt19937& random) {
  static const std::string pieces[] = {"a",     " ",     "'",     "#", "yes", "=",   "\xc3\xa4", ":",
                                       "$VEID", "was: ", "unset", ";", ",",   "\\a", "\x01"};
  std::string value;
  for (auto left = random() % 5; left > 0; --left)
    value += pieces[random() % std::size(pieces)];
  return value;
}

// What a list prints is what it reads; made and taken back it leaves the values as they were, and no other line changes.
TEST(ChangeListTest, IsReadAsPrintedAndReversed) {
  std::mt19937 random(3);
  for (int round = 0; round < 3000; ++round) {
    std::string text = "# a comment\n";
    std::map<std::string, std::string> before;
    KFAChangeList changes;
    for (const char* const key : {"a", "b", "c", "d"}) {
      if (random() % 2 == 0) {
        before[key] = randomValue(random);
        text += KFL::toUpper(key) + std::string("=") + KFA::quoteForShell(before[key]) + "  # note\n";
      }
      if (random() % 2 == 0) continue;
      KFAChange change{key, {}, {}, before.count(key) == 0};
      if (random() % 2 == 0) change.value = randomValue(random);
      if (before.count(key) != 0) change.before = before[key];
      changes.push_back(change);
    }
    std::string printed = "\n# FILE x\n";
    for (const KFAChange& change : changes)
      printed += change.toString() + "\n";
    KFAChangeList read(1);
    ASSERT_EQ(KFA::parseChangeList(printed, "list", read), 0) << KFL::getErrorMessage() << printed;
    ASSERT_EQ(read.size(), changes.size()) << printed;
    auto expected = before;
    for (std::size_t i = 0; i < read.size(); ++i) {
      ASSERT_EQ(read[i].toString(), changes[i].toString());
      if (read[i].value)
        expected[read[i].key] = *read[i].value;
      else
        expected.erase(read[i].key);
    }
    std::string after;
    ASSERT_EQ(KFA::applyChanges(rules, read, {true, false}, text, "f", after), 0)
        << KFL::getErrorMessage() << printed;
    ASSERT_EQ(valuesOf(after), expected) << text << printed;
    ASSERT_TRUE(after.starts_with("# a comment\n"));
    for (KFAChange& change : read)
      ASSERT_TRUE(change.reverse());
    ASSERT_EQ(KFA::applyChanges(rules, read, {true, false}, after, "f", after), 0) << KFL::getErrorMessage();
    ASSERT_EQ(valuesOf(after), before) << text << printed;
  }
}

TEST(ChangeListTest, RefusesWhatIsNoChange) {
  KFAChangeList changes;
  for (const char* const text :
       {"rm -rf x", "unset", "unset A B", "A=1 B=2", "A=\"open", "A=1; rm x", "unsetA"})
    EXPECT_TRUE(refused(KFA::parseChangeList(text, "list", changes), "list:1: ")) << text;
  std::string result;
  const KFAChangeList both = {{"a", "1", {}, false}, {"a", {}, {}, false}};
  EXPECT_TRUE(refused(KFA::applyChanges(rules, both, {}, "", "f", result), "set and unset"));
  const KFAChangeList gone = {{"a", {}, {}, false}};
  EXPECT_TRUE(refused(KFA::applyChanges(rules, gone, {}, "B=2\nA=1; id\n", "f", result), "f:2: more than A"));
  EXPECT_EQ(KFA::applyChanges(rules, gone, {}, "B=2\r\nexport A=1 # x\n a='2';\nC=3", "f", result), 0);
  EXPECT_EQ(result, "B=2\r\nC=3");
}

class NodeChangeTest : public testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 40; ++i)
      makeFile(path(i), "N=" + std::to_string(i) + "\n");
  }
  std::string path(int i) const { return folder_ / (std::to_string(i) + ".conf"); }
  std::map<std::string, std::string> contents() const {
    std::map<std::string, std::string> all;
    for (const std::string& name : folder_.names())
      all[name] = contentOf(folder_ / name);
    return all;
  }
  static int edit(const std::string& name, const std::string& before, std::string& after) {
    return KFA::setConfigValues(rules, {{"X", "new"}}, {}, before, name, after);
  }
  // Of the first files, all of them judged.
  KFANodeChange changeOf(int count) const {
    KFANodeChange change(&edit, {});
    for (int i = 0; i < count; ++i)
      change.judge(path(i));
    return change;
  }
  static void inThreads(std::size_t count, const KFANodeChange::Work& work) {
    KFL::runInThreads(count, count, work);
  }

  TemporaryFolder folder_;
};

// A file with a second name is read like any other, and cannot be replaced: the change breaks off in its midst.
TEST_F(NodeChangeTest, AFailureInTheMidstPutsTheOthersBack) {
  fs::create_hard_link(path(20), folder_ / "second");
  const auto before = contents();
  for (const auto& runner : {KFANodeChange::Runner(), KFANodeChange::Runner(&inThreads)}) {
    KFANodeChange change = changeOf(40);
    ASSERT_TRUE(change.isSound());
    EXPECT_TRUE(refused(change.apply(false, runner), "hard links"));
    EXPECT_EQ(contents(), before);
    EXPECT_EQ(change.count(State::Failed), 1U);
    EXPECT_EQ(change.count(State::Restored) + change.count(State::Changed), 39U);
    EXPECT_TRUE(!runner.empty() || change.count(State::Restored) == 20U);
  }
  KFANodeChange change = changeOf(40);
  EXPECT_EQ(change.apply(true), -1);
  EXPECT_EQ(change.count(State::Replaced), 39U);
  EXPECT_EQ(contentOf(path(39)), "N=39\nX=\"new\"\n");
}

TEST_F(NodeChangeTest, AnotherWriterLosesNothing) {
  fs::create_hard_link(path(1), folder_ / "second");
  KFANodeChange change = changeOf(3);
  makeFile(path(2), "N=two\n");
  // Right behind the first replacement somebody changes that file.
  const auto runner = [this](std::size_t count, const KFANodeChange::Work& work) {
    for (std::size_t i = 0; i < count; ++i) {
      work(i);
      if (i == 0) makeFile(path(0), "N=mine\n");
    }
  };
  EXPECT_EQ(change.apply(false, runner), -1);
  EXPECT_EQ(change.getFiles()[0].state, State::NotRestored);
  EXPECT_EQ(contentOf(path(0)), "N=mine\n");
  fs::remove(folder_ / "second");
  KFANodeChange again = changeOf(0);
  again.judge(path(2));
  makeFile(path(2), "N=three\n");
  EXPECT_EQ(again.apply(), 0);
  EXPECT_EQ(contentOf(path(2)), "N=three\nX=\"new\"\n");
}

// Otherwise a backup would keep what only this change has made.
TEST_F(NodeChangeTest, NamesThatLeadToOneFileAreOne) {
  fs::create_symlink("1.conf", path(50));
  fs::create_directory_symlink(folder_.path(), folder_ / "folder");
  KFA::KFAReplaceOptions how;
  how.backupSuffix = ".old";
  KFANodeChange change(&edit, how);
  for (const std::string& name : {path(50), path(1), std::string(folder_ / "folder/1.conf"), path(2)})
    ASSERT_NE(change.judge(name).state, State::Refused);
  EXPECT_EQ(change.apply(), 0);
  EXPECT_EQ(change.count(State::Replaced), 4U);
  EXPECT_EQ(contentOf(path(1) + ".old"), "N=1\n");
  EXPECT_TRUE(fs::is_symlink(path(50)));
  // Each name with an edit of its own; and a file that a backup would replace, in both orders.
  const auto byName = [](const std::string& name, const std::string&, std::string& after) {
    after = name;
    return 0;
  };
  for (const auto& [first, second] :
       {std::pair{path(3), path(51)}, {path(3), path(3) + ".old"}, {path(3) + ".old", path(3)}}) {
    makeFile(path(3) + ".old", "N=old\n");
    fs::remove(path(51));
    fs::create_symlink("3.conf", path(51));
    KFANodeChange other(byName, how);
    other.judge(first);
    EXPECT_EQ(other.judge(second).state, State::Refused) << first << " " << second;
    EXPECT_NE(other.getFiles()[1].error.find("3.conf"), std::string::npos);
  }
}

TEST_F(NodeChangeTest, ANewFileTakesNoOthersPlace) {
  KFANodeChange change = changeOf(0);
  EXPECT_EQ(change.judgeNew(path(1), "").state, State::Refused);
  EXPECT_EQ(change.judgeNew(path(50), "# sample\n").state, State::Changed);
  KFANodeChange one = changeOf(0);
  one.judgeNew(path(50), "# sample\n");
  EXPECT_EQ(one.apply(), 0);
  EXPECT_EQ(contentOf(path(50)), "# sample\nX=\"new\"\n");
  // Nor when it is made after the judging; and what somebody has changed since it was made is not taken back.
  fs::create_hard_link(path(1), folder_ / "second");
  for (const char* const what : {"makes", "changes", "nothing"}) {
    KFANodeChange other = changeOf(0);
    other.judgeNew(path(51), "# sample\n");
    other.judge(path(1));
    const auto runner = [&](std::size_t count, const KFANodeChange::Work& work) {
      if (*what == 'm') makeFile(path(51), "N=mine\n");
      for (std::size_t i = 0; i < count; ++i) {
        work(i);
        if (*what == 'c') makeFile(path(51), "N=mine\n");
      }
    };
    EXPECT_EQ(other.apply(false, runner), -1);
    EXPECT_EQ(contentOf(path(51)), *what == 'n' ? "" : "N=mine\n") << what;
    EXPECT_EQ(fs::remove(path(51)), *what != 'n');
  }
}

// Killed at any call of a change that succeeds or one that breaks off, each file is old or new, and the same change made
// again leaves no temporary file, whether or not it finds anything to change; where it succeeds, it finishes the rest.
TEST_F(NodeChangeTest, IsKilledAtEachCall) {
  for (const bool breaksOff : {false, true}) {
    std::size_t calls = 0;
    std::map<std::string, std::string> after;
    const auto run = [&](std::size_t point, const std::function<void()>& act) {
      KFANodeChange change(&edit, {});
      const KFLSystemFaults faults(KFLSystemFaults::Plan::at(point / 2, point % 2 != 0, act));
      for (int i = 0; i < 2; ++i)
        change.judge(path(i));
      EXPECT_EQ(change.apply() != 0, breaksOff);
      calls = faults.count();
    };
    const auto begin = [&] {
      for (const std::string& name : folder_.names())
        fs::remove(folder_ / name);
      for (int i = 0; i < 2; ++i)
        makeFile(path(i), "N=1\n");
      if (breaksOff) fs::create_hard_link(path(1), folder_ / "second");
    };
    begin();
    run(0, [] {});
    after = contents();
    for (std::size_t point = 0; point < 2 * calls; ++point) {
      SCOPED_TRACE(point);
      begin();
      const auto dying = [&] { return run(point, [] { kill(getpid(), SIGKILL); }), 1; };
      ASSERT_TRUE(WIFSIGNALED(statusOfChild(dying)));
      for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(contentOf(path(i)) == "N=1\n" || contentOf(path(i)) == "N=1\nX=\"new\"\n") << i;
      const std::size_t least = calls;
      run(0, [] {});
      calls = least;
      for (const std::string& name : folder_.names())
        EXPECT_FALSE(name.starts_with('.')) << name;
      EXPECT_TRUE(breaksOff || contents() == after);
      if (HasFailure()) return;
    }
    EXPECT_GT(calls, 30U);
  }
}

}  // namespace
