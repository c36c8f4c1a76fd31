// SPDX-License-Identifier: Apache-2.0
// A cache file as it is shared by processes: opening, locking, recovery, snapshots and changes, with items as plain bytes.
// KFLCacheLogic adds the types of keys and values; most users want that, or a class made of it.
//
// Every look at the file's words and every change happens under its lock, which works between threads, between processes,
// and across their deaths. Reading items does not: hold a snapshot (KFLCacheSnapshot), which never changes, and read as
// long as needed while others go on. A change becomes visible by one store, so there are only old and new snapshots, and
// none in between; see docs/formats.md for the file.
//
// Any thread may call any function. The lock is not recursive: a thread that holds it must not call apply(), hold() or
// anything else that takes it. Objects outlive the snapshots that are held through them. In a forked child, an object
// opens the file anew at its first use, and snapshots that were held in the parent are empty.
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

namespace KFL {

struct KFLCacheEdit;
class KFLCacheProof;
class KFLCacheSnapshot;
class KFLDeadline;

// What has no code of its own in the file's format.
inline constexpr int kCacheFull = -20;    // no space: on disk, or within the limit of the cache
inline constexpr int kCacheBadKey = -21;  // longer than 255 characters, or with a NUL in it

// How a cache behaves. Sizes are in bytes.
struct KFLCacheLimits {
  std::uint32_t growth = 0x1000000;  // the most that is added to the heap at a time
  std::uint32_t openings = 16;       // how often a file that is replaced meanwhile is opened before giving up
  std::uint32_t spareRecords = 0;    // room in a new snapshot beyond its records
  std::uint32_t maxSize = 0x40000000;  // the most that the file may grow to
};

class KFLCacheFile : public KFLForkableRefCounter {
 public:
  using Storage = boost::intrusive_ptr<KFLCacheStorage>;

  explicit KFLCacheFile(const std::string& path, const KFLCacheLimits& limits = {});
  ~KFLCacheFile() override = default;

  // Opens, makes or validates the file. The first flag is not used. invalidateOnFailure: mark the file invalid when its
  // contents are at fault, for every process. After a failure the cache is not accessible.
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
  // there is no change.
  int apply(const KFLCacheChanges& changes);

  // Proves the file sound and, when no other process uses it and no snapshot is held, gives back all space that nobody
  // needs and rebuilds what can be kept. `alone` tells which.
  int repair(bool& alone);
  // Waits until all changes are on disk. Without it they are safe from the death of processes, not from that of the node.
  int sync();

  // Whether the mapping is write-protected while the lock is not held. initialize() switches it off.
  int setProtected(bool isProtected);
  // How long to wait for the lock; 10 s unless set.
  void setLockTimeout(std::chrono::milliseconds timeout);

  const std::string& getPath() const { return path_; }
  const KFLCacheLimits& getLimits() const { return limits_; }

 protected:
  // Takes the lock and releases it at once, when the file is open. False when that fails.
  bool passLock();

 private:
  using Edits = std::vector<KFLCacheEdit>;
  struct OpenRules {
    bool invalidateUnsound;   // contents at fault
    bool invalidateUnlocked;  // the lock not taken in time
  };

  // Each of these needs the turn; the second group the file's lock as well.
  int takeTurn(KFLDeadline& deadline) KFL_TRY_ACQUIRE(0, turn_);
  int lockCurrent(KFLDeadline& deadline) KFL_REQUIRES(turn_);
  int openLocked(KFLDeadline& deadline, OpenRules rules) KFL_REQUIRES(turn_);
  int attach() KFL_REQUIRES(turn_);
  void detach() KFL_REQUIRES(turn_);
  void useStorage(Storage storage) KFL_REQUIRES(turn_);
  int awaitLock(KFLDeadline& deadline) KFL_REQUIRES(turn_);
  KFLMappedMemoryManager manager() const {
    return KFLMappedMemoryManager(base_.load(std::memory_order_relaxed));
  }
  std::chrono::milliseconds timeout() const { return std::chrono::milliseconds(timeout_.load()); }

  int judge(OpenRules rules) KFL_REQUIRES(turn_);
  int judgeContents() KFL_REQUIRES(turn_);
  int enter() KFL_REQUIRES(turn_);
  void leave() KFL_REQUIRES(turn_);
  int giveUp(int code, bool invalidate) KFL_REQUIRES(turn_);
  int unsafe_checkSize() KFL_REQUIRES(turn_);
  int allowWriting() KFL_REQUIRES(turn_);
  KFLSnapshotHead* unsafe_acquireSnapshot() KFL_REQUIRES(turn_);
  int acquire(KFLSnapshotHead*& snapshot, Storage& storage) KFL_EXCLUDES(turn_);
  int settle(bool holderDied, bool& alone) KFL_REQUIRES(turn_);
  void reclaim(const KFLCacheProof& proof) KFL_REQUIRES(turn_);
  int markUnsound(const char* what) KFL_REQUIRES(turn_);

  int change(const std::vector<const KFLCacheChange*>& changes) KFL_REQUIRES(turn_);
  int allocateNew(Edits& edits, std::uint64_t newSize, std::uint64_t& snapshot) KFL_REQUIRES(turn_);
  int allocateGrowing(std::uint64_t size, std::uint64_t& offset) KFL_REQUIRES(turn_);
  int grow() KFL_REQUIRES(turn_);
  std::uint64_t capacityFor(std::uint64_t records) const;
  void replaceSnapshot(const KFLSnapshotView& old, bool sole, const Edits& edits, std::uint64_t snapshot,
                       std::uint64_t count) KFL_REQUIRES(turn_);
  int freeBlocks(std::vector<std::uint64_t>& offsets) KFL_REQUIRES(turn_);
  int lowerSnapshot(std::uint64_t offset) KFL_REQUIRES(turn_);

  std::atomic<std::byte*> base_{nullptr};
  Storage storage_ KFL_GUARDED_BY(turn_);
  const std::string path_;
  bool protect_ KFL_GUARDED_BY(turn_) = true;
  bool isWanted_ KFL_GUARDED_BY(turn_) = false;  // to be opened anew when it is not open
  const KFLCacheLimits limits_;
  std::atomic<std::int64_t> timeout_{10000};
  KFLForkableLock turn_;
};

// Removes a cache file that does not validate, as after initialize() failed with `code`, so that it can be made anew. A
// file whose contents are not at fault stays: nothing that could be read is lost. 0 when the path names no faulty file any
// more, -1 with an error text when it could not be removed.
int removeLockedCacheFile(const std::string& path, int code);

}  // namespace KFL

#endif
