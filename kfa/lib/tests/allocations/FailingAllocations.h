// SPDX-License-Identifier: Apache-2.0
// Allocations of one thread that fail when they are told to: whatever the program and its libraries take from the heap,
// by new, by malloc or by their relatives.
#ifndef KFA_TESTS_ALLOCATIONS_FAILINGALLOCATIONS_H
#define KFA_TESTS_ALLOCATIONS_FAILINGALLOCATIONS_H

#include <cstddef>

namespace failing {

enum class Mode { Once, FromThenOn };

// From now on this thread's allocation with this number, from 1, fails, and with FromThenOn all behind it.
void arm(std::size_t number, Mode mode) noexcept;
// Ends that. Whether an allocation has failed.
bool disarm() noexcept;

// Blocks that this thread has taken and not given back.
long liveBlocks() noexcept;

}  // namespace failing

#endif
