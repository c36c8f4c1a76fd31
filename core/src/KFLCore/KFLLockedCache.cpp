// SPDX-License-Identifier: Apache-2.0
// Judging a locked cache file, putting right what a death left, and holding its snapshots.
#include "KFLLockedCache.h"

#include <unistd.h>

#include <algorithm>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLCacheProof.h>

#include "KFLCacheCodes.h"
#include "KFLDescriptor.h"

namespace KFL {

namespace {

// A count that is right already stays untouched, so that recovery does not make every page of the file dirty.
void setCount(std::int32_t& references, std::int32_t right) {
  if (references != right) storeWord(references, right);
}

// Whether one more may be counted on it. The current snapshot is somebody's, and damage may have made the count the greatest.
bool canBeHeld(const KFLSnapshotView& snapshot) {
  const std::int32_t references = snapshot.isSound() ? loadWord(snapshot.head().references) : 0;
  return references > 0 && references < INT32_MAX;
}

}  // namespace

int KFLLockedCache::enter() {
  if (const int code = checkSize(); code != 0) return code;
  if (storage_->isProtected() && storage_->protect(true) != 0) return kCacheNotMapped;
  if (manager().getHolder() == 0) return 0;
  mark();
  return recover();
}

void KFLLockedCache::mark() {
  const auto self = static_cast<std::uint32_t>(getpid());
  share_.isMarked = true;
  if (manager().getHolder() != self) manager().setHolder(self);
}

// A word that names one who died, for whom nobody could put the file right, stays. A forked child has nothing to give back.
void KFLLockedCache::leave() {
  isMine_ = false;
  if (!fileLock().isOpen()) return;
  if (share_.isMarked && !share_.isDoubtful && storage_->getFileSize() >= sizeof(KFLCacheHeader))
    manager().setHolder(0);
  share_.isMarked = share_.isDoubtful = false;
  if (share_.isProtected) storage_->protect(false);
  fileLock().unlock(storage_->header());
}

// What validateHeader() finds wrong, as the proof has it.
std::string KFLLockedCache::describeHeader(int code) const {
  if (code == kCacheInvalid) return "it is marked invalid";
  KFLCacheProof proof;
  proof.check(storage_->memory().first(sizeof(KFLCacheHeader)));
  return proof.faults().empty() ? "its header is being changed" : proof.faults().front().text;
}

int KFLLockedCache::checkSize() {
  const std::uint32_t total = manager().getTotalSize();
  if (total <= storage_->getSize()) return 0;
  std::size_t fileSize = 0;
  if (storage_->readFileSize(fileSize) != 0) return kCacheNotRemapped;
  if (fileSize < total) {
    setErrorMessage("%s ends at %zu, before its heap does: at %u", share_.path.c_str(), fileSize, total);
    return kCacheNotRemapped;
  }
  KFLMapOptions options;
  options.reserve = KFLMapOptions::Inside;
  Storage larger(new KFLCacheStorage(storage_->getPath()));
  if (larger->getStorage(total, storage_.get(), options) == nullptr) return kCacheNotRemapped;
  if (share_.isProtected && larger->protect(false) != 0) return kCacheNotRemapped;
  storage_ = std::move(larger);
  return 0;
}

int KFLLockedCache::judge() {
  std::size_t fileSize = 0;
  if (storage_->readFileSize(fileSize) != 0) return kCacheNotMapped;
  const std::size_t firstSize = firstFileSize(KFLMappedFile::getPageSize());
  if (manager().isUnmade(fileSize, firstSize)) {
    if (storage_->reserve(firstSize) != 0) return kCacheNotMapped;
    mark();
    manager().createFile(firstSize);
    share_.proved = &fileLock();
    return 0;
  }
  if (const int code = manager().validateHeader(); code != 0) {
    setErrorMessage("%s is no valid cache file: %s", share_.path.c_str(), describeHeader(code).c_str());
    return code;
  }
  if (manager().getTotalSize() > fileSize) {
    setErrorMessage("%s ends at %zu, before its heap does: at %u", share_.path.c_str(), fileSize,
                    manager().getTotalSize());
    return kCacheNotRemapped;
  }
  if (fileSize < firstSize && storage_->reserve(firstSize) != 0) return kCacheNotMapped;
  if (const int code = enter(); code != 0) return code;
  const KFLSnapshotView snapshot(storage_->memory(), manager().getSnapshot());
  if (canBeHeld(snapshot) && manager().isInitialized() && manager().isUsable(storage_->getSize())) return 0;
  return recover();
}

// What stands at every moment is proved first, and nothing is stored before that. Whoever lives and holds a snapshot has a
// lock for it, so all else can come back, whoever is there.
int KFLLockedCache::recover() {
  share_.isDoubtful = manager().getHolder() != 0;  // until it is done, or there is no file to save
  const int code = proveOrRebuild();
  if (code == 0 || isFault(code)) share_.isDoubtful = false;
  return code;
}

int KFLLockedCache::proveOrRebuild() {
  if (const int code = reserveHeap(); code != 0) return code;
  KFLCacheProof proof;
  const int code = proof.check(storage_->memory());
  if (code == 0 && proof.isTidy()) {
    share_.proved = &fileLock();
    return 0;
  }
  if (code != 0 && manager().getHolder() == 0) failed(proof);
  if (proof.check(storage_->memory(), {KFLProofScope::Kept}) != 0) return failed(proof);
  const int reclaimed = reclaim(proof);
  if (reclaimed == 0) share_.proved = &fileLock();
  return reclaimed;
}

int KFLLockedCache::failed(const KFLCacheProof& proof) const {
  const KFLCacheFault& fault = proof.faults().front();
  setErrorMessage("%s is damaged at offset %llu: %s", share_.path.c_str(),
                  static_cast<unsigned long long>(fault.offset), fault.text.c_str());
  KFL_LOG("KFLCore", kLogWarning, "[%s] %s", __func__, getErrorMessage().c_str());
  return fault.code;
}

// Puts every block that no living snapshot reaches into a free list that begins empty, and sets the counts: all by what
// was proved, in scope Kept, whatever stands in the file by now; or leaves the file as it is.
int KFLLockedCache::reclaim(KFLCacheProof& proof) {
  std::vector<std::uint64_t> held;
  if (const int error = fileLock().findHeld(held); error != 0) {
    setErrorMessage("cannot tell who holds %s: %s", share_.path.c_str(), describeError(error).c_str());
    return kCacheNotLocked;
  }
  const KFLCacheProof::ItemCounts counts = proof.keep(storage_->memory(), held);
  mark();
  KFLMappedMemoryManager heap = manager();
  heap.forgetFreeBlocks();
  KFLHeapPart last;
  std::uint64_t free = 0;
  proof.forEachBlock([&](const KFLProvedBlock& block) {
    if (block.use == KFLBlockUse::Snapshot || block.use == KFLBlockUse::Item) return;
    heap.addLast({block.offset, block.bytes / kHeapUnit}, last);
    free += block.bytes;
  });
  heap.setFreeBytes(proof.provedEnd(), free);
  std::int32_t& references = reinterpret_cast<KFLSnapshotHead*>(heap.at(proof.snapshot()))->references;
  const bool isHeld = std::binary_search(held.begin(), held.end(), proof.snapshot());
  setCount(references, isHeld ? std::max(loadWord(references), 2) : 1);
  for (const auto& [item, count] : counts)
    setCount(reinterpret_cast<KFLItemHead*>(heap.at(item))->references, count);
  return 0;
}

// Space on disk for the heap. A file never becomes longer by what it says of itself.
int KFLLockedCache::reserveHeap() {
  const std::uint64_t total = manager().getTotalSize();
  if (total <= storage_->getSize()) return storage_->reserve(total) == 0 ? 0 : int{kCacheFull};
  setErrorMessage("%s is damaged: its heap ends at %llu, of %zu bytes that are mapped", share_.path.c_str(),
                  static_cast<unsigned long long>(total), storage_->getSize());
  return kCacheNotRemapped;
}

// Gives back what the dead held, before the heap grows for it.
int KFLLockedCache::collect() {
  KFLCacheProof proof;
  if (proof.check(storage_->memory(), {KFLProofScope::Kept}) != 0) return failed(proof);
  return reclaim(proof);
}

int KFLLockedCache::invalidate(int code) {
  manager().invalidate();
  manager().setHolder(0);
  return code;
}

// Before the first change of a process: space on disk for what will be written, and the whole proof.
int KFLLockedCache::prepare() {
  int code = reserveHeap();
  if (code == kCacheFull || (code == 0 && share_.proved == &fileLock())) return code;
  if (code == 0) {
    KFLCacheProof proof;
    code = proof.check(storage_->memory()) == 0 ? 0 : recover();
    if (code == 0) share_.proved = &fileLock();
  }
  return isFault(code) ? invalidate(code) : code;
}

// What is found at fault behind the proof was written by somebody else; what still stands is kept.
int KFLLockedCache::distrust(const char* what) {
  setErrorMessage("%s is damaged: %s", share_.path.c_str(), what);
  KFL_LOG("KFLCore", kLogWarning, "[%s] %s", __func__, getErrorMessage().c_str());
  share_.proved = nullptr;
  mark();
  const int code = recover();
  return isFault(code) ? invalidate(kCacheUnsound) : code;
}

int KFLLockedCache::acquire(KFLSnapshotView& snapshot) {
  for (int tries = 0; tries < 2; ++tries) {
    snapshot = KFLSnapshotView(storage_->memory(), manager().getSnapshot());
    if (canBeHeld(snapshot)) {
      if (const int error = fileLock().hold(snapshot.getOffset()); error != 0) {
        setErrorMessage("cannot lock %s: %s", share_.path.c_str(), describeError(error).c_str());
        return kCacheNotLocked;
      }
      mark();
      incRef(snapshot.head().references);
      return 0;
    }
    if (const int code = distrust("its snapshot cannot be held"); code != 0) return code;
  }
  return kCacheUnsound;
}

// The count comes down first and the place among the holders is left last, so that a death leaves too high a count, and
// nobody takes the snapshot for free before it is.
int KFLLockedCache::lower(std::uint64_t offset) {
  const struct Leaving {
    KFLFileLock& lock;
    std::uint64_t snapshot;
    ~Leaving() { lock.letGo(snapshot); }
  } leaving{fileLock(), offset};
  const KFLSnapshotView snapshot(storage_->memory(), static_cast<std::int64_t>(offset));
  const std::int32_t references = snapshot.isSound() ? loadWord(snapshot.head().references) : 0;
  if (references <= 0) return distrust("a snapshot that was held does not hold together");
  mark();
  if (references > 1) {
    storeWord(snapshot.head().references, references - 1);
    return 0;
  }
  if (fileLock().countHeld(offset) != 1 || fileLock().isHeldElsewhere(offset)) return 0;
  if (manager().getSnapshot() == static_cast<std::int64_t>(offset)) return 0;
  if (const int code = prepare(); code != 0) return code;
  return freeSnapshot(KFLSnapshotView(storage_->memory(), static_cast<std::int64_t>(offset)))
             ? 0
             : distrust("a block that is given back is not in use");
}

}  // namespace KFL
