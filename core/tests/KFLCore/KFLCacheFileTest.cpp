// SPDX-License-Identifier: Apache-2.0
// Opening, changing and holding a cache file within one process.
#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <random>
#include <set>
#include <vector>

#include <gmock/gmock.h>

#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLMappedFile.h>

#include "../KFLCommon/KFLSystemFaults.h"
#include "CacheTest.h"

namespace {

using namespace cachetest;
using testing::HasSubstr;
namespace fs = std::filesystem;

TEST(CacheFile, AFreshFileHasTheHeaderAndAnEmptySnapshot) {
  const Folder folder;
  const std::string path = folder / "cache";
  openCache(path);
  const std::string bytes = readFile(path);
  ASSERT_EQ(bytes.size(), 8192U);
  // The snapshot's 272 bytes and a head are the tail of the one free block.
  const std::uint32_t words[] = {56,  1,      56 + 280, 8192, 56, 8192 - 272 - 20, 0, 0xCACEFE03, 56,
                                 256, 0xFF01, 12,       1,    1};
  for (std::size_t i = 0; i < std::size(words); ++i)
    EXPECT_EQ(wordOf(bytes, 4 * i), words[i]) << "offset " << 4 * i;
  EXPECT_EQ(wordOf(bytes, 8192 - 272), 1U);
  EXPECT_EQ(wordOf(bytes, 8192 - 268), 0U);
  EXPECT_EQ(wordOf(bytes, 8192 - 264), 1U);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0660));
  EXPECT_EQ(faultOf(path), "");
}

// What a reader must be able to trust is judged by the opening, the rest before the first change. What can be rebuilt from
// the snapshot is, and nothing is lost.
TEST(CacheFile, AWrongWordGivesItsCodeAndMarksTheFileInvalid) {
  enum When { Opening, Change, Never };
  const struct {
    std::size_t offset;
    std::uint32_t word;
    int code;
    When when = Opening;
  } rows[] = {{52, 0, -14},      {32, 57, -11},          {36, 255, -13},     {28, 0xCACEFE04, -12},
              {40, 0xFF02, -15}, {44, 13, -16},          {12, 1 << 20, -10}, {12, 0xFFFFFFF8, -10},
              {20, 1, -8},       {20, 0x7FFFFFFF, -8},   {16, 64, -8},       {60, 0, -8, Change},
              {0, 64, 0, Never}, {0, 1 << 30, 0, Never}, {8, 60, 0, Never},  {8, 0, 0, Never}};
  const Folder folder;
  put(*openCache(folder / "good"), "kept", "text");
  const std::string good = readFile(folder / "good");
  setLogLevel(kLogFatal);
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.offset) + " " + std::to_string(row.word));
    const std::string path = folder / "bad";
    std::string bytes = good;
    setWord(bytes, row.offset, row.word);
    Cache cache = makeCache(path);
    writeFile(path, good);
    Cache other = openCache(path);
    writeFile(path, bytes);
    EXPECT_EQ(cache->initialize(true, false), row.when == Opening ? row.code : 0);
    EXPECT_EQ(cache->isAccessible(), row.when != Opening);
    const bool isNamed = row.code < -10 && row.code != -14;
    EXPECT_THAT(getErrorMessage(), HasSubstr(isNamed ? std::to_string(row.word) : ""));
    if (row.when == Opening) {
      EXPECT_EQ(readFile(path).substr(0, 56), bytes.substr(0, 56)) << "not to be touched without being asked";
      EXPECT_EQ(cache->initialize(true, true), row.code);
    } else {
      EXPECT_EQ(put(*cache, "key", "text"), row.code);
    }
    EXPECT_EQ(wordOf(readFile(path), 52), row.when == Never ? 1U : 0U);
    EXPECT_EQ(removeLockedCacheFile(path, row.code), 0);
    EXPECT_EQ(cache->initialize(true, false), 0) << getErrorMessage();
    EXPECT_EQ(put(*other, "key", "text"), 0) << "the other user opens the new file";
    EXPECT_EQ(contentsOf(*cache), row.when == Never ? (Contents{{"kept", "text"}, {"key", "text"}})
                                                    : (Contents{{"key", "text"}}));
  }
  setLogLevel(kLogWarning);
}

// The first searches in a snapshot read single keys from the file, if they can, and later ones look at the mapping.
TEST(CacheFile, FindsWhatASetFinds) {
  const Folder folder;
  std::mt19937 random(3);
  const auto makeKey = [&] {
    std::string key(random() % 4, 'k');
    for (auto left = random() % 3; left > 0; --left)
      key += static_cast<char>(random() % 255 + 1);
    if (random() % 4 == 0) key.resize(255, 'x');
    return key;
  };
  const KFLSystemFaults::Plan plans[] = {
      {}, {[](auto& point) { return point.call == "pread" ? EIO : 0; }}, {.isShort = true}};
  for (const std::size_t size : {0, 1, 63, 64, 65, 200, 3000}) {
    std::set<std::string> keys;
    KFLCacheChanges changes;
    while (keys.size() < size)
      changes.put(*keys.insert(makeKey()).first, "text");
    ASSERT_EQ(openCache(folder / std::to_string(size))->apply(changes), 0);
    std::vector<std::string> sought(keys.begin(), size > 200 ? keys.begin() : keys.end());
    std::generate_n(std::back_inserter(sought), 60, makeKey);
    for (const KFLSystemFaults::Plan& plan : plans) {
      SCOPED_TRACE(std::to_string(size) + " keys, plan " + std::to_string(&plan - plans));
      std::size_t reads = 0;
      for (std::size_t step = 0; step < sought.size();) {
        const Cache cache = openCache(folder / std::to_string(size));
        KFLCacheSnapshot held;
        ASSERT_EQ(cache->hold(held), 0);
        const KFLSystemFaults faults(plan);
        for (const std::size_t end = std::min(step + 20, sought.size()); step < end; ++step) {
          const auto there = keys.find(sought[step]);
          const auto index = static_cast<std::uint32_t>(std::distance(keys.begin(), there));
          ASSERT_EQ(held.find(sought[step]), there == keys.end() ? KFLCacheSnapshot::kNone : index);
        }
        reads += faults.count();
      }
      EXPECT_EQ(reads > 0, size > 64);
    }
  }
}

// One store puts the new text in the place of the old one, so the snapshot that the process keeps stays the current one.
TEST(CacheFile, AKeptSnapshotReadsWhatTheFileGrewFor) {
  const Folder folder;
  const Cache cache = openCache(folder / "cache", {.growth = 4096});
  for (std::size_t size = 1; size < 1000000; size *= 10) {
    ASSERT_EQ(put(*cache, "key", std::string(size, 'x')), 0);
    KFLCacheSnapshot snapshot;
    ASSERT_EQ(cache->hold(snapshot), 0);
    EXPECT_EQ(snapshot.getText(snapshot.find("key")).size(), size);
  }
}

TEST(CacheFile, KeysAndSizesBeyondTheLimitsAreRefusedAndNothingIsLost) {
  const Folder folder;
  Cache cache = openCache(folder / "cache", {.growth = 1 << 14, .maxSize = 1 << 16});
  ASSERT_EQ(put(*cache, std::string(255, 'k'), "text"), 0);
  EXPECT_EQ(put(*cache, std::string(256, 'k'), "text"), kCacheBadKey);
  EXPECT_THAT(getErrorMessage(), HasSubstr("at most 255"));
  EXPECT_EQ(put(*cache, std::string("a\0b", 3), "text"), kCacheBadKey);
  const Contents before = contentsOf(*cache);
  const auto size = fs::file_size(folder / "cache");
  EXPECT_EQ(put(*cache, "large", std::string(64000, 'x')), kCacheFull);
  EXPECT_EQ(fs::file_size(folder / "cache"), size) << "what is refused takes no space";
  KFLCacheChanges changes;
  for (const char* const key : {"a", "b", "large"})
    changes.put(key, std::string(*key == 'l' ? 61000 : 2000, 'x'));
  EXPECT_EQ(cache->apply(changes), kCacheFull);
  EXPECT_THAT(getErrorMessage(), HasSubstr("65536"));
  EXPECT_EQ(lostBytes(folder / "cache"), 0U);
  EXPECT_EQ(contentsOf(*cache), before);
  EXPECT_EQ(put(*cache, "fits", std::string(40000, 'x')), 0) << "all that was taken on the way came back";
  EXPECT_EQ(faultOf(folder / "cache"), "");
  EXPECT_EQ(lostBytes(folder / "cache"), 0U);
}

TEST(CacheFile, TheNextOpensTheFileThatReplacedTheOldOne) {
  const Folder folder;
  Cache cache = openCache(folder / "cache");
  ASSERT_EQ(put(*cache, "old", "text"), 0);
  KFLCacheSnapshot held;
  ASSERT_EQ(cache->hold(held), 0);
  ASSERT_EQ(put(*openCache(folder / "other"), "new", "text"), 0);
  fs::rename(folder / "other", folder / "cache");
  EXPECT_EQ(contentsOf(*cache), (Contents{{"new", "text"}}));
  EXPECT_EQ(contentsOf(held), (Contents{{"old", "text"}}));
  fs::remove(folder / "cache");
  EXPECT_EQ(contentsOf(*cache), Contents());
  EXPECT_EQ(put(*cache, "again", "text"), 0);
  held.release();
  EXPECT_EQ(faultOf(folder / "cache"), "");
}

TEST(CacheFile, ALimitOnTheSizeOfFilesIsACode) {
  const Folder folder;
  EXPECT_EQ(waitFor(startChild([&] {
              Cache cache = openCache(folder / "cache");
              const struct rlimit limit { 1 << 16, 1 << 16 };
              setrlimit(RLIMIT_FSIZE, &limit);
              if (put(*cache, "large", std::string(1 << 20, 'x')) != kCacheFull) return 1;
              if (getErrorMessage().find("File too large") == std::string::npos) return 2;
              if (fs::file_size(folder / "cache") != 8192) return 4;
              return put(*cache, "small", "x") == 0 ? 0 : 3;
            })),
            0);
}

// What somebody prints there must not get into the file.
TEST(CacheFile, TakesNoDescriptorOfAClosedStandardStream) {
  const Folder folder;
  const auto work = [&] {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
      close(stream);
    const Cache cache = openCache(folder / "cache");
    KFLCacheSnapshot snapshot;
    const bool isDone = put(*cache, "key", std::string(20000, 'x')) == 0 && cache->hold(snapshot) == 0;
    int open = 0;
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
      open += fcntl(stream, F_GETFD) >= 0 ? 1 : 0;
    return isDone ? open : -1;
  };
  EXPECT_EQ(waitFor(startChild(work)), 0);
}

TEST(CacheFile, AProtectedMappingIsWritableUnderTheLockAlone) {
  const Folder folder;
  Cache cache = openCache(folder / "cache");
  ASSERT_EQ(cache->setProtected(true), 0);
  ASSERT_EQ(put(*cache, "key", std::string(20000, 'x')), 0) << "grows while it is protected";
  KFLCacheSnapshot snapshot;
  ASSERT_EQ(cache->hold(snapshot), 0);
  EXPECT_EQ(snapshot.getText(0).size(), 20000U);
  auto* const text = const_cast<char*>(snapshot.getText(0).data());
  EXPECT_DEATH(*text = 'y', "");
  KFLCacheFile::Storage storage;
  ASSERT_EQ(cache->lock(storage), 0);
  auto* const memory = static_cast<volatile char*>(storage->getMemory());
  *memory = *memory;
  unlock(*cache, storage);
}

// Whatever became of the protection, and of the mapping that it was for.
TEST(CacheFile, WhatWasHeldUnderProtectionCanBeGivenBack) {
  const auto grow = [](KFLCacheFile& cache) { return put(cache, "key", std::string(20000, 'x')); };
  const std::function<int(KFLCacheFile&)> acts[] = {
      openAgain, [](KFLCacheFile& cache) { return cache.reinit() + openAgain(cache); },
      [&](KFLCacheFile& cache) { return grow(cache) + cache.setProtected(false); }};
  for (const auto& act : acts) {
    const Folder folder;
    const Cache cache = openCache(folder / "cache");
    KFLCacheSnapshot held;
    KFLCacheFile::Storage storage;
    EXPECT_EQ(cache->setProtected(true) + cache->hold(held), 0);
    KFLSnapshotHead* const also = cache->acquireSnapshot(storage);
    EXPECT_EQ(act(*cache), 0);
    held.release();
    EXPECT_EQ(cache->releaseSnapshot(also, storage), 0);
    EXPECT_EQ(grow(*cache), 0);
    EXPECT_EQ(lostBytes(folder / "cache"), 0U);
  }
}

TEST(CacheFile, AStorageIsMappedOnceAndACountIsNeverNegative) {
  const Folder folder;
  KFLCacheStorage storage(folder / "file");
  EXPECT_NE(storage.getStorage(8192, nullptr), nullptr);
  EXPECT_EQ(storage.getStorage(16384, nullptr), nullptr);
  EXPECT_EQ(storage.getSize(), 8192U);
  std::int32_t count = 2;
  EXPECT_FALSE(decRef(count));
  EXPECT_TRUE(decRef(count));
  EXPECT_DEATH(decRef(count = -1), "KFLContainers.*decRef");
}

TEST(CacheFile, WithoutAFileOpenThereIsACode) {
  const Folder folder;
  Cache cache = makeCache(folder / "cache");
  EXPECT_FALSE(cache->isAccessible());
  EXPECT_EQ(put(*cache, "key", "text"), -2);
  ASSERT_EQ(cache->initialize(true, true), 0);
  EXPECT_EQ(cache->reinit(), 0);
  EXPECT_FALSE(cache->isAccessible());
  EXPECT_EQ(put(*cache, "key", "text"), -2);
  EXPECT_THAT(getErrorMessage(), HasSubstr("not open"));
}

}  // namespace
