// SPDX-License-Identifier: Apache-2.0
// What a cache file holds, and whether it holds together: by KFLCacheProof, which the fuzz target CacheFuzz holds against
// a plain reading of the format, and, beyond that, who has what of it.
#ifndef KFLCORE_TESTS_CACHEWALK_H
#define KFLCORE_TESTS_CACHEWALK_H

#include <cstdint>
#include <map>
#include <string>

namespace cachefaults {

// What has happened to the file when it is walked, from the strictest on.
enum class Standing {
  AtRest,    // nobody changes it, and nobody ever died: every count is exact, every block is accounted for
  Survived,  // as well, but processes died: what they held may still be counted
  Moment,    // somebody is in the middle of a change, or died there: only what must hold at every moment
};

struct Walk {
  std::string fault;                         // something that is wrong; empty when the file holds together
  std::map<std::string, std::string> items;  // of the current snapshot
  std::map<std::int64_t, std::int32_t>
      snapshots;             // offset to references; the current one and those still held
  std::int64_t current = 0;  // its offset
  std::uint64_t lost = 0;    // bytes of blocks that are neither free nor reached by a snapshot
};

Walk walk(std::string file, Standing standing);

}  // namespace cachefaults

#endif
