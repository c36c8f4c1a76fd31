// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: a cache file whose lock is held, and all that may be done to it then. The object is the
// permission: it takes over a lock that was just taken, and gives it back at its end, exceptions included.
//
// Functions return 0 or a KFLCacheCode with an error text.
#ifndef KFLCORE_KFLLOCKEDCACHE_H
#define KFLCORE_KFLLOCKEDCACHE_H

#include <span>
#include <string>
#include <vector>

#include "KFLCacheShare.h"

namespace KFL {

class KFLCacheProof;
struct KFLCacheEdit;

// Refuses keys and items that no file can have.
int checkChanges(const std::vector<const KFLCacheChange*>& changes, const KFLCacheLimits& limits);

class KFLLockedCache {
 public:
  using Storage = KFLCacheFile::Storage;

  // The turn of the share and the lock of the storage are held. `storage` changes when the file is mapped anew.
  KFLLockedCache(KFLCacheShare& share, Storage& storage) : share_(share), storage_(storage) {}
  ~KFLLockedCache() {
    if (isMine_) leave();
  }
  KFLLockedCache(const KFLLockedCache&) = delete;
  KFLLockedCache& operator=(const KFLLockedCache&) = delete;

  // Makes the file ready: mapped to its end, writable, and put right when a holder died.
  int enter();
  // Names this process in the lock word, which says that the file may be half-changed: before the first store.
  void mark();
  void leave();
  // Leaves the lock taken when this object ends; another one takes it over.
  void keep() { isMine_ = false; }

  // Makes or judges the contents of a file that was just opened.
  int judge();
  // Proves the file, gives back what nobody alive holds, and rebuilds the free list and the counts from what stands.
  int recover();
  // Tells every process not to use the file any more.
  int invalidate(int code);

  // Holds the current snapshot once more, or once less.
  int acquire(KFLSnapshotView& snapshot);
  int lower(std::uint64_t offset);

  // Makes the changes, which are sorted. isKept: this process keeps the current snapshot, for nobody; that hold ends when
  // the snapshot is replaced.
  int change(const std::vector<const KFLCacheChange*>& changes, bool isKept, bool& isReplaced);

  KFLMappedMemoryManager manager() const { return storage_->manager(); }

 private:
  using Edits = std::vector<KFLCacheEdit>;
  struct Replacing {
    bool isSole;  // nobody else holds the former snapshot
    bool isKept;  // this process keeps it
  };

  KFLFileLock& fileLock() const { return storage_->getLock(); }
  std::string describeHeader(int code) const;
  int checkSize();
  int proveOrRebuild();
  int prepare();
  int distrust(const char* what);
  int failed(const KFLCacheProof& proof) const;
  int reserveHeap();
  int reclaim(KFLCacheProof& proof);
  int collect();

  int tryChange(const std::vector<const KFLCacheChange*>& changes, bool isKept, bool& isReplaced,
                bool& isDoubted);
  bool isSole(const KFLSnapshotView& snapshot, bool isKept) const;
  int allocate(const std::vector<std::uint64_t>& sizes, std::vector<std::uint64_t>& offsets);
  int allocateGrowing(const std::vector<std::uint64_t>& sizes, std::vector<std::uint64_t>& offsets);
  int grow(std::uint64_t need);
  int growTo(std::uint64_t total, std::uint64_t larger);
  void replaceItem(const KFLSnapshotView& snapshot, const KFLCacheEdit& edit,
                   std::vector<std::uint64_t>& freed);
  void replaceSnapshot(const KFLSnapshotView& old, Replacing how, const Edits& edits, std::uint64_t snapshot,
                       std::uint64_t count, std::vector<std::uint64_t>& freed);
  bool freeSnapshot(const KFLSnapshotView& snapshot);
  bool freeBlocks(std::vector<std::uint64_t>& offsets);
  std::uint64_t capacityFor(std::uint64_t records) const;

  KFLCacheShare& share_;
  Storage& storage_;
  bool isMine_ = true;
};

// The file that the path names, locked, from its construction to its end.
class KFLCacheFile::Section {
 public:
  explicit Section(KFLCacheFile& file) KFL_NO_THREAD_SAFETY_ANALYSIS;
  ~Section() KFL_NO_THREAD_SAFETY_ANALYSIS;
  Section(const Section&) = delete;
  Section& operator=(const Section&) = delete;

  // 0, or why the lock was not taken.
  int code() const { return code_; }

 private:
  KFLCacheFile& file_;
  const int code_;
};

}  // namespace KFL

#endif
