// SPDX-License-Identifier: Apache-2.0
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

}  // namespace
