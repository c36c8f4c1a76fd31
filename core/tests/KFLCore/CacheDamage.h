// SPDX-License-Identifier: Apache-2.0
// A cache file that is written over while a process has it open, by another program or by a disk that fails, or of which
// the disk has only some of the pages that were changed when the node dies.
#ifndef KFLCORE_TESTS_CACHEDAMAGE_H
#define KFLCORE_TESTS_CACHEDAMAGE_H

#include <cstdint>
#include <string>

namespace cachefaults {

struct Damages {
  std::uint64_t tries = 0;
  std::uint64_t faults = 0;
  std::int64_t slowest = 0;  // microseconds of the processor in one call
};

// The lives of the seeds from the first on, in child processes: words of header, blocks, free list and snapshot are
// overwritten between calls and in the middle of them. Every call must come back with a code, and whoever changes the file
// at last leaves it sound. The seeds for which that is not so, with what happened; at most `limit`.
std::string runDamages(std::uint64_t first, std::uint64_t count, std::uint64_t limit,
                       const std::string& folder, Damages& damages);

}  // namespace cachefaults

#endif
