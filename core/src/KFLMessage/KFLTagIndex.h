// SPDX-License-Identifier: Apache-2.0
// Not installed: the tag vocabulary by position, so that its names have fixed ids in every tree.
#ifndef KFLMESSAGE_KFLTAGINDEX_H
#define KFLMESSAGE_KFLTAGINDEX_H

#include <cstdint>
#include <string_view>

namespace KFL {

// Positions count from 1 in the order of tagVocabulary(), behind which names without a number follow; every
// one is below this limit.
inline constexpr std::uint32_t kTagPositionLimit = 1023;

// 0 when there is no such number or name.
std::uint32_t tagPosition(int number);
std::uint32_t tagPosition(std::string_view name);

}  // namespace KFL

#endif
