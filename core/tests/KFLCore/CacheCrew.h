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
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CachePoints.h"

namespace cachefaults {

class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next();
  std::uint32_t below(std::uint32_t end) { return static_cast<std::uint32_t>(next() % end); }
  bool chance(std::uint32_t percent) { return below(100) < percent; }
  // From 1 to about the end, each order of magnitude as often as another.
  std::uint32_t logarithmic(std::uint32_t end);

 private:
  std::uint64_t state_;
};

std::uint64_t hashOf(std::string_view text);

constexpr std::uint32_t kWorkers = 4;
constexpr std::uint32_t kKeys = 7;

// The hashes of the texts under one worker's keys; 0 where there is none.
using Listing = std::array<std::uint64_t, kKeys>;
// What was read in a file or a snapshot.
struct Listings {
  std::array<Listing, kWorkers> of{};
  std::uint32_t records = 0;
  std::uint32_t strangers = 0;  // that are under no worker's keys

  void add(std::string_view key, std::string_view text);
  bool operator==(const Listings&) const = default;
};

// What the worker's attempt of that number changes; no text removes the key. A worker has keys of its own.
using Changes = std::vector<std::pair<std::string, std::optional<std::string>>>;
Changes changesOf(std::uint32_t worker, std::uint64_t seed, std::uint32_t attempt);
// The same with keys and items as the tool knows them: a template's ID, and its message with the text as its path.
Changes templatesOf(const Changes& changes);
inline std::uint32_t numberOf(const std::string& key) {
  return static_cast<std::uint32_t>(key[2] - '0');
}

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
  Fork,   // a child makes the attempts
  Duet,   // holds, changes and releases while another thread repairs the file, or opens it
  Leave,  // ends the process without releasing anything
};
const char* nameOf(Verb verb);

struct Order {
  Verb verb = Verb::Find;
  Plan plan;
  std::uint32_t first = 0;
  std::uint32_t count = 1;
};

// The beginning of a text, in one piece with what has it.
class Text {
 public:
  Text& operator=(std::string_view text) {
    bytes_[text.copy(bytes_.data(), bytes_.size() - 1)] = '\0';
    return *this;
  }
  bool empty() const { return bytes_[0] == '\0'; }
  std::string str() const { return bytes_.data(); }

 private:
  std::array<char, 200> bytes_{};
};

struct Report {
  int code = 0;
  bool isAlone = false;          // Repair
  bool died = false;             // Fork: the child did
  std::int64_t nanoseconds = 0;  // of the calls into the library
  std::int64_t held = -1;        // the offset of the snapshot that is held since
  Listings items;                // Hold, Find
  Text fault;                    // what the worker itself saw wrong
};

// What all workers of a schedule have in common.
struct Setting {
  std::string path;
  std::uint64_t seed = 0;
  std::uint32_t growth = 0x1000000;
  std::uint32_t spareRecords = 0;
  std::chrono::milliseconds lockTimeout{5000};
  bool areTemplates = false;
};

// Attempts of one worker's number, in memory that processes share.
struct Progress {
  std::atomic<std::uint32_t> started;
  std::atomic<std::uint32_t> committed;
};

class Worker {
 public:
  enum class State { Ready, Busy, Waiting, Dead };

  Worker(const Setting& setting, std::uint32_t number, Progress& progress);
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker();

  void send(const Order& order);
  // Until the order is done, the worker waits at its moment, or is dead: the state. Busy when none of it happened in time.
  State await(std::chrono::milliseconds limit = std::chrono::seconds(20));
  void stop();    // wherever it is
  void resume();  // one that waits or was stopped
  // SIGKILL, and its end.
  void die();

  State state() const { return state_; }
  const Report& report() const { return report_; }
  // For how long, in nanoseconds, it was ready to run and others had the processors.
  std::int64_t kept() const;
  int status() const { return status_; }  // of waitpid, when it is dead

 private:
  void bury();

  State state_ = State::Ready;
  pid_t process_ = -1;
  int processHandle_ = -1;
  int orders_ = -1;
  int answers_ = -1;
  int status_ = 0;
  Report report_;
};

}  // namespace cachefaults

#endif
