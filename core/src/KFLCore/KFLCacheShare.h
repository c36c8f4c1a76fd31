// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: what a cache object and the snapshots taken through it share, for as long as any of them is
// there, and the snapshot that a process keeps.
#ifndef KFLCORE_KFLCACHESHARE_H
#define KFLCORE_KFLCACHESHARE_H

#include <atomic>
#include <ctime>
#include <string>

#include <KFLCore/KFLCacheFile.h>

namespace KFL {

// A snapshot that this process holds in the file, once for all who use it here.
struct KFLCacheHold final : KFLRefCounter {
  boost::intrusive_ptr<KFLCacheShare> share;
  KFLCacheFile::Storage storage;  // the mapping that it was taken from
  KFLSnapshotView view;
  std::uint64_t generation = getForkGeneration();
  int users = 0;                      // needs the share's holdsLock
  mutable std::atomic<int> finds{0};  // searches, as far as they are counted

  // Whether the file was cut, when what is mapped of it may not be touched. 0 or a code with an error text.
  int checkFile() const;
  // Whether the file's header names this snapshot still. One look, without a lock.
  bool isCurrent() const {
    const KFLMappedMemoryManager words = storage->manager();
    return words.isValid() && words.getSnapshot() == static_cast<std::int64_t>(view.getOffset());
  }
  // Reads through the mapping that the file has now, since an item that took the place of another may lie behind the end of
  // the one before. For a hold without users; one whose snapshot was damaged meanwhile stays where it is.
  void moveTo(const KFLCacheFile::Storage& now) {
    if (storage == now) return;
    const KFLSnapshotView moved(now->memory(), static_cast<std::int64_t>(view.getOffset()));
    if (!moved.isSound()) return;
    storage = now;
    view = moved;
  }
  bool isForked() const { return generation != getForkGeneration(); }
};

struct KFLCacheShare final : KFLRefCounter {
  KFLCacheShare(const std::string& file, const KFLCacheLimits& given) : path(file), limits(given) {}

  const std::string path;
  const KFLCacheLimits limits;
  std::atomic<std::int64_t> timeout{10000};  // for a lock, in milliseconds

  KFLTurn turn;             // before the lock of any file
  bool isProtected = true;  // needs the turn
  bool isMarked = false;    // needs the turn: the lock word names this process
  bool isDoubtful = false;  // needs the turn: the lock word goes on saying that the file may be half-changed
  const KFLFileLock* proved = nullptr;  // needs the turn: the opening through which the file was proved sound

  KFLForkableLock holdsLock;
  boost::intrusive_ptr<KFLCacheHold> current KFL_GUARDED_BY(holdsLock);  // kept, whether or not it is used
  std::time_t tick KFL_GUARDED_BY(holdsLock) =
      0;                                    // of the clock, in which the path, or the file, was looked at
  int looks KFL_GUARDED_BY(holdsLock) = 0;  // so often

  std::chrono::milliseconds patience() const { return std::chrono::milliseconds(timeout.load()); }
  // Waits for the turn, and for the lock of the file that is mapped: each with the code and the text of a wait in vain.
  int takeTurn(std::chrono::milliseconds limit) KFL_TRY_ACQUIRE(0, turn);
  int takeLock(const KFLCacheStorage& storage, std::chrono::milliseconds limit);
  // Whether this is one of the first looks in a tick of the kernel's clock, which may cost a system call.
  bool isLookDue() KFL_REQUIRES(holdsLock);
  // The kept snapshot, which is kept no longer; null when there is none, or somebody uses it.
  boost::intrusive_ptr<KFLCacheHold> takeUnused();
};

// Ends a hold that nobody uses any more: waits for the file's lock for so long, and otherwise leaves the end to the closing
// of the file. 0 or a code with an error text.
int endHold(KFLCacheHold& hold, std::chrono::milliseconds patience) noexcept;

}  // namespace KFL

#endif
