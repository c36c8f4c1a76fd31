// SPDX-License-Identifier: Apache-2.0
// Every access point goes to the multiplexer of its own manager, and each in its own way. The routing itself is
// proved with the multiplexer.
#include <string>

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <KFAFunctionality/access/KFAEnvM.h>
#include <KFAFunctionality/access/KFALibFunctionality.h>
#include <KFAFunctionality/access/KFANetworkM.h>
#include <KFAFunctionality/access/KFAPkgM.h>
#include <KFAFunctionality/access/KFAProcessM.h>
#include <KFAFunctionality/access/KFAProcessMonitor.h>
#include <KFAFunctionality/access/KFASampleM.h>
#include <KFAFunctionality/access/KFASupport.h>
#include <KFAFunctionality/access/KFATEM.h>
#include <KFAFunctionality/access/KFAUp2date.h>
#include <KFLConnection/KFLProcessConnection.h>

namespace {

using namespace KFA;

// Notes which interface was asked for, and how, instead of making a manager. The pointer that it gives is no
// manager: it only tells an answer from none.
template <class X>
struct Noting : KFLLocalFactory<boost::shared_ptr<X>>, KFLAgentFactory<boost::shared_ptr<X>> {
  using XSP = boost::shared_ptr<X>;

  Noting(const char* ofManager, std::string& intoNote) : manager(ofManager), note(intoNote) {}
  XSP create(const KFLAccessProviderSP& ap) override { return noted("local", ap); }
  XSP create(const KFLEID&, const KFLAccessProviderSP& ap) override { return noted("agent", ap); }
  XSP create(const KFLEID&, const KFLAccessProviderSP& ap, const std::string& extraData) override {
    return noted("agent at " + extraData, ap);
  }
  XSP noted(const std::string& how, const KFLAccessProviderSP& ap) {
    note = std::string(manager) + " " + how + (ap ? " for a caller" : "");
    return XSP(boost::make_shared<int>(), reinterpret_cast<X*>(this));
  }

  const char* manager;
  std::string& note;
};

struct Provider : KFLAccessProviderPrototype {
  KFLConnectionSP getConnection() const override {
    return KFLConnectionSP(new KFLProcessConnection);  // serves nothing here
  }
};

class KFALibFunctionalityTest : public testing::Test {
 protected:
  // Registers the manager's factories, and asks its three access points in five ways.
  template <class X, class Get, class GetAgent, class GetLocal>
  void expectOwn(const char* manager, Get get, GetAgent getAgent, GetLocal getLocal) {
    SCOPED_TRACE(manager);
    const auto factory = boost::make_shared<Noting<X>>(manager, note);
    auto& multiplexer = functionality.multiplexer<X>();
    ASSERT_EQ(multiplexer.registerLocal("kelvarium", factory), 0);
    ASSERT_EQ(multiplexer.registerAgent("kelvarium", factory), 0);
    ASSERT_EQ(multiplexer.registerAgent("far", factory), 0);
    multiplexer.setExtraData("far", "node2");
    expect((functionality.*get)(eid, nullptr, "kelvarium"), manager, "local");
    expect((functionality.*get)(eid, provider, "kelvarium"), manager, "agent for a caller");
    expect((functionality.*getAgent)(eid, nullptr, "kelvarium"), manager, "agent");
    expect((functionality.*getAgent)(eid, provider, "far"), manager, "agent at node2 for a caller");
    expect((functionality.*getLocal)(provider, "kelvarium"), manager, "local for a caller");
  }
  template <class Pointer>
  void expect(const Pointer& answer, const std::string& manager, const std::string& how) {
    EXPECT_NE(answer, nullptr);
    EXPECT_EQ(note, manager + " " + how);
    note.clear();
  }

  const KFLEID eid = KFLEID::generate();
  const KFLAccessProviderSP provider{new Provider};
  KFALibFunctionality functionality;
  std::string note;
};

TEST_F(KFALibFunctionalityTest, EachAccessPointAsksItsOwnManager) {
  using F = KFALibFunctionality;
  expectOwn<KFASampleM>("samples", &F::getKFASampleM, &F::getKFASampleMAgent, &F::getKFASampleMLocal);
  expectOwn<KFASupport>("support", &F::getKFASupport, &F::getKFASupportAgent, &F::getKFASupportLocal);
  expectOwn<KFAUp2date>("updates", &F::getKFAUp2date, &F::getKFAUp2dateAgent, &F::getKFAUp2dateLocal);
  expectOwn<KFAProcessM>("processes", &F::getKFAProcessM, &F::getKFAProcessMAgent, &F::getKFAProcessMLocal);
  expectOwn<KFAProcessMonitor>("monitor", &F::getKFAProcessMonitor, &F::getKFAProcessMonitorAgent,
                               &F::getKFAProcessMonitorLocal);
  expectOwn<KFANetworkM>("network", &F::getKFANetworkM, &F::getKFANetworkMAgent, &F::getKFANetworkMLocal);
  expectOwn<KFAPkgM>("packages", &F::getKFAPkgM, &F::getKFAPkgMAgent, &F::getKFAPkgMLocal);
  expectOwn<KFAEnvM>("environments", &F::getKFAEnvM, &F::getKFAEnvMAgent, &F::getKFAEnvMLocal);
  expectOwn<KFATEM>("templates", &F::getTEM, &F::getTEMAgent, &F::getTEMLocal);
}

}  // namespace
