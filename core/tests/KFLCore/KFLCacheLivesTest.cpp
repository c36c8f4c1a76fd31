// SPDX-License-Identifier: Apache-2.0
// What a cache file must survive: see CacheLives.h. KFA_CACHE_KILLS makes the run longer, KFA_CACHE_SEED begins it
// elsewhere, KFA_CACHE_FAULTS is how many failing schedules end it.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CacheCrew.h"
#include "CacheLives.h"
#include "CacheTest.h"
#include "CacheWalk.h"

namespace {

using namespace cachefaults;
using cachetest::Folder;
using cachetest::readFile;

std::uint64_t setting(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

// Runs lives from the first seed on, for as long as `goesOn` says.
template <class Life, class GoesOn>
Totals runLives(Life life, GoesOn goesOn) {
  const Folder folder = Folder::inMemory();
  const std::uint64_t first = setting("KFA_CACHE_SEED", 1);
  Totals totals;
  while (goesOn(totals) && totals.lost < setting("KFA_CACHE_FAULTS", 1)) {
    const std::uint64_t seed = first + totals.tries++;
    const std::string fault = life(seed, folder.path(), totals);
    if (fault.empty()) continue;
    ++totals.lost;
    ADD_FAILURE() << "seed " << seed << "\n" << fault;
  }
  return totals;
}

TEST(CacheFaults, NothingIsLostWhoeverDies) {
  const std::uint64_t kills = setting("KFA_CACHE_KILLS", 0);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(7);
  const Totals totals = runLives(runSchedule, [&](const Totals& now) {
    return kills > 0 ? now.kills < kills : std::chrono::steady_clock::now() < end;
  });
  std::cout << "tries " << totals.tries << " kills " << totals.kills << " waits " << totals.waits
            << " commits " << totals.commits << " lost " << totals.lost << " longest "
            << totals.longestWait / 1000 << " largest_bytes " << totals.largestFile << std::endl;
}

TEST(CacheFaults, DamageWhileOpenGivesCodes) {
  const std::uint64_t damages = setting("KFA_CACHE_DAMAGES", 150);
  const Totals totals = runLives(runDamage, [&](const Totals& now) { return now.tries < damages; });
  std::cout << "damages " << totals.tries << " faults " << totals.lost << " slowest_us " << totals.slowest
            << std::endl;
}

// Lengths of items by their keys; 0 is none.
KFL::KFLCacheChanges changesTo(const std::map<std::string, std::size_t>& lengths) {
  KFL::KFLCacheChanges changes;
  for (const auto& [key, length] : lengths)
    length > 0 ? changes.put(key, std::string(length, 'x')) : changes.remove(key);
  return changes;
}

int change(const std::string& path, const KFL::KFLCacheChanges& changes, const Plan& plan = {}) {
  if (plan.event == Event::Die) watchMoments();
  const cachetest::Cache cache = cachetest::openCache(path);
  begin(plan, nullptr);
  const int code = cache->apply(changes);
  const bool isMet = end() >= plan.at && plan.at > 0;
  return code != 0 ? 2 : isMet ? 1 : 0;
}

// Before each store and call of a change a process dies, and each of its allocations is refused: the change is made or
// not, and all that was there is kept, whole, and takes no more space than before.
TEST(CacheFaults, EachMomentOfAChangeKeepsAll) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer's own memory takes the stores that are counted";
#endif
  const KFL::KFLCacheChanges rows[] = {
      changesTo({{"a", 1500}, {"b", 1500}, {"c", 1500}}),                        // the file grows
      changesTo({{"a", 40}, {"b", 40}, {"c", 1500}, {"d", 1500}, {"e", 1500}}),  // some goes into the gaps
      changesTo({{"1", 90}}),                              // one takes the place of another
      changesTo({{"0", 0}, {"1", 7}, {"3", 0}, {"9", 0}})  // several go
  };
  const Folder folder = Folder::inMemory();
  const std::string path = folder / "cache";
  const auto contents = [&] { return cachetest::contentsOf(*cachetest::openCache(path)); };
  change(path, changesTo({{"0", 60}, {"1", 100}, {"2", 60}, {"3", 100}, {"4", 60}, {"5", 100}, {"6", 1}}));
  change(path, changesTo({{"2", 0}, {"4", 0}}));
  std::string prepared = readFile(path);
  for (std::size_t length = 100; std::filesystem::file_size(path) == prepared.size(); length += 100) {
    prepared = readFile(path);
    change(path, changesTo({{"6", length}}));
  }
  cachetest::writeFile(path, prepared);
  const Contents before = contents();
  std::size_t tries = 0, grown = 0;
  for (const KFL::KFLCacheChanges& row : rows) {
    Contents after = before;
    changeItems(after, row);
    for (const Event event : {Event::Die, Event::NoMemory}) {
      int result = 1;
      for (std::uint32_t at = 1; result != 0 && !HasFailure(); ++at, ++tries) {
        SCOPED_TRACE(row.all()[0].key + (event == Event::Die ? " dies " : " has no memory ") +
                     std::to_string(at));
        cachetest::writeFile(path, prepared);
        result = cachetest::waitFor(cachetest::startChild([&] { return change(path, row, {event, at}); }));
        if (event == Event::NoMemory || result >= 0) {
          EXPECT_EQ(cachetest::lostBytes(path), 0U);
        }
        const Contents now = contents();
        EXPECT_TRUE(now == after || (now == before && result != 0 && result != 1));
        EXPECT_EQ(change(path, row), 0);
        EXPECT_EQ(contents(), after);
        grown += std::filesystem::file_size(path) > prepared.size() ? 1 : 0;
        EXPECT_EQ(cachetest::faultOf(path), "");
        EXPECT_EQ(cachetest::lostBytes(path), 0U);
      }
    }
  }
  EXPECT_GT(tries, 8U);
  EXPECT_GT(grown, 100U);
  std::cout << tries << " moments" << std::endl;
}

// One agent of a file, and what it committed.
class Agent {
 public:
  explicit Agent(const std::string& folder) : path(folder + "/template.cache") {
    setting_ = {path, 5, {.growth = 4096}, std::chrono::milliseconds(50), true};
  }

  int tell(Verb verb, const Plan& plan = {}) {
    if (worker_ == nullptr) worker_ = std::make_unique<Worker>(setting_, 0);
    changes_ = {};
    if (verb == Verb::Change) changes_ = templatesOf(changesOf(0, setting_.seed, ++attempt_));
    return conclude(worker_->perform({verb, plan, verb == Verb::Change ? attempt_ : 0}));
  }
  // Whether it waits at a moment of its last order.
  bool stands() const { return worker_->state() == Worker::State::Waiting; }
  int goOn() {
    worker_->resume();
    return conclude(worker_->await());
  }
  void fill() {
    ASSERT_EQ(tell(Verb::Open), 0);
    for (int i = 0; i < 4; ++i)
      ASSERT_EQ(tell(Verb::Change), 0);
    ASSERT_FALSE(committed.empty());
  }
  void die() { worker_.reset(); }
  // Empty when the file holds together and has all that was committed and is not under a key of the tool.
  std::string missing(Standing standing) const {
    Walk seen = walk(readFile(path), standing);
    std::erase_if(seen.items, [](const auto& item) { return item.first[1] != '.'; });
    return !seen.fault.empty() || seen.items == committed
               ? seen.fault
               : std::to_string(seen.items.size()) + " records instead of " +
                     std::to_string(committed.size());
  }

  const std::string path;
  Contents committed;

 private:
  int conclude(Worker::State state) {
    if (state == Worker::State::Waiting) return 0;
    EXPECT_EQ(state, Worker::State::Ready);
    EXPECT_STREQ(worker_->report().fault.data(), "");
    if (worker_->report().code == 0) changeItems(committed, changes_);
    return worker_->report().code;
  }

  Setting setting_;
  KFL::KFLCacheChanges changes_;
  std::uint32_t attempt_ = 0;
  std::unique_ptr<Worker> worker_;
};

// The command line tool, stopped or killed at any of its calls.
class Tool {
 public:
  // Runs it up to the `at`-th of its calls that lock, write or rename, counted from 1; 0 lets it run.
  Tool(const std::vector<std::string>& arguments, std::uint32_t at) {
    std::vector<char*> words;
    for (const std::string& argument : arguments)
      words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    process_ = cachetest::startChild([&] {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      for (const int stream : {1, 2})
        dup2(open("/dev/null", O_RDWR), stream);
      ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      return execv(words[0], words.data());
    });
    waitpid(process_, &status_, 0);
    ptrace(PTRACE_SETOPTIONS, process_, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    while (at > 0 && stands()) {
      ptrace(PTRACE_SYSCALL, process_, nullptr, nullptr);
      waitpid(process_, &status_, 0);
      __ptrace_syscall_info info{};
      if (!stands() || WSTOPSIG(status_) != (SIGTRAP | 0x80)) continue;
      ptrace(PTRACE_GET_SYSCALL_INFO, process_, sizeof(info), &info);
      at -= info.op == PTRACE_SYSCALL_INFO_ENTRY && isCounted(info.entry.nr) ? 1 : 0;
    }
  }
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;
  ~Tool() {
    die();
    finish();
  }

  // Whether it stands at that call; otherwise it has ended, or was let go.
  bool stands() const { return WIFSTOPPED(status_); }
  void letGo() {
    if (!stands()) return;
    ptrace(PTRACE_DETACH, process_, nullptr, nullptr);
    status_ = kRuns;
  }
  void die() const {
    if (stands() || status_ == kRuns) kill(process_, SIGKILL);
  }
  // Lets it go on, to its end: its exit status, or minus the signal that ended it.
  int finish() {
    letGo();
    if (status_ == kRuns) waitpid(process_, &status_, 0);
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
  }

 private:
  static constexpr int kRuns = -1;

  // Calls that the loader does not make.
  static bool isCounted(std::uint64_t call) {
    static constexpr std::uint64_t kCalls[] = {
        SYS_fcntl,     SYS_ftruncate, SYS_fallocate, SYS_msync,  SYS_fsync, SYS_fdatasync, SYS_rename,
        SYS_renameat2, SYS_unlink,    SYS_unlinkat,  SYS_linkat, SYS_link,  SYS_pwrite64};
    return std::find(std::begin(kCalls), std::end(kCalls), call) != std::end(kCalls);
  }

  pid_t process_;
  int status_ = 0;
};

std::string tool() {
  return setting("KFA_CACHE_TOOL", 1) == 0 ? "" : KFA_BINARY_DIR "/bin/kfactl";
}
std::vector<std::string> command(const std::string& verb, const std::string& path) {
  std::vector<std::string> words{tool(), "cache", verb, path};
  if (verb == "put") words.emplace_back(KFA_SOURCE_DIR "/examples/messages/templateobject.xml");
  if (verb == "remove") words.emplace_back("nobody");
  return words;
}
void setWordOf(const std::string& path, std::uint32_t at, std::uint32_t value) {
  std::string bytes = readFile(path);
  cachetest::setWord(bytes, at, value);
  cachetest::writeFile(path, bytes);
}
class CacheTools : public testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(tool())) GTEST_SKIP() << "kfactl is not built";
  }
};

// The tool repairs a faulty file; at any of its calls an agent finds the same fault, begins anew, and commits.
TEST_F(CacheTools, RepairNeverReplacesWhatAnAgentCommittedMeanwhile) {
  static constexpr std::uint32_t kDamages[][2] = {{52, 0}, {20, 1}, {28, 0}};
  for (const auto& [at, value] : kDamages) {
    bool stands = true;
    for (std::uint32_t call = 1; stands && call < 100; ++call) {
      SCOPED_TRACE("word " + std::to_string(at) + ", call " + std::to_string(call));
      const Folder folder = Folder::inMemory();
      Agent agent(folder.path());
      agent.fill();
      agent.die();
      setWordOf(agent.path, at, value);
      Tool repair(command("repair", agent.path), call);
      stands = repair.stands();
      const bool isAnew = agent.tell(Verb::Create) == 0;
      if (isAnew) agent.committed.clear();
      if (isAnew && !walk(readFile(agent.path), Standing::Survived).items.empty()) continue;
      if (isAnew && agent.tell(Verb::Change) != 0) agent.die();
      EXPECT_GE(repair.finish(), 0);
      if (!isAnew) continue;
      ASSERT_EQ(agent.missing(Standing::Survived), "");
    }
  }
}

// Damage beside the snapshot costs nothing: what succeeds keeps every item, what refuses leaves every item in the file.
TEST_F(CacheTools, WhatTheSnapshotReachesOutlivesDamageBesideIt) {
  static constexpr std::uint32_t kWords[] = {0, 8, 24};
  static constexpr std::uint32_t kValues[] = {0, 1, 8, 0xFFFFFFFF, 0x7FFFFFF8};
  for (const std::uint32_t at : kWords)
    for (const std::uint32_t value : kValues)
      for (const std::string way : {"agent", "put", "repair"}) {
        SCOPED_TRACE("word " + std::to_string(at) + " is " + std::to_string(value) + ", " + way);
        const Folder folder = Folder::inMemory();
        Agent agent(folder.path());
        agent.fill();
        agent.die();
        setWordOf(agent.path, at, value);
        if (way == "agent") {
          const int code = agent.tell(Verb::Open);
          EXPECT_TRUE(code != 0 || agent.tell(Verb::Change) == 0);
        } else {
          Tool(command(way, agent.path), 0).finish();
        }
        EXPECT_EQ(agent.missing(way == "repair" ? Standing::Survived : Standing::Moment), "");
      }
}

// The tool stands, or dies, at any call beside an agent that holds, changes and releases.
TEST_F(CacheTools, NoToolCostsAnAgentItsItems) {
  const std::uint64_t stride = setting("KFA_CACHE_KILLS", 0) > 0 ? 1 : 5;
  std::uint64_t lot = 0;
  for (const std::string verb : {"put", "remove", "repair", "stats", "verify", "list"}) {
    bool stands = true;
    for (std::uint32_t call = 1; stands && call < 200; call += static_cast<std::uint32_t>(stride), ++lot) {
      SCOPED_TRACE(verb + ", call " + std::to_string(call));
      const Folder folder = Folder::inMemory();
      Agent agent(folder.path());
      agent.fill();
      ASSERT_EQ(agent.tell(Verb::Hold), 0);
      Tool other(command(verb, agent.path), call);
      stands = other.stands();
      for (const Verb next : {Verb::Change, Verb::Find}) {
        const int code = agent.tell(next);
        EXPECT_TRUE(code == 0 || (code == -9 && stands)) << code;
      }
      if (lot % 2 == 0) other.die();
      EXPECT_GE(other.finish(), lot % 2 == 0 ? -SIGKILL : 0);
      EXPECT_EQ(agent.tell(Verb::Release), 0);
      EXPECT_EQ(agent.tell(Verb::Change), 0);
      ASSERT_EQ(agent.missing(Standing::Survived), "");
    }
  }
}

// A file of `size` bytes whose heap ends at `end`: blocks of `units`, with a snapshot in the first whose records have one item.
void writeHostile(const std::string& path, std::uintmax_t size, std::uint32_t end, std::uint32_t units) {
  std::string bytes(4 << 20, '\0');
  const auto set = [&](std::size_t at, std::uint32_t value) { cachetest::setWord(bytes, at, value); };
  const std::uint32_t header[] = {0, 1, end, end, 56, 64 - 20, 0, 0xCACEFE03, 56, 256, 0xFF01, 12, 1, 1};
  for (std::size_t i = 0; i < std::size(header); ++i)
    set(4 * i, header[i]);
  for (std::size_t at = 56; at + 8 <= bytes.size(); at += std::size_t{8} * units)
    set(at + 4, std::min<std::uint32_t>(units, static_cast<std::uint32_t>((end - at) / 8)));
  const std::uint32_t records = units < 40 ? 0 : (8 * units - 20) / 260;
  for (std::uint32_t i = 0; i < records && 336 + 260 * i <= bytes.size(); ++i) {
    std::snprintf(&bytes[76 + std::size_t{260} * i], 256, "%08u", i);
    set(332 + std::size_t{260} * i, 64 - (332 + 260 * i));
  }
  if (units > 1) set(68, records);
  if (units > 1) set(72, records);
  cachetest::writeFile(path, bytes);
  std::filesystem::resize_file(path, size);
}

// Whatever a file says of itself, the tool ends soon, with its own word, and within memory of the order of the file.
TEST_F(CacheTools, HostileFilesTakeLittleMemoryAndTime) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a limit on addresses leaves no room for those of a sanitizer";
#endif
  constexpr std::uint32_t kSize = 4 << 20;
  const struct {
    std::uintmax_t size;
    std::uint32_t end, units, megabytes;
  } rows[] = {{kSize, kSize, 1, 400},
              {kSize, kSize, kSize / 8 - 7, 400},
              {kSize, kSize, 2000, 400},
              {kSize, 0x7FFFFFF8, 2000, 400},
              {std::uintmax_t{100} << 30, kSize, 2000, 6000},
              {std::uintmax_t{100} << 30, 0x7FFFFFF8, 0x0FFFFFF8, 6000}};
  const Folder folder = Folder::inMemory();
  const std::string path = folder.path() + "/template.cache";
  for (const auto& row : rows)
    for (const std::string verb : {"list", "verify", "stats", "put", "repair"}) {
      if (row.size > kSize && (verb == "repair" || verb == "put")) continue;  // these take space on disk
      SCOPED_TRACE(verb + " of blocks of " + std::to_string(row.units) + " to " + std::to_string(row.end));
      writeHostile(path, row.size, row.end, row.units);
      std::string line = "ulimit -t 5; ulimit -v " + std::to_string(row.megabytes * 1000) + "; exec";
      for (const std::string& word : command(verb, path))
        line += " " + word;
      const int status = std::system((line + " >/dev/null 2>" + path + ".text").c_str());
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 2) << status;
      EXPECT_EQ(readFile(path + ".text").find("memory"), std::string::npos) << readFile(path + ".text");
    }
}

// A tool that waits in vain for an agent, from any of its calls on, gives up, and that is all. It waits as long as it does
// for people; all of them wait at once.
TEST_F(CacheTools, NoToolGivesUpABusyFile) {
  struct Meeting {
    Meeting(const std::string& verb, std::uint32_t call)
        : name(verb + ", call " + std::to_string(call)), agent(folder.path()) {
      agent.fill();
      tool = std::make_unique<Tool>(command(verb, agent.path), call);
      agent.tell(Verb::Change, {Event::Wait, 20});
      isBusy = agent.stands();
      tool->letGo();
    }
    const std::string name;
    const Folder folder = Folder::inMemory();
    Agent agent;
    std::unique_ptr<Tool> tool;
    bool isBusy = false;
  };
  std::vector<std::unique_ptr<Meeting>> meetings;
  for (const std::string verb : {"put", "remove", "repair"})
    for (std::uint32_t call = 1; call <= 16; ++call)
      meetings.push_back(std::make_unique<Meeting>(verb, call));
  int busy = 0;
  for (const auto& meeting : meetings) {
    SCOPED_TRACE(meeting->name);
    EXPECT_GE(meeting->tool->finish(), 0);
    if (!meeting->isBusy) continue;
    ++busy;
    EXPECT_EQ(meeting->agent.goOn(), 0);
    EXPECT_EQ(meeting->agent.missing(Standing::Survived), "");
  }
  EXPECT_GT(busy, 0);
}

// Readers that die with a snapshot, one after the other, while an agent lives: their space comes back, so that the file is
// about as large as one that nobody else reads.
TEST(CacheFaults, TheSpaceOfTheDeadComesBackWhileOthersLive) {
  const Folder folder = Folder::inMemory();
  const Folder quiet = Folder::inMemory();
  Agent agent(folder.path());
  Agent alone(quiet.path());
  agent.fill();
  alone.fill();
  const std::uint64_t deaths = setting("KFA_CACHE_KILLS", 0) > 0 ? 2000 : 120;
  for (std::uint64_t i = 0; i < deaths; ++i) {
    Agent reader(folder.path());
    for (const Verb verb : {Verb::Open, Verb::Hold})
      ASSERT_EQ(reader.tell(verb), 0);
    ASSERT_EQ(agent.tell(Verb::Change), 0);
    ASSERT_EQ(alone.tell(Verb::Change), 0);
  }
  EXPECT_LE(std::filesystem::file_size(agent.path), 2 * std::filesystem::file_size(alone.path));
  EXPECT_EQ(agent.missing(Standing::Survived), "");
}

}  // namespace
