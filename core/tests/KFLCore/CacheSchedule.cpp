// SPDX-License-Identifier: Apache-2.0
#include "CacheLives.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "CacheCrew.h"
#include "CacheWalk.h"

namespace cachefaults {
namespace {

// What one worker's items may be: the states that its attempts lead to, and which of them may stand in the file.
class Lineage {
 public:
  // The worker is about to make these attempts.
  void expect(std::uint32_t worker, std::uint64_t seed, std::uint32_t count) {
    for (; count > 0; --count, ++next_) {
      Contents items = states_.rbegin()->second;
      changeItems(items, changesOf(worker, seed, next_));
      states_.emplace(next_, std::move(items));
    }
  }
  std::uint32_t next() const { return next_; }
  // The last of these attempts that leads to what the worker's part of the digest says.
  std::optional<std::uint32_t> match(std::uint32_t worker, std::uint32_t first, std::uint32_t last,
                                     const Digest& items) const {
    std::optional<std::uint32_t> found;
    for (auto at = states_.lower_bound(first); at != states_.end() && at->first <= last; ++at)
      if (digestOf(at->second)[worker] == items[worker]) found = at->first;
    return found;
  }
  // Nothing later can be in the file any more.
  void settle(std::uint32_t attempt) { states_.erase(states_.upper_bound(attempt), states_.end()); }

 private:
  std::uint32_t next_ = 1;
  std::map<std::uint32_t, Contents> states_{{0, {}}};
};

struct Fault {
  std::string text;
};

class Schedule {
 public:
  Schedule(std::uint64_t seed, const std::string& folder, Totals& totals)
      : random_(seed),
        totals_(totals),
        crew_(random_.chance(30)   ? 1
              : random_.chance(50) ? 2
                                   : 3 + random_.below(2)),
        standsStill_(random_.chance(40)),
        lacksMemory_(random_.chance(15)),
        isPeaceful_(random_.chance(12)) {
    static constexpr std::uint32_t kGrowth[] = {4096, 8192, 0x10000, 0x1000000};
    setting_ = {folder + "/template.cache", seed};
    setting_.limits = {.growth = kGrowth[random_.below(4)], .spareRecords = random_.chance(20) ? 8U : 0U};
    setting_.lockTimeout = std::chrono::milliseconds(standsStill_ ? 12 : 2000);
    for (std::uint32_t who = 0; who < kWorkers; ++who)
      progressOf(who).started = progressOf(who).committed = 0;
  }

  std::string run() {
    try {
      if (random_.chance(75)) prelude();
      for (std::uint32_t left = 6 + random_.below(20); left > 0; --left)
        step(0);
      finish();
    } catch (const Fault& fault) {
      return steps_.str() + "  => " + fault.text;
    }
    return {};
  }

 private:
  struct Member {
    std::unique_ptr<Worker> worker;
    bool isOpen = false;
    std::vector<std::int64_t> held;  // offsets, -1 where it is not known
    Lineage lineage;
    std::uint32_t settled = 0;                        // the attempt that was last seen in the file
    Order order;                                      // the last
    std::array<std::uint32_t, kWorkers> seenFirst{};  // what was committed when it was given
  };

  static void mustBe(bool holds, const std::string& otherwise) {
    if (!holds) throw Fault{otherwise};
  }
  static std::string at(std::int64_t offset) { return " at " + std::to_string(offset); }
  static std::string nameOfWorker(std::uint32_t who) { return {static_cast<char>('a' + who)}; }
  // What must be in the file, and what may be.
  std::uint32_t first(std::uint32_t who) const {
    return std::max<std::uint32_t>(progressOf(who).committed, members_[who].settled);
  }
  std::uint32_t last(std::uint32_t who) const {
    return std::max<std::uint32_t>(progressOf(who).started, first(who));
  }
  bool isAlive(std::uint32_t who) const { return members_[who].worker != nullptr; }
  bool isIdle(std::uint32_t who) const {
    return !isAlive(who) || members_[who].worker->state() == Worker::State::Ready;
  }

  // A change takes about a hundred, one that grows the file some hundreds.
  std::uint32_t moment() { return random_.chance(50) ? 1 + random_.below(200) : random_.logarithmic(700); }
  void start(std::uint32_t who) {
    if (!isAlive(who)) members_[who].worker = std::make_unique<Worker>(setting_, who);
  }
  // Everybody has the file open, and something is in it.
  void prelude() {
    for (std::uint32_t who = 0; who < crew_; ++who) {
      start(who);
      complete(who, {Verb::Open});
      complete(who, {Verb::Change, {}, 0, 1 + random_.below(4)});
    }
  }

  // The next thing that a worker does.
  Order pick(std::uint32_t who) {
    const Member& member = members_[who];
    if (!member.isOpen) return {random_.chance(70) ? Verb::Open : Verb::Create};
    static constexpr Verb kVerbs[] = {
        Verb::Change, Verb::Change,  Verb::Change,  Verb::Change,  Verb::Hold,    Verb::Hold,
        Verb::Hold,   Verb::Acquire, Verb::Release, Verb::Release, Verb::Release, Verb::Find,
        Verb::Repair, Verb::Close,   Verb::Sync,    Verb::Duet,    Verb::Open};
    Order order{kVerbs[random_.below(std::size(kVerbs))]};
    if (order.verb == Verb::Release && member.held.empty()) order.verb = Verb::Hold;
    if (order.verb == Verb::Release) order.first = random_.below(member.held.size());
    if (order.verb == Verb::Duet) order.count = 2 + random_.below(6);
    if (order.verb == Verb::Duet && standsStill_) order = {Verb::Change};
    return order;
  }

  void give(std::uint32_t who, Order order) {
    Member& member = members_[who];
    if (order.verb == Verb::Change || order.verb == Verb::Duet) {
      order.first = member.lineage.next();
      member.lineage.expect(who, setting_.seed, order.count);
    }
    for (std::uint32_t other = 0; other < kWorkers; ++other)
      member.seenFirst[other] = first(other);
    static constexpr const char* kEvents[] = {"", " dies", " stands", " no memory"};
    steps_ << "  " << nameOfWorker(who) << " " << nameOf(order.verb) << " " << order.first << " x"
           << order.count << kEvents[static_cast<std::size_t>(order.plan.event)] << at(order.plan.at);
    member.order = order;
    member.worker->send(order);
  }

  void step(std::uint32_t depth) {
    const std::uint32_t who = random_.below(crew_);
    if (!isIdle(who)) return;
    start(who);
    const bool isOpen = members_[who].isOpen;
    if (!isPeaceful_ && isOpen && random_.chance(6)) return kill(who, " is killed\n");
    if (!isPeaceful_ && !standsStill_ && random_.chance(10)) return together();
    Order order = pick(who);
    if (order.verb == Verb::Duet) return complete(who, order);
    const std::uint32_t lot = random_.below(100);
    if (!isPeaceful_ && lot < (isOpen ? 35 : 12)) {
      if (isOpen && random_.chance(50)) order = {Verb::Change};
      order.plan = {Event::Die, moment()};
    } else if (lacksMemory_ && lot < 70) {
      order.plan = {Event::NoMemory, random_.logarithmic(40)};
    } else if (!isPeaceful_ && lot < 45) {
      if (order.verb == Verb::Change) order.count = 4;
      give(who, order);
      std::this_thread::sleep_for(std::chrono::microseconds(random_.logarithmic(5000)));
      return kill(who, " killed meanwhile\n");
    } else if (!isPeaceful_ && lot < 75 && standsStill_ && depth < 2) {
      if (random_.chance(80)) order.plan = {Event::Wait, moment()};
      return standStill(who, order, depth);
    }
    complete(who, order);
  }

  void complete(std::uint32_t who, const Order& order) {
    give(who, order);
    conclude(who);
    look();
  }

  void kill(std::uint32_t who, const char* how) {
    steps_ << "  " << nameOfWorker(who) << how;
    isUnsettled_ = isUnsettled_ || !isIdle(who);
    members_[who].worker->die();
    bury(who);
    look();
  }

  // One worker stands still at a moment while others go on; then it goes on as well, or dies there.
  void standStill(std::uint32_t who, const Order& order, std::uint32_t depth) {
    give(who, order);
    Worker& worker = *members_[who].worker;
    if (order.plan.event == Event::None) {
      std::this_thread::sleep_for(std::chrono::microseconds(random_.logarithmic(3000)));
      worker.stop();
    } else if (worker.await() != Worker::State::Waiting) {
      conclude(who);
      return look();
    }
    steps_ << " ...\n";
    ++standing_;
    ++totals_.waits;
    look();
    for (std::uint32_t left = 1 + random_.below(3); left > 0; --left)
      step(depth + 1);
    if (random_.chance(40)) {
      --standing_;
      return kill(who, " dies there\n");
    }
    steps_ << "  " << nameOfWorker(who) << " goes on";
    worker.resume();
    conclude(who);
    --standing_;
    look();
  }

  // All that are there at once, some of which are killed.
  void together() {
    std::vector<std::uint32_t> busy;
    for (std::uint32_t who = 0; who < crew_; ++who) {
      if (!isAlive(who)) continue;
      Order order = pick(who);
      if (order.verb == Verb::Duet) order = {Verb::Change};
      if (order.verb == Verb::Change) order.count = 1 + random_.below(30);
      if (random_.chance(25)) order.plan = {Event::Die, moment()};
      give(who, order);
      steps_ << " &";
      busy.push_back(who);
    }
    const std::uint64_t kills = totals_.kills;
    for (const std::uint32_t who : busy)
      conclude(who);
    // Who died may have done so behind the last one that came to put things right.
    isUnsettled_ = isUnsettled_ || totals_.kills > kills;
    look();
  }

  // Takes the report in, or the death.
  void conclude(std::uint32_t who) {
    Member& member = members_[who];
    if (member.worker->state() == Worker::State::Busy)
      mustBe(member.worker->await() != Worker::State::Busy, "no answer in 20 s");
    if (member.worker->state() != Worker::State::Dead) return takeReport(who, member.worker->report());
    const int status = member.worker->status();
    steps_ << " dead\n";
    mustBe(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL && member.order.plan.event == Event::Die,
           "ended with status " + std::to_string(status));
    isUnsettled_ = true;
    bury(who);
  }

  void takeReport(std::uint32_t who, const Report& report) {
    Member& member = members_[who];
    const Verb verb = member.order.verb;
    const bool isDone = report.code == 0;
    steps_ << " -> " << report.code << "\n";
    mustBe(report.fault[0] == '\0', report.fault.data());
    // A file whose making was cut short is never lost: nothing was in it.
    mustBe(isDone || (member.order.plan.event == Event::NoMemory ? report.code != -1000
                      : report.code == KFL::kCacheNotLocked      ? standing_ > 0
                                                                 : verb == Verb::Open && !isBorn_),
           "gave " + std::to_string(report.code));
    if (standing_ == 0 && member.order.plan.event != Event::Wait)
      totals_.longestWait = std::max(totals_.longestWait, report.nanoseconds);
    const bool opens = verb == Verb::Open || verb == Verb::Create;
    if (verb == Verb::Change || verb == Verb::Duet) member.lineage.settle(first(who));
    if (verb == Verb::Release) member.held.erase(member.held.begin() + member.order.first);
    if (opens || verb == Verb::Close) member.isOpen = opens && isDone;
    if (!member.isOpen) member.held.clear();
    if (!isDone) return;
    isBorn_ = isBorn_ || opens;
    if (verb == Verb::Hold || verb == Verb::Acquire) member.held.push_back(report.held);
    if (verb == Verb::Hold || verb == Verb::Find) judge(who, report.items);
    const bool putsRight = opens || verb == Verb::Change || verb == Verb::Repair;
    isUnsettled_ = isUnsettled_ && (!putsRight || standing_ > 0);
  }

  // What a worker read is a state of each worker's keys between its order and now.
  void judge(std::uint32_t who, const Digest& items) const {
    mustBe(items[kWorkers] == 0, "a key that is read is nobody's");
    for (std::uint32_t other = 0; other < kWorkers; ++other)
      mustBe(members_[other]
                 .lineage.match(other, members_[who].seenFirst[other], last(other), items)
                 .has_value(),
             "what " + nameOfWorker(who) + " reads is no state of the keys of " + nameOfWorker(other));
  }

  void bury(std::uint32_t who) {
    deaths_ = true;
    ++totals_.kills;
    members_[who].worker.reset();
    members_[who].isOpen = false;
    members_[who].held.clear();
  }

  // Walks the file as it is now, and holds it against what was committed.
  void look() {
    if (!isBorn_) return;
    const std::string bytes = cachetest::readFile(setting_.path);
    totals_.largestFile = std::max<std::uint64_t>(totals_.largestFile, bytes.size());
    const bool isMoment = standing_ > 0 || isUnsettled_;
    last_ = walk(bytes, isMoment ? Standing::Moment : deaths_ ? Standing::Survived : Standing::AtRest);
    mustBe(last_.fault.empty(), last_.fault);
    compare(digestOf(last_.items));
    if (!isMoment) checkHeld();
  }

  void compare(const Digest& items) {
    mustBe(items[kWorkers] == 0, "a key is nobody's");
    for (std::uint32_t who = 0; who < kWorkers; ++who) {
      Lineage& lineage = members_[who].lineage;
      const auto found = lineage.match(who, first(who), last(who), items);
      mustBe(found.has_value(),
             "of " + nameOfWorker(who) + "'s commits " + std::to_string(first(who)) + " is not there");
      if (!isIdle(who)) continue;
      lineage.settle(*found);
      members_[who].settled = *found;
    }
  }

  void checkHeld() const {
    std::map<std::int64_t, int> holders{{last_.current, 1}};
    std::size_t most = 1;
    for (const Member& member : members_) {
      most += member.isOpen ? 1 + member.held.size() : 0;
      // A process may count once for all that it holds of one snapshot.
      for (const std::int64_t held : std::set<std::int64_t>(member.held.begin(), member.held.end()))
        if (held >= 0) ++holders[held];
    }
    for (const auto& [offset, count] : holders) {
      const auto found = last_.snapshots.find(offset);
      mustBe(found != last_.snapshots.end() && found->second >= count,
             "a snapshot is held by " + std::to_string(count) + " and gone, or counts less," + at(offset));
    }
    // A process keeps the one that it read last.
    if (!deaths_ && !lacksMemory_) mustBe(last_.snapshots.size() <= most, "nobody has one of the snapshots");
  }

  // Everybody goes, one way or another; who comes then finds all that was committed and can give back all the rest.
  void finish() {
    for (std::uint32_t who = 0; who < crew_; ++who) {
      if (!isAlive(who)) continue;
      if (random_.chance(50))
        kill(who, " is killed\n");
      else if (members_[who].isOpen)
        complete(who, {Verb::Close});
    }
    for (const Member& member : members_)
      totals_.commits += member.settled;
    start(0);
    complete(0, {isBorn_ ? Verb::Open : Verb::Create});
    complete(0, {Verb::Find});
    complete(0, {Verb::Repair});
    mustBe(members_[0].worker->report().isAlone, "repair does not find itself alone");
    complete(0, {Verb::Close});
    mustBe(last_.lost == 0 && last_.snapshots == decltype(last_.snapshots){{last_.current, 1}},
           std::to_string(last_.lost) + " bytes or snapshots do not come back");
  }

  Random random_;
  Totals& totals_;
  Setting setting_;
  const std::uint32_t crew_;
  std::array<Member, kWorkers> members_;
  const bool standsStill_;      // whether workers may stand still in this schedule
  const bool lacksMemory_;      // whether allocations fail in it
  const bool isPeaceful_;       // nobody dies before its end
  std::uint32_t standing_ = 0;  // how many do
  bool isBorn_ = false;         // somebody has opened the file
  bool isUnsettled_ = false;    // somebody died in the middle of something, and nobody came behind
  bool deaths_ = false;
  Walk last_;
  std::ostringstream steps_;
};

}  // namespace

std::string runSchedule(std::uint64_t seed, const std::string& folder, Totals& totals) {
  std::string fault = Schedule(seed, folder, totals).run();
  std::filesystem::remove(folder + "/template.cache");
  return fault;
}

}  // namespace cachefaults
