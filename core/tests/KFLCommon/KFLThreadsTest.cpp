// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLThreads.h>

#include <pthread.h>

#include <array>
#include <stdexcept>
#include <system_error>

#include <gtest/gtest.h>

namespace KFL {
namespace {

// No address space has room for a stack of this size.
class NoMoreThreads {
 public:
  NoMoreThreads() {
    pthread_getattr_default_np(&before_);
    pthread_attr_t huge = before_;
    pthread_attr_setstacksize(&huge, std::size_t{1} << 50);
    pthread_setattr_default_np(&huge);
  }
  ~NoMoreThreads() { pthread_setattr_default_np(&before_); }

 private:
  pthread_attr_t before_{};
};

TEST(KFLThreads, EachWorkIsDoneOnceHoweverManyThreadsThereAre) {
  const auto run = [](std::size_t count, std::size_t most, bool throws) {
    std::array<std::atomic<int>, 100> done{};
    const auto work = [&](std::size_t i) {
      ++done[i];
      if (throws && i % 7 == 0) throw std::runtime_error("failed");
    };
    if (throws)
      EXPECT_THROW(runInThreads(count, most, work), std::runtime_error);
    else
      runInThreads(count, most, work);
    for (std::size_t i = 0; i < done.size(); ++i)
      EXPECT_EQ(done[i], i < count ? 1 : 0) << i << " of " << count << " in " << most;
  };
  for (const std::size_t most : {0, 1, 2, 16, 500})
    for (const std::size_t count : {0, 1, 3, 100})
      run(count, most, false);
  run(100, 16, true);
  const NoMoreThreads none;
  EXPECT_THROW(std::thread([] {}).join(), std::system_error);
  run(100, 16, false);
  run(100, 16, true);
}

}  // namespace
}  // namespace KFL
