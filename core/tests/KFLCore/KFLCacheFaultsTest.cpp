// SPDX-License-Identifier: Apache-2.0
// What goes wrong around a cache file: deaths, holders that hang, no memory, no space, somebody else's data. Nothing that was
// committed is ever the price.
#include <sys/resource.h>
#include <sys/syscall.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <new>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLFolders.h>

#include "CacheTest.h"

namespace {

// Allocations of this thread until one fails; none fails at 0.
thread_local long allocationsLeft = 0;

void* allocateOrFail(std::size_t size) {
  if (allocationsLeft > 0 && --allocationsLeft == 0) throw std::bad_alloc();
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) {
  return allocateOrFail(size);
}
void* operator new[](std::size_t size) {
  return allocateOrFail(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using namespace cachetest;
using namespace std::chrono_literals;
using testing::AnyOf;
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

TEST(CacheFaults, WhateverFollowsADeathLosesNothing) {
  using Step = int (*)(KFLCacheFile&, KFLCacheSnapshot&);
  const std::pair<const char*, Step> rows[] = {
      {"release", [](auto&, auto& held) { return held.release(), 0; }},
      {"hold", [](auto& cache, auto& held) { return cache.hold(held); }},
      {"put", [](auto& cache, auto&) { return put(cache, "1000", std::string(200, 'x')); }},
      {"sync", [](auto& cache, auto&) { return cache.sync(); }},
      {"open", [](auto& cache, auto&) { return cache.initialize(true, true); }},
      {"repair", [](auto& cache, auto&) {
         bool alone = true;
         return cache.repair(alone);
       }}};
  const Folder folder;
  for (const auto& [name, step] : rows)
    for (const bool isFormer : {false, true}) {
      SCOPED_TRACE(std::string(name) + (isFormer ? " with a former snapshot held" : ""));
      const std::string path = folder / name + std::to_string(isFormer);
      Cache cache = openCache(path);
      Contents twin = fill(*cache, 20);
      KFLCacheSnapshot held;
      ASSERT_EQ(cache->hold(held), 0);
      if (isFormer) {
        put(*cache, "later", "text");
        twin["later"] = "text";
      }
      startHolder(path, SIGKILL);
      EXPECT_EQ(step(*cache, held), 0) << getErrorMessage();
      EXPECT_TRUE(isValid(path));
      EXPECT_EQ(contentsOf(*cache), twin);
      held.release();
      EXPECT_EQ(contentsOf(*openCache(path)), twin);
      EXPECT_EQ(faultOf(path), "");
    }
}

TEST(CacheFaults, RepairBesideThreadsThatHoldAndPutLosesNothing) {
  const Folder folder;
  const std::string path = folder / "cache";
  Cache cache = openCache(path);
  std::atomic<bool> isOver{false};
  std::thread repairing([&] {
    bool alone = false;
    while (!isOver)
      EXPECT_EQ(cache->repair(alone), 0) << getErrorMessage();
  });
  for (int i = 0; i < 400; ++i) {
    KFLCacheSnapshot held;
    EXPECT_EQ(cache->hold(held), 0);
    ASSERT_EQ(put(*cache, std::to_string(i % 20), std::to_string(i)), 0) << getErrorMessage();
    ASSERT_EQ(held.size(), static_cast<std::uint32_t>(std::min(i, 20)));
  }
  isOver = true;
  repairing.join();
  EXPECT_EQ(contentsOf(*cache).size(), 20U);
  EXPECT_EQ(faultOf(path), "");
}

TEST(CacheFaults, AHolderThatIsStoppedCostsACodeAndNeverTheFile) {
  const Folder folder;
  const std::string path = folder / "cache";
  Contents twin = fill(*openCache(path), 5);
  const pid_t holder = startHolder(path, SIGSTOP);
  Cache cache = makeCache(path);
  cache->setLockTimeout(50ms);
  EXPECT_EQ(cache->initialize(true, true), -9);
  EXPECT_THAT(getErrorMessage(), HasSubstr("process " + std::to_string(holder)));
  EXPECT_EQ(removeLockedCacheFile(path, -9), -1);
  EXPECT_TRUE(isValid(path));
  kill(holder, SIGCONT);
  EXPECT_EQ(waitFor(holder), 0);
  EXPECT_EQ(cache->initialize(true, true), 0);
  EXPECT_EQ(contentsOf(*cache), twin);

  const pid_t again = startHolder(path, SIGSTOP);
  cache->setInvalidatesStuck(true);
  EXPECT_EQ(cache->initialize(true, true), -9);
  EXPECT_FALSE(isValid(path)) << "as it was asked for";
  kill(again, SIGKILL);
  waitFor(again);
}

// Waiters are served in the order in which they came; one that is stopped while it waits is passed over.
TEST(CacheFaults, OneThatComesAgainAndAgainWaitsForThoseBefore) {
  const Folder folder;
  const std::string path = folder / "cache";
  openCache(path);
  std::vector<pid_t> busy;
  for (int i = 0; i < 3; ++i)
    busy.push_back(startChild([&] {
      Cache cache = openCache(path);
      while (put(*cache, "key", "text") == 0 && cache->sync() == 0) {
      }
      return 1;
    }));
  std::this_thread::sleep_for(50ms);
  for (int i = 0; i < 10; ++i) {
    const auto begin = std::chrono::steady_clock::now();
    Cache cache = openCache(path);
    EXPECT_EQ(put(*cache, "mine", "text"), 0) << getErrorMessage();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
  }
  for (const pid_t child : busy) {
    kill(child, SIGKILL);
    EXPECT_EQ(waitFor(child), -SIGKILL);
  }
}

TEST(CacheFaults, WithoutMemoryThereIsACodeAndNothingStaysLocked) {
  const Folder folder;
  const std::string path = folder / "cache";
  const std::string large(20000, 'y');
  using Step = std::function<int(KFLCacheFile&)>;
  const std::pair<const char*, Step> rows[] = {
      {"open", [](auto& cache) { return cache.initialize(true, true); }},
      {"put", [](auto& cache) { return put(cache, "new", "text"); }},
      {"replace", [](auto& cache) { return put(cache, "1001", "text"); }},
      {"grow", [&](auto& cache) { return put(cache, "large", large); }},
      {"sync", [](auto& cache) { return cache.sync(); }},
      {"hold",
       [](auto& cache) {
         KFLCacheSnapshot held;
         const int code = cache.hold(held);
         return code == 0 && held.size() < 20 ? 1 : code;
       }},
      {"former",
       [](auto& cache) {
         KFLCacheSnapshot held;
         const int code = cache.hold(held);
         return code == 0 ? removeKey(cache, "1002") : code;
       }},
      {"repair", [](auto& cache) {
         bool alone = false;
         return cache.repair(alone);
       }}};
  setLogLevel(kLogFatal);
  for (const auto& [name, step] : rows)
    for (const bool isDead : {false, true})
      for (long failing = 1;; ++failing) {
        SCOPED_TRACE(std::string(name) + (isDead ? " behind a death, " : ", ") + std::to_string(failing));
        fs::remove(path);
        Contents twin = fill(*openCache(path), 20);
        Cache cache = openCache(path);
        if (isDead) {
          startHolder(path, SIGKILL);
        }
        allocationsLeft = failing;
        int code = kCacheNoMemory;
        try {
          code = step(*cache);
        } catch (const std::bad_alloc&) {  // of the test's own
        }
        const bool hasFailed = allocationsLeft == 0;
        allocationsLeft = 0;
        ASSERT_THAT(code, AnyOf(0, kCacheNoMemory, kCacheNotMapped));
        Cache other = makeCache(path);
        other->setLockTimeout(100ms);
        ASSERT_EQ(other->initialize(true, false), 0) << getErrorMessage();
        ASSERT_EQ(put(*other, "last", "text"), 0) << getErrorMessage();
        Contents found = contentsOf(*other);
        for (const char* changed : {"new", "1001", "1002", "large", "last"}) {
          found.erase(changed);
          twin.erase(changed);
        }
        ASSERT_EQ(found, twin);
        ASSERT_EQ(faultOf(path), "");
        if (!hasFailed) break;
      }
  setLogLevel(kLogWarning);
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

TEST(CacheFaults, ASnapshotOwnsWhatItNeeds) {
  const Folder folder;
  const std::string path = folder / "cache";
  Cache cache = openCache(path);
  const Contents twin = fill(*cache, 20);
  KFLCacheSnapshot held;
  ASSERT_EQ(cache->hold(held), 0);
  ASSERT_EQ(cache->initialize(true, true), 0);
  ASSERT_EQ(removeKey(*cache, "1003"), 0);
  cache.reset();
  EXPECT_EQ(contentsOf(held), twin);
  EXPECT_GT(lostBytes(path), 0U);
  held.release();
  EXPECT_EQ(lostBytes(path), 0U) << "it came back though the file was opened anew and the cache is gone";
}

// The dead hold nothing: their space comes back before the file grows for it, while others live and hold theirs.
TEST(CacheFaults, TheSpaceOfTheDeadComesBackWhileOthersLive) {
  const Folder folder;
  const std::string path = folder / "cache";
  const KFLCacheLimits limits{.growth = 1 << 16, .maxSize = 1 << 19};
  Cache cache = openCache(path, limits);
  const Contents twin = fill(*cache, 100);
  KFLCacheSnapshot held;
  ASSERT_EQ(openCache(path, limits)->hold(held), 0);
  for (int i = 0; i < 60; ++i) {
    waitFor(startChild([&] {
      Cache other = openCache(path, limits);
      KFLCacheSnapshot snapshot;
      return other->hold(snapshot) == 0 ? raise(SIGKILL) : 1;
    }));
    ASSERT_EQ(put(*cache, "new" + std::to_string(i % 3), std::to_string(i)), 0)
        << i << ": " << getErrorMessage();
  }
  EXPECT_EQ(contentsOf(held), twin);
  EXPECT_EQ(contentsOf(*cache).size(), 103U);
}

TEST(CacheFaults, LimitsBeyondWhatAFileCanHaveAreHarmless) {
  const Folder folder;
  const std::string path = folder / "cache";
  Cache cache = openCache(path, {.growth = 0xFFFFFFFF, .maxSize = 0xFFFFFFFF});
  cache->setLockTimeout(std::chrono::milliseconds::max());
  fill(*cache, 200);
  EXPECT_EQ(openCache(path)->initialize(true, true), 0);
  Cache small = openCache(path, {.maxSize = 1 << 20});
  const auto size = fs::file_size(path);
  EXPECT_EQ(put(*small, "large", std::string((1 << 20) - 1000, 'x')), kCacheFull);
  EXPECT_EQ(fs::file_size(path), size) << "what is refused takes no space";
}

// Replacing one item is one store where nobody holds the snapshot, and never seen by one who does.
TEST(CacheFaults, ReplacingOneItemCopiesTheRecordsOnlyForThoseWhoHoldThem) {
  const Folder folder;
  const std::string path = folder / "cache";
  Cache cache = openCache(path);
  Contents twin = fill(*cache, 20);
  const auto snapshotWord = [&] { return wordOf(readFile(path), 20); };
  KFLCacheSnapshot mine, others;
  for (const int holders : {0, 1, 2, 3, 0}) {
    SCOPED_TRACE(holders);
    Cache other = openCache(path);
    if ((holders & 1) != 0) {
      ASSERT_EQ(cache->hold(mine), 0);
    }
    if ((holders & 2) != 0) {
      ASSERT_EQ(other->hold(others), 0);
    }
    const std::uint32_t before = snapshotWord();
    ASSERT_EQ(put(*cache, "1007", std::string(300, static_cast<char>('a' + holders))), 0);
    EXPECT_EQ(snapshotWord() == before, holders == 0);
    if ((holders & 1) != 0) {
      EXPECT_EQ(contentsOf(mine), twin);
    }
    if ((holders & 2) != 0) {
      EXPECT_EQ(contentsOf(others), twin);
    }
    mine.release();
    others.release();
    twin["1007"] = std::string(300, static_cast<char>('a' + holders));
    EXPECT_EQ(contentsOf(*cache), twin);
    EXPECT_EQ(lostBytes(path), 0U);
  }
}

// A child made without the library's knowledge holds nothing of its parent's either.
TEST(CacheFaults, ABareCloneHoldsNothingOfItsParents) {
  const Folder folder;
  Cache cache = openCache(folder / "cache");
  fill(*cache, 5);
  KFLCacheSnapshot held;
  ASSERT_EQ(cache->hold(held), 0);
  const auto child = static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, nullptr));
  if (child == 0) {
    if (held.size() != 0) _exit(1);
    held.release();
    _exit(put(*cache, "child", "text") == 0 ? 0 : 2);
  }
  EXPECT_EQ(waitFor(child), 0);
  EXPECT_EQ(contentsOf(held).size(), 5U);
  held.release();
  EXPECT_EQ(contentsOf(*cache).count("child"), 1U);
  EXPECT_EQ(lostBytes(folder / "cache"), 0U);
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
