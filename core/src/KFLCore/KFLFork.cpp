// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLFork.h>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <new>

#include <KFLCommon/KFLLock.h>
#include <KFLCommon/KFLSystem.h>

namespace KFL {

namespace {

// Constant-initialised and never destroyed: listeners come and go while libraries are loaded and unloaded.
constinit KFLLock listenersLock;
constinit KFLForkListener* firstListener = nullptr;
constinit std::atomic<std::uint64_t> generation{0};
constinit thread_local bool hasPause = false;  // a handler of signals may fork where this thread has the lock

// Holds 1 in the process that set it, and 0 in a child however that was made: the kernel wipes the page. Null where it
// cannot.
constinit std::atomic<std::uint32_t>* mark = nullptr;

void makeMark() {
  const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* const page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) return;
  if (madvise(page, size, MADV_WIPEONFORK) == 0) {
    mark = new (page) std::atomic<std::uint32_t>(1);
  } else {
    munmap(page, size);
  }
}

}  // namespace

struct KFLForkHandlers {
  KFLForkHandlers() {
    makeMark();
    pthread_atfork(&prepare, &inParent, &inChild);
  }

  // The list stands still while the process is copied.
  static void prepare() KFL_NO_THREAD_SAFETY_ANALYSIS {
    if (!hasPause) listenersLock.lock();
  }
  static void inParent() KFL_NO_THREAD_SAFETY_ANALYSIS {
    if (!hasPause) listenersLock.unlock();
  }
  static void inChild() KFL_NO_THREAD_SAFETY_ANALYSIS {
    tellListeners();
    inParent();
  }
  // Behind a bare clone(), which runs no handlers: the child has one thread, and nobody else who could hold the lock.
  static void inUnannouncedChild() {
    new (&listenersLock) KFLLock;
    tellListeners();
  }
  static void tellListeners() {
    generation.fetch_add(1, std::memory_order_relaxed);
    if (mark != nullptr) mark->store(1, std::memory_order_relaxed);
    for (KFLForkListener* at = firstListener; at != nullptr; at = at->next_)
      at->forked();
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

KFLForkPause::KFLForkPause() KFL_NO_THREAD_SAFETY_ANALYSIS {
  listenersLock.lock();
  hasPause = true;
}
KFLForkPause::~KFLForkPause() KFL_NO_THREAD_SAFETY_ANALYSIS {
  hasPause = false;
  listenersLock.unlock();
}

std::uint64_t getForkGeneration() {
  if (mark != nullptr && mark->load(std::memory_order_relaxed) == 0) KFLForkHandlers::inUnannouncedChild();
  return generation.load(std::memory_order_relaxed);
}

void KFLOwnDescriptor::close() {
  const KFLForkPause pause;
  forked();
}

// Closing the child's copy leaves what the parent has locked alone.
void KFLOwnDescriptor::forked() noexcept {
  if (number >= 0) KFLSystem::close(number);
  number = -1;
}

// The thread that held it does not exist in the child, so nobody could unlock it.
void KFLForkableLock::forked() noexcept {
  new (&mutex_) std::mutex;
}

}  // namespace KFL
