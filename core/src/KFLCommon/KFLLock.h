// SPDX-License-Identifier: Apache-2.0
// The mutex of one process, and its scoped guard. Not recursive. Constant-initialised, so a static one serves
// during load.
#ifndef KFLCOMMON_KFLLOCK_H
#define KFLCOMMON_KFLLOCK_H

#include <pthread.h>

#include <mutex>

#include <KFLCommon/KFLThreadAnnotations.h>

namespace KFL {

// Usable with std::lock_guard and std::unique_lock too.
class KFL_CAPABILITY("mutex") KFLLock {
 public:
  constexpr KFLLock() = default;
  KFLLock(const KFLLock&) = delete;
  KFLLock& operator=(const KFLLock&) = delete;

  void lock() KFL_ACQUIRE() { mutex_.lock(); }
  bool try_lock() KFL_TRY_ACQUIRE(true) { return mutex_.try_lock(); }
  void unlock() KFL_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// Holds a lock from its construction to its end.
class KFL_SCOPED_CAPABILITY KFLLockGuard {
 public:
  explicit KFLLockGuard(KFLLock& lock) KFL_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  ~KFLLockGuard() KFL_RELEASE() { lock_.unlock(); }
  KFLLockGuard(const KFLLockGuard&) = delete;
  KFLLockGuard& operator=(const KFLLockGuard&) = delete;

 private:
  KFLLock& lock_;
};

// Stands beside a static lock, so that no child is forked while somebody holds it: the child finds it free, and what it
// guards whole. For sections that end soon, do not fork, and take no other such lock but of a library below.
template <KFLLock& lock>
class KFLForkWaits {
 public:
  KFLForkWaits() { pthread_atfork(&take, &give, &give); }

 private:
  static void take() KFL_NO_THREAD_SAFETY_ANALYSIS { lock.lock(); }
  static void give() KFL_NO_THREAD_SAFETY_ANALYSIS { lock.unlock(); }
};

}  // namespace KFL

#endif
