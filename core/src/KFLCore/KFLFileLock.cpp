// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLFileLock.h>

#include <fcntl.h>
#include <linux/futex.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <ctime>

#include <KFLCommon/KFLSystem.h>
#include <KFLCore/KFLCacheFormat.h>

#include "KFLPatience.h"

namespace KFL {

namespace {

using std::chrono::microseconds;

struct Range {
  off_t start;
  off_t end;
};

constexpr Range kWord{offsetof(KFLCacheHeader, lockWord), offsetof(KFLCacheHeader, magic)};
constexpr Range kPlaces{off_t{1} << 40, (off_t{1} << 40) + 1};
constexpr Range kHeld{off_t{1} << 41, off_t{1} << 42};
constexpr Range kQueue{(off_t{1} << 42) + 1, off_t{1} << 43};
constexpr Range kAll{0, kQueue.end};

constexpr Range byteAt(off_t at) {
  return {at, at + 1};
}
constexpr Range heldRange(std::uint64_t snapshot) {
  return byteAt(kHeld.start + static_cast<off_t>(snapshot));
}

struct flock flockOf(int type, const Range& range) {
  struct flock lock {};
  lock.l_type = static_cast<short>(type);
  lock.l_whence = SEEK_SET;
  lock.l_start = range.start;
  lock.l_len = range.end - range.start;
  return lock;
}

constexpr int lockType(KFLFileLock::Kind kind) {
  return kind == KFLFileLock::Kind::Alone ? F_WRLCK : F_RDLCK;
}

int setLock(int descriptor, int type, const Range& range) {
  struct flock lock = flockOf(type, range);
  if (KFLSystem::fcntl(descriptor, F_OFD_SETLK, reinterpret_cast<std::intptr_t>(&lock)) == 0) return 0;
  return errno == EACCES ? EAGAIN : errno;
}

constexpr int kTries = 100;

// The kernel may lack memory for a moment even here.
bool clearLock(int descriptor, const Range& range) {
  int tries = 0;
  while (tries < kTries && setLock(descriptor, F_UNLCK, range) != 0)
    ++tries;
  return tries < kTries;
}

enum class Found { Nothing, Lock, Unknown };

// Some range that another description has locked within this one.
Found lookForLock(int descriptor, const Range& range, Range& found) {
  if (range.start >= range.end) return Found::Nothing;
  struct flock lock = flockOf(F_WRLCK, range);
  if (KFLSystem::fcntl(descriptor, F_OFD_GETLK, reinterpret_cast<std::intptr_t>(&lock)) != 0)
    return Found::Unknown;
  if (lock.l_type == F_UNLCK) return Found::Nothing;
  found = {lock.l_start, lock.l_len == 0 ? range.end : lock.l_start + lock.l_len};
  return Found::Lock;
}

// Where a mistake costs no more than time.
bool findLock(int descriptor, const Range& range, Range& found) {
  return lookForLock(descriptor, range, found) == Found::Lock;
}

bool isLockedByOthers(int descriptor, const Range& range) {
  Range ignored{};
  return findLock(descriptor, range, ignored);
}

bool maybeLockedByOthers(int descriptor, const Range& range) {
  Range ignored{};
  return lookForLock(descriptor, range, ignored) != Found::Nothing;
}

constexpr microseconds kLongestNap{1000};

// Sleeps until the word changes or somebody wakes those who wait for it, a millisecond at most.
void awaitWord(const std::uint32_t* word, std::uint32_t seen) {
  const struct timespec nap { 0, microseconds(kLongestNap).count() * 1000 };
  if (word == nullptr ||
      (syscall(SYS_futex, word, FUTEX_WAIT, seen, &nap, nullptr, 0) != 0 && errno == EFAULT))
    nanosleep(&nap, nullptr);
}

void wakeAll(const std::uint32_t* word) {
  if (word != nullptr) syscall(SYS_futex, word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

std::uint32_t load(const std::uint32_t* word) {
  return word != nullptr ? __atomic_load_n(word, __ATOMIC_ACQUIRE) : 0;
}

}  // namespace

// A place in the queue, given up at its end. Where there can be none, its holder waits without one.
class KFLFileLock::Ticket {
 public:
  // Those behind the first wait on a word that never changes.
  Ticket(KFLFileLock& lock, int type, const std::uint32_t* word, const std::uint32_t* constant)
      : lock_(lock), word_(word), constant_(constant) {
    int tries = 0;
    do {
      number_ = kQueue.start;
      for (Range last{}; findLock(lock.getDescriptor(), {number_, kQueue.end}, last);)
        number_ = last.end;
    } while (setLock(lock.getDescriptor(), type, byteAt(number_)) == EAGAIN && ++tries < kTries);
  }
  ~Ticket() {
    clearLock(lock_.getDescriptor(), byteAt(number_));
    wakeAll(constant_);
  }
  Ticket(const Ticket&) = delete;
  Ticket& operator=(const Ticket&) = delete;

  // Whether nobody who is awake came before.
  bool isNext() {
    Range before{};
    const Range all{lock_.isSleeperThere() ? lock_.sleeper_ + 1 : kQueue.start, number_};
    isNext_ = !findLock(lock_.getDescriptor(), all, before);
    if (isNext_) return true;
    if (before.start != before_ || isLockedByOthers(lock_.getDescriptor(), kWord)) asleep_ = microseconds{0};
    before_ = before.start;
    if (asleep_ < kLongestSleep) return false;
    lock_.sleeper_ = before.start;
    return isNext_ = true;
  }
  // What stands in the way.
  std::uint64_t obstacle() const {
    return (isNext_ ? 0 : static_cast<std::uint64_t>(before_ - kQueue.start + 1)) << 32 | load(word_);
  }
  microseconds nap() {
    if (++naps_ <= kYields) {
      sched_yield();
      return microseconds{1};
    }
    if (isNext_) {
      awaitWord(word_, load(word_));
    } else {
      awaitWord(constant_, kCacheMagic);
    }
    asleep_ += kLongestNap;
    return kLongestNap;
  }

 private:
  static constexpr int kYields = 16;
  static constexpr microseconds kLongestSleep{20000};

  KFLFileLock& lock_;
  const std::uint32_t* word_;
  const std::uint32_t* constant_;
  off_t number_ = 0;
  off_t before_ = 0;
  bool isNext_ = false;
  int naps_ = 0;
  microseconds asleep_{0};
};

KFLFileLock::~KFLFileLock() {
  if (isOpen()) clearLock(getDescriptor(), kAll);
}

int KFLFileLock::open(const std::string& path, int access) {
  KFLMapOptions options;
  options.access = access;
  const int opened = descriptor_.open([&] { return openGuarded(path, options); });
  return opened < 0 ? -opened : 0;
}

bool KFLFileLock::isSameFile(const KFLMappedFile& mapped) const {
  struct stat file {};
  return KFLSystem::fstat(getDescriptor(), &file) == 0 && mapped.isFile(file.st_dev, file.st_ino);
}

int KFLFileLock::lock(std::chrono::milliseconds timeout, KFLCacheHeader* header, Kind kind) {
  if (isQueueEmpty()) {
    if (const int error = tryLock(kind); error != EAGAIN) return error;
  }
  const std::uint32_t* const word = header != nullptr ? &header->lockWord : nullptr;
  Ticket ticket(*this, lockType(kind), word, header != nullptr ? &header->magic : nullptr);
  KFLPatience patience(timeout);
  for (;;) {
    if (ticket.isNext()) {
      if (const int error = tryLock(kind); error != EAGAIN) return error;
    }
    patience.see(ticket.obstacle());
    if (patience.isSpent()) return EAGAIN;
    patience.count(ticket.nap());
  }
}

int KFLFileLock::tryLock(Kind kind) {
  return setLock(getDescriptor(), lockType(kind), kWord);
}

// One that joins the queue between the look and the unlocking finds the word free at its next try.
void KFLFileLock::unlock(KFLCacheHeader* header) {
  const bool isAwaited = header != nullptr && isLockedByOthers(getDescriptor(), kQueue);
  if (!clearLock(getDescriptor(), kWord)) descriptor_.close();
  if (isAwaited) wakeAll(&header->lockWord);
}

bool KFLFileLock::isSleeperThere() {
  if (sleeper_ != 0 && !isLockedByOthers(getDescriptor(), byteAt(sleeper_))) sleeper_ = 0;
  return sleeper_ != 0;
}

bool KFLFileLock::isQueueEmpty() {
  return !isLockedByOthers(getDescriptor(), {isSleeperThere() ? sleeper_ + 1 : kQueue.start, kQueue.end});
}

int KFLFileLock::takePlace() {
  return setLock(getDescriptor(), F_RDLCK, kPlaces);
}

bool KFLFileLock::isOnlyUser() {
  return !maybeLockedByOthers(getDescriptor(), kPlaces);
}

int KFLFileLock::hold(std::uint64_t snapshot) {
  const auto entry = held_.try_emplace(snapshot, 0).first;
  const int error = entry->second == 0 ? setLock(getDescriptor(), F_RDLCK, heldRange(snapshot)) : 0;
  if (error == 0)
    ++entry->second;
  else
    held_.erase(entry);
  return error;
}

void KFLFileLock::letGo(std::uint64_t snapshot) {
  const auto entry = held_.find(snapshot);
  if (entry == held_.end() || --entry->second > 0) return;
  held_.erase(entry);
  clearLock(getDescriptor(), heldRange(snapshot));
}

std::uint32_t KFLFileLock::countHeld(std::uint64_t snapshot) const {
  const auto entry = held_.find(snapshot);
  return entry == held_.end() ? 0 : entry->second;
}

bool KFLFileLock::isHeldElsewhere(std::uint64_t snapshot) const {
  return maybeLockedByOthers(getDescriptor(), heldRange(snapshot));
}

int KFLFileLock::findHeld(std::vector<std::uint64_t>& all) const {
  all.clear();
  for (const auto& [snapshot, count] : held_)
    all.push_back(snapshot);
  std::vector<Range> open{kHeld};
  while (!open.empty()) {
    const Range range = open.back();
    open.pop_back();
    Range found{};
    const Found answer = lookForLock(getDescriptor(), range, found);
    if (answer == Found::Unknown) return errno;
    if (answer == Found::Nothing) continue;
    all.push_back(static_cast<std::uint64_t>(found.start - kHeld.start));
    open.push_back({range.start, found.start});
    open.push_back({found.end, range.end});
  }
  std::sort(all.begin(), all.end());
  all.erase(std::unique(all.begin(), all.end()), all.end());
  return 0;
}

}  // namespace KFL
