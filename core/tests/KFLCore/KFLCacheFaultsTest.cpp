// SPDX-License-Identifier: Apache-2.0
// What goes wrong around a cache file: holders that hang, children, no space, somebody else's data. Nothing that was
// committed is ever the price. KFLCacheLivesTest has deaths, damage and no memory.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include <chrono>
#include <functional>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <KFLCommon/KFLLog.h>
#include <KFLCommon/KFLSystem.h>
#include <KFLCore/KFLFileLock.h>
#include <KFLCore/KFLFolders.h>

#include "CacheTest.h"

namespace {

using namespace cachetest;
using namespace std::chrono_literals;
using testing::HasSubstr;
namespace fs = std::filesystem;

Contents fill(KFLCacheFile& cache, int items, std::size_t size = 200) {
  KFLCacheChanges changes;
  Contents twin;
  for (int i = 0; i < items; ++i) {
    changes.put(std::to_string(1000 + i), std::string(size, 'x'));
    twin[std::to_string(1000 + i)] = std::string(size, 'x');
  }
  EXPECT_EQ(cache.apply(changes), 0) << getErrorMessage();
  return twin;
}

bool isValid(const std::string& path) {
  return wordOf(readFile(path), 52) == 1;
}

// A process that does the work with the lock, and then waits to be killed or woken.
pid_t startHolder(const std::string& path, int signal) {
  const pid_t child = startChild([&] {
    Cache cache = openCache(path);
    KFLCacheFile::Storage storage;
    if (cache->lock(storage) != 0) return 1;
    raise(signal);
    cache->unlock(storage);
    return 0;
  });
  int status = 0;
  waitpid(child, &status, signal == SIGSTOP ? WUNTRACED : 0);
  return child;
}

TEST(CacheFaults, AHolderThatIsStoppedCostsACodeAndNeverTheFile) {
  const Folder folder;
  const std::string path = folder / "cache";
  Contents twin = fill(*openCache(path), 5);
  Cache reader = openCache(path);
  reader->setLockTimeout(50ms);
  KFLCacheFile::Storage storage;
  KFLSnapshotHead* const held = reader->acquireSnapshot(storage);
  const pid_t holder = startHolder(path, SIGSTOP);
  Cache cache = makeCache(path);
  cache->setLockTimeout(50ms);
  const std::string name = "process " + std::to_string(holder);
  EXPECT_EQ(cache->initialize(true, true), -9);
  EXPECT_THAT(getErrorMessage(), HasSubstr(name));
  setErrorMessage("none");
  EXPECT_EQ(reader->releaseSnapshot(held, storage), -9);
  EXPECT_THAT(getErrorMessage(), HasSubstr(name));
  EXPECT_EQ(removeLockedCacheFile(path, -9), -1);
  EXPECT_TRUE(isValid(path));
  kill(holder, SIGCONT);
  EXPECT_EQ(waitFor(holder), 0);
  EXPECT_EQ(cache->initialize(true, true), 0);
  EXPECT_EQ(contentsOf(*cache), twin);

  ASSERT_EQ(cache->lock(storage), 0);
  std::thread([&] {
    EXPECT_EQ(put(*cache, "key", "text"), -9);
    EXPECT_THAT(getErrorMessage(), HasSubstr("another thread"));
  }).join();
  unlock(*cache, storage);

  const pid_t again = startHolder(path, SIGSTOP);
  cache->setInvalidatesStuck(true);
  EXPECT_EQ(cache->initialize(true, true), -9);
  EXPECT_FALSE(isValid(path)) << "as it was asked for";
  kill(again, SIGKILL);
  waitFor(again);
}

// As a clock that is set forward would have it, a waiter that was itself stopped has waited too long.
TEST(CacheFaults, WaitingIsCountedInTheWaitersOwnTries) {
  const Folder folder;
  const std::string path = folder / "cache";
  const pid_t holder = startHolder(path, SIGSTOP);
  const pid_t waiter = startChild([&] {
    Cache cache = makeCache(path);
    cache->setLockTimeout(400ms);
    return cache->initialize(true, true);
  });
  std::this_thread::sleep_for(50ms);
  kill(waiter, SIGSTOP);
  std::this_thread::sleep_for(600ms);
  kill(waiter, SIGCONT);
  std::this_thread::sleep_for(20ms);
  kill(holder, SIGCONT);
  EXPECT_EQ(waitFor(waiter), 0);
  EXPECT_EQ(waitFor(holder), 0);
}

// Others at a file's lock, as the waiter's own looks at it go by: one who has the word for a while, and some who queue and
// then leave, the first first, or sleep. Counted are the looks, so no clock and no load matters.
struct Queue {
  int wordUntil = 0;  // looks
  int leaveEvery = 0;
  std::size_t sleepers = 0;
  std::vector<int> waiters = {};
  int word = -1;
  int looks = 0;
  bool isOvertaken = false;

  static int lockAt(const std::string& path, off_t at, off_t length) {
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_start = at;
    lock.l_len = length;
    EXPECT_EQ(fcntl(file, F_OFD_SETLK, &lock), 0);
    return file;
  }
  void see(int command, const struct flock& lock) {
    if (command == F_OFD_SETLK && lock.l_start == 24 && lock.l_type == F_WRLCK)
      isOvertaken = isOvertaken || waiters.size() > sleepers;
    if (command != F_OFD_GETLK) return;
    ++looks;
    if (looks >= wordUntil && word >= 0) close(std::exchange(word, -1));
    if (looks < wordUntil || waiters.size() <= sleepers || looks % leaveEvery != 0) return;
    close(waiters.front());
    waiters.erase(waiters.begin());
  }
};

TEST(CacheFaults, WaitersAreServedInTheirOrderAndSleepersArePassedOver) {
  const Folder folder;
  const std::string path = folder / "cache";
  openCache(path);
  for (const auto& [wordUntil, leaveEvery, waiters, sleepers] :
       {std::tuple{0, 10, 1, 0U}, {0, 10, 3, 0U}, {150, 10, 2, 0U}, {0, 10, 1, 1U}, {0, 100, 2, 1U}}) {
    static Queue queue;
    queue = {wordUntil, leaveEvery, sleepers};
    if (wordUntil > 0) queue.word = Queue::lockAt(path, 24, 4);
    for (int i = 1; i <= waiters; ++i)  // sleepers come first, but opened the file last
      queue.waiters.push_back(
          Queue::lockAt(path, (off_t{1} << 42) + (sleepers > 0 ? waiters + 1 - i : i), 1));
    KFLFileLock lock;
    ASSERT_EQ(lock.open(path), 0);
    const auto own = std::exchange(KFLSystem::calls.fcntl, [](int file, int command, std::intptr_t argument) {
      if (command == F_OFD_SETLK || command == F_OFD_GETLK)
        queue.see(command, *reinterpret_cast<const struct flock*>(argument));
      return fcntl(file, command, argument);
    });
    EXPECT_EQ(lock.lock(100ms, nullptr), 0);
    EXPECT_FALSE(queue.isOvertaken);
    EXPECT_EQ(queue.waiters.size(), sleepers);
    const int looks = std::exchange(queue.looks, 0);
    lock.unlock(nullptr);
    EXPECT_EQ(lock.lock(100ms, nullptr), 0);
    EXPECT_LT(queue.looks, 10) << "after " << looks;
    lock.unlock(nullptr);
    KFLSystem::calls.fcntl = own;
    for (const int waiter : queue.waiters)
      close(waiter);
  }
}

// Behind those who wait by then, and with its whole patience, since nobody has kept the lock for so long.
TEST(CacheFaults, OneThatWasPassedOverHasItsTurnOnceItIsAwake) {
  const Folder folder;
  const Cache cache = openCache(folder / "cache");
  const pid_t sleeper = startChild([&] {
    const Cache mine = openCache(folder / "cache");
    mine->setLockTimeout(100ms);
    raise(SIGSTOP);
    return put(*mine, "key", "text") == 0 ? 0 : 1;
  });
  int status = 0;
  waitpid(sleeper, &status, WUNTRACED);
  KFLCacheFile::Storage storage;
  ASSERT_EQ(cache->lock(storage), 0);
  int turns = 0;
  const auto takeTurn = [&] {
    std::this_thread::sleep_for(30ms);
    unlock(*cache, storage);
    EXPECT_EQ(cache->lock(storage), 0);
  };
  kill(sleeper, SIGCONT);
  std::this_thread::sleep_for(30ms);
  kill(sleeper, SIGSTOP);
  takeTurn();
  kill(sleeper, SIGCONT);
  for (; turns < 20 && waitpid(sleeper, &status, WNOHANG) == 0; ++turns)
    takeTurn();
  unlock(*cache, storage);
  EXPECT_EQ(status, 0);
  EXPECT_LE(turns, 3);
}

struct CutUser {
  Cache cache;
  KFLCacheSnapshot held = {};
  KFLCacheFile::Storage storage = {};
  KFLSnapshotHead* also = nullptr;
  KFLCacheFile::Storage locked = {};
};

// An agent that does nothing with the file meanwhile finds it out, whatever it does next, and at its end.
TEST(CacheFaults, AFileThatWasCutIsACode) {
  const struct {
    std::function<int(CutUser&)> call;
    bool isLocked = false;
  } rows[] = {{[](CutUser& u) { return put(*u.cache, "key", "text"); }},
              {[](CutUser& u) { return holdOnce(*u.cache); }},
              {[](CutUser& u) { return repairOnce(*u.cache); }},
              {[](CutUser& u) { return openAgain(*u.cache); }},
              {[](CutUser& u) { return u.cache->reinit(); }},
              {[](CutUser& u) { return u.cache->sync(); }},
              {[](CutUser& u) { return u.cache->setProtected(true); }},
              {[](CutUser& u) { return u.cache->acquireSnapshot(u.locked) == nullptr ? -1 : 0; }},
              {[](CutUser& u) { return u.cache->releaseSnapshot(u.also, u.storage) == -10 ? -10 : 99; }},
              {[](CutUser& u) { return u.held.release(), 0; }},
              {[](CutUser& u) { return u.held = KFLCacheSnapshot(), u.cache.reset(), 0; }},
              {[](CutUser& u) { return unlock(*u.cache, u.locked), 0; }, true}};
  const Folder folder;
  const std::string path = folder / "cache";
  for (const std::uintmax_t size : {0, 40, 56, 1000, 4096, 20000})
    for (const auto& row : rows)
      EXPECT_EQ(waitFor(startChild([&] {
                  setLogLevel(kLogFatal);
                  CutUser user{openCache(path)};
                  fill(*user.cache, 200);
                  if (user.cache->hold(user.held) != 0 || user.held.size() != 200) return 1;
                  user.also = user.cache->acquireSnapshot(user.storage);
                  if (row.isLocked && user.cache->lock(user.locked) != 0) return 3;
                  fs::resize_file(path, size);
                  std::this_thread::sleep_for(15ms);
                  const int code = row.call(user);
                  if (code < 0) removeLockedCacheFile(path, code);
                  user = {};
                  fs::remove(path);
                  return code > 0 ? 2 : 0;
                })),
                0)
          << size << " " << &row - rows;
}

TEST(CacheFaults, SomebodyElsesBytesAreNoNewCache) {
  const Folder folder;
  const std::string path = folder / "cache";
  openCache(folder / "made");
  const std::string made = readFile(folder / "made");
  std::string halfMade = made.substr(0, 5000) + std::string(3192, '\0');
  setWord(halfMade, 8, 0);
  setWord(halfMade, 24, 4711);
  std::string foreign = halfMade;
  foreign[6000] = 'x';
  setWord(foreign, 24, 0);
  const struct {
    std::string bytes;
    bool isNew;
  } rows[] = {{"", true},       {"8", false},     {"x", false},      {std::string(1, '\0'), true},
              {halfMade, true}, {foreign, false}, {"# text", false}, {std::string(8192, '\0'), true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.bytes.substr(0, 8) + " " + std::to_string(row.bytes.size()));
    writeFile(path, row.bytes);
    EXPECT_EQ(makeCache(path)->initialize(true, false) == 0, row.isNew);
    if (row.isNew) {
      EXPECT_EQ(contentsOf(*openCache(path)), Contents());
    } else {
      EXPECT_TRUE(readFile(path) == row.bytes);
    }
  }
}

TEST(CacheFaults, LimitsBeyondWhatAFileCanHaveAreHarmless) {
  const Folder folder;
  const Cache cache = openCache(folder / "cache", {.growth = 0xFFFFFFFF, .maxSize = 0xFFFFFFFF});
  cache->setLockTimeout(std::chrono::milliseconds::max());
  fill(*cache, 200);
  EXPECT_EQ(openAgain(*openCache(folder / "cache")), 0);
}

// Replacing one item is one store where nobody holds the snapshot; who does never sees it (KFLCacheLivesTest).
TEST(CacheFaults, ReplacingOneItemCopiesTheRecordsOnlyForThoseWhoHoldThem) {
  const Folder folder;
  const std::string path = folder / "cache";
  const Cache users[] = {openCache(path), openCache(path)};
  fill(*users[0], 20);
  for (const unsigned holders : {0, 1, 2, 3, 0}) {
    KFLCacheSnapshot held[2];
    for (const unsigned i : {0, 1})
      EXPECT_TRUE((holders >> i & 1) == 0 || users[i]->hold(held[i]) == 0);
    const std::uint32_t before = wordOf(readFile(path), 20);
    ASSERT_EQ(put(*users[0], "1007", std::string(300, 'a')), 0);
    EXPECT_EQ(wordOf(readFile(path), 20) == before, holders == 0) << holders;
  }
  // What a process keeps for nobody stands in the way of others, until it looks again.
  for (const bool isKept : {false, true, true}) {
    const std::uint32_t before = wordOf(readFile(path), 20);
    ASSERT_EQ(put(*users[0], "1007", "text"), 0);
    EXPECT_EQ(wordOf(readFile(path), 20) != before, isKept);
    EXPECT_EQ(holdOnce(*users[1]), 0);
    EXPECT_EQ(lostBytes(path), 0U);
  }
}

// A child that was made without the library's knowledge, and may have the same process id, holds nothing of its parent's.
int workOfAClone(const std::string& path, unsigned long flags) {
  Cache cache = openCache(path);
  KFLCacheSnapshot held;
  if (cache->hold(held) != 0) return 10;
  const auto child =
      static_cast<pid_t>(syscall(SYS_clone, flags | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
  if (child == 0) {
    if (held.size() != 0) _exit(1);
    held.release();
    _exit(put(*cache, "child", "text") == 0 ? 0 : 2);
  }
  if (const int code = waitFor(child); code != 0) return code;
  return held.size() == 5 ? 0 : 11;
}

TEST(CacheFaults, ABareCloneHoldsNothingOfItsParents) {
  const Folder folder;
  const std::string path = folder / "cache";
  fill(*openCache(path), 5);
  EXPECT_EQ(workOfAClone(path, 0), 0);
  removeKey(*openCache(path), "child");
  // Both are the first process of their namespace.
  const int code = waitFor(startChild([&] {
    if (unshare(CLONE_NEWPID) != 0) return 77;
    return waitFor(startChild([&] { return workOfAClone(path, CLONE_NEWPID); }));
  }));
  EXPECT_TRUE(code == 0 || code == 77) << code;
  EXPECT_EQ(contentsOf(*openCache(path)).count("child"), code == 77 ? 0U : 1U);
  EXPECT_EQ(lostBytes(path), 0U);
}

TEST(CacheFaults, AForkedChildGivesNothingBackForItsParent) {
  const Folder folder;
  const std::string path = folder / "cache";
  Cache cache = openCache(path);
  KFLCacheFile::Storage storage;
  ASSERT_EQ(cache->lock(storage), 0);
  for (const auto make : {&fork, &_Fork}) {
    const pid_t child = make();
    if (child == 0) {
      unlock(*cache, storage);
      cache.reset();
      _exit(put(*openCache(folder / "other"), "key", "text"));
    }
    EXPECT_EQ(waitFor(child), 0);
    EXPECT_EQ(wordOf(readFile(path), 24), static_cast<std::uint32_t>(getpid()));
  }
  KFLFileLock other;
  EXPECT_EQ(other.open(path), 0);
  EXPECT_EQ(other.tryLock(), EAGAIN);
  unlock(*cache, storage);
  EXPECT_EQ(other.tryLock(), 0);
  EXPECT_EQ(wordOf(readFile(path), 24), 0U);
}

// In a child, on a disk of 256 KB: 77 where there can be none.
int workOnASmallDisk(const std::string& folder) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("none", folder.c_str(), "tmpfs", 0, "size=256k") != 0)
    return 77;
  const std::string path = folder + "/cache";
  Contents twin = fill(*openCache(path), 30, 1000);
  removeKey(*openCache(path), "1000");
  twin.erase("1000");
  // A copy as sparse as it can be, on a disk that is full.
  std::string bytes = readFile(path);
  fs::remove(path);
  const int copy = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
  if (copy < 0 || ftruncate(copy, static_cast<off_t>(bytes.size())) != 0) return 1;
  for (std::size_t at = 0; at < bytes.size(); at += 4096)
    if (bytes.substr(at, 4096).find_first_not_of('\0') != std::string::npos &&
        pwrite(copy, &bytes[at], std::min<std::size_t>(4096, bytes.size() - at), static_cast<off_t>(at)) < 0)
      return 2;
  close(copy);
  {
    std::ofstream filler(folder + "/filler", std::ios::binary);
    while (filler << std::string(4096, 'x') << std::flush) {
    }
  }
  Cache cache = openCache(path);
  for (const std::size_t size : {60000, 600, 60}) {
    const int code = put(*cache, "new", std::string(size, 'y'));
    if (code != 0 && (code != kCacheFull || getErrorMessage().find("No space left") == std::string::npos))
      return 3;
    if (code == 0) twin["new"] = std::string(size, 'y');
  }
  if (contentsOf(*cache) != twin) return 4;
  fs::remove(folder + "/filler");
  if (put(*cache, "new", std::string(60000, 'y')) != 0) return 5;
  const auto before = std::pair(fs::file_size(path), fs::space(folder).free);
  if (put(*cache, "large", std::string(1 << 20, 'y')) != kCacheFull) return 6;
  return before == std::pair(fs::file_size(path), fs::space(folder).free) && faultOf(path).empty() ? 0 : 7;
}

TEST(CacheFaults, AFullDiskIsACode) {
  const Folder folder;
  const int code = waitFor(startChild([&] { return workOnASmallDisk(folder / "."); }));
  if (code == 77) GTEST_SKIP() << "no disk can be mounted here";
  EXPECT_EQ(code, 0);
}

TEST(CacheFaults, ARelativePathIsOneOfTheFolderOfItsBeginning) {
  const Folder folder;
  const fs::path before = fs::current_path();
  fs::current_path(folder / ".");
  Cache cache = makeCache("cache");
  fs::current_path(before);
  ASSERT_EQ(cache->initialize(true, true), 0);
  EXPECT_TRUE(fs::exists(folder / "cache"));

  setUploadsFolder("uploads/");
  fs::current_path("/");
  EXPECT_EQ(getUploadsFolder(), before / "uploads");
  setUploadsFolder("");
  setenv("KFA_UPLOADS_DIR", "tmp", 1);
  EXPECT_EQ(getUploadsFolder(), "/tmp");
  fs::current_path(before);
  EXPECT_EQ(getUploadsFolder(), "/tmp");
  unsetenv("KFA_UPLOADS_DIR");
}

}  // namespace
