// SPDX-License-Identifier: Apache-2.0
#include "CacheLives.h"

#include <algorithm>
#include <filesystem>

#include "CacheCrew.h"

namespace cachefaults {
namespace {

constexpr std::uint32_t kLargest = 0x1000000;
constexpr std::int64_t kSlow = 2'000'000;  // microseconds of the processor

// Overwrites one word that means something with a value that could mean something else: what is just looked at, or at or
// near a block, the snapshot or an item.
void scribble(const std::string& path, Random& random, std::int64_t accessed) {
  const std::string bytes = cachetest::readFile(path);
  if (bytes.size() < 56) return;
  const auto word = [&](std::size_t at) { return at + 4 <= bytes.size() ? cachetest::wordOf(bytes, at) : 0; };
  const std::uint32_t snapshot = 20 + word(20);
  const std::uint32_t record = snapshot + 12 + 260 * random.below(std::clamp(word(snapshot + 4), 1U, 20U));
  std::uint32_t block = 56;
  for (auto left = random.below(30); left > 0 && block + 8ULL * word(block + 4) < word(12); --left)
    block += 8 * word(block + 4);
  const std::uint32_t places[] = {4 * random.below(14),
                                  snapshot + 4 * random.below(3),
                                  record + random.below(256),
                                  record + 256,
                                  record + 256 + word(record + 256) + 4 * random.below(2),
                                  snapshot - 8 + 4 * random.below(2),
                                  block + 4 * random.below(4),
                                  random.below(bytes.size())};
  const bool isThere = accessed >= 0 && random.chance(60);
  const std::size_t at =
      (isThere ? static_cast<std::size_t>(accessed) / 4 * 4 : places[random.below(8)]) % (bytes.size() - 4);
  static constexpr std::uint32_t kValues[] = {
      0, 1, 2, 8, 0xFFFFFFFF, 0xFFFFFFF8, 0x7FFFFFFF, 0x80000000, 0x7FFFFFF8, 0x01000000, 0x10000, 260};
  const std::uint32_t values[] = {kValues[random.below(std::size(kValues))],
                                  word(at) + 8 * random.below(17) - 64, word(at) ^ (1U << random.below(32)),
                                  word(random.below(bytes.size()) & ~std::uint32_t{3}),
                                  random.below(1ULL << 32)};
  const std::uint32_t value = values[random.below(std::size(values))];
  std::fstream(path, std::ios::binary | std::ios::in | std::ios::out)
      .seekp(static_cast<std::streamoff>(at))
      .write(reinterpret_cast<const char*>(&value), random.chance(15) ? 1 : 4);
}

// The disk has some pages of the file as it was, and others as they are.
void mixPages(const std::string& path, Random& random, const std::string& former) {
  std::string bytes = cachetest::readFile(path);
  for (std::size_t page = 0; page < std::min(former.size(), bytes.size()); page += 4096)
    if (random.chance(50)) bytes.replace(page, 4096, former, page, 4096);
  cachetest::writeFile(path, bytes);
}

// One process's use of a file that is written over.
class Life {
 public:
  Life(std::uint64_t seed, const std::string& path, std::int64_t& slowest)
      : random_(seed),
        setting_{path,  seed, {.growth = 4096, .maxSize = kLargest}, std::chrono::milliseconds(200),
                 false, true},
        slowest_(slowest) {}

  // Empty, or what went wrong.
  std::string run() {
    const std::string& path = setting_.path;
    const cachetest::Cache maker = cachetest::openCache(path, setting_.limits);
    for (std::uint32_t left = random_.below(12); left > 0; --left)
      cachetest::put(*maker, "k" + std::to_string(left), std::string(random_.logarithmic(2000), 'x'));
    maker->reinit();
    worker_ = std::make_unique<Worker>(setting_, 0);
    call({Verb::Open});
    const bool nodeDies = random_.chance(20);
    const std::string onDisk = cachetest::readFile(path);
    if (random_.chance(50)) call({Verb::Hold});
    for (std::uint32_t left = 3 + random_.below(8); left > 0 && fault_.empty(); --left) {
      static constexpr Verb kVerbs[] = {Verb::Hold,    Verb::Change, Verb::Change, Verb::Find,   Verb::Find,
                                        Verb::Release, Verb::Repair, Verb::Open,   Verb::Create, Verb::Sync};
      Order order{kVerbs[random_.below(std::size(kVerbs))]};
      if (!nodeDies && random_.chance(60)) scribble(path, random_, -1);
      if (!nodeDies && random_.chance(30)) order.plan = {Event::Wait, random_.logarithmic(300)};
      if (!nodeDies && random_.chance(30)) order.plan = {Event::Wait, random_.logarithmic(20000), true};
      call(order);
    }
    call({Verb::Close});
    if (nodeDies && std::filesystem::exists(path)) mixPages(path, random_, onDisk);
    call({random_.chance(50) ? Verb::Create : Verb::Open});
    call({Verb::Change});
    if (fault_.empty() && worker_->report().code == 0) fault_ = cachetest::faultOf(path);
    return fault_;
  }

 private:
  void call(Order order) {
    if (!fault_.empty()) return;
    const bool opens = order.verb == Verb::Open || order.verb == Verb::Create;
    if (!isOpen_ && !opens) return;
    order.first = order.verb == Verb::Release ? 0 : ++attempt_;
    Worker::State state = worker_->perform(order);
    if (state == Worker::State::Waiting) {
      scribble(setting_.path, random_, worker_->report().accessed);
      worker_->resume();
      state = worker_->await();
    }
    const Report& report = worker_->report();
    slowest_ = std::max(slowest_, report.processor);
    isOpen_ = opens ? report.code == 0 : isOpen_ && order.verb != Verb::Close;
    const bool isLarge =
        std::filesystem::exists(setting_.path) && std::filesystem::file_size(setting_.path) > kLargest + 4096;
    if (state != Worker::State::Ready)
      fault_ = state == Worker::State::Busy ? "no answer"
                                            : "ended with status " + std::to_string(worker_->status());
    else if (report.fault[0] != '\0')
      fault_ = report.fault.data();
    else if (report.processor > kSlow || isLarge)
      fault_ = isLarge ? "a file over its limit" : "more than 2 s";
    if (!fault_.empty()) fault_ += std::string(" in ") + nameOf(order.verb);
  }

  Random random_;
  const Setting setting_;
  std::int64_t& slowest_;
  std::unique_ptr<Worker> worker_;
  std::uint32_t attempt_ = 0;
  bool isOpen_ = false;
  std::string fault_;
};

}  // namespace

std::string runDamage(std::uint64_t seed, const std::string& folder, Totals& totals) {
  std::string fault = Life(seed, folder + "/template.cache", totals.slowest).run();
  std::filesystem::remove(folder + "/template.cache");
  return fault;
}

}  // namespace cachefaults
