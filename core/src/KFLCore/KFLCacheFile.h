// SPDX-License-Identifier: Apache-2.0
// A cache file as it is shared by processes: opening, locking, recovery, snapshots and changes, with items as plain bytes.
// KFLCacheLogic adds the types of keys and values; most users want that, or a class made of it.
//
// Every change happens under the file's lock, which works between threads, between processes, and across their deaths.
// Reading items does not: hold a snapshot (KFLCacheSnapshot), which never changes, and read as long as needed while others
// go on. A change becomes visible by one store, so there are only old and new snapshots, and none in between; see
// docs/formats.md for the file.
//
// A process keeps the snapshot that it held last, and gives it out again without a lock until the file's header names
// another one. It lets go of it when it sees that, at its own next change, and at reinit() and its end. A file that another
// took the place of is noticed at once by what locks, and by hold() in the first looks of each tick of the kernel's clock,
// so after 10 ms at most.
//
// Whoever asks for the lock first has it first. Waiting ends with kCacheNotLocked when one holder kept the lock for the
// whole of the time that was set; the file stays as it is.
//
// Any thread may call any function. The lock is not recursive: a thread that holds it must not call apply(), hold() or
// anything else that takes it. In a forked child, an object opens the file anew at its first use, and snapshots that were
// held in the parent are empty.
//
// Functions return 0 or a KFLCacheCode with an error text.
#ifndef KFLCORE_KFLCACHEFILE_H
#define KFLCORE_KFLCACHEFILE_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include <KFLCore/KFLCacheChanges.h>
#include <KFLCore/KFLCacheStorage.h>
#include <KFLCore/KFLContainers.h>
#include <KFLCore/KFLFork.h>
#include <KFLCore/KFLRefCounter.h>
#include <KFLCore/KFLTurn.h>

namespace KFL {

class KFLCacheSnapshot;
class KFLLockedCache;
struct KFLCacheHold;
struct KFLCacheShare;

// What has no code of its own in the file's format.
inline constexpr int kCacheFull = -20;      // no space: on disk, or within the limit of the cache
inline constexpr int kCacheBadKey = -21;    // longer than 255 characters, or with a NUL in it
inline constexpr int kCacheNoMemory = -22;  // in this process; the file is as it was, and nothing is locked

// How a cache behaves. Sizes are in bytes.
struct KFLCacheLimits {
  std::uint32_t growth = 0x1000000;  // the most that is added to the heap at a time
  std::uint32_t openings = 16;       // how often a file that is replaced meanwhile is opened before giving up
  std::uint32_t spareRecords = 0;    // room in a new snapshot beyond its records
  std::uint32_t maxSize = 0x40000000;  // the most that the file may grow to, 2 GiB less a page at most
};

class KFLCacheFile : public KFLForkableRefCounter {
 public:
  using Storage = boost::intrusive_ptr<KFLCacheStorage>;

  // A relative path is one of the folder that is the working one now.
  explicit KFLCacheFile(const std::string& path, const KFLCacheLimits& limits = {});
  ~KFLCacheFile() override;

  // Opens, makes or validates the file. The first flag is not used. invalidateOnFailure: mark the file invalid when its
  // contents are at fault, for every process. After a failure the cache is not accessible. Looks at the header and the
  // snapshot's bounds; the whole is proved before the first change, and after a holder's death.
  int initialize(bool unused, bool invalidateOnFailure);
  // Whether the file is open.
  bool isAccessible() const { return base_.load(std::memory_order_acquire) != nullptr; }
  // Lets go of the file; initialize() opens it again. Always 0.
  int reinit();

  // Takes the file's lock; `storage` keeps the mapping while it is held. A file that was replaced or marked invalid is
  // opened anew; what a dead holder left half-done is put right. Waits for at most the time that was set.
  int lock(Storage& storage) KFL_TRY_ACQUIRE(0, turn_);
  void unlock(Storage& storage) KFL_RELEASE(turn_);

  // The current snapshot with its reference count raised by one, and the mapping that it stands in; null, with an error
  // text, when there is none. KFLCacheSnapshot does this more safely.
  KFLSnapshotHead* acquireSnapshot(Storage& storage);
  // Gives back what acquireSnapshot() gave. Space that nobody needs any more becomes free.
  int releaseSnapshot(KFLSnapshotHead* snapshot, Storage& storage);
  // Holds the current snapshot by a handle.
  int hold(KFLCacheSnapshot& snapshot);

  // Makes a new snapshot with these changes the current one, or leaves everything as it was. Removing a key that is not
  // there is no change. 0 is said of a change to the file that the path names.
  int apply(const KFLCacheChanges& changes);

  // Proves the file sound, gives back all space that nobody alive holds, and rebuilds what can be kept. `alone` tells
  // whether no other process uses the file and no snapshot is held.
  int repair(bool& alone);
  // Waits until all changes are on disk. Without it they are safe from the death of processes, not from that of the node.
  // Others go on meanwhile.
  int sync();

  // Whether the mapping is write-protected while the lock is not held. initialize() switches it off.
  int setProtected(bool isProtected);
  // How long to wait for a holder of the lock that does not let go; 10 s unless set.
  void setLockTimeout(std::chrono::milliseconds timeout);
  // Whether initialize() marks a file invalid whose lock it could not have in that time, so that the next try makes a new
  // one: all items are lost, for every process. False unless set.
  void setInvalidatesStuck(bool invalidates) { invalidatesStuck_ = invalidates; }

  const std::string& getPath() const;
  const KFLCacheLimits& getLimits() const;

 protected:
  // Takes the lock and releases it at once, when the file is open. False when that fails.
  bool passLock();

 private:
  class Section;

  int begin() KFL_TRY_ACQUIRE(0, turn_);
  int takeTurn() KFL_TRY_ACQUIRE(0, turn_);
  int lockCurrent() KFL_REQUIRES(turn_);
  int lockOpened() KFL_REQUIRES(turn_);
  int openLocked(bool invalidate) KFL_REQUIRES(turn_);
  int attach() KFL_REQUIRES(turn_);
  void detach() KFL_REQUIRES(turn_);
  int awaitLock() KFL_REQUIRES(turn_);
  bool isStillHere() const KFL_REQUIRES(turn_);
  void showBase() KFL_REQUIRES(turn_);

  bool useCurrent(KFLCacheSnapshot& snapshot);
  int holdLocked(KFLCacheSnapshot& snapshot, boost::intrusive_ptr<KFLCacheHold>& former) KFL_REQUIRES(turn_);
  boost::intrusive_ptr<KFLCacheHold> takeKept() KFL_REQUIRES(turn_);
  int applyLocked(const std::vector<const KFLCacheChange*>& changes) KFL_REQUIRES(turn_);
  void dropKept(std::chrono::milliseconds patience);

  const boost::intrusive_ptr<KFLCacheShare> share_;
  KFLTurn& turn_;
  std::atomic<std::byte*> base_{nullptr};
  Storage storage_ KFL_GUARDED_BY(turn_);
  bool isWanted_ KFL_GUARDED_BY(turn_) = false;     // to be opened anew when it is not open
  bool invalidates_ KFL_GUARDED_BY(turn_) = false;  // a file whose contents are at fault
  std::atomic<bool> invalidatesStuck_{false};
};

// Removes a cache file that does not validate, as after initialize() failed with `code`, so that it can be made anew. It
// happens under the file's lock, while the path names that very file. A file whose contents are not at fault stays:
// nothing that could be read is lost. 0 when the path names no faulty file any more, -1 with an error text when it could
// not be removed.
int removeLockedCacheFile(const std::string& path, int code);

}  // namespace KFL

#endif
