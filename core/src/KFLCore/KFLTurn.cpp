// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLTurn.h>

#include <condition_variable>
#include <new>

#include "KFLPatience.h"

namespace KFL {

struct KFLTurn::Waiter {
  std::condition_variable served;
  bool isServed = false;
  Waiter* next = nullptr;
};

bool KFLTurn::lock(std::chrono::milliseconds timeout) {
  constexpr std::chrono::milliseconds kNap{5};
  std::unique_lock guard(mutex_);
  if (!isTaken_) {
    isTaken_ = true;
    return true;
  }
  Waiter self;
  Waiter** end = &first_;
  while (*end != nullptr)
    end = &(*end)->next;
  *end = &self;
  KFLPatience patience(timeout);
  while (!self.isServed) {
    patience.see(served_);
    if (patience.isSpent()) {
      leave(self);
      return false;
    }
    if (self.served.wait_for(guard, kNap) == std::cv_status::timeout) patience.count(kNap);
  }
  return true;
}

void KFLTurn::unlock() {
  const std::lock_guard guard(mutex_);
  ++served_;
  isTaken_ = first_ != nullptr;
  if (!isTaken_) return;
  Waiter& next = *first_;
  first_ = next.next;
  next.isServed = true;
  next.served.notify_one();
}

void KFLTurn::leave(const Waiter& waiter) {
  Waiter** at = &first_;
  while (*at != &waiter)
    at = &(*at)->next;
  *at = waiter.next;
}

// The threads that held it and waited for it do not exist in the child.
void KFLTurn::forked() noexcept {
  new (&mutex_) std::mutex;
  isTaken_ = false;
  first_ = nullptr;
}

}  // namespace KFL
