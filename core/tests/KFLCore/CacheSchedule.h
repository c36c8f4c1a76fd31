// SPDX-License-Identifier: Apache-2.0
// One random life of a cache file: workers that open, hold, change, release, repair, fork, wait and die in an order that
// follows from a seed, against a model of what must be in the file. After each step the file is walked.
#ifndef KFLCORE_TESTS_CACHESCHEDULE_H
#define KFLCORE_TESTS_CACHESCHEDULE_H

#include <cstdint>
#include <string>

namespace cachefaults {

struct Totals {
  std::uint64_t tries = 0;       // schedules
  std::uint64_t kills = 0;       // processes that died without letting go
  std::uint64_t waits = 0;       // processes that stood still in the middle of something
  std::uint64_t commits = 0;     // that returned 0
  std::uint64_t lost = 0;        // schedules after which something was wrong
  std::int64_t longestWait = 0;  // nanoseconds in a call while nobody stood still
  std::uint64_t largestFile = 0;
};

// Empty, or what went wrong, behind the steps that led there. The folder is empty before and afterwards.
std::string runSchedule(std::uint64_t seed, const std::string& folder, Totals& totals);

}  // namespace cachefaults

#endif
