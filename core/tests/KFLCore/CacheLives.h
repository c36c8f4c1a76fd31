// SPDX-License-Identifier: Apache-2.0
// What a cache file can live through, by random numbers that follow from a seed. Folders are empty before and afterwards.
#ifndef KFLCORE_TESTS_CACHELIVES_H
#define KFLCORE_TESTS_CACHELIVES_H

#include <cstdint>
#include <string>

namespace cachefaults {

struct Totals {
  std::uint64_t tries = 0;       // lives
  std::uint64_t kills = 0;       // processes that died without letting go
  std::uint64_t waits = 0;       // processes that stood still in the middle of something
  std::uint64_t commits = 0;     // that returned 0
  std::uint64_t lost = 0;        // lives after which something was wrong
  std::int64_t longestWait = 0;  // nanoseconds in a call while nobody stood still
  std::int64_t slowest = 0;      // microseconds of the processor in one call
  std::uint64_t largestFile = 0;
};

// Workers that open, hold, change, release, repair, fork, wait and die, against a model of what must be in the file. After
// each step the file is walked. Empty, or what went wrong, behind the steps that led there.
std::string runSchedule(std::uint64_t seed, const std::string& folder, Totals& totals);

// One worker whose file is written over, between calls and in the middle of them, by another program or by a disk that
// fails, or of which the disk has only some of the changed pages when the node dies. Every call must come back with a code,
// and whoever changes the file at last leaves it sound. Empty, or what went wrong.
std::string runDamage(std::uint64_t seed, const std::string& folder, Totals& totals);

}  // namespace cachefaults

#endif
