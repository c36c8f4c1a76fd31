// SPDX-License-Identifier: Apache-2.0
// A cache file among processes that take turns, are forked, hang, and die at every possible moment.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "CacheTest.h"

namespace {

using namespace cachetest;
using testing::AnyOf;
using testing::HasSubstr;
using namespace std::chrono_literals;

// Words that processes share.
template <class T>
T* shared() {
  return static_cast<T*>(mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
}

TEST(CacheProcesses, AHolderThatHangsIsNamed) {
  const Folder folder;
  Cache cache = openCache(folder / "cache");
  const pid_t child = startChild([&] {
    KFLCacheFile::Storage storage;
    if (cache->lock(storage) != 0) return 1;
    raise(SIGSTOP);
    cache->unlock(storage);
    return 0;
  });
  int status = 0;
  waitpid(child, &status, WUNTRACED);
  cache->setLockTimeout(50ms);
  EXPECT_EQ(put(*cache, "key", "text"), -9);
  EXPECT_THAT(getErrorMessage(), HasSubstr("process " + std::to_string(child)));
  kill(child, SIGCONT);
  EXPECT_EQ(waitFor(child), 0);
  EXPECT_EQ(put(*cache, "key", "text"), 0);

  KFLCacheFile::Storage storage;
  ASSERT_EQ(cache->lock(storage), 0);
  std::thread([&] {
    EXPECT_EQ(put(*cache, "key", "text"), -9);
    EXPECT_THAT(getErrorMessage(), HasSubstr("another thread"));
  }).join();
  cache->unlock(storage);
}

TEST(CacheProcesses, TheNextOpensTheFileThatReplacedTheOldOne) {
  const Folder folder;
  Cache cache = openCache(folder / "cache");
  ASSERT_EQ(put(*cache, "old", "text"), 0);
  KFLCacheSnapshot held;
  ASSERT_EQ(cache->hold(held), 0);
  ASSERT_EQ(put(*openCache(folder / "other"), "new", "text"), 0);
  std::filesystem::rename(folder / "other", folder / "cache");
  EXPECT_EQ(contentsOf(*cache), (Contents{{"new", "text"}}));
  EXPECT_EQ(contentsOf(held), (Contents{{"old", "text"}}));
  std::filesystem::remove(folder / "cache");
  EXPECT_EQ(contentsOf(*cache), Contents());
  EXPECT_EQ(put(*cache, "again", "text"), 0);
  held.release();
  EXPECT_EQ(faultOf(folder / "cache"), "");
}

// The child has the parent's objects, but neither its lock nor its snapshots; and it lives on when the parent dies.
TEST(CacheProcesses, AForkedChildHoldsNothingOfItsParents) {
  const Folder folder;
  Cache cache = openCache(folder / "cache");
  ASSERT_EQ(put(*cache, "key", "text"), 0);
  KFLCacheSnapshot held;
  ASSERT_EQ(cache->hold(held), 0);
  KFLCacheFile::Storage storage;
  ASSERT_EQ(cache->lock(storage), 0);
  const pid_t child = startChild([&] {
    if (held.size() != 0) return 1;
    held.release();
    cache->setLockTimeout(100ms);
    if (put(*cache, "child", "text") != -9) return 2;  // the parent has the lock
    kill(getpid(), SIGSTOP);
    cache->setLockTimeout(10s);
    return put(*cache, "child", "text") == 0 ? 0 : 3;
  });
  int status = 0;
  waitpid(child, &status, WUNTRACED);
  ASSERT_TRUE(WIFSTOPPED(status));
  cache->unlock(storage);
  EXPECT_EQ(contentsOf(held), (Contents{{"key", "text"}}));
  held.release();
  EXPECT_EQ(lostBytes(folder / "cache"), 0U) << "one holder, who released it once";
  kill(child, SIGCONT);
  EXPECT_EQ(waitFor(child), 0);
  EXPECT_EQ(contentsOf(*cache).count("child"), 1U);

  // A parent that dies with the lock just after it forked: the child must not keep that lock alive.
  auto* const result = shared<std::atomic<int>>();
  waitFor(startChild([&] {
    KFLCacheFile::Storage taken;
    if (cache->lock(taken) != 0) return 1;
    startChild([&] { return *result = put(*cache, "orphan", "text") == 0 ? 1 : 2; });
    kill(getpid(), SIGKILL);
    return 0;
  }));
  for (int i = 0; i < 1000 && *result == 0; ++i)
    std::this_thread::sleep_for(10ms);
  EXPECT_EQ(*result, 1);
  EXPECT_EQ(contentsOf(*cache).count("orphan"), 1U);
}

// What dead readers held comes back when the next one finds itself alone.
TEST(CacheProcesses, WhatTheDeadHeldComesBack) {
  const Folder folder;
  const std::string path = folder / "cache";
  openCache(path);
  waitFor(startChild([&] {
    Cache cache = openCache(path);
    KFLCacheSnapshot held;
    for (int i = 0; i < 5; ++i) {
      put(*cache, "key" + std::to_string(i), "text");
      if (i == 2) cache->hold(held);
    }
    return raise(SIGKILL);
  }));
  EXPECT_GT(lostBytes(path), 0U);
  Cache cache = openCache(path);
  bool alone = false;
  EXPECT_EQ(cache->repair(alone), 0);
  EXPECT_TRUE(alone);
  EXPECT_EQ(lostBytes(path), 0U);
  EXPECT_EQ(contentsOf(*cache).size(), 5U);

  KFLCacheSnapshot held;
  ASSERT_EQ(cache->hold(held), 0);
  ASSERT_EQ(put(*cache, "key", "text"), 0);
  EXPECT_EQ(cache->repair(alone), 0);
  EXPECT_FALSE(alone) << "a snapshot is held";
  EXPECT_EQ(held.size(), 5U);
  held.release();
  EXPECT_EQ(cache->repair(alone), 0);
  EXPECT_TRUE(alone);
}

// Processes that change, read and are killed. A pair of keys changes together, and nobody ever sees it apart.
TEST(CacheProcesses, ManyDieAndNothingCommittedIsLost) {
  constexpr int kWorkers = 4;
  struct Board {
    std::atomic<int> committed[kWorkers];
    std::atomic<int> errors;
  };
  const Folder folder;
  const std::string path = folder / "cache";
  Cache watcher = openCache(path);
  auto* const board = shared<Board>();
  const auto work = [&](int id) {
    std::mt19937 random(static_cast<unsigned>(getpid()));
    Cache cache = makeCache(path);
    if (cache->initialize(true, false) != 0) return ++board->errors;
    for (int next = board->committed[id] + 1;; ++next) {
      const std::string name = std::to_string(id);
      const std::string text = std::to_string(next) + std::string(random() % 300, ' ');
      KFLCacheChanges changes;
      changes.put("a" + name, text);
      changes.put("b" + name, text);
      (random() % 2 == 0) ? changes.put("extra" + name, text) : changes.remove("extra" + name);
      if (cache->apply(changes) != 0) ++board->errors;
      board->committed[id] = next;
      KFLCacheSnapshot snapshot;
      if (cache->hold(snapshot) != 0) ++board->errors;
      for (int i = 0; i < kWorkers; ++i)
        if (snapshot.getText(snapshot.find("a" + std::to_string(i))) !=
            snapshot.getText(snapshot.find("b" + std::to_string(i))))
          ++board->errors;
    }
  };
  std::vector<pid_t> workers;
  for (int id = 0; id < kWorkers; ++id)
    workers.push_back(startChild([&] { return work(id); }));
  std::mt19937 random(7);
  for (int kills = 0; kills < 150; ++kills) {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 10000));
    const int id = static_cast<int>(random() % kWorkers);
    kill(workers[static_cast<std::size_t>(id)], SIGKILL);
    EXPECT_EQ(waitFor(workers[static_cast<std::size_t>(id)]), -SIGKILL);
    workers[static_cast<std::size_t>(id)] = startChild([&] { return work(id); });
  }
  for (const pid_t worker : workers) {
    kill(worker, SIGKILL);
    waitFor(worker);
  }
  EXPECT_EQ(board->errors, 0);
  const Contents all = contentsOf(*watcher);
  for (int id = 0; id < kWorkers; ++id)
    EXPECT_THAT(std::stoi("0" + all.at("a" + std::to_string(id))),
                AnyOf(board->committed[id].load(), board->committed[id].load() + 1));
  bool alone = false;
  EXPECT_EQ(watcher->repair(alone), 0);
  EXPECT_EQ(faultOf(path), "");
  EXPECT_EQ(lostBytes(path), 0U);
}

// ---- Death at every store --------------------------------------------------------------------------------------------

// Runs the action in a child one instruction at a time, and collects every state of the file that a death could leave.
std::vector<std::string> imagesOf(const std::string& path, const std::function<int(KFLCacheFile&)>& action,
                                  bool isOpen) {
  const pid_t child = startChild([&] {
    Cache cache = makeCache(path);
    if (isOpen && cache->initialize(true, false) != 0) return 1;
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    const int result = action(*cache);
    _exit(result == 0 ? 0 : 2);
  });
  constexpr std::size_t kMost = 1 << 20;
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const auto* const memory = static_cast<const char*>(mmap(nullptr, kMost, PROT_READ, MAP_SHARED, file, 0));
  std::vector<std::string> images;
  int status = 0;
  for (waitpid(child, &status, 0); WIFSTOPPED(status); waitpid(child, &status, 0)) {
    struct stat now {};
    fstat(file, &now);
    const auto size = static_cast<std::size_t>(now.st_size);
    if (images.empty() || images.back().size() != size ||
        std::memcmp(images.back().data(), memory, size) != 0)
      images.emplace_back(memory, size);
    const int signal = WSTOPSIG(status) == SIGSTOP || WSTOPSIG(status) == SIGTRAP ? 0 : WSTOPSIG(status);
    ptrace(PTRACE_SINGLESTEP, child, nullptr, signal);
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
  munmap(const_cast<char*>(memory), kMost);
  close(file);
  return images;
}

struct Moment {
  const char* name;
  std::function<void(KFLCacheFile&)> prepare;  // and what stays held
  std::function<int(KFLCacheFile&)> action;
  bool isOpen = true;  // before the action
};

const std::string kText(200, 'x');

int putMany(KFLCacheFile& cache, int from, int to) {
  KFLCacheChanges changes;
  for (int i = from; i < to; ++i)
    changes.put(std::to_string(i), kText);
  return cache.apply(changes);
}

const Moment kMoments[] = {
    {"put", [](auto& cache) { putMany(cache, 10, 14); },
     [](auto& cache) { return put(cache, "12a", kText); }},
    // The former item lies before a free block, and becomes one with it.
    {"replace", [](auto& cache) { putMany(cache, 10, 14); },
     [](auto& cache) { return put(cache, "10", kText + "y"); }},
    {"remove", [](auto& cache) { putMany(cache, 10, 14); },
     [](auto& cache) { return removeKey(cache, "12"); }},
    {"grow",
     [](auto& cache) {
       putMany(cache, 10, 14);
       put(cache, "filler", std::string(5000, 'x'));
     },
     [](auto& cache) { return put(cache, "12a", kText); }},
    {"release", [](auto& cache) { putMany(cache, 10, 14); },
     [](auto& cache) {
       KFLCacheSnapshot held;
       const int code = cache.hold(held);
       return code != 0 ? code : putMany(cache, 12, 13);
     }},
    {"create", [](auto& cache) { std::filesystem::resize_file(cache.getPath(), 0); },
     [](auto& cache) { return cache.initialize(true, false); }, false},
    {"reclaim",
     [](auto& cache) {
       if (waitFor(startChild([&] {
             Cache other = openCache(cache.getPath());
             KFLCacheSnapshot held[3];
             for (int i = 0; i < 3; ++i) {
               putMany(*other, 10 + i, 12 + i);
               other->hold(held[i]);
             }
             return raise(SIGKILL);
           })) == 0)
         ADD_FAILURE();
     },
     [](auto& cache) {
       bool alone = false;
       const int code = cache.initialize(true, false);
       return code != 0 ? code : cache.repair(alone);
     },
     false},
};

// Opens an image as the next process would, alone or beside another one that may hold what stood in it.
void recover(const std::string& path, const std::string& image, bool alone,
             const std::set<Contents>& allowed) {
  writeFile(path, image);
  KFLFileLock other;
  if (!alone) {
    ASSERT_EQ(other.open(path), 0);
    ASSERT_EQ(other.takePlace(), 0);
  }
  Cache cache = makeCache(path);
  ASSERT_EQ(cache->initialize(true, false), 0) << getErrorMessage();
  bool isAlone = false;
  ASSERT_EQ(cache->repair(isAlone), 0) << getErrorMessage();
  EXPECT_EQ(isAlone, alone);
  EXPECT_EQ(faultOf(path), "");
  EXPECT_EQ(lostBytes(path), 0U) << "nobody alive holds anything";
  const Contents found = contentsOf(*cache);
  EXPECT_THAT(allowed, testing::Contains(found));

  // The snapshot of the image stays as it is for whoever holds it, whatever is changed afterwards.
  KFLCacheSnapshot held;
  ASSERT_EQ(cache->hold(held), 0);
  for (int i = 0; i < 3; ++i)
    ASSERT_EQ(putMany(*cache, 11 + i, 14), 0) << getErrorMessage();
  EXPECT_EQ(contentsOf(held), found);
  held.release();
  EXPECT_EQ(faultOf(path), "");
}

class CacheDeath : public testing::TestWithParam<Moment> {};

TEST_P(CacheDeath, AtEveryStoreLeavesTheOldOrTheNewSnapshot) {
  const Moment& moment = GetParam();
  const Folder folder;
  const std::string path = folder / "cache";
  {
    Cache cache = openCache(path);
    moment.prepare(*cache);
  }
  std::set<Contents> allowed;
  if (moment.isOpen) {
    allowed.insert(contentsOf(*openCache(path)));
  } else {
    writeFile(folder / "copy", readFile(path));
    allowed.insert(contentsOf(*openCache(folder / "copy")));
  }
  const std::vector<std::string> images = imagesOf(path, moment.action, moment.isOpen);
  EXPECT_GT(images.size(), 5U);
  allowed.insert(contentsOf(*openCache(path)));
  for (std::size_t i = 0; i < images.size() && !HasFailure(); ++i) {
    for (const bool alone : {true, false}) {
      SCOPED_TRACE(std::to_string(i) + " of " + std::to_string(images.size()) +
                   (alone ? " alone" : " beside another"));
      recover(folder / "image", images[i], alone, allowed);
      std::filesystem::remove(folder / "image");
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Moments, CacheDeath, testing::ValuesIn(kMoments),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
