// SPDX-License-Identifier: Apache-2.0
// A mutex whose waiters are served in the order in which they came, each with a limit to its patience. A forked child
// finds it free, whoever held it in the parent. Not recursive.
#ifndef KFLCORE_KFLTURN_H
#define KFLCORE_KFLTURN_H

#include <chrono>
#include <cstdint>
#include <mutex>

#include <KFLCommon/KFLThreadAnnotations.h>
#include <KFLCore/KFLFork.h>

namespace KFL {

class KFL_CAPABILITY("mutex") KFLTurn final : KFLForkListener {
 public:
  // False when one thread has kept it for the whole of the time.
  bool lock(std::chrono::milliseconds timeout) KFL_TRY_ACQUIRE(true);
  void unlock() KFL_RELEASE();

 private:
  struct Waiter;

  void leave(const Waiter& waiter);
  void forked() noexcept override;

  std::mutex mutex_;
  bool isTaken_ = false;
  std::uint64_t served_ = 0;
  Waiter* first_ = nullptr;
};

}  // namespace KFL

#endif
