// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLConnection/KFLProcessConnection.h>
#include <KFLFunctionalityCore/KFLFunctional.h>
#include <KFLFunctionalityCore/KFLFunctionalMultiplexer.h>

namespace {

using namespace KFL;

// Says how it was made.
struct Manager : KFLFunctional {
  explicit Manager(std::string from) : origin(std::move(from)) {}
  const std::string origin;
};
using ManagerSP = boost::shared_ptr<Manager>;
using Multiplexer = KFLFunctionalMultiplexer<ManagerSP>;

std::string originOf(const ManagerSP& manager) {
  return manager ? manager->origin : "none";
}

struct Local : KFLLocalFactory<ManagerSP> {
  ManagerSP create(const KFLAccessProviderSP& ap) override {
    ++calls;
    return boost::make_shared<Manager>(ap ? "local for a caller" : "local");
  }
  std::atomic<int> calls{0};
};

struct Agent : KFLAgentFactory<ManagerSP> {
  ManagerSP create(const KFLEID&, const KFLAccessProviderSP&, const std::string& extraData) override {
    return boost::make_shared<Manager>("agent at " + extraData);
  }
  ManagerSP create(const KFLEID&, const KFLAccessProviderSP&) override {
    return boost::make_shared<Manager>("agent");
  }
};

struct Provider : KFLAccessProviderPrototype {
  explicit Provider(KFLConnectionSP to = {}) : connection(std::move(to)) {}
  KFLConnectionSP getConnection() const override { return connection; }
  KFLConnectionSP connection;
};

class KFLFunctionalMultiplexerTest : public testing::Test {
 protected:
  KFLFunctionalMultiplexerTest() {
    connection->serve(here);
    multiplexer.registerLocal("both", local);
    multiplexer.registerAgent("both", agent);
    multiplexer.registerLocal("local only", local);
    multiplexer.registerAgent("agent only", agent);
    multiplexer.registerAgent("addressed", agent);
    multiplexer.setExtraData("addressed", "node2");
    multiplexer.setExtraData("address only", "node3");
  }

  const KFLEID here = KFLEID::generate();
  const KFLEID elsewhere = KFLEID::generate();
  const boost::intrusive_ptr<KFLProcessConnection> connection{new KFLProcessConnection};
  const KFLAccessProviderSP connected{new Provider(connection)};
  const KFLAccessProviderSP unconnected{new Provider};
  const boost::shared_ptr<Local> local = boost::make_shared<Local>();
  const boost::shared_ptr<Agent> agent = boost::make_shared<Agent>();
  Multiplexer multiplexer;
};

TEST_F(KFLFunctionalMultiplexerTest, ProviderAndConnectionDecide) {
  using Case = std::tuple<KFLAccessProviderSP, KFLEID, const char*, const char*>;
  const Case cases[] = {{nullptr, here, "both", "local"},
                        {nullptr, elsewhere, "both", "local"},
                        {unconnected, elsewhere, "both", "local for a caller"},
                        {connected, here, "both", "local for a caller"},
                        {connected, elsewhere, "both", "agent"},
                        {connected, KFLEID(), "both", "agent"},
                        {connected, elsewhere, "addressed", "agent at node2"},
                        // The other kind never stands in.
                        {connected, here, "agent only", "none"},
                        {connected, elsewhere, "local only", "none"},
                        {nullptr, here, "address only", "none"},
                        {connected, elsewhere, "address only", "none"},
                        // Near misses.
                        {nullptr, here, "", "none"},
                        {nullptr, here, "Both", "none"},
                        {nullptr, here, "both ", "none"}};
  for (const auto& [ap, eid, name, origin] : cases)
    EXPECT_EQ(originOf(multiplexer.get(eid, ap, name)), origin) << name;
}

TEST_F(KFLFunctionalMultiplexerTest, LocalAndAgentAreReachedWhateverTheConnection) {
  EXPECT_EQ(originOf(multiplexer.getLocal(nullptr, "agent only")), "none");
  EXPECT_EQ(originOf(multiplexer.getAgent(here, nullptr, "agent only")), "agent");
  EXPECT_EQ(originOf(multiplexer.getAgent(here, connected, "addressed")), "agent at node2");
  EXPECT_TRUE(multiplexer.removeExtraData("addressed"));
  EXPECT_FALSE(multiplexer.removeExtraData("addressed"));
  EXPECT_EQ(originOf(multiplexer.getAgent(here, connected, "addressed")), "agent");
}

TEST_F(KFLFunctionalMultiplexerTest, EachCallAsksTheFactory) {
  EXPECT_NE(multiplexer.getLocal(nullptr, "both"), multiplexer.getLocal(nullptr, "both"));
  EXPECT_EQ(local->calls, 2);
}

TEST_F(KFLFunctionalMultiplexerTest, FactoriesComeAndGo) {
  EXPECT_EQ(multiplexer.registerLocal("both", boost::make_shared<Local>()), -1);
  EXPECT_NE(getErrorMessage().find("\"both\""), std::string::npos);
  EXPECT_EQ(multiplexer.registerAgent("new", nullptr), -1);
  EXPECT_EQ(multiplexer.unregisterLocal("both", boost::make_shared<Local>()), -1) << "not its factory";
  EXPECT_EQ(multiplexer.unregisterAgent("new", nullptr), -1);
  EXPECT_EQ(multiplexer.unregisterLocal("both", local), 0);
  EXPECT_EQ(multiplexer.unregisterLocal("both", local), -1);
  EXPECT_EQ(originOf(multiplexer.getLocal(nullptr, "both")), "none");
  EXPECT_EQ(multiplexer.unregisterAgent("addressed", agent), 0);
  EXPECT_EQ(multiplexer.registerAgent("addressed", agent), 0);
  EXPECT_EQ(originOf(multiplexer.getAgent(here, nullptr, "addressed")), "agent at node2");
}

// A factory that is composed of others, and takes itself out.
TEST_F(KFLFunctionalMultiplexerTest, FactoryMayUseItsOwnMultiplexer) {
  struct Once : KFLLocalFactory<ManagerSP> {
    explicit Once(Multiplexer& of) : multiplexer(of) {}
    ManagerSP create(const KFLAccessProviderSP& ap) override {
      multiplexer.unregisterLocal("once", self.lock());
      return multiplexer.getLocal(ap, "both");
    }
    Multiplexer& multiplexer;
    boost::weak_ptr<Once> self;
  };
  boost::shared_ptr<Once> once = boost::make_shared<Once>(multiplexer);
  once->self = once;
  multiplexer.registerLocal("once", once);
  once.reset();
  EXPECT_EQ(originOf(multiplexer.getLocal(nullptr, "once")), "local");
  EXPECT_EQ(originOf(multiplexer.getLocal(nullptr, "once")), "none");
}

TEST_F(KFLFunctionalMultiplexerTest, RegistersWhileOthersGet) {
  std::atomic<bool> done{false};
  std::atomic<int> wrong{0};
  const std::set<std::string> passing = {"none", "local for a caller"};
  const std::set<std::string> addressed = {"agent", "agent at node2", "agent at node4"};
  const auto getAll = [&] {
    while (!done) {
      if (originOf(multiplexer.get(elsewhere, connected, "both")) != "agent") ++wrong;
      if (!passing.contains(originOf(multiplexer.get(here, connected, "passing")))) ++wrong;
      if (!addressed.contains(originOf(multiplexer.getAgent(here, connected, "addressed")))) ++wrong;
    }
  };
  {
    const std::jthread readers[] = {std::jthread(getAll), std::jthread(getAll), std::jthread(getAll)};
    for (int round = 0; round < 2000; ++round) {
      const auto factory = boost::make_shared<Local>();
      EXPECT_EQ(multiplexer.registerLocal("passing", factory), 0);
      multiplexer.setExtraData("addressed", "node4");
      const KFLEID arriving = KFLEID::generate();
      connection->serve(arriving);
      connection->withdraw(arriving);
      EXPECT_EQ(multiplexer.unregisterLocal("passing", factory), 0);
      multiplexer.removeExtraData("addressed");
    }
    done = true;
  }
  EXPECT_EQ(wrong, 0);
}

}  // namespace
