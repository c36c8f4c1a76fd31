// SPDX-License-Identifier: Apache-2.0
#include "CacheCrew.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstring>
#include <exception>
#include <fstream>
#include <memory>
#include <thread>
#include <type_traits>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCore/KFLCacheFile.h>
#include <KFLCore/KFLCacheSnapshot.h>

namespace cachefaults {

std::uint64_t Random::next() {
  state_ += 0x9E3779B97F4A7C15;
  std::uint64_t mixed = state_;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
  mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
  return mixed ^ (mixed >> 31);
}

std::uint32_t Random::logarithmic(std::uint32_t end) {
  const double exponent = static_cast<double>(next() >> 11) / static_cast<double>(std::uint64_t{1} << 53);
  return static_cast<std::uint32_t>(std::pow(static_cast<double>(end), exponent));
}

std::uint64_t hashOf(std::string_view text) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const char byte : text)
    hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  return hash;
}

static std::string keyOf(std::uint32_t worker, std::uint32_t number) {
  std::string key{static_cast<char>('a' + worker), '.', static_cast<char>('0' + number)};
  if (number + 1 == kKeys) key.resize(255, 'x');
  return key;
}

Changes changesOf(std::uint32_t worker, std::uint64_t seed, std::uint32_t attempt) {
  Random random(seed * 1000003 + worker * 10007 + attempt);
  Changes changes;
  for (std::uint32_t left = random.chance(70) ? 1 : 1 + random.below(6); left > 0; --left) {
    const std::uint32_t number = random.below(kKeys);
    std::optional<std::string> text;
    if (random.chance(75))
      text = std::string(random.logarithmic(random.chance(3) ? 60000 : 900),
                         static_cast<char>('A' + random.below(26))) +
             std::to_string(attempt);
    changes.emplace_back(keyOf(worker, number), std::move(text));
  }
  return changes;
}

Changes templatesOf(const Changes& changes) {
  static const std::string kTypes = "http://kelvarium.internal/webservices/kf";
  Changes templates;
  for (const auto& [key, text] : changes) {
    if (key.size() > 200) continue;
    const std::string id = key + ".application.x86_64.debian-12.1";
    std::optional<std::string> message;
    if (text.has_value())
      message =
          "<template_object xmlns=\"" + kTypes + "a/4.0.0/kfatypes\" xmlns:core=\"" + kTypes +
          "l/4.0.0/types\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"><id>" + id +
          "</id><item xsi:type=\"package_kftemplateType\"><core:name>" + key +
          "</core:name><core:architecture>x86_64</core:architecture><core:version>1</core:version>"
          "<core:os>debian-12</core:os><core:kind>application</core:kind><os_template>false</os_template>"
          "<is_cached>true</is_cached><uptodate>true</uptodate><path>" +
          *text + "</path></item></template_object>";
    templates.emplace_back(id, std::move(message));
  }
  return templates;
}

void Listings::add(std::string_view key, std::string_view text) {
  ++records;
  const std::uint32_t worker = key.size() < 3 ? kWorkers : static_cast<std::uint32_t>(key[0] - 'a');
  const std::uint32_t number = worker < kWorkers ? static_cast<std::uint32_t>(key[2] - '0') : kKeys;
  if (number < kKeys && key.starts_with(keyOf(worker, number)))
    of[worker][number] = hashOf(text);
  else
    ++strangers;
}

const char* nameOf(Verb verb) {
  static constexpr const char* kNames[] = {"open", "create", "close", "change", "hold", "acquire", "release",
                                           "find", "repair", "sync",  "fork",   "duet", "leave"};
  return kNames[static_cast<std::size_t>(verb)];
}

namespace {

using namespace KFL;
using Clock = std::chrono::steady_clock;

// What comes from a worker: a report, or word that it waits at its moment.
constexpr char kAnswers = 'a';
constexpr char kWaits = 'w';

bool readAll(int from, void* to, std::size_t size) {
  for (auto* at = static_cast<char*>(to); size > 0;) {
    const ssize_t got = read(from, at, size);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    at += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}
bool writeAll(int to, const void* from, std::size_t size) {
  for (const auto* at = static_cast<const char*>(from); size > 0;) {
    const ssize_t put = write(to, at, size);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    at += put;
    size -= static_cast<std::size_t>(put);
  }
  return true;
}

static_assert(std::is_trivially_copyable_v<Report>);

Listings listingsOf(const KFLCacheSnapshot& snapshot) {
  Listings items;
  for (std::uint32_t i = 0; i < snapshot.size(); ++i)
    items.add(snapshot.getKey(i), snapshot.getText(i));
  return items;
}

// The other side: what runs in the worker's process.
class Hand {
 public:
  Hand(const Setting& setting, std::uint32_t number, Progress& progress, int orders, int answers)
      : setting_(setting), number_(number), progress_(progress), orders_(orders), answers_(answers) {
    self_ = this;
  }

  [[noreturn]] void run() {
    watchMoments();
    for (Order order; readAll(orders_, &order, sizeof(order));) {
      report_ = {};
      perform(order);
      checkHeld();
      if (!writeAll(answers_, &kAnswers, sizeof(kAnswers)) || !writeAll(answers_, &report_, sizeof(report_)))
        break;
    }
    _exit(0);
  }

 private:
  struct Held {
    KFLCacheSnapshot snapshot;
    Listings items;
    KFLSnapshotHead* bare = nullptr;
    KFLCacheFile::Storage storage;
  };

  static void waitAtMoment() {
    char go = 0;
    if (!writeAll(self_->answers_, &kWaits, sizeof(kWaits)) || !readAll(self_->orders_, &go, 1)) _exit(0);
  }

  // Runs calls into the library with the order's plan, and measures them.
  template <class Calls>
  int measure(const Plan& plan, Calls calls) {
    const auto start = Clock::now();
    int code = 0;
    begin(plan, waitAtMoment);
    try {
      code = calls();
      end();
    } catch (const std::exception& error) {
      end();
      code = -1000;
      report_.fault = std::string("an exception came out: ") + error.what();
    }
    report_.nanoseconds += std::chrono::nanoseconds(Clock::now() - start).count();
    return code;
  }

  void perform(const Order& order) {
    const std::size_t texts = countErrorMessages();
    switch (order.verb) {
      case Verb::Open:
        report_.code = open(order.plan, false);
        break;
      case Verb::Create:
        report_.code = open(order.plan, true);
        break;
      case Verb::Close:
        report_.code = measure(order.plan, [&] { return close(); });
        break;
      case Verb::Change:
        report_.code = change(order);
        break;
      case Verb::Hold:
        hold(order.plan);
        break;
      case Verb::Acquire:
        acquire(order.plan);
        break;
      case Verb::Release:
        release(order);
        break;
      case Verb::Find:
        find(order.plan);
        break;
      case Verb::Repair:
        report_.code = measure(order.plan, [&] { return cache_->repair(report_.isAlone); });
        break;
      case Verb::Sync:
        report_.code = measure(order.plan, [&] { return cache_->sync(); });
        break;
      case Verb::Fork:
        forkChild(order);
        break;
      case Verb::Duet:
        duet(order);
        break;
      case Verb::Leave:
        _exit(0);
    }
    if (report_.code < 0 && order.verb != Verb::Fork && report_.fault.empty() &&
        countErrorMessages() == texts)
      report_.fault = "a code without a text";
  }

  void makeCache() {
    if (cache_ != nullptr) return;
    KFLCacheLimits limits;
    limits.growth = setting_.growth;
    limits.spareRecords = setting_.spareRecords;
    cache_.reset(new KFLCacheFile(setting_.path, limits));
    cache_->setLockTimeout(setting_.lockTimeout);
  }
  int open(const Plan& plan, bool afresh) {
    makeCache();
    const int code = measure(plan, [&] {
      int result = cache_->initialize(true, afresh);
      if (result != 0 && afresh) {
        removeLockedCacheFile(setting_.path, result);
        result = cache_->initialize(true, false);
      }
      return result;
    });
    if (code != 0) close();
    return code;
  }
  int close() {
    for (Held& held : held_)
      if (held.bare != nullptr) cache_->releaseSnapshot(held.bare, held.storage);
    held_.clear();
    cache_.reset();
    return 0;
  }

  int change(const Order& order) {
    int code = 0;
    for (std::uint32_t attempt = order.first; attempt < order.first + order.count && code == 0; ++attempt) {
      KFLCacheChanges changes;
      const Changes plain = changesOf(number_, setting_.seed, attempt);
      for (const auto& [key, text] : setting_.areTemplates ? templatesOf(plain) : plain) {
        if (text.has_value())
          changes.put(key, *text);
        else
          changes.remove(key);
      }
      progress_.started = attempt;
      code = measure(order.plan, [&] {
        const int result = cache_->apply(changes);
        if (result == 0) progress_.committed = attempt;
        return result;
      });
    }
    return code;
  }

  void hold(const Plan& plan) {
    Held held;
    report_.code = measure(plan, [&] { return cache_->hold(held.snapshot); });
    if (report_.code != 0) return;
    if (held.snapshot.size() > 0) {
      const std::int64_t key = offsetInFile(held.snapshot.getKey(0).data());
      report_.held = key < 0 ? -1 : key - 12;
    }
    report_.items = held.items = listingsOf(held.snapshot);
    held_.push_back(std::move(held));
  }
  void acquire(const Plan& plan) {
    Held held;
    report_.code = measure(plan, [&] {
      held.bare = cache_->acquireSnapshot(held.storage);
      return held.bare == nullptr ? kCacheNotLocked : 0;
    });
    if (report_.code != 0) return;
    report_.held = offsetInFile(held.bare);
    held_.push_back(std::move(held));
  }
  void release(const Order& order) {
    if (order.first >= held_.size()) return;
    Held held = std::move(held_[order.first]);
    held_.erase(held_.begin() + static_cast<std::ptrdiff_t>(order.first));
    report_.code = measure(order.plan, [&] {
      if (held.bare != nullptr) return cache_->releaseSnapshot(held.bare, held.storage);
      held.snapshot.release();
      return 0;
    });
  }
  void find(const Plan& plan) {
    KFLCacheSnapshot snapshot;
    report_.code = measure(plan, [&] { return cache_->hold(snapshot); });
    report_.items = listingsOf(snapshot);
    for (std::uint32_t i = 0; i < snapshot.size(); ++i)
      if (snapshot.find(snapshot.getKey(i)) != i) report_.fault = "a key that is there was not found";
  }
  void checkHeld() {
    for (const Held& held : held_)
      if (held.bare == nullptr && listingsOf(held.snapshot) != held.items)
        report_.fault = "a held snapshot changed: " + std::to_string(held.snapshot.size()) +
                        " records instead of " + std::to_string(held.items.records);
  }

  void forkChild(const Order& order) {
    const pid_t child = fork();
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      for (const Held& held : held_)
        if (held.snapshot.size() != 0) _exit(98);
      const int code = change(order);
      _exit(code == 0 ? 0 : code == kCacheNotLocked ? 9 : report_.fault.empty() ? 97 : 96);
    }
    int status = 0;
    waitpid(child, &status, 0);
    report_.died = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    if (report_.died || status == 0) return;
    report_.code = WIFEXITED(status) && WEXITSTATUS(status) == 9 ? kCacheNotLocked : -1001;
    const bool isRefused = order.plan.event == Event::NoMemory && status >> 8 == 97;
    if (report_.code != kCacheNotLocked && !isRefused)
      report_.fault = status >> 8 == 96 ? "an exception came out in a forked child"
                                        : "a forked child ended with " + std::to_string(status);
  }

  void duet(const Order& order) {
    std::atomic<int> second{0};
    std::thread other([&] {
      for (std::uint32_t i = 0; i < order.count && second == 0; ++i)
        second = order.first % 2 == 0 ? repairOnce() : openOnce();
    });
    for (std::uint32_t i = 0; i < order.count && report_.code == 0; ++i) {
      KFLCacheSnapshot snapshot;
      report_.code = measure({}, [&] { return cache_->hold(snapshot); });
      const Listings items = listingsOf(snapshot);
      if (report_.code == 0) report_.code = change({Verb::Change, {}, order.first + i, 1});
      if (listingsOf(snapshot) != items) report_.fault = "a held snapshot changed beside another thread";
    }
    other.join();
    if (report_.code == 0) report_.code = second;
  }
  int repairOnce() {
    bool isAlone = false;
    return cache_->repair(isAlone);
  }
  int openOnce() {
    const boost::intrusive_ptr<KFLCacheFile> another(new KFLCacheFile(setting_.path));
    return another->initialize(true, false);
  }

  static Hand* self_;

  const Setting& setting_;
  const std::uint32_t number_;
  Progress& progress_;
  const int orders_;
  const int answers_;
  boost::intrusive_ptr<KFLCacheFile> cache_;
  std::vector<Held> held_;
  Report report_;
};
Hand* Hand::self_ = nullptr;

}  // namespace

Worker::Worker(const Setting& setting, std::uint32_t number, Progress& progress) {
  int orders[2];
  int answers[2];
  if (pipe(orders) != 0 || pipe(answers) != 0) std::abort();
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::close(orders[1]);
    ::close(answers[0]);
    Hand(setting, number, progress, orders[0], answers[1]).run();
  }
  ::close(orders[0]);
  ::close(answers[1]);
  orders_ = orders[1];
  answers_ = answers[0];
  processHandle_ = static_cast<int>(syscall(SYS_pidfd_open, process_, 0));
}

Worker::~Worker() {
  if (state_ != State::Dead) die();
  ::close(orders_);
  ::close(answers_);
  ::close(processHandle_);
}

void Worker::send(const Order& order) {
  state_ = State::Busy;
  report_ = {};
  writeAll(orders_, &order, sizeof(order));
}

Worker::State Worker::await(std::chrono::milliseconds limit) {
  pollfd sources[] = {{answers_, POLLIN, 0}, {processHandle_, POLLIN, 0}};
  if (poll(sources, 2, static_cast<int>(limit.count())) <= 0) return state_;
  char what = 0;
  const bool isRead = (sources[0].revents & POLLIN) != 0 && readAll(answers_, &what, sizeof(what));
  if (isRead && what == kWaits) return state_ = State::Waiting;
  if (isRead && readAll(answers_, &report_, sizeof(report_))) return state_ = State::Ready;
  bury();
  return state_;
}

std::int64_t Worker::kept() const {
  std::int64_t ran = 0;
  std::int64_t kept = 0;
  std::ifstream("/proc/" + std::to_string(process_) + "/schedstat") >> ran >> kept;
  return kept;
}

void Worker::stop() {
  kill(process_, SIGSTOP);
  siginfo_t info;
  waitid(P_PID, static_cast<id_t>(process_), &info, WSTOPPED | WEXITED | WNOWAIT);
}

void Worker::resume() {
  kill(process_, SIGCONT);
  const char go = 1;
  if (state_ == State::Waiting) writeAll(orders_, &go, 1);
  state_ = State::Busy;
}

void Worker::die() {
  kill(process_, SIGKILL);
  bury();
}

void Worker::bury() {
  waitpid(process_, &status_, 0);
  state_ = State::Dead;
}

}  // namespace cachefaults
