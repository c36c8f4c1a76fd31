// SPDX-License-Identifier: Apache-2.0
// A call that was a message on its way does what a local one does: every operation, argument and result of the nine
// managers, and what is refused.
#include <KFAFunctionality/access/KFAManagerOperations.h>
#include <KFAFunctionality/access/KFAManagerStub.h>

#include <set>
#include <sstream>

#include "ManagerScript.h"

namespace {

using namespace KFA;

// Carries calls to the managers of this process, and the results back as texts or packed.
struct Loopback : KFAManagerChannel {
  explicit Loopback(const KFALibFunctionality& to) : managers(to) {}

  int call(const KFAManagerOperation& operation, const std::string& arguments,
           const KFAPartSink& sink) override {
    called.insert(std::string(operation.manager) + "." + operation.name);
    KFLMessage message;
    EXPECT_EQ(message.parse(arguments), 0) << arguments;
    return answerManagerCall(
        operation, managers, nullptr, kTechnology, message,
        [&](const std::string& part) {
          EXPECT_EQ(KFLMessage::isPacked(part), form == KFAPartForm::Packed);
          return sink(part);
        },
        form);
  }

  const KFALibFunctionality& managers;
  KFAPartForm form = KFAPartForm::Text;
  std::set<std::string> called;
};

struct LoopbackNode {
  LoopbackNode() { EXPECT_EQ(node.registerManagers(managers, kTechnology), 0); }
  Managers stubs() const {
    return managersBy([&]<class Manager>() { return makeManagerStub<Manager>(loopback); });
  }
  const KFAMemoryNode node{exampleNode()};
  KFALibFunctionality managers;
  const boost::shared_ptr<Loopback> loopback = boost::make_shared<Loopback>(managers);
};

// The code of each call of a script, without its sign, and a star for each part that came.
std::string codesOf(const std::string& transcript) {
  std::string codes;
  std::istringstream lines(transcript);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t at = line.find(": ");
    if (line.starts_with("  <"))
      codes += '*';
    else if (line.starts_with("KFA") && at != std::string::npos)
      codes += line[line.find_first_of("0123456789", at)];
  }
  return codes;
}

TEST(KFAManagerCalls, AnswerIsThatOfALocalCall) {
  const LoopbackNode here, there;
  const std::string direct = ManagerScript::run(localManagers(here.managers, kTechnology));
  EXPECT_EQ(ManagerScript::run(there.stubs()), direct);
  const LoopbackNode packed;
  packed.loopback->form = KFAPartForm::Packed;
  EXPECT_EQ(ManagerScript::run(packed.stubs()), direct);
  EXPECT_EQ(
      codesOf(direct),
      "1*0*2*0***0*2*0*0*2*0*0002220000200*00*0**0*0*2*0000000001110*0*2*000022000**2**0**0*2*000*2*2*00*0*"
      "2*020*022222020*022220*00**2**00*2*2*2*2*2*0222222222221*0*0*2*2*2*1*0*0*2220121010**0**0**2**0**00*"
      "0*000*0*00*0*0*0*2*2*2*0*0***0*2*0*0*2*0*0002220000200*000*0***0*0*0*2*0000000000001110***0*2*000002"
      "220000**2**0**0*2*0*00*2*2*00*02020*022220*020*022220*00*2*02*2*2*2*2*2*2222222222221*0*0*2*2*2*1*0*"
      "0*0*2*00121010**0**0**2**0**000*0*000*0*000*0*0*0*0*0***2*2*2*0*0100022200020*022220*002000021210202"
      "00002220002202222202222222020222");
  for (const KFAManagerOperation& operation : listManagerOperations())
    EXPECT_TRUE(there.loopback->called.contains(std::string(operation.manager) + "." + operation.name))
        << operation.manager << "." << operation.name << " is not in the script";
  EXPECT_EQ(listManagerOperations().size(), 52U);
}

// A text that XML cannot hold is never sent, and never cuts a list short in silence.
TEST(KFAManagerCalls, WhatHasNoMessageFormIsRefused) {
  const LoopbackNode here;
  const Managers stubs = here.stubs();
  EXPECT_EQ(std::get<boost::shared_ptr<KFASampleM>>(stubs)->remove(std::string("a\x01")), KFAManagerFailed);
  EXPECT_TRUE(here.loopback->called.empty());
  const auto local = here.managers.getKFASampleMLocal(nullptr, kTechnology);
  ASSERT_EQ(local->set("m\xff", KFAEnvConfig()), KFAManagerDone);
  std::vector<std::string> names{"kept"};
  EXPECT_EQ(std::get<boost::shared_ptr<KFASampleM>>(stubs)->list(names), KFAManagerFailed);
  EXPECT_NE(getErrorMessage().find("samples.list"), std::string::npos) << getErrorMessage();
  EXPECT_EQ(names, std::vector<std::string>{"kept"});
}

// A result of any number of parts but one is no answer where one thing is wanted, and a part that cannot be read is none
// anywhere; what the caller had stays. What can be read of any message is held by the targets RecordFuzz and ManagerCallFuzz.
TEST(KFAManagerCalls, PartsAreReadAndCounted) {
  struct Parts : KFAManagerChannel {
    int call(const KFAManagerOperation&, const std::string&, const KFAPartSink& sink) override {
      for (std::size_t i = 0; i < count; ++i)
        sink(part);
      return KFAManagerDone;
    }
    std::string part;
    std::size_t count = 0;
  };
  const auto parts = boost::make_shared<Parts>();
  const auto support = makeManagerStub<KFASupport>(parts);
  for (const std::string part : {"<result>x</result>", "<other>x</other>", "<result"}) {
    parts->part = part;
    for (parts->count = 0; parts->count < 3; ++parts->count) {
      const bool isRead = part == "<result>x</result>" || parts->count == 0;
      std::string id = "kept";
      std::vector<std::string> ids{"kept"};
      const bool isOne = isRead && parts->count == 1;
      EXPECT_EQ(support->send({}, id), isOne ? KFAManagerDone : KFAManagerUnreachable);
      EXPECT_EQ(id, isOne ? "x" : "kept");
      EXPECT_EQ(getErrorMessage().starts_with("the answer to support.send cannot be read: "), !isOne);
      KFL::setErrorMessage("%s", "");
      EXPECT_EQ(support->list(ids), isRead ? KFAManagerDone : KFAManagerUnreachable);
      EXPECT_EQ(getErrorMessage().starts_with("the answer to support.list cannot be read: "), !isRead);
      KFL::setErrorMessage("%s", "");
      EXPECT_EQ(ids, isRead ? std::vector<std::string>(parts->count, "x") : std::vector<std::string>{"kept"});
    }
  }
}

TEST(KFAManagerCalls, EnvironmentIsKnownBeforeTheCallIsDone) {
  KFLMessage message;
  ASSERT_EQ(message.parse("<arguments><source>11111111-0000-4000-8000-000000000001</source></arguments>"), 0);
  KFLEID eid;
  EXPECT_EQ(getEnvironmentOfCall(*findManagerOperation("environments", "clone"), message, eid), 0);
  EXPECT_EQ(eid, kFirst);
  EXPECT_EQ(getEnvironmentOfCall(*findManagerOperation("environments", "create"), message, eid), 0);
  EXPECT_FALSE(eid.isValid());
  EXPECT_EQ(getEnvironmentOfCall(*findManagerOperation("environments", "start"), message, eid), -1);
}

}  // namespace
