#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include <KFLConnection/KFLProcessConnection.h>

namespace {

using KFL::KFLEID;
using KFL::KFLProcessConnection;

TEST(KFLProcessConnection, ServesWhatItWasGivenUntilItIsWithdrawn) {
  const boost::intrusive_ptr<KFLProcessConnection> connection(new KFLProcessConnection);
  const KFLEID ours = KFLEID::generate();
  EXPECT_FALSE(connection->isServedHere(ours));
  EXPECT_TRUE(connection->serve(ours));
  EXPECT_FALSE(connection->serve(ours));
  EXPECT_TRUE(connection->isServedHere(ours));
  EXPECT_FALSE(connection->isServedHere(KFLEID::generate()));
  EXPECT_FALSE(connection->isServedHere(KFLEID()));
  EXPECT_TRUE(connection->withdraw(ours));
  EXPECT_FALSE(connection->withdraw(ours));
  EXPECT_FALSE(connection->isServedHere(ours));
}

TEST(KFLProcessConnection, IsAskedWhileItChanges) {
  const boost::intrusive_ptr<KFLProcessConnection> connection(new KFLProcessConnection);
  const KFLEID fixed = KFLEID::generate();
  connection->serve(fixed);
  std::atomic<bool> done{false};
  std::thread changes([&] {
    for (int round = 0; round < 1000; ++round) {
      const KFLEID passing = KFLEID::generate();
      connection->serve(passing);
      if (round % 2 == 0) connection->withdraw(passing);
    }
    done = true;
  });
  bool always = true;
  while (!done)
    always = always && connection->isServedHere(fixed);
  changes.join();
  EXPECT_TRUE(always);
}

}  // namespace
