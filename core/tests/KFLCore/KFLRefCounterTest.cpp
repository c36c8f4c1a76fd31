// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <KFLCore/KFLRefCounter.h>

namespace {

class Counted : public KFL::KFLRefCounter {
 public:
  explicit Counted(int& ends) : ends_(ends) {}
  Counted(const Counted&) = default;
  ~Counted() override { ++ends_; }

 private:
  int& ends_;
};
using CountedSP = boost::intrusive_ptr<Counted>;

TEST(KFLRefCounter, LastReferenceEndsTheObjectAndACopyCountsForItself) {
  int ends = 0;
  CountedSP first(new Counted(ends));
  CountedSP second = first;
  CountedSP copy(new Counted(*first));
  first.reset();
  EXPECT_EQ(ends, 0);
  copy.reset();
  EXPECT_EQ(ends, 1);
  second.reset();
  EXPECT_EQ(ends, 2);
}

TEST(KFLRefCounterDeathTest, ReleaseWithoutAReferenceAborts) {
  int ends = 0;
  EXPECT_DEATH((new Counted(ends))->release(), "KFLRefCounter");
}

}  // namespace
