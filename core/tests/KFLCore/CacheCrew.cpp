// SPDX-License-Identifier: Apache-2.0
#include "CacheCrew.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <exception>
#include <functional>
#include <thread>
#include <type_traits>
#include <vector>

#include <KFLCommon/KFLLog.h>

namespace cachefaults {

std::uint32_t Random::logarithmic(std::uint32_t end) {
  return static_cast<std::uint32_t>(std::pow(end, below(1U << 30) / static_cast<double>(1U << 30)));
}

Digest digestOf(const Contents& items) {
  Digest digest{};
  for (const auto& [key, text] : items) {
    const std::size_t worker =
        key.size() > 2 && key[1] == '.' ? static_cast<std::size_t>(key[0] - 'a') : kWorkers;
    digest[std::min<std::size_t>(worker, kWorkers)] += std::hash<std::string>()(key + "=" + text);
  }
  return digest;
}

KFL::KFLCacheChanges changesOf(std::uint32_t worker, std::uint64_t seed, std::uint32_t attempt) {
  Random random(seed * 1000003 + std::uint64_t{worker} * 10007 + attempt);
  KFL::KFLCacheChanges changes;
  for (std::uint32_t left = random.chance(70) ? 1 : 1 + random.below(6); left > 0; --left) {
    std::string key{static_cast<char>('a' + worker), '.', static_cast<char>('0' + random.below(7))};
    if (key[2] == '6') key.resize(255, 'x');
    const std::size_t length = random.logarithmic(random.chance(3) ? 60000 : 900);
    if (random.chance(75))
      changes.put(key,
                  std::string(length, static_cast<char>('A' + random.below(26))) + std::to_string(attempt));
    else
      changes.remove(key);
  }
  return changes;
}

KFL::KFLCacheChanges templatesOf(const KFL::KFLCacheChanges& changes) {
  static const std::string kExample =
      cachetest::readFile(KFA_SOURCE_DIR "/examples/messages/templateobject.xml");
  KFL::KFLCacheChanges templates;
  for (const auto& [key, text] : changes.all()) {
    std::string message = kExample;
    for (std::size_t at; key.size() < 200 && (at = message.find("nginx")) != std::string::npos;)
      message.replace(at, 5, key);
    const std::size_t id = message.find("<id>") + 4;
    const std::string name = message.substr(id, message.find("</id>") - id);
    if (key.size() < 200 && !text) templates.remove(name);
    if (key.size() < 200 && text) templates.put(name, message.insert(message.find("<path>") + 6, *text));
  }
  return templates;
}

void changeItems(Contents& items, const KFL::KFLCacheChanges& changes) {
  for (const auto& [key, text] : changes.all())
    if (text)
      items[key] = *text;
    else
      items.erase(key);
}

Progress& progressOf(std::uint32_t worker) {
  static auto* const all = static_cast<Progress*>(
      mmap(nullptr, kWorkers * sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  return all[worker];
}

namespace {

using namespace KFL;
using Clock = std::chrono::steady_clock;

static_assert(std::is_trivially_copyable_v<Report> && std::is_trivially_copyable_v<Order>);

// The other side: what runs in the worker's process.
class Hand {
 public:
  Hand(const Setting& setting, std::uint32_t number, int line)
      : setting_(setting), number_(number), line_(line) {
    self_ = this;
  }

  [[noreturn]] void run();
  int open();
  int close();
  int change();
  int hold();
  int acquire();
  int release();
  int find();
  int repair() {
    return measure([&] { return cache_->repair(report_.isAlone); });
  }
  int sync() {
    return measure([&] { return cache_->sync(); });
  }
  int duet();

 private:
  struct Held {
    KFLCacheSnapshot snapshot;
    Digest items{};
    KFLSnapshotHead* bare = nullptr;
    KFLCacheFile::Storage storage;
  };

  static void waitAtMoment() {
    Report word;
    word.waits = true;
    word.accessed = accessed();
    ::send(self_->line_, &word, sizeof(word), MSG_NOSIGNAL);
    Order go;
    if (recv(self_->line_, &go, sizeof(go), 0) <= 0) _exit(0);
  }
  void blame(const std::string& fault) {
    if (report_.fault[0] == '\0') fault.copy(report_.fault.data(), report_.fault.size() - 1);
  }

  void mustBe(bool holds, const char* fault) {
    if (!holds && !setting_.isDamaged) blame(fault);
  }

  // Runs calls into the library with the order's plan, and measures them.
  template <class Calls>
  int measure(Calls calls) {
    const auto start = Clock::now();
    int code = -1000;
    begin(order_.plan, waitAtMoment);
    try {
      code = calls();
      end();
    } catch (const std::exception& error) {
      end();
      blame(std::string("an exception came out: ") + error.what());
    }
    report_.nanoseconds += std::chrono::nanoseconds(Clock::now() - start).count();
    return code;
  }

  // Every byte that a snapshot shows must be there, and every key is found.
  Digest read(const KFLCacheSnapshot& snapshot) {
    Contents items;
    for (std::uint32_t i = 0; i < snapshot.size() && (i < 100 || !setting_.isDamaged); ++i) {
      const std::string_view text = snapshot.getText(i);
      const std::size_t skipped = setting_.isDamaged && text.size() > 64 ? text.size() - 64 : 0;
      items.emplace(snapshot.getKey(i), text.substr(skipped));
      mustBe(snapshot.find(snapshot.getKey(i)) == i, "a key that is there was not found");
    }
    mustBe(items.size() == snapshot.size(), "a key stands twice");
    return digestOf(items);
  }
  void checkHeld() {
    for (const Held& held : held_)
      if (held.bare == nullptr) mustBe(read(held.snapshot) == held.items, "a held snapshot changed");
  }
  int drop() {
    for (Held& held : held_)
      if (held.bare != nullptr) cache_->releaseSnapshot(held.bare, held.storage);
    held_.clear();
    cache_.reset();
    return 0;
  }

  static Hand* self_;

  const Setting& setting_;
  const std::uint32_t number_;
  const int line_;
  cachetest::Cache cache_;
  std::vector<Held> held_;
  Order order_;
  Report report_;
};
Hand* Hand::self_ = nullptr;

// In the order of the verbs.
constexpr struct {
  const char* name;
  int (Hand::*run)();
} kVerbs[] = {{"open", &Hand::open},       {"create", &Hand::open}, {"close", &Hand::close},
              {"change", &Hand::change},   {"hold", &Hand::hold},   {"acquire", &Hand::acquire},
              {"release", &Hand::release}, {"find", &Hand::find},   {"repair", &Hand::repair},
              {"sync", &Hand::sync},       {"duet", &Hand::duet}};

void Hand::run() {
  watchMoments();
  if (setting_.isDamaged) setLogLevel(kLogFatal);
  while (recv(line_, &order_, sizeof(order_), 0) > 0) {
    report_ = {};
    const std::size_t texts = countErrorMessages();
    const std::clock_t start = std::clock();
    const auto run = kVerbs[static_cast<std::size_t>(order_.verb)].run;
    report_.code = (this->*run)();
    report_.processor = (std::clock() - start) * 1000000 / CLOCKS_PER_SEC;
    if (report_.code < 0 && countErrorMessages() == texts) blame("a code without a text");
    checkHeld();
    if (::send(line_, &report_, sizeof(report_), MSG_NOSIGNAL) <= 0) break;
  }
  _exit(0);
}

int Hand::open() {
  if (cache_ == nullptr) cache_ = cachetest::makeCache(setting_.path, setting_.limits);
  cache_->setLockTimeout(setting_.lockTimeout);
  const bool isAfresh = order_.verb == Verb::Create;
  const int code = measure([&] {
    const int result = cache_->initialize(true, isAfresh);
    if (result == 0 || !isAfresh) return result;
    removeLockedCacheFile(setting_.path, result);
    return cache_->initialize(true, false);
  });
  return code == 0 ? 0 : drop() + code;
}
int Hand::close() {
  return measure([&] { return drop(); });
}

int Hand::change() {
  int code = 0;
  for (std::uint32_t attempt = order_.first; attempt < order_.first + order_.count && code == 0; ++attempt) {
    KFLCacheChanges changes = changesOf(number_, setting_.seed, attempt);
    if (setting_.areTemplates) changes = templatesOf(changes);
    Progress& progress = progressOf(number_);
    progress.started = attempt;
    code = measure([&] {
      const int result = cache_->apply(changes);
      if (result == 0) progress.committed = attempt;
      return result;
    });
  }
  return code;
}

int Hand::hold() {
  Held held;
  const int code = measure([&] { return cache_->hold(held.snapshot); });
  if (code != 0) return code;
  if (held.snapshot.size() > 0) {
    const std::int64_t key = offsetInFile(held.snapshot.getKey(0).data());
    report_.held = key < 0 ? -1 : key - 12;
  }
  report_.items = held.items = read(held.snapshot);
  held_.push_back(std::move(held));
  return 0;
}
int Hand::acquire() {
  Held held;
  const int code = measure([&] {
    held.bare = cache_->acquireSnapshot(held.storage);
    return held.bare == nullptr ? kCacheNotLocked : 0;
  });
  if (code != 0) return code;
  report_.held = offsetInFile(held.bare);
  held_.push_back(std::move(held));
  return 0;
}
int Hand::release() {
  if (order_.first >= held_.size()) return 0;
  Held held = std::move(held_[order_.first]);
  held_.erase(held_.begin() + order_.first);
  return measure([&] {
    if (held.bare != nullptr) return cache_->releaseSnapshot(held.bare, held.storage);
    held.snapshot.release();
    return 0;
  });
}
int Hand::find() {
  KFLCacheSnapshot snapshot;
  const int code = measure([&] {
    const int result = cache_->hold(snapshot);
    if (order_.plan.countsLoads) read(snapshot);
    return result;
  });
  report_.items = read(snapshot);
  return code;
}

int Hand::duet() {
  const Order whole = order_;
  std::atomic<int> second{0};
  std::thread other([&] {
    for (std::uint32_t i = 0; i < whole.count && second == 0; ++i)
      second = whole.first % 2 == 0 ? cachetest::repairOnce(*cache_)
                                    : cachetest::makeCache(setting_.path)->initialize(true, false);
  });
  int code = 0;
  order_.count = 1;
  for (std::uint32_t i = 0; i < whole.count && code == 0; ++i) {
    KFLCacheSnapshot snapshot;
    code = cache_->hold(snapshot);
    const Digest items = read(snapshot);
    order_.first = whole.first + i;
    if (code == 0) code = change();
    mustBe(read(snapshot) == items, "a held snapshot changed beside another thread");
  }
  other.join();
  return code != 0 ? code : second.load();
}

}  // namespace

const char* nameOf(Verb verb) {
  return kVerbs[static_cast<std::size_t>(verb)].name;
}

Worker::Worker(const Setting& setting, std::uint32_t number) {
  int ends[2];
  progressOf(number);  // is there before the process
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
  const struct timeval limit { 20, 0 };
  setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::close(ends[0]);
    Hand(setting, number, ends[1]).run();
  }
  ::close(ends[1]);
  line_ = ends[0];
}

Worker::~Worker() {
  if (state_ != State::Dead) die();
  ::close(line_);
}

void Worker::send(const Order& order) {
  state_ = State::Busy;
  ::send(line_, &order, sizeof(order), MSG_NOSIGNAL);
}

Worker::State Worker::await() {
  const ssize_t got = recv(line_, &report_, sizeof(report_), 0);
  if (got > 0) return state_ = report_.waits ? State::Waiting : State::Ready;
  if (got < 0 && errno == EAGAIN) return state_;
  waitpid(process_, &status_, 0);
  return state_ = State::Dead;
}

void Worker::stop() {
  kill(process_, SIGSTOP);
  siginfo_t info;
  waitid(P_PID, static_cast<id_t>(process_), &info, WSTOPPED | WEXITED | WNOWAIT);
}

void Worker::resume() {
  kill(process_, SIGCONT);
  if (state_ == State::Waiting) send({});
  state_ = State::Busy;
}

void Worker::die() {
  kill(process_, SIGKILL);
  waitpid(process_, &status_, 0);
  state_ = State::Dead;
}

}  // namespace cachefaults
