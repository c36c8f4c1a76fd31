// SPDX-License-Identifier: Apache-2.0
// What of a cache file at fault still reads as what was put.
#ifndef KFACTL_CACHESALVAGE_H
#define KFACTL_CACHESALVAGE_H

#include <cstddef>

#include <KFLCore/KFLCacheChanges.h>

namespace kfactl {

class CacheImage;

struct Salvage {
  KFL::KFLCacheChanges items;
  std::size_t kept = 0;
  std::size_t lost = 0;
  bool isCounted = false;  // whether these are all: else nobody can tell how many items the file had
};

// Every item that the snapshot has. Where the header does not name it, it is the only one among the blocks, if nothing
// else is damaged.
Salvage salvage(CacheImage& image);

}  // namespace kfactl

#endif
