// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: waiting by trying again, up to a moment.
#ifndef KFLCORE_KFLDEADLINE_H
#define KFLCORE_KFLDEADLINE_H

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

inline void schedYield() {
  sched_yield();
}

class KFLDeadline {
 public:
  explicit KFLDeadline(std::chrono::milliseconds wait) : end_(Clock::now() + wait) {}

  // Lets others run, longer and longer while the wait goes on. False once the moment has passed.
  bool pause() {
    if (++pauses_ <= kYields) {
      schedYield();
      return true;
    }
    const auto now = Clock::now();
    if (now >= end_) return false;
    const auto nap = std::min<Clock::duration>(kNap * std::min(pauses_ - kYields, kLongestNap), end_ - now);
    std::this_thread::sleep_for(nap);
    return true;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr int kYields = 32;
  static constexpr int kLongestNap = 40;
  static constexpr std::chrono::microseconds kNap{50};

  Clock::time_point end_;
  int pauses_ = 0;
};

}  // namespace KFL

#endif
