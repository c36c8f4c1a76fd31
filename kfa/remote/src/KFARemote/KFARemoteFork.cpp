// SPDX-License-Identifier: Apache-2.0
#include <KFARemote/KFARemoteFork.h>

#include <atomic>
#include <cstdint>

#include <KFLCommon/KFLError.h>
#include <KFLCore/KFLFork.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

namespace {

// The process in which gRPC was used first, as the number of its forks and one more; 0: none yet.
constinit std::atomic<std::uint64_t> user{0};

std::uint64_t self() {
  return KFL::getForkGeneration() + 1;
}

}  // namespace

int KFARemoteFork::enter() {
  std::uint64_t first = 0;
  const std::uint64_t own = self();
  if (user.compare_exchange_strong(first, own) || first == own) return 0;
  setErrorMessage(
      "this process was forked from one that had begun to use gRPC, which cannot be used here any more; a "
      "program run anew with exec, or a fork before the first connection or server, would be right");
  return -1;
}

bool KFARemoteFork::isCutOff() {
  const std::uint64_t first = user.load();
  return first != 0 && first != self();
}

}  // namespace KFA
