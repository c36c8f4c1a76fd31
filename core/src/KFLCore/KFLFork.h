// SPDX-License-Identifier: Apache-2.0
// What must know that the process was forked.
//
// A forked child has copies of its parent's objects, but nothing of what its parent holds outside of itself: locks on
// files, places among a file's readers. A KFLForkListener is told in the child before fork() returns there. Objects may
// be made and destroyed by any thread; forked() runs while the child has one thread only.
#ifndef KFLCORE_KFLFORK_H
#define KFLCORE_KFLFORK_H

#include <cstdint>

#include <KFLCommon/KFLLock.h>
#include <KFLCommon/KFLThreadAnnotations.h>

namespace KFL {

class KFLForkListener {
 public:
  KFLForkListener(const KFLForkListener&) = delete;
  KFLForkListener& operator=(const KFLForkListener&) = delete;

 protected:
  KFLForkListener();
  virtual ~KFLForkListener();

 private:
  friend struct KFLForkHandlers;
  // In the child. It must not make or destroy listeners. Not pure: another thread may have been about to make the object
  // when the process was forked.
  virtual void forked() noexcept {}

  KFLForkListener* next_ = nullptr;
  KFLForkListener* previous_ = nullptr;
};

// How often this process and those that it descends from were forked: a value made before a fork shows by it, whatever
// the numbers of the processes are. A child made by a bare clone() is noticed by its first call.
std::uint64_t getForkGeneration();

// While it exists, no other thread forks this process: for what must not be copied half-done, such as a descriptor that
// is open and not yet known to a listener. No listener may be made or destroyed meanwhile.
class KFLForkPause {
 public:
  KFLForkPause();
  ~KFLForkPause();
  KFLForkPause(const KFLForkPause&) = delete;
  KFLForkPause& operator=(const KFLForkPause&) = delete;
};

// Stands before the listener, which may be told as soon as it is one.
struct KFLOwnNumber {
  int number = -1;
};

// A descriptor that belongs to this process alone: a forked child's copy is closed before fork() returns there, and no
// child is made while it is half opened or half closed.
//
// What the open file has locked is to be given back by hand before close(): a child that is late to close its copy, or was
// made by other means than fork(), would else keep that from everybody.
class KFLOwnDescriptor final : KFLOwnNumber, KFLForkListener {
 public:
  KFLOwnDescriptor() = default;
  ~KFLOwnDescriptor() override { close(); }

  // Takes what `make` opens, closed on exec, or the negative number that says why it could not. Nothing is open before.
  template <class Make>
  int open(Make make) {
    const KFLForkPause pause;
    return number = make();
  }
  void close();

  // False in a child of the process that opened it, however that was made.
  bool isOpen() const {
    getForkGeneration();
    return number >= 0;
  }
  int get() const { return number; }

 private:
  void forked() noexcept override;
};

// A mutex that a forked child finds free, whoever held it in the parent.
class KFL_CAPABILITY("mutex") KFLForkableLock final : KFLForkListener {
 public:
  void lock() KFL_ACQUIRE() { mutex_.lock(); }
  bool try_lock() KFL_TRY_ACQUIRE(true) { return mutex_.try_lock(); }
  void unlock() KFL_RELEASE() { mutex_.unlock(); }

 private:
  void forked() noexcept override;

  std::mutex mutex_;
};

// Holds one from its construction to its end.
class KFL_SCOPED_CAPABILITY KFLForkableGuard {
 public:
  explicit KFLForkableGuard(KFLForkableLock& lock) KFL_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  ~KFLForkableGuard() KFL_RELEASE() { lock_.unlock(); }
  KFLForkableGuard(const KFLForkableGuard&) = delete;
  KFLForkableGuard& operator=(const KFLForkableGuard&) = delete;

 private:
  KFLForkableLock& lock_;
};

}  // namespace KFL

#endif
