// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLFork.h>

#include <pthread.h>

#include <atomic>
#include <new>

#include <KFLCommon/KFLLock.h>

namespace KFL {

namespace {

// Constant-initialised and never destroyed: listeners come and go while libraries are loaded and unloaded.
constinit KFLLock listenersLock;
constinit KFLForkListener* firstListener = nullptr;
constinit std::atomic<std::uint64_t> generation{0};

}  // namespace

struct KFLForkHandlers {
  KFLForkHandlers() { pthread_atfork(&prepare, &inParent, &inChild); }

  // The list stands still while the process is copied.
  static void prepare() KFL_NO_THREAD_SAFETY_ANALYSIS { listenersLock.lock(); }
  static void inParent() KFL_NO_THREAD_SAFETY_ANALYSIS { listenersLock.unlock(); }
  static void inChild() KFL_NO_THREAD_SAFETY_ANALYSIS {
    generation.fetch_add(1, std::memory_order_relaxed);
    for (KFLForkListener* at = firstListener; at != nullptr; at = at->next_)
      at->forked();
    listenersLock.unlock();
  }
};

static const KFLForkHandlers handlers;

KFLForkListener::KFLForkListener() {
  const KFLLockGuard guard(listenersLock);
  next_ = firstListener;
  if (next_ != nullptr) next_->previous_ = this;
  firstListener = this;
}

KFLForkListener::~KFLForkListener() {
  const KFLLockGuard guard(listenersLock);
  if (next_ != nullptr) next_->previous_ = previous_;
  (previous_ != nullptr ? previous_->next_ : firstListener) = next_;
}

std::uint64_t getForkGeneration() {
  return generation.load(std::memory_order_relaxed);
}

// The thread that held it does not exist in the child, so nobody could unlock it.
void KFLForkableLock::forked() noexcept {
  new (&mutex_) std::mutex;
}

}  // namespace KFL
