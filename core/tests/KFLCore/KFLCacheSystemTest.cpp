// SPDX-License-Identifier: Apache-2.0
// Every system call of a cache's opening, growth, change, recovery and repair fails, once or from there on. What was
// committed is there, what others hold stays, no lock and no descriptor is left, and the same call then works. And every
// call is met by a fork, whose child lives on and has no part in a lock. KFLCacheLivesTest has deaths.
#include <fcntl.h>
#include <sched.h>

#include <atomic>
#include <cstring>
#include <deque>
#include <functional>
#include <iostream>
#include <thread>

#include <KFLCommon/KFLLog.h>

#include "../KFLCommon/KFLSystemFaults.h"
#include "CacheTest.h"

namespace {

using namespace cachetest;
using Point = KFLSystemFaults::Point;
using Plan = KFLSystemFaults::Plan;
namespace fs = std::filesystem;

constexpr KFLCacheLimits kLimits{.growth = 1 << 16, .openings = 3, .maxSize = 1 << 20};

// A use of a cache. The file has five items; what `prepare` does comes before the faults, with the cache open or not, and
// a death behind that.
struct Use {
  const char* name;
  std::function<void(const std::string& path, KFLCacheFile& cache)> prepare;
  std::function<int(KFLCacheFile& cache)> run;
  const char* missing = "";  // a call that this file system does not know
  bool isBehindDeath = false;
};

void startOpen(const std::string&, KFLCacheFile& cache) {
  EXPECT_EQ(cache.initialize(true, true), 0) << getErrorMessage();
}
int putLarge(KFLCacheFile& cache) {
  return put(cache, "large", std::string(100000, 'l'));
}
// Of one who made the file longer, and began to change its heap.
void haveOneDie(const std::string& path) {
  EXPECT_EQ(waitFor(startChild([&]() KFL_NO_THREAD_SAFETY_ANALYSIS {
              KFLCacheFile::Storage storage;
              Cache other = openCache(path, kLimits);
              KFLCacheSnapshot held;
              if (putLarge(*other) != 0 || other->hold(held) != 0 || removeKey(*other, "large") != 0 ||
                  other->lock(storage) != 0)
                return 1;
              reinterpret_cast<KFLCacheHeader*>(storage->getMemory())->bytesInUse += 8;
              return raise(SIGKILL);
            })),
            -SIGKILL);
}

std::ostream& operator<<(std::ostream& out, const Use& use) {
  return out << use.name;
}

const Use kUses[] = {
    {"make", [](auto& path, auto&) { fs::remove(path); }, openAgain},
    {"open", [](auto&, auto&) {}, openAgain},
    {"open again", startOpen, openAgain},
    {"open behind a death", [](auto&, auto&) {}, openAgain, "", true},
    {"put", startOpen, [](auto& cache) { return put(cache, "new", "text"); }},
    {"replace", startOpen, [](auto& cache) { return put(cache, "k3", "other"); }},
    {"remove", startOpen, [](auto& cache) { return removeKey(cache, "k4"); }},
    {"grow", startOpen, putLarge},
    {"grow without fallocate", startOpen, putLarge, "fallocate"},
    {"meet a file that grew",
     [](auto& path, auto& cache) {
       startOpen(path, cache);
       EXPECT_EQ(putLarge(*openCache(path, kLimits)), 0);
     },
     [](auto& cache) { return put(cache, "k3", "other"); }},
    {"put behind a death", startOpen, [](auto& cache) { return put(cache, "new", "text"); }, "", true},
    {"hold behind a death", startOpen, holdOnce, "", true},
    {"put behind a death while protected",
     [](auto& path, auto& cache) {
       startOpen(path, cache);
       EXPECT_EQ(cache.setProtected(true), 0);
     },
     [](auto& cache) { return put(cache, "new", "text"); }, "", true},
    {"meet another file",
     [](auto& path, auto& cache) {
       startOpen(path, cache);
       const std::string bytes = readFile(path);
       fs::remove(path);
       writeFile(path, bytes);
     },
     [](auto& cache) { return put(cache, "new", "text"); }},
    {"hold", startOpen, holdOnce},
    {"hold what is newer",
     [](auto& path, auto& cache) {
       startOpen(path, cache);
       EXPECT_EQ(holdOnce(cache), 0);
       EXPECT_EQ(put(*openCache(path, kLimits), "k3", "other"), 0);
     },
     holdOnce},
    {"repair", startOpen, repairOnce, "", true},
    {"sync", startOpen, [](auto& cache) { return cache.sync(); }},
    {"protect and put", startOpen,
     [](auto& cache) {
       const int code = cache.setProtected(true);
       return code == 0 ? put(cache, "new", "text") : code;
     }},
};

// One file before a use, those who look on, and the cache that is used.
class Place {
 public:
  explicit Place(const Use& use) : use_(use), path_(folder_ / "cache") {
    Cache made = openCache(path_, kLimits);
    KFLCacheChanges changes;
    for (int i = 0; i < 5; ++i)
      changes.put("k" + std::to_string(i), std::string(20, 'x'));
    EXPECT_EQ(made->apply(changes), 0);
    made.reset();
    cache_ = makeCache(path_, kLimits);
    cache_->setLockTimeout(std::chrono::milliseconds(30));
    use.prepare(path_, *cache_);
    if (!fs::exists(path_)) return;
    onlooker_ = openCache(path_, kLimits);
    EXPECT_EQ(onlooker_->hold(held_), 0) << getErrorMessage();
    before_ = contentsOf(held_);
    if (use.isBehindDeath) haveOneDie(path_);
  }

  int run() const { return use_.run(*cache_); }
  const std::string& path() const { return path_; }
  const Contents& before() const { return before_; }
  // What anybody who opens the file sees, and can change at once.
  Contents look() const {
    Cache other = openCache(path_, kLimits);
    other->setLockTimeout(std::chrono::milliseconds(30));
    Contents found = contentsOf(*other);
    EXPECT_EQ(put(*other, "mark", "text"), 0) << getErrorMessage();
    EXPECT_EQ(removeKey(*other, "mark"), 0) << getErrorMessage();
    return found;
  }
  // Nobody is at work: as long as the heap does not prove sound, the lock word says that.
  void expectMarked() const {
    const std::string bytes = readFile(path_);
    EXPECT_TRUE(bytes.empty() || wordOf(bytes, 24) != 0 || faultOf(path_).empty()) << faultOf(path_);
  }
  // What is held has not changed, and the file proves sound; nothing of it is lost once nobody holds it.
  void expectSound() {
    if (onlooker_) {
      EXPECT_EQ(contentsOf(held_), before_);
    }
    EXPECT_EQ(faultOf(path_), "");
    held_.release();
    onlooker_.reset();
    cache_.reset();
    bool alone = false;
    EXPECT_EQ(openCache(path_, kLimits)->repair(alone), 0);
    EXPECT_TRUE(alone);
    EXPECT_EQ(lostBytes(path_), 0U);
  }

 private:
  const Use& use_;
  const Folder folder_ = Folder::inMemory();
  const std::string path_;
  Cache onlooker_;
  KFLCacheSnapshot held_;
  Contents before_;
  Cache cache_;
};

Plan onFileSystemOf(const Use& use, const Plan& plan = {}) {
  return plan.without(use.missing, EOPNOTSUPP);
}

class CacheSystem : public testing::TestWithParam<Use> {
 protected:
  CacheSystem() {
    setLogLevel(kLogFatal);
    Place place(GetParam());
    {
      const KFLSystemFaults faults(onFileSystemOf(GetParam()));
      EXPECT_EQ(place.run(), 0) << getErrorMessage();
      calls_ = faults.count();
    }
    after_ = place.look();
    place.expectSound();
  }
  ~CacheSystem() override { setLogLevel(kLogWarning); }

  void failAt(std::size_t number, int error, bool isOnwards) const;

  std::size_t calls_ = 0;
  Contents after_;
};

void CacheSystem::failAt(std::size_t number, int error, bool isOnwards) const {
  const std::size_t descriptors = KFLSystemFaults::countDescriptors();
  {
    Place place(GetParam());
    int code = 0;
    std::string call;
    {
      const KFLSystemFaults faults(onFileSystemOf(GetParam(), {[&](const Point& point) {
                                                    const bool isHit = point.number == number ||
                                                                       (isOnwards && point.number > number);
                                                    return isHit ? error : 0;
                                                  }}));
      setErrorMessage("%s", "");
      code = place.run();
      call = faults.failed();
    }
    SCOPED_TRACE(call + ": " + std::to_string(code) + " " + getErrorMessage());
    EXPECT_TRUE(code == 0 || getErrorMessage().find(place.path()) != std::string::npos);
    EXPECT_TRUE(code == 0 || error != EINTR);
    place.expectMarked();
    EXPECT_EQ(place.look(), code == 0 ? after_ : place.before());
    EXPECT_EQ(place.run(), 0) << getErrorMessage();
    EXPECT_EQ(place.look(), after_);
    place.expectSound();
  }
  EXPECT_EQ(KFLSystemFaults::countDescriptors(), descriptors);
}

TEST_P(CacheSystem, EachCallFails) {
  std::size_t points = 0;
  for (const int error : {EIO, ENOSPC, EINTR, EAGAIN, EMFILE, ENOMEM, EDQUOT})
    for (const bool isOnwards : {false, true}) {
      // A call that is cut short for ever is made for ever.
      if (error == EINTR && isOnwards) continue;
      for (std::size_t number = 0; number < calls_; ++number, ++points) {
        SCOPED_TRACE(std::to_string(number) + (isOnwards ? " and on: " : ": ") + std::strerror(error));
        failAt(number, error, isOnwards);
        if (HasFailure()) return;
      }
    }
  std::cout << GetParam().name << ": " << points << " failed calls\n";
}

// Children that live on, each forked by a thread of its own beside the one that calls beside().
class Children {
 public:
  explicit Children(pid_t (*make)()) : make_(make) {}
  ~Children() {
    for (Child& child : children_) {
      if (child.thread.joinable()) child.thread.join();
      kill(child.process, SIGKILL);
      waitFor(child.process);
      ::close(child.number);
    }
  }

  // Makes one now, unless its thread has to wait for the caller. A number that was just closed is used again.
  void beside() {
    Child& child = children_.emplace_back();
    child.number = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    child.thread = std::thread([this, &child] {
      child.maker = gettid();
      const pid_t made = make_();
      while (made == 0)
        pause();
      child.process = made;
    });
    while (child.process == 0 && !isAsleep(child.maker))
      sched_yield();
  }
  std::size_t count() const { return children_.size(); }
  // The locks that children have when all of them are there, each as the kernel tells it.
  std::string locks() {
    std::string all;
    for (Child& child : children_) {
      if (child.thread.joinable()) child.thread.join();
      while (!isAsleep(child.process))
        sched_yield();
      const std::string process = "/proc/" + std::to_string(child.process);
      EXPECT_TRUE(fs::exists(process + "/fd/" + std::to_string(child.number))) << "not its to close";
      for (const auto& file : fs::directory_iterator(process + "/fdinfo")) {
        const std::string text = readFile(file.path());
        if (text.find("lock:") != std::string::npos) all += text.substr(text.find("lock:"));
      }
    }
    return all;
  }

 private:
  struct Child {
    std::thread thread;
    std::atomic<pid_t> maker = 0, process = 0;
    int number = -1;
  };
  static bool isAsleep(pid_t thread) {
    char text[64] = {};
    const int file = ::open(("/proc/" + std::to_string(thread) + "/stat").c_str(), O_RDONLY);
    const bool isRead = file >= 0 && ::read(file, text, sizeof(text) - 1) > 0;
    ::close(file);
    return isRead && std::strstr(text, ") S ") != nullptr;
  }

  pid_t (*const make_)();
  std::deque<Child> children_;
};

TEST_P(CacheSystem, AChildOfEachCallKeepsNoLock) {
  const pid_t self = getpid();
  for (const auto make : {&fork, &_Fork}) {
    SCOPED_TRACE(make == &fork ? "fork" : "_Fork");
    Place place(GetParam());
    Children children(make);
    {
      const auto meet = [&](const Point&) {
        if (getpid() == self) children.beside();
        return 0;
      };
      const KFLSystemFaults faults(onFileSystemOf(GetParam(), {meet, [&](const Point& p) { meet(p); }}));
      EXPECT_EQ(place.run(), 0) << getErrorMessage();
    }
    const std::string locks = children.locks();
    if (make == &fork) {
      EXPECT_EQ(locks, "");
    }
    EXPECT_EQ(place.look(), after_);
    place.expectSound();
    std::cout << GetParam().name << ": " << children.count() << " children\n";
  }
}

std::string nameOf(const testing::TestParamInfo<Use>& use) {
  std::string name = use.param.name;
  std::erase(name, ' ');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Uses, CacheSystem, testing::ValuesIn(kUses), nameOf);

}  // namespace
