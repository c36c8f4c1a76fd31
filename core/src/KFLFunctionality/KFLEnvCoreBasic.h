// SPDX-License-Identifier: Apache-2.0
// What an agent knows of an environment before the classes of its technology are made: the child factories of
// KFLEnvFactory make them from it.
//
// The cursors stand on the elements that hold the two configurations, or on nothing. Objects made from a core
// work on these elements in place.
#ifndef KFLFUNCTIONALITY_KFLENVCOREBASIC_H
#define KFLFUNCTIONALITY_KFLENVCOREBASIC_H

#include <array>
#include <cstddef>

#include <KFLCommon/KFLLimitedString.h>
#include <KFLFunctionality/KFLEID.h>
#include <KFLMessage/KFLMessageIterator.h>

namespace KFL {

// How many alerts an environment has, each with a type of its own.
inline constexpr std::size_t kAlertCount = 5;

struct KFLEnvCoreBasic {
  KFLEID eid;
  KFLEID parentEID;
  // The name of the technology, under which its child factory is registered. Measure one that comes from outside with
  // fits() before it is put here: none that does not fit is registered.
  limited_length_string<16> type;
  // The agent's number for the state of the environment; 0 while it is not known.
  int status = 0;
  std::array<int, kAlertCount> alertTypes{};
  KFLMessageIterator config;
  KFLMessageIterator virtualConfig;
};

}  // namespace KFL

#endif
