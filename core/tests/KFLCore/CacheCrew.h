// SPDX-License-Identifier: Apache-2.0
// Processes that use one cache file and do what they are told, one order at a time, until they die.
//
// An order is answered by a report when it is done. What a worker committed stands in memory that outlives it, written
// before its next step. The changes that it makes follow from its number and theirs, so both sides know them.
#ifndef KFLCORE_TESTS_CACHECREW_H
#define KFLCORE_TESTS_CACHECREW_H

#include <sys/types.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>

#include "CachePoints.h"
#include "CacheTest.h"

namespace cachefaults {

using cachetest::Contents;

class Random : public std::mt19937_64 {
 public:
  using std::mt19937_64::mt19937_64;
  std::uint32_t below(std::size_t end) { return static_cast<std::uint32_t>((*this)() % end); }
  bool chance(std::uint32_t percent) { return below(100) < percent; }
  // From 1 to about the end, each order of magnitude as often as another.
  std::uint32_t logarithmic(std::uint32_t end);
};

constexpr std::uint32_t kWorkers = 4;

// What tells one set of items from another, for the items of each worker; the last is of those that are nobody's.
using Digest = std::array<std::uint64_t, kWorkers + 1>;
Digest digestOf(const Contents& items);

// What the worker's attempt of that number changes. A worker has keys of its own.
KFL::KFLCacheChanges changesOf(std::uint32_t worker, std::uint64_t seed, std::uint32_t attempt);
// The same with keys and items as the tool knows them: a template's ID, and its message with the text as its path.
KFL::KFLCacheChanges templatesOf(const KFL::KFLCacheChanges& changes);
void changeItems(Contents& items, const KFL::KFLCacheChanges& changes);

enum class Verb : std::uint8_t {
  Open,    // and again, when it is open
  Create,  // as an agent does that has no cache: what does not validate is removed and made afresh
  Close,   // what is held is released first
  Change,  // `count` attempts from `first` on
  Hold,
  Acquire,  // the same by the bare calls
  Release,  // the one of number `first`
  Find,
  Repair,
  Sync,
  Duet,  // holds, changes and releases while another thread repairs the file, or opens it
};
const char* nameOf(Verb verb);

struct Order {
  Verb verb = Verb::Find;
  Plan plan = {};
  std::uint32_t first = 0;
  std::uint32_t count = 1;
};

struct Report {
  bool waits = false;  // at its moment, which is an access of that place in the file, or -1
  std::int64_t accessed = -1;
  int code = 0;
  bool isAlone = false;              // Repair
  std::int64_t nanoseconds = 0;      // of the calls into the library
  std::int64_t processor = 0;        // microseconds of it, for all of the order
  std::int64_t held = -1;            // the offset of the snapshot that is held since
  Digest items = {};                 // Hold, Find
  std::array<char, 200> fault = {};  // what the worker itself saw wrong
};

// What all workers of a schedule have in common.
struct Setting {
  std::string path;
  std::uint64_t seed = 0;
  KFL::KFLCacheLimits limits = {};
  std::chrono::milliseconds lockTimeout{5000};
  bool areTemplates = false;
  bool isDamaged = false;  // what is read may be anything
};

// Attempts of a worker's number, in memory that processes share.
struct Progress {
  std::atomic<std::uint32_t> started, committed;
};
Progress& progressOf(std::uint32_t worker);

class Worker {
 public:
  enum class State { Ready, Busy, Waiting, Dead };

  Worker(const Setting& setting, std::uint32_t number);
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker();

  void send(const Order& order);
  // Until the order is done, the worker waits at its moment, or is dead: the state. Busy when none of it happened in 20 s.
  State await();
  State perform(const Order& order) { return send(order), await(); }
  void stop();    // wherever it is
  void resume();  // one that waits or was stopped
  // SIGKILL, and its end.
  void die();

  State state() const { return state_; }
  const Report& report() const { return report_; }
  int status() const { return status_; }  // of waitpid, when it is dead

 private:
  State state_ = State::Ready;
  pid_t process_ = -1;
  int line_ = -1;
  int status_ = 0;
  Report report_;
};

}  // namespace cachefaults

#endif
