// SPDX-License-Identifier: Apache-2.0
// Opening, changing and holding a cache file within one process.
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLMappedFile.h>

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

TEST(CacheFile, AFileThatIsNotAtFaultIsNotRemoved) {
  const Folder folder;
  put(*openCache(folder / "cache"), "key", "text");
  EXPECT_EQ(removeLockedCacheFile(folder / "cache", -2), 0);
  EXPECT_EQ(contentsOf(*openCache(folder / "cache")), (Contents{{"key", "text"}}));
  EXPECT_EQ(removeLockedCacheFile(folder / "missing", -14), 0);
}

TEST(CacheFile, SomebodyElsesFileIsRefused) {
  const Folder folder;
  openCache(folder / "cache");
  fs::create_symlink(folder / "cache", folder / "link");
  fs::create_directory(folder / "folder");
  mkfifo((folder / "pipe").c_str(), 0600);
  openCache(folder / "open");
  fs::permissions(folder / "open", fs::perms(0666));
  openCache(folder / "twice");
  fs::create_hard_link(folder / "twice", folder / "thrice");
  const std::pair<const char*, const char*> rows[] = {
      {"link", "symbolic link"},       {"folder", "directory"},        {"pipe", "not a regular file"},
      {"open", "everybody may write"}, {"thrice", "second hard link"}, {"no/file", "No such file"}};
  for (const auto& [name, text] : rows) {
    SCOPED_TRACE(name);
    Cache cache = makeCache(folder / name);
    EXPECT_EQ(cache->initialize(true, true), -2);
    EXPECT_THAT(getErrorMessage(), HasSubstr(text));
    EXPECT_THAT(getErrorMessage(), HasSubstr(folder / name));
  }
}

// The cache against a map, with snapshots held at random, reopened now and then.
TEST(CacheFile, DoesWhatAMapDoes) {
  const Folder folder;
  const std::string path = folder / "cache";
  for (unsigned seed = 1; seed <= 4; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    fs::remove(path);
    Cache cache = openCache(path);
    Contents twin;
    std::vector<std::pair<KFLCacheSnapshot, Contents>> held;
    for (int step = 0; step < 300; ++step) {
      KFLCacheChanges changes;
      for (auto left = 1 + random() % (step % 50 == 0 ? 60 : 3); left > 0; --left) {
        std::string key(random() % 8 == 0 ? 255 : 1 + random() % 3, static_cast<char>('a' + random() % 20));
        if (random() % 3 == 0) {
          changes.remove(key);
          twin.erase(key);
        } else {
          const std::string text(random() % 500, static_cast<char>('0' + step % 10));
          changes.put(key, text);
          twin[key] = text;
        }
      }
      ASSERT_EQ(cache->apply(changes), 0) << getErrorMessage();
      if (random() % 4 == 0) {
        held.emplace_back(KFLCacheSnapshot(), twin);
        ASSERT_EQ(cache->hold(held.back().first), 0);
      }
      if (!held.empty()) {
        const auto one = held.begin() + random() % held.size();
        ASSERT_EQ(contentsOf(one->first), one->second) << "step " << step;
        if (held.size() > 4 || random() % 4 == 0) held.erase(one);
      }
      if (step % 8 == 0) {
        ASSERT_EQ(faultOf(path), "") << "step " << step;
      }
    }
    held.clear();
    EXPECT_EQ(lostBytes(path), 0U) << "what nobody holds comes back";
    cache = openCache(path);
    EXPECT_EQ(contentsOf(*cache), twin);
    KFLCacheSnapshot snapshot;
    ASSERT_EQ(cache->hold(snapshot), 0);
    for (const auto& [key, text] : twin)
      EXPECT_EQ(snapshot.getText(snapshot.find(key)), text);
    for (const std::string& key : {std::string(), std::string("aa0"), std::string(256, 'a')})
      EXPECT_EQ(snapshot.find(key), KFLCacheSnapshot::kNone);
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
  EXPECT_EQ(put(*cache, "large", std::string(1 << 16, 'x')), kCacheFull);
  EXPECT_THAT(getErrorMessage(), HasSubstr("65536"));
  EXPECT_EQ(contentsOf(*cache), before);
  EXPECT_EQ(put(*cache, "fits", std::string(40000, 'x')), 0) << "all that was taken on the way came back";
  EXPECT_EQ(faultOf(folder / "cache"), "");
  EXPECT_EQ(lostBytes(folder / "cache"), 0U);
}

// Whatever stands in a file, or comes to stand in it while it is open: an answer or a refusal, and never an abort.
TEST(CacheFile, DamageIsNeverFatal) {
  const Folder folder;
  const std::string path = folder / "cache";
  {
    Cache cache = openCache(path);
    for (int i = 0; i < 12; ++i)
      ASSERT_EQ(put(*cache, std::string(20, static_cast<char>('a' + i)), std::string(100, 'x')), 0);
  }
  const std::string good = readFile(path);
  setLogLevel(kLogFatal);
  for (unsigned seed = 1; seed <= 600; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::string bad = good;
    for (auto left = 1 + random() % 3; left > 0; --left) {
      const std::size_t at = random() % 3 == 0 ? random() % 14 * 4 : random() % (good.size() / 4) * 4;
      setWord(
          bad, at,
          static_cast<std::uint32_t>(random() % 2 == 0 ? random() : wordOf(bad, at) + random() % 64 - 32));
    }
    writeFile(path, seed % 2 == 0 ? bad : good);
    Cache cache = makeCache(path, {.growth = 1 << 16, .maxSize = 1 << 18});
    if (cache->initialize(true, false) != 0) continue;
    KFLCacheSnapshot before;
    EXPECT_EQ(cache->hold(before), 0);
    std::fstream(path, std::ios::in | std::ios::out | std::ios::binary) << bad;
    put(*cache, std::string(20, 'c'), std::string(random() % 9000, 'y'));
    KFLCacheSnapshot after;
    if (cache->hold(after) == 0) contentsOf(after);
    contentsOf(before);
    before.release();
    removeKey(*cache, std::string(20, 'd'));
  }
  setLogLevel(kLogWarning);
}

// A heap that one cache grew, a mapping that another has: both see one file.
TEST(CacheFile, AHeapThatAnotherGrewIsMappedAgain) {
  const Folder folder;
  Cache first = openCache(folder / "cache");
  Cache second = openCache(folder / "cache");
  KFLCacheSnapshot held;
  ASSERT_EQ(second->hold(held), 0);
  for (int i = 0; i < 100; ++i)
    ASSERT_EQ(put(i % 2 == 0 ? *first : *second, std::to_string(i), std::string(1000, 'x')), 0)
        << getErrorMessage();
  EXPECT_GT(fs::file_size(folder / "cache"), 100000U);
  EXPECT_EQ(contentsOf(*second).size(), 100U);
  EXPECT_EQ(held.size(), 0U);
  EXPECT_EQ(openCache(folder / "cache")->initialize(true, true), 0);
}

TEST(CacheFile, ALimitOnTheSizeOfFilesIsACode) {
  const Folder folder;
  EXPECT_EQ(waitFor(startChild([&] {
              Cache cache = openCache(folder / "cache");
              const struct rlimit limit { 1 << 16, 1 << 16 };
              setrlimit(RLIMIT_FSIZE, &limit);
              if (put(*cache, "large", std::string(1 << 20, 'x')) != kCacheFull) return 1;
              if (getErrorMessage().find("File too large") == std::string::npos) return 2;
              return put(*cache, "small", "x") == 0 ? 0 : 3;
            })),
            0);
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
  cache->unlock(storage);
}

TEST(CacheFile, ThreadsShareOneCache) {
  const Folder folder;
  Cache cache = openCache(folder / "cache");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        const std::string text = std::to_string(i);
        EXPECT_EQ(put(*cache, std::to_string(t), text), 0);
        KFLCacheSnapshot snapshot;
        EXPECT_EQ(cache->hold(snapshot), 0);
        EXPECT_EQ(snapshot.getText(snapshot.find(std::to_string(t))), text);
      }
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(contentsOf(*cache).size(), 4U);
  EXPECT_EQ(lostBytes(folder / "cache"), 0U);
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
