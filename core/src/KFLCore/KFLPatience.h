// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: how long to wait for somebody who does not let go.
//
// What counts is the waiter's own naps, not the clock, so a waiter that was itself stopped loses no time by that; and the
// count begins anew whenever somebody else is in the way, so only one who never lets go uses the patience up.
#ifndef KFLCORE_KFLPATIENCE_H
#define KFLCORE_KFLPATIENCE_H

#include <chrono>
#include <cstdint>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

class KFLPatience {
 public:
  explicit KFLPatience(std::chrono::milliseconds limit) : limit_(limit) {}

  // Who or what is in the way now.
  void see(std::uint64_t obstacle) {
    if (obstacle == obstacle_) return;
    obstacle_ = obstacle;
    waited_ = std::chrono::microseconds{0};
  }
  void count(std::chrono::microseconds nap) { waited_ += nap; }
  bool isSpent() const { return std::chrono::duration_cast<std::chrono::milliseconds>(waited_) >= limit_; }

 private:
  std::chrono::milliseconds limit_;
  std::chrono::microseconds waited_{0};
  std::uint64_t obstacle_ = 0;
};

}  // namespace KFL

#endif
