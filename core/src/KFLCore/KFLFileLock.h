// SPDX-License-Identifier: Apache-2.0
// The lock on the word of a cache file, and the places of those who use the file.
//
// Locks are the kernel's, on an open file description that belongs to this object alone: it is never mapped, closed on
// exec and closed in a forked child, so nothing keeps a lock alive but the process that took it, and the kernel takes it
// back when that process dies. The ranges of the file that stand for them:
//
//     24 .. 27          the lock word, for one process at a time
//     1 << 40           a place among those who use the file: shared by all of them
//     (1 << 40) + 1     the right to remove the file from its folder
//
// Any thread may call; threads of one process that share the object must take turns by other means.
#ifndef KFLCORE_KFLFILELOCK_H
#define KFLCORE_KFLFILELOCK_H

#include <atomic>
#include <string>

#include <KFLCore/KFLFork.h>
#include <KFLCore/KFLMappedFile.h>
#include <KFLCore/KFLRefCounter.h>

namespace KFL {

class KFLFileLock final : public KFLRefCounter, KFLForkListener {
 public:
  KFLFileLock() = default;
  ~KFLFileLock() override;

  // Opens the file that the path names. 0, or an errno with an error text.
  int open(const std::string& path);
  // False in a forked child of the process that opened it.
  bool isOpen() const { return descriptor_ >= 0; }
  // Whether this is the file that is mapped.
  bool isSameFile(const KFLMappedFile& mapped) const;

  // 0, EAGAIN while another holds it, or another errno.
  int tryLock();
  void unlock();

  // Takes a place among the users of the file, until this object is gone. 0 or an errno.
  int takePlace();
  // Whether this place is the only one and no snapshot is held through it; then it stays the only one until takePlace()
  // is called again. Needs the lock.
  bool tryBeAlone();
  // Counts the snapshots that are held through this place.
  void addHeld() { held_.fetch_add(1, std::memory_order_relaxed); }
  void removeHeld() { held_.fetch_sub(1, std::memory_order_relaxed); }

  // 0, or EAGAIN while another removes this file.
  int tryRemoval();

 private:
  void forked() noexcept final;

  int descriptor_ = -1;
  std::atomic<int> held_{0};
};

}  // namespace KFL

#endif
