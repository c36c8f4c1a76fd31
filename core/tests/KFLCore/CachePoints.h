// SPDX-License-Identifier: Apache-2.0
// The moments of this process at which another one could see a difference: before each store into a mapped file and
// before each call that touches files, locks or mappings. At a chosen one the process dies or waits; between two of them
// it makes no difference when. The same for its allocations, one of which fails.
//
// Mapped files are protected while a moment is looked for, so each store faults, is counted, and is done alone. The calls
// are those of KFLSystem. One thread; other architectures than x86-64 have no moments.
#ifndef KFLCORE_TESTS_CACHEPOINTS_H
#define KFLCORE_TESTS_CACHEPOINTS_H

#include <cstdint>

namespace cachefaults {

enum class Event : std::uint8_t { None, Die, Wait, NoMemory };

struct Plan {
  Event event = Event::None;
  std::uint32_t at = 0;      // the first moment is 1
  bool countsLoads = false;  // each load from a mapped file is a moment, too
};

// Once in a process, before it maps a cache file; its children have it, too.
void watchMoments();
// From now on; `wait` is called there, maybe in a signal handler.
void begin(const Plan& wanted, void (*wait)());
// The number of moments since then, up to the one that was waited at.
std::uint32_t end();
// While it waits before a store or a load: where in the file that is. -1 otherwise.
std::int64_t accessed();

// Where the address lies in the file that is mapped there; -1 when none is.
std::int64_t offsetInFile(const void* address);

}  // namespace cachefaults

#endif
