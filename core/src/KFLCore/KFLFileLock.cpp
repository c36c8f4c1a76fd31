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
#include <utility>

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
constexpr Range kPassed{(off_t{1} << 43) + 1, off_t{1} << 44};
constexpr Range kAll{0, kPassed.end};

constexpr Range byteAt(off_t at) {
  return {at, at + 1};
}
// Where it is said that this ticket, or a later one, is passed over.
constexpr Range passedFrom(off_t ticket) {
  return {kPassed.start + ticket - kQueue.start, kPassed.end};
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

// The one that begins first.
bool findFirstLock(int descriptor, const Range& range, Range& found) {
  if (!findLock(descriptor, range, found)) return false;
  for (Range earlier{}; findLock(descriptor, {range.start, found.start}, earlier);)
    found = earlier;
  return true;
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

// Sleeps until the word changes or somebody wakes those who wait for it, a millisecond at most. True when it was woken. Here
// and below the kernel alone looks at the word: a waiter outlives the cutting of the file.
bool awaitWord(const std::uint32_t* word, std::uint32_t seen) {
  const struct timespec nap { 0, microseconds(kLongestNap).count() * 1000 };
  if (word != nullptr) {
    if (syscall(SYS_futex, word, FUTEX_WAIT, seen, &nap, nullptr, 0) == 0) return true;
    if (errno != EFAULT) return false;
  }
  nanosleep(&nap, nullptr);
  return false;
}

void wakeAll(const std::uint32_t* word) {
  if (word != nullptr) syscall(SYS_futex, word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

}  // namespace

// A place in the queue, given up at its end. Where there can be none, its holder waits without one.
class KFLFileLock::Ticket {
 public:
  // Those behind the first wait on a word that never changes.
  Ticket(KFLFileLock& lock, int type, const std::uint32_t* word, const std::uint32_t* constant)
      : lock_(lock), type_(type), word_(word), constant_(constant) {
    take(kQueue.start);
  }
  ~Ticket() { giveUp(number_); }
  Ticket(const Ticket&) = delete;
  Ticket& operator=(const Ticket&) = delete;

  // Whether nobody who is awake came before.
  bool isNext() {
    if (wakings_ >= kVainWakings || isLockedByOthers(lock_.getDescriptor(), passedFrom(number_))) queueAnew();
    Range before{};
    const Range all{lock_.isSleeperThere() ? lock_.sleeper_ + 1 : kQueue.start, number_};
    isNext_ = !findFirstLock(lock_.getDescriptor(), all, before);
    if (isNext_) return true;
    if (before.start != before_ || isLockedByOthers(lock_.getDescriptor(), kWord)) asleep_ = microseconds{0};
    before_ = before.start;
    if (asleep_ < kLongestSleep) return false;
    lock_.passOver(before.start);
    return isNext_ = true;
  }
  // What stands in the way: another one whenever somebody let go of the word, as far as that can be told.
  std::uint64_t obstacle() const {
    const std::uint64_t turn = isNext_ ? turns_ : static_cast<std::uint64_t>(before_ - kQueue.start + 1);
    return (turn << 1 | (isNext_ ? 1 : 0)) << 32 | lock_.readWord();
  }
  // Behind a try in vain.
  microseconds nap() {
    if (std::exchange(isWoken_, false)) {
      ++turns_;
      ++wakings_;
    }
    if (++naps_ <= kYields) {
      sched_yield();
      return microseconds{1};
    }
    if (isNext_) {
      isWoken_ = awaitWord(word_, lock_.readWord());
    } else {
      awaitWord(constant_, kCacheMagic);
    }
    asleep_ += kLongestNap;
    return kLongestNap;
  }

 private:
  static constexpr int kYields = 16;
  static constexpr microseconds kLongestSleep{20000};
  // The lock went to others so often: programs of the last release do not say that they pass a place over.
  static constexpr int kVainWakings = 2;

  // The place behind the last, and behind those who were passed over: others may say so of one that is empty by now.
  bool take(off_t from) {
    const int descriptor = lock_.getDescriptor();
    for (int tries = 0; tries < kTries; ++tries) {
      number_ = from;
      for (Range last{}; findLock(descriptor, {number_, kQueue.end}, last);)
        number_ = last.end;
      for (Range last{}; findLock(descriptor, passedFrom(number_), last);)
        number_ = kQueue.start + (last.end - kPassed.start);
      const int error = setLock(descriptor, type_, byteAt(number_));
      if (error != EAGAIN) return error == 0;
    }
    return false;
  }
  void giveUp(off_t number) const {
    clearLock(lock_.getDescriptor(), byteAt(number));
    wakeAll(constant_);
  }
  // A place that was passed over would be for as long as it is taken, also while its holder is awake.
  void queueAnew() {
    const off_t former = number_;
    wakings_ = 0;
    if (take(former + 1)) {
      ++turns_;
      giveUp(former);
    } else {
      number_ = former;
    }
  }

  KFLFileLock& lock_;
  int type_;
  const std::uint32_t* word_;
  const std::uint32_t* constant_;
  off_t number_ = 0;
  off_t before_ = 0;
  bool isNext_ = false;
  bool isWoken_ = false;
  int naps_ = 0;
  int wakings_ = 0;
  std::uint64_t turns_ = 0;
  microseconds asleep_{0};
};

KFLFileLock::~KFLFileLock() {
  if (isOpen()) clearLock(getDescriptor(), kAll);
  close();
}

void KFLFileLock::close() {
  const KFLForkPause pause;
  forked();
}

// Closing the child's copy leaves the parent's lock alone.
void KFLFileLock::forked() noexcept {
  if (descriptor_ >= 0) KFLSystem::close(descriptor_);
  descriptor_ = -1;
}

int KFLFileLock::open(const std::string& path, int access) {
  KFLMapOptions options;
  options.access = access;
  const KFLForkPause pause;
  const int opened = openGuarded(path, options);
  if (opened < 0) return -opened;
  descriptor_ = opened;
  return 0;
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
  if (!clearLock(getDescriptor(), kWord)) close();
  if (isAwaited) wakeAll(&header->lockWord);
}

std::uint32_t KFLFileLock::readWord() const {
  std::uint32_t word = 0;
  const ssize_t got = KFLSystem::pread(getDescriptor(), &word, sizeof(word), kWord.start);
  return got == sizeof(word) ? word : 0;
}

bool KFLFileLock::isSleeperThere() {
  if (sleeper_ != 0 && !isLockedByOthers(getDescriptor(), byteAt(sleeper_))) passOver(0);
  return sleeper_ != 0;
}

// Says so in the file, too, where the sleeper sees it. What cannot be said costs that one no more than its place.
void KFLFileLock::passOver(off_t ticket) {
  if (sleeper_ != 0) clearLock(getDescriptor(), byteAt(passedFrom(sleeper_).start));
  sleeper_ = ticket;
  if (ticket != 0) setLock(getDescriptor(), F_RDLCK, byteAt(passedFrom(ticket).start));
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
