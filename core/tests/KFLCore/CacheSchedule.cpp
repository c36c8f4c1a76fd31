// SPDX-License-Identifier: Apache-2.0
#include "CacheSchedule.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "CacheCrew.h"
#include "CacheTest.h"
#include "CacheWalk.h"

namespace cachefaults {
namespace {

constexpr std::int64_t kLongestWait = 1'000'000'000;
constexpr int kNotLocked = -9;

// What one worker's keys may be: the states that its attempts lead to, and which of them may stand in the file.
class Lineage {
 public:
  // The worker is about to make these attempts.
  void expect(std::uint32_t worker, std::uint64_t seed, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t attempt = next_ + i;
      Listing state = states_.rbegin()->second;
      for (const auto& [key, text] : changesOf(worker, seed, attempt))
        state[numberOf(key)] = text.has_value() ? hashOf(*text) : 0;
      states_.emplace(attempt, std::move(state));
    }
    next_ += count;
  }
  std::uint32_t next() const { return next_; }

  bool holds(std::uint32_t first, std::uint32_t last, const Listing& items) const {
    return std::any_of(states_.lower_bound(first), states_.upper_bound(last),
                       [&](const auto& state) { return state.second == items; });
  }
  // The last attempt up to `last` that leads to these items.
  std::optional<std::uint32_t> match(std::uint32_t first, std::uint32_t last, const Listing& items) const {
    std::optional<std::uint32_t> found;
    for (auto at = states_.lower_bound(first); at != states_.end() && at->first <= last; ++at)
      if (at->second == items) found = at->first;
    return found;
  }
  // Nothing later can be in the file any more.
  void settle(std::uint32_t attempt) { states_.erase(states_.upper_bound(attempt), states_.end()); }

 private:
  std::uint32_t next_ = 1;
  std::map<std::uint32_t, Listing> states_{{0, {}}};
};

struct Fault {
  std::string text;
};

class Schedule {
 public:
  Schedule(std::uint64_t seed, const std::string& folder, Totals& totals)
      : random_(seed), totals_(totals), path_(folder + "/template.cache") {
    static constexpr std::uint32_t kGrowth[] = {4096, 8192, 0x10000, 0x1000000};
    void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    shared_ = new (memory) Shared();
    standsStill_ = random_.chance(40);
    lacksMemory_ = random_.chance(15);
    isPeaceful_ = random_.chance(12);
    setting_ = {path_, seed, kGrowth[random_.below(4)], random_.chance(20) ? 8U : 0U,
                std::chrono::milliseconds(standsStill_ ? 12 : 8000)};
    crew_ = random_.chance(30) ? 1 : random_.chance(50) ? 2 : 3 + random_.below(2);
  }
  ~Schedule() {
    for (Member& member : members_)
      member.worker.reset();
    munmap(shared_, sizeof(Shared));
  }

  std::string run() {
    try {
      if (!isPeaceful_ && random_.chance(35))
        oneDeath();
      else
        randomLife();
      finish();
    } catch (const Fault& fault) {
      return steps_.str() + "  => " + fault.text;
    }
    return {};
  }

 private:
  struct Shared {
    std::array<Progress, kWorkers> progress{};
  };
  struct Member {
    std::unique_ptr<Worker> worker;
    bool isOpen = false;
    std::vector<std::int64_t> held;  // offsets, -1 where it is not known
    std::int64_t kept = 0;           // what it read last, likewise
    Lineage lineage;
    Order order;                                      // the last
    std::array<std::uint32_t, kWorkers> seenFirst{};  // what was committed when it was given
  };

  [[noreturn]] void fail(const std::string& text) { throw Fault{text}; }
  std::uint32_t committed(std::uint32_t who) const { return shared_->progress[who].committed; }
  std::uint32_t started(std::uint32_t who) const { return shared_->progress[who].started; }
  bool isIdle(std::uint32_t who) const {
    const Member& member = members_[who];
    return member.worker == nullptr || member.worker->state() == Worker::State::Ready;
  }
  bool isAlive(std::uint32_t who) const { return members_[who].worker != nullptr; }
  bool somebodyStands() const { return standing_ > 0; }

  void start(std::uint32_t who) {
    if (!isAlive(who)) members_[who].worker = std::make_unique<Worker>(setting_, who, shared_->progress[who]);
  }
  // Everybody has the file open, and something is in it.
  void prelude() {
    for (std::uint32_t who = 0; who < crew_; ++who) {
      start(who);
      complete(who, {Verb::Open, {}, 0, 1});
      complete(who, {Verb::Change, {}, 0, 1 + random_.below(4)});
    }
  }

  void randomLife() {
    if (random_.chance(75)) prelude();
    for (std::uint32_t left = 6 + random_.below(20); left > 0; --left)
      step(0);
  }
  // The shortest life that can go wrong: one holds what it has, another dies, and the one that is left does one thing.
  void oneDeath() {
    static constexpr Verb kDeaths[] = {Verb::Change,  Verb::Change, Verb::Repair,
                                       Verb::Release, Verb::Hold,   Verb::Open};
    static constexpr Verb kNext[] = {Verb::Release, Verb::Close, Verb::Change,
                                     Verb::Repair,  Verb::Find,  Verb::Open};
    crew_ = 2;
    prelude();
    complete(0, {Verb::Hold, {}, 0, 1});
    complete(1, {Verb::Change, {}, 0, 1});
    if (random_.chance(50)) complete(1, {Verb::Hold, {}, 0, 1});
    Order death{kDeaths[random_.below(std::size(kDeaths))], {Event::Die, 1 + random_.below(400)}, 0, 1};
    if (death.verb == Verb::Release && members_[1].held.empty()) death.verb = Verb::Change;
    complete(1, death);
    if (isAlive(1)) killIdle(1);
    Verb next = kNext[random_.below(std::size(kNext))];
    complete(0, {next == Verb::Open ? Verb::Find : next, {}, 0, 1});
    if (next != Verb::Open) return;
    start(1);
    complete(1, {Verb::Open, {}, 0, 1});
    complete(0, {Verb::Release, {}, 0, 1});
  }

  // The next thing that a worker does.
  Order pick(std::uint32_t who) {
    Member& member = members_[who];
    if (!member.isOpen) return {random_.chance(70) ? Verb::Open : Verb::Create, {}, 0, 1};
    static constexpr Verb kVerbs[] = {
        Verb::Change,  Verb::Change,  Verb::Change,  Verb::Change,  Verb::Hold, Verb::Hold,   Verb::Hold,
        Verb::Acquire, Verb::Release, Verb::Release, Verb::Release, Verb::Find, Verb::Repair, Verb::Fork,
        Verb::Close,   Verb::Sync,    Verb::Leave,   Verb::Duet,    Verb::Open};
    Order order{kVerbs[random_.below(std::size(kVerbs))], {}, 0, 1};
    if (order.verb == Verb::Release) {
      if (member.held.empty())
        order.verb = Verb::Hold;
      else
        order.first = random_.below(static_cast<std::uint32_t>(member.held.size()));
    }
    if (order.verb == Verb::Duet && standsStill_) order.verb = Verb::Change;
    if (isPeaceful_ && (order.verb == Verb::Fork || order.verb == Verb::Leave)) order.verb = Verb::Find;
    return order;
  }

  void give(std::uint32_t who, Order order) {
    Member& member = members_[who];
    if (order.verb == Verb::Change || order.verb == Verb::Fork || order.verb == Verb::Duet) {
      order.first = member.lineage.next();
      member.lineage.expect(who, setting_.seed, order.count);
    }
    for (std::uint32_t other = 0; other < kWorkers; ++other)
      member.seenFirst[other] = std::max(committed(other), settled_[other]);
    steps_ << "  " << static_cast<char>('a' + who) << " " << nameOf(order.verb);
    if (order.verb == Verb::Release) steps_ << " " << order.first;
    if (order.count > 1) steps_ << " x" << order.count;
    static constexpr const char* kEvents[] = {"", " dies at ", " stands at ", " no memory at "};
    steps_ << kEvents[static_cast<std::size_t>(order.plan.event)];
    if (order.plan.event != Event::None) steps_ << order.plan.at;
    member.order = order;
    member.worker->send(order);
  }

  void step(std::uint32_t depth) {
    const std::uint32_t who = random_.below(crew_);
    if (!isIdle(who)) return;
    start(who);
    if (isPeaceful_) {
      Order order = pick(who);
      const bool lacks = lacksMemory_ && order.verb != Verb::Duet && random_.chance(40);
      if (lacks) order.plan = {Event::NoMemory, random_.logarithmic(40)};
      return complete(who, order);
    }
    if (members_[who].isOpen && random_.chance(6)) return killIdle(who);
    if (!standsStill_ && random_.chance(10)) return together();
    Order order = pick(who);
    const std::uint32_t lot = random_.below(100);
    if (order.verb == Verb::Duet || order.verb == Verb::Leave) {
      order.count = order.verb == Verb::Duet ? 2 + random_.below(6) : 1;
      return complete(who, order);
    }
    if (lot < (members_[who].isOpen ? 35 : 12))
      order.plan = {Event::Die, random_.logarithmic(700)};
    else if (lot < 50 && lacksMemory_)
      order.plan = {Event::NoMemory, random_.logarithmic(40)};
    else if (lot < 45 && order.verb != Verb::Fork)
      return killInTime(who, order);
    else if (lot < 75 && standsStill_ && depth < 2) {
      if (order.verb == Verb::Fork || random_.chance(80))
        order.plan = {Event::Wait, random_.logarithmic(700)};
      return standStill(who, order, depth);
    }
    complete(who, order);
  }

  void complete(std::uint32_t who, const Order& order) {
    const std::uint32_t current = last_.current;
    give(who, order);
    conclude(who);
    look();
    std::int64_t& kept = members_[who].kept;
    if (order.verb == Verb::Hold || order.verb == Verb::Find)
      kept = current;
    else if (order.verb == Verb::Change)
      kept = kept == last_.current ? kept : 0;
    else if (order.verb != Verb::Acquire && order.verb != Verb::Sync && order.verb != Verb::Release)
      kept = order.verb == Verb::Duet ? -1 : 0;
    if (isPeaceful_ && !lacksMemory_ && !deaths_) checkFormer();
  }

  // Nobody died, so no snapshot is there but the current one and those that are held, or were read last by a process.
  void checkFormer() {
    std::set<std::int64_t> known{last_.current};
    for (const Member& member : members_) {
      known.insert(member.kept);
      known.insert(member.held.begin(), member.held.end());
    }
    for (const auto& [offset, count] : last_.snapshots)
      if (known.count(offset) == 0 && known.count(-1) == 0)
        fail("nobody has the snapshot at " + std::to_string(offset));
  }

  void killIdle(std::uint32_t who) {
    steps_ << "  " << static_cast<char>('a' + who) << " is killed\n";
    members_[who].worker->die();
    bury(who);
    look();
  }

  void killInTime(std::uint32_t who, Order order) {
    order.count = order.verb == Verb::Change ? 4 : 1;
    give(who, order);
    std::this_thread::sleep_for(std::chrono::microseconds(random_.logarithmic(5000)));
    steps_ << " killed meanwhile\n";
    members_[who].worker->die();
    isUnsettled_ = true;
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
    steps_ << (order.plan.event == Event::None ? " is stopped ...\n" : " ...\n");
    ++standing_;
    ++totals_.waits;
    look();
    for (std::uint32_t left = 1 + random_.below(3); left > 0; --left)
      step(depth + 1);
    const bool dies = random_.chance(40);
    steps_ << "  " << static_cast<char>('a' + who) << (dies ? " dies there\n" : " goes on");
    if (dies) {
      worker.die();
      --standing_;
      isUnsettled_ = true;
      bury(who);
    } else {
      worker.resume();
      conclude(who);
      --standing_;
    }
    look();
  }

  // All that are there at once, some of which are killed.
  void together() {
    std::vector<std::uint32_t> busy;
    for (std::uint32_t who = 0; who < crew_; ++who) {
      if (!isAlive(who)) continue;
      Order order = pick(who);
      if (order.verb == Verb::Duet || order.verb == Verb::Leave) order.verb = Verb::Change;
      if (order.verb == Verb::Change) order.count = 1 + random_.below(30);
      if (random_.chance(25)) order.plan = {Event::Die, random_.logarithmic(700)};
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
    if (member.worker->state() == Worker::State::Busy && member.worker->await() == Worker::State::Busy)
      fail("no answer in 20 s");
    if (member.worker->state() == Worker::State::Dead) {
      const int status = member.worker->status();
      const bool isMeant =
          (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL && member.order.plan.event == Event::Die) ||
          (member.order.verb == Verb::Leave && status == 0);
      steps_ << " dead\n";
      if (!isMeant) fail("ended with status " + std::to_string(status));
      isUnsettled_ = isUnsettled_ || member.order.verb != Verb::Leave;
      return bury(who);
    }
    takeReport(who, member.worker->report());
  }

  void takeReport(std::uint32_t who, const Report& report) {
    Member& member = members_[who];
    const Verb verb = member.order.verb;
    steps_ << " -> " << report.code << (report.died ? ", the child died" : "") << "\n";
    if (!report.fault.empty()) fail(report.fault.str());
    if (!isAllowed(verb, member.order.plan, report.code))
      fail(std::string(nameOf(verb)) + " gave " + std::to_string(report.code));
    if (!somebodyStands() && member.order.plan.event != Event::Wait) {
      totals_.longestWait = std::max(totals_.longestWait, report.nanoseconds);
      if (!standsStill_ && member.order.count == 1 && verb != Verb::Duet &&
          report.nanoseconds > kLongestWait && report.nanoseconds - kept() > kLongestWait)
        fail("waited " + std::to_string(report.nanoseconds / 1000000) + " ms");
    }
    if (verb == Verb::Hold || verb == Verb::Find) judge(who, report);
    if (report.died) died();
    if (report.died) isUnsettled_ = true;
    if (verb == Verb::Fork && report.code == 0) deaths_ = true;
    settleMember(who, report);
  }

  // What other programs on the machine may have cost a wait.
  std::int64_t kept() const {
    std::int64_t all = 0;
    for (const Member& member : members_)
      all += member.worker == nullptr ? 0 : member.worker->kept();
    return all;
  }

  void settleMember(std::uint32_t who, const Report& report) {
    Member& member = members_[who];
    switch (member.order.verb) {
      case Verb::Open:
      case Verb::Create:
        member.isOpen = report.code == 0;
        if (!member.isOpen) member.held.clear();
        isBorn_ = isBorn_ || report.code == 0;
        break;
      case Verb::Close:
        member.isOpen = false;
        member.held.clear();
        break;
      case Verb::Hold:
      case Verb::Acquire:
        if (report.code == 0) member.held.push_back(report.held);
        break;
      case Verb::Release:
        member.held.erase(member.held.begin() + member.order.first);
        break;
      case Verb::Change:
      case Verb::Fork:
      case Verb::Duet:
        if (!report.died) member.lineage.settle(std::max(committed(who), settled_[who]));
        break;
      default:
        break;
    }
    if (report.code == 0 && isChanging(member.order.verb) && !report.died && !somebodyStands())
      isUnsettled_ = false;
  }
  static bool isChanging(Verb verb) {
    return verb == Verb::Change || verb == Verb::Repair || verb == Verb::Open || verb == Verb::Create;
  }

  bool isAllowed(Verb verb, const Plan& plan, int code) const {
    if (code == 0) return true;
    if (plan.event == Event::NoMemory) return code != -1000;
    if (code == kNotLocked) return somebodyStands();
    // A file whose making was cut short is never lost: nothing was in it.
    return verb == Verb::Open && !isBorn_;
  }

  // What a worker read is a state of each worker's keys between its order and now.
  void judge(std::uint32_t who, const Report& report) {
    if (report.code != 0) return;
    if (report.items.strangers > 0) fail("a key that is read is nobody's");
    for (std::uint32_t other = 0; other < kWorkers; ++other) {
      const std::uint32_t first = members_[who].seenFirst[other];
      if (!members_[other].lineage.holds(first, std::max(first, started(other)), report.items.of[other]))
        fail("what " + std::string(1, static_cast<char>('a' + who)) + " reads is no state of the keys of " +
             static_cast<char>('a' + other));
    }
  }

  void died() {
    deaths_ = true;
    ++totals_.kills;
  }
  void bury(std::uint32_t who) {
    Member& member = members_[who];
    died();
    member.worker.reset();
    member.isOpen = false;
    member.held.clear();
  }

  // Walks the file as it is now, and holds it against what was committed.
  void look() {
    if (!isBorn_) return;
    const std::string bytes = cachetest::readFile(path_);
    totals_.largestFile = std::max<std::uint64_t>(totals_.largestFile, bytes.size());
    const bool isMoment = somebodyStands() || isUnsettled_;
    const Walk seen = walk(bytes, isMoment  ? Standing::Moment
                                  : deaths_ ? Standing::Survived
                                            : Standing::AtRest);
    if (!seen.fault.empty()) fail(seen.fault);
    compare(seen);
    if (!isMoment) checkHeld(seen);
    last_ = seen;
  }

  void compare(const Walk& seen) {
    Listings items;
    for (const auto& [key, text] : seen.items)
      items.add(key, text);
    if (items.strangers > 0) fail("a key is nobody's");
    for (std::uint32_t who = 0; who < kWorkers; ++who) {
      const std::uint32_t first = std::max(committed(who), settled_[who]);
      Lineage& lineage = members_[who].lineage;
      const auto found = lineage.match(first, std::max(first, started(who)), items.of[who]);
      if (!found.has_value())
        fail("of " + std::string(1, static_cast<char>('a' + who)) + "'s commits " + std::to_string(first) +
             " is not there: " + std::to_string(seen.items.size()) + " records in all");
      if (isIdle(who)) lineage.settle(*found);
      if (isIdle(who)) settled_[who] = *found;
    }
  }

  void checkHeld(const Walk& seen) {
    std::map<std::uint32_t, std::int32_t> holders{{seen.current, 1}};
    // A process may count once for all that it holds of one snapshot.
    for (const Member& member : members_)
      for (const std::int64_t held : std::set<std::int64_t>(member.held.begin(), member.held.end()))
        if (held >= 0) ++holders[static_cast<std::uint32_t>(held)];
    for (const auto& [offset, count] : holders) {
      const auto found = seen.snapshots.find(offset);
      if (found == seen.snapshots.end())
        fail("the snapshot at " + std::to_string(offset) + " is held and gone");
      if (found->second < count)
        fail("the snapshot at " + std::to_string(offset) + " counts " + std::to_string(found->second) +
             " of " + std::to_string(count));
    }
  }

  // Everybody goes, one way or another; who comes then finds all that was committed and can give back all the rest.
  void finish() {
    for (std::uint32_t who = 0; who < crew_; ++who) {
      if (!isAlive(who)) continue;
      if (random_.chance(50))
        killIdle(who);
      else if (members_[who].isOpen)
        complete(who, {Verb::Close, {}, 0, 1});
    }
    for (std::uint32_t who = 0; who < kWorkers; ++who)
      totals_.commits += settled_[who];
    start(0);
    standsStill_ = false;
    complete(0, {isBorn_ ? Verb::Open : Verb::Create, {}, 0, 1});
    complete(0, {Verb::Find, {}, 0, 1});
    complete(0, {Verb::Repair, {}, 0, 1});
    if (!members_[0].worker->report().isAlone) fail("repair does not find itself alone");
    complete(0, {Verb::Close, {}, 0, 1});
    if (last_.lost > 0 || last_.snapshots != std::map<std::uint32_t, std::int32_t>{{last_.current, 1}})
      fail(std::to_string(last_.lost) + " bytes and " + std::to_string(last_.snapshots.size() - 1) +
           " snapshots do not come back");
  }

  Random random_;
  Totals& totals_;
  const std::string path_;
  Shared* shared_ = nullptr;
  Setting setting_;
  std::uint32_t crew_ = 1;
  std::array<Member, kWorkers> members_;
  std::array<std::uint32_t, kWorkers> settled_{};  // the attempt that was last seen in the file
  bool standsStill_ = false;                       // whether workers may stand still in this schedule
  bool lacksMemory_ = false;                       // whether allocations fail in it
  bool isPeaceful_ = false;                        // nobody dies before its end
  std::uint32_t standing_ = 0;                     // how many do
  bool isBorn_ = false;                            // somebody has opened the file
  bool isUnsettled_ = false;  // somebody died in the middle of something, and nobody came behind
  bool deaths_ = false;
  Walk last_;
  std::ostringstream steps_;
};

}  // namespace

std::string runSchedule(std::uint64_t seed, const std::string& folder, Totals& totals) {
  ++totals.tries;
  std::string result = Schedule(seed, folder, totals).run();
  if (!result.empty()) ++totals.lost;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    std::filesystem::remove_all(entry.path());
  return result.empty() ? result : "seed " + std::to_string(seed) + "\n" + result;
}

}  // namespace cachefaults
