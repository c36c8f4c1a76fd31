// SPDX-License-Identifier: Apache-2.0
// The lock on the word of a cache file, the queue of those who wait for it, and the places of those who use the file.
//
// Locks are the kernel's, on an open file description that belongs to this object alone: it is never mapped, closed on
// exec and closed in a forked child, and its locks are given back by hand before it is closed. So nothing keeps a lock alive
// but the process that took it, and the kernel takes it back when that process dies. The ranges of the file that stand for them:
//
//     24 .. 27               the lock word: for the one who changes the file, or shared by those who only read it
//     1 << 40                a place among those who use the file: shared by all of them
//     (1 << 41) + offset     the snapshot at this offset: shared by all who hold it
//     (1 << 42) + ticket     a place in the queue for the lock word, from 1 on
//     (1 << 43) + ticket     this place and those before it are passed over: shared by all who do so
//
// Waiters are served in the order of their tickets. One that sleeps while the word is free is passed over after a while,
// so the queue is fair and yet never in the way; once it is awake it sees that, and queues anew, behind the last. A futex
// on the word tells the next one that it is free; that is a hint, and the kernel's lock is the truth.
//
// Any thread may call; threads of one process that share the object must take turns by other means.
#ifndef KFLCORE_KFLFILELOCK_H
#define KFLCORE_KFLFILELOCK_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <KFLCore/KFLFork.h>
#include <KFLCore/KFLMappedFile.h>
#include <KFLCore/KFLRefCounter.h>

namespace KFL {

struct KFLCacheHeader;

class KFLFileLock final : public KFLRefCounter, KFLForkListener {
 public:
  enum class Kind { Alone, Shared };

  KFLFileLock() = default;
  ~KFLFileLock() override;

  // Opens the file that the path names; `access` as in KFLMapOptions. 0, or an errno with an error text.
  int open(const std::string& path, int access = KFLMapOptions::Read | KFLMapOptions::Write);
  // False in a forked child of the process that opened it, and when a lock could not be given back but by closing.
  bool isOpen() const {
    getForkGeneration();
    return descriptor_ >= 0;
  }
  int getDescriptor() const { return descriptor_; }
  // Whether this is the file that is mapped.
  bool isSameFile(const KFLMappedFile& mapped) const;

  // Takes the lock word. `header` is where the file is mapped, or null: waiting is by the futex there, or else by naps of
  // at most a millisecond. 0; EAGAIN when one holder kept it for the whole of the time; or another errno.
  int lock(std::chrono::milliseconds timeout, KFLCacheHeader* header, Kind kind = Kind::Alone);
  // 0, EAGAIN while another holds it, or another errno. Does not queue.
  int tryLock(Kind kind = Kind::Alone);
  void unlock(KFLCacheHeader* header);
  // The lock word as it stands in the file: who is changing that, or 0; also when it cannot be read. Needs no lock.
  std::uint32_t readWord() const;

  // The rest needs the lock.

  // Takes a place among the users of the file, until this object is gone. 0 or an errno.
  int takePlace();
  // Whether this place is known to be the only one.
  bool isOnlyUser();

  // Holds the snapshot at this offset, as often as it is asked for. 0 or an errno.
  int hold(std::uint64_t snapshot);
  void letGo(std::uint64_t snapshot);
  // How often it is held through this object.
  std::uint32_t countHeld(std::uint64_t snapshot) const;
  // Whether it is held through another object, here or in another process, as far as that can be told.
  bool isHeldElsewhere(std::uint64_t snapshot) const;
  // The offsets of all snapshots that are held by whoever lives, in ascending order. 0 or an errno.
  int findHeld(std::vector<std::uint64_t>& all) const;

 private:
  class Ticket;

  void close();
  void forked() noexcept final;
  bool isQueueEmpty();
  bool isSleeperThere();
  void passOver(off_t ticket);

  int descriptor_ = -1;  // as a KFLOwnDescriptor, whose place programs of the last release do not know
  off_t sleeper_ = 0;    // the last ticket that was passed over; 0 when there is none
  std::map<std::uint64_t, std::uint32_t> held_;
};

}  // namespace KFL

#endif
