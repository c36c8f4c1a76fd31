// SPDX-License-Identifier: Apache-2.0
#include "CacheDamage.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <new>
#include <string_view>
#include <vector>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLCacheFile.h>
#include <KFLCore/KFLCacheSnapshot.h>

#include "CacheCrew.h"
#include "CachePoints.h"
#include "CacheTest.h"

namespace cachefaults {
namespace {

using namespace KFL;

constexpr std::uint32_t kHeader = 56;
constexpr std::int64_t kSlow = 2'000'000;  // microseconds of the processor
constexpr std::uint32_t kLargest = 0x1000000;

// What outlives the child.
struct Trace {
  std::atomic<std::uint64_t> seed;
  std::atomic<std::int64_t> slowest;
  std::array<char, 120> call;
};

// Overwrites one word that means something, with a value that could mean something else.
class Scribbler {
 public:
  Scribbler(const std::string& path, Random& random)
      : file_(open(path.c_str(), O_RDWR | O_CLOEXEC)), random_(random) {}
  Scribbler(const Scribbler&) = delete;
  Scribbler& operator=(const Scribbler&) = delete;
  ~Scribbler() { close(file_); }

  void scribble() {
    struct stat status {};
    if (fstat(file_, &status) != 0 || status.st_size < kHeader) return;
    const std::uint32_t at = place() % static_cast<std::uint32_t>(status.st_size - 4);
    const std::uint32_t value = valueFor(at);
    const std::size_t size = random_.chance(15) ? 1 : sizeof(value);
    if (pwrite(file_, &value, size, at) < 0) return;
  }

 private:
  std::uint32_t word(std::uint32_t at) const {
    std::uint32_t value = 0;
    return pread(file_, &value, sizeof(value), at) == sizeof(value) ? value : 0;
  }
  // A place in the file: what is just looked at, or at or near a block, the snapshot or an item.
  std::uint32_t place() {
    const std::int64_t now = accessed();
    if (now >= 0 && random_.chance(60)) return static_cast<std::uint32_t>(now) / 4 * 4;
    const std::uint32_t snapshot = 20 + word(20);
    const std::uint32_t record = snapshot + 12 + 260 * random_.below(std::clamp(word(snapshot + 4), 1U, 20U));
    switch (random_.below(8)) {
      case 0:
        return 4 * random_.below(kHeader / 4);
      case 1:
        return snapshot + 4 * random_.below(3);
      case 2:
        return record + random_.below(256);
      case 3:
        return record + 256;
      case 4:
        return record + 256 + word(record + 256) + 4 * random_.below(2);
      case 5:
        return snapshot - 8 + 4 * random_.below(2);
      case 6:
        return blockStart() + 4 * random_.below(4);
      default:
        return random_.below(std::max(word(12), kHeader) % kLargest + 1);
    }
  }
  std::uint32_t blockStart() {
    std::uint32_t at = kHeader;
    for (std::uint32_t left = random_.below(30); left > 0; --left) {
      const std::uint32_t next = at + 8 * word(at + 4);
      if (next <= at || next >= word(12)) break;
      at = next;
    }
    return at;
  }
  std::uint32_t valueFor(std::uint32_t at) {
    static constexpr std::uint32_t kValues[] = {
        0, 1, 2, 8, 0xFFFFFFFF, 0xFFFFFFF8, 0x7FFFFFFF, 0x80000000, 0x7FFFFFF8, 0x01000000, 0x10000, 260};
    switch (random_.below(5)) {
      case 0:
        return kValues[random_.below(std::size(kValues))];
      case 1:
        return word(at) + 8 * (random_.below(17) - 8);
      case 2:
        return word(at) ^ (1U << random_.below(32));
      case 3:
        return word(4 * random_.below(std::max(word(12) % kLargest, kHeader) / 4));
      default:
        return static_cast<std::uint32_t>(random_.next());
    }
  }

  const int file_;
  Random& random_;
};

// One process's use of a file that is written over.
class Life {
 public:
  Life(std::uint64_t seed, const std::string& path, Trace& trace)
      : random_(seed), path_(path), trace_(trace), cache_(makeCache()) {}

  void run() {
    const std::uint32_t records = random_.below(12);
    call("open", [&] { return cache_->initialize(true, false); });
    for (std::uint32_t i = 0; i < records; ++i)
      put();
    const bool nodeDies = random_.chance(20);
    const std::string onDisk = cachetest::readFile(path_);
    Scribbler scribbler(path_, random_);
    scribbler_ = &scribbler;
    self_ = this;
    if (random_.chance(50)) hold();
    for (std::uint32_t left = 3 + random_.below(8); left > 0; --left) {
      if (random_.chance(60) && !nodeDies) scribbler.scribble();
      if (random_.chance(30) && !nodeDies) plan_ = {Event::Wait, random_.logarithmic(300)};
      if (random_.chance(30) && !nodeDies) plan_ = {Event::Wait, random_.logarithmic(20000), true};
      act();
      plan_ = {};
    }
    call("close", [&] {
      held_.clear();
      cache_.reset();
      return 0;
    });
    if (nodeDies) mixPages(onDisk);
    int code = 0;
    call("open again", [&] {
      cache_ = makeCache();
      return code = cache_->initialize(true, random_.chance(50));
    });
    if (code != 0) return;
    call("put again", [&] { return code = cachetest::put(*cache_, "new", "text"); });
    if (code == 0 && !cachetest::faultOf(path_).empty()) _exit(93);
  }

 private:
  // The disk has some pages of the file as it was, and others as they are.
  void mixPages(const std::string& former) {
    std::string bytes = cachetest::readFile(path_);
    for (std::size_t page = 0; page < std::min(former.size(), bytes.size()); page += 4096)
      if (random_.chance(50)) bytes.replace(page, 4096, former, page, 4096);
    cachetest::writeFile(path_, bytes);
  }
  boost::intrusive_ptr<KFLCacheFile> makeCache() const {
    KFLCacheLimits limits;
    limits.growth = 4096;
    limits.maxSize = kLargest;
    boost::intrusive_ptr<KFLCacheFile> cache(new KFLCacheFile(path_, limits));
    cache->setLockTimeout(std::chrono::milliseconds(200));
    return cache;
  }

  static void scribbleMeanwhile() { self_->scribbler_->scribble(); }

  template <class Call>
  void call(const char* name, Call perform) {
    std::strncpy(trace_.call.data(), name, trace_.call.size() - 1);
    const std::clock_t start = std::clock();
    const std::size_t texts = countErrorMessages();
    begin(plan_, scribbleMeanwhile);
    const int code = perform();
    end();
    const std::int64_t took = (std::clock() - start) * 1000000 / CLOCKS_PER_SEC;
    trace_.slowest = std::max<std::int64_t>(trace_.slowest, took);
    if (took > kSlow) _exit(90);
    if (code < 0 && countErrorMessages() == texts) _exit(91);
    if (std::filesystem::exists(path_) && std::filesystem::file_size(path_) > kLargest + 4096) _exit(92);
  }

  void act() {
    switch (random_.below(8)) {
      case 0:
        return hold();
      case 1:
        return put();
      case 2:
        return readAll();
      case 3:
        return call("release", [&] {
          if (!held_.empty())
            held_.erase(held_.begin() + random_.below(static_cast<std::uint32_t>(held_.size())));
          return 0;
        });
      case 4:
        return call("repair", [&] {
          bool isAlone = false;
          return cache_->repair(isAlone);
        });
      case 5:
        return call("remove", [&] {
          KFLCacheChanges changes;
          changes.remove(key());
          return cache_->apply(changes);
        });
      case 6:
        return call("open", [&] { return cache_->initialize(true, random_.chance(30)); });
      default:
        return call("sync", [&] { return cache_->sync(); });
    }
  }
  std::string key() { return "k" + std::to_string(random_.below(14)); }
  void put() {
    KFLCacheChanges changes;
    for (std::uint32_t left = 1 + random_.below(3); left > 0; --left)
      changes.put(key(), std::string(random_.logarithmic(2000), 'x'));
    call("put", [&] { return cache_->apply(changes); });
  }
  void hold() {
    KFLCacheSnapshot snapshot;
    call("hold", [&] { return cache_->hold(snapshot); });
    held_.push_back(std::move(snapshot));
  }
  // Some bytes of each page, and both ends.
  static std::uint64_t touch(std::string_view text) {
    std::uint64_t sum = text.empty() ? 0 : static_cast<unsigned char>(text.back());
    for (std::size_t at = 0; at < text.size(); at += 512)
      sum += static_cast<unsigned char>(text[at]);
    return sum;
  }
  // Every byte that a snapshot shows must be there.
  void readAll() {
    call("read", [&] {
      std::uint64_t hash = 0;
      for (const KFLCacheSnapshot& snapshot : held_) {
        for (std::uint32_t i = 0; i < std::min(snapshot.size(), 1000U); ++i)
          hash ^= hashOf(snapshot.getKey(i)) + touch(snapshot.getText(i));
        hash ^= snapshot.find(key());
      }
      read_ = hash;
      return 0;
    });
  }

  static Life* self_;

  Random random_;
  const std::string path_;
  Trace& trace_;
  boost::intrusive_ptr<KFLCacheFile> cache_;
  std::vector<KFLCacheSnapshot> held_;
  Scribbler* scribbler_ = nullptr;
  Plan plan_;
  std::uint64_t read_ = 0;
};
Life* Life::self_ = nullptr;

void clear(const std::string& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    std::filesystem::remove_all(entry.path());
}

// In the child: lives until one ends it.
void live(std::uint64_t first, std::uint64_t end, const std::string& folder, Trace& trace) {
  setLogLevel(kLogFatal);
  watchMoments();
  for (std::uint64_t seed = first; seed < end; ++seed) {
    trace.seed = seed;
    alarm(20);
    Life(seed, folder + "/template.cache", trace).run();
    clear(folder);
  }
  _exit(0);
}

std::string describe(int status, const Trace& trace) {
  std::string what = WIFSIGNALED(status)         ? "signal " + std::to_string(WTERMSIG(status))
                     : WEXITSTATUS(status) == 90 ? "more than 2 s"
                     : WEXITSTATUS(status) == 91 ? "a code without a text"
                     : WEXITSTATUS(status) == 92 ? "a file over its limit"
                     : WEXITSTATUS(status) == 93 ? "a change that leaves the file at fault"
                                                 : "status " + std::to_string(WEXITSTATUS(status));
  return "damage seed " + std::to_string(trace.seed) + ": " + what + " in " + trace.call.data() + "\n";
}

}  // namespace

std::string runDamages(std::uint64_t first, std::uint64_t count, std::uint64_t limit,
                       const std::string& folder, Damages& damages) {
  void* memory = mmap(nullptr, sizeof(Trace), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Trace& trace = *new (memory) Trace();
  std::string faults;
  for (std::uint64_t seed = first; seed < first + count && damages.faults < limit;) {
    trace.seed = seed;
    const pid_t child = fork();
    if (child == 0) live(seed, first + count, folder, trace);
    int status = 0;
    waitpid(child, &status, 0);
    damages.tries += trace.seed - seed + 1;
    seed = trace.seed + 1;
    if (status == 0) continue;
    ++damages.faults;
    faults += describe(status, trace);
    clear(folder);
  }
  damages.slowest = std::max<std::int64_t>(damages.slowest, trace.slowest);
  munmap(memory, sizeof(Trace));
  return faults;
}

}  // namespace cachefaults
