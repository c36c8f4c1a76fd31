// SPDX-License-Identifier: Apache-2.0
// Opening a cache file: mapping it, making or judging its contents, and putting right what a death left.
#include <unistd.h>

#include <cerrno>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLCacheFile.h>
#include <KFLCore/KFLCacheProof.h>

#include "KFLDeadline.h"

namespace KFL {

namespace {

// What a new file takes at least; the mapping has whole pages, and one more than that.
constexpr std::size_t kFirstSize = 4616;

// A count that is right already stays untouched, so that opening a file does not make every page of it dirty.
void resetCount(std::int32_t& references) {
  if (references != 1) storeWord(references, 1);
}

std::size_t firstMappingSize() {
  const std::size_t page = KFLMappedFile::getPageSize();
  return (kFirstSize / page + 1) * page;
}

}  // namespace

KFLCacheFile::KFLCacheFile(const std::string& path, const KFLCacheLimits& limits)
    : path_(path), limits_(limits) {}

int KFLCacheFile::initialize(bool, bool invalidateOnFailure) {
  KFLDeadline deadline(timeout());
  if (const int code = takeTurn(deadline); code != 0) return code;
  detach();
  protect_ = false;
  const int code = openLocked(deadline, {invalidateOnFailure, true});
  isWanted_ = code == 0;
  if (code == 0) leave();
  turn_.unlock();
  return code;
}

int KFLCacheFile::reinit() {
  turn_.lock();
  isWanted_ = false;
  detach();
  turn_.unlock();
  return 0;
}

// Opens the file and leaves it locked, or not open.
int KFLCacheFile::openLocked(KFLDeadline& deadline, OpenRules rules) {
  for (std::uint32_t tries = 0; tries < limits_.openings; ++tries) {
    if (const int code = attach(); code != 0) return code;
    if (const int code = awaitLock(deadline); code != 0) {
      if (rules.invalidateUnlocked) manager().invalidate();
      detach();
      return code;
    }
    if (storage_->isAtPath()) return judge(rules);
    storage_->getLock().unlock();  // it was replaced before it was locked
    detach();
  }
  setErrorMessage("cannot open %s: it is replaced again and again", path_.c_str());
  return kCacheNotMapped;
}

int KFLCacheFile::attach() {
  Storage storage(new KFLCacheStorage(path_));
  if (storage->getStorage(firstMappingSize(), nullptr) == nullptr) return kCacheNotMapped;
  belongHere();
  useStorage(std::move(storage));
  return 0;
}

void KFLCacheFile::useStorage(Storage storage) {
  storage_ = std::move(storage);
  base_.store(storage_ ? storage_->memory().data() : nullptr, std::memory_order_release);
}

void KFLCacheFile::detach() {
  useStorage(nullptr);
}

int KFLCacheFile::judge(OpenRules rules) {
  const std::size_t fileSize = storage_->getFileSize();
  const int code = judgeContents();
  if (code == 0) return 0;
  const bool couldNotMap = code == kCacheNotRemapped && manager().getTotalSize() <= fileSize;
  return giveUp(code, rules.invalidateUnsound && !couldNotMap);
}

int KFLCacheFile::judgeContents() {
  if (!manager().isInitialized()) {
    manager().createFile(storage_->getSize());
  } else if (const int code = manager().validateHeader(); code != 0) {
    setErrorMessage("%s is no valid cache file: %s", path_.c_str(),
                    code == kCacheInvalid ? "it is marked invalid" : "a word of its header is wrong");
    return code;
  }
  if (const int code = unsafe_checkSize(); code != 0) return code;
  if (const int code = allowWriting(); code != 0) return code;

  const bool holderDied = manager().getHolder() != 0;
  manager().setHolder(static_cast<std::uint32_t>(getpid()));
  bool alone = false;
  if (const int code = settle(holderDied, alone); code != 0) return code;
  KFLSnapshotHead* const snapshot = unsafe_acquireSnapshot();
  if (snapshot == nullptr) return kCacheUnsound;
  KFL::decRef(snapshot->references);
  storage_->syncMemory();
  return 0;
}

// Takes the lock back from a file that cannot be used.
int KFLCacheFile::giveUp(int code, bool invalidate) {
  if (invalidate) manager().invalidate();
  if (manager().getHolder() == static_cast<std::uint32_t>(getpid())) manager().setHolder(0);
  storage_->getLock().unlock();
  detach();
  return code;
}

int KFLCacheFile::unsafe_checkSize() {
  const std::uint32_t total = manager().getTotalSize();
  if (total <= storage_->getSize()) return 0;
  KFLMapOptions options;
  options.reserve = 0;
  Storage larger(new KFLCacheStorage(path_));
  if (larger->getStorage(total, storage_.get(), options) == nullptr) return kCacheNotRemapped;
  if (protect_ && larger->protect(false) != 0) return kCacheNotRemapped;
  useStorage(std::move(larger));
  return 0;
}

int KFLCacheFile::allowWriting() {
  return protect_ && storage_->protect(true) != 0 ? kCacheNotMapped : 0;
}

// Proves the file sound before anything in it is followed. Where a holder died on its way, the bytes in use are taken from
// the free list, which is in order at every moment. When nobody else can have anything of the file, all that the current
// snapshot does not reach is given back, and a free list that does not hold together is built anew.
int KFLCacheFile::settle(bool holderDied, bool& alone) {
  if (holderDied && manager().isUsable(storage_->getSize())) manager().recount();
  KFLFileLock& lock = storage_->getLock();
  alone = lock.tryBeAlone();
  KFLCacheProof proof;
  int code = proof.check(storage_->memory());
  if (code != 0 && alone) code = proof.check(storage_->memory(), {KFLProofScope::Kept});
  if (code != 0) {
    setErrorMessage("%s is damaged at offset %llu: %s", path_.c_str(),
                    static_cast<unsigned long long>(proof.faults().front().offset),
                    proof.faults().front().text.c_str());
    KFL_LOG("KFLCore", kLogWarning, "[%s] %s", __func__, getErrorMessage().c_str());
  } else if (alone && !proof.isTidy()) {
    reclaim(proof);
  }
  const int placed = lock.takePlace();
  if (code == 0 && placed != 0) setErrorMessage("cannot lock %s", path_.c_str());
  return code == 0 && placed != 0 ? kCacheNotLocked : code;
}

// Puts every block that the snapshot does not reach into a free list that begins empty, so that a death at any store
// leaves a sound list again.
void KFLCacheFile::reclaim(const KFLCacheProof& proof) {
  KFLMappedMemoryManager heap = manager();
  heap.forgetFreeBlocks();
  heap.recount();
  KFLHeapBlock* last = heap.sentinel();
  proof.forEachBlock([&](const KFLProvedBlock& block) {
    if (block.use == KFLBlockUse::Snapshot || block.use == KFLBlockUse::Item) return;
    last = heap.release(reinterpret_cast<KFLHeapBlock*>(heap.at(block.offset)), last);
  });
  const KFLSnapshotView snapshot(storage_->memory(), heap.getSnapshot());
  resetCount(snapshot.head().references);
  for (std::uint32_t i = 0; i < snapshot.size(); ++i)
    resetCount(snapshot.getItem(i)->references);
}

int KFLCacheFile::repair(bool& alone) {
  Storage storage;
  if (const int code = lock(storage); code != 0) return code;
  const int code = settle(true, alone);
  if (code != 0) markUnsound("it cannot be repaired");
  unlock(storage);
  return code;
}

}  // namespace KFL
