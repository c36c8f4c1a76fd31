// SPDX-License-Identifier: Apache-2.0
// A call that was a message on its way does what a local one does: every operation, argument and result of the nine
// managers, and what is refused.
#include <KFAFunctionality/access/KFAManagerOperations.h>
#include <KFAFunctionality/access/KFAManagerStub.h>

#include <functional>
#include <random>
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
    spoil(message);
    return answerManagerCall(
        operation, managers, nullptr, kTechnology, message,
        [&](const std::string& part) {
          EXPECT_EQ(KFLMessage::isPacked(part), form == KFAPartForm::Packed);
          return sink(spoilPart(part));
        },
        form);
  }

  const KFALibFunctionality& managers;
  KFAPartForm form = KFAPartForm::Text;
  std::set<std::string> called;
  std::function<void(KFLMessage&)> spoil = [](KFLMessage&) {};
  std::function<std::string(const std::string&)> spoilPart = [](const std::string& part) { return part; };
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

// The code of each call of a script, and how many parts came.
std::string codesOf(const std::string& transcript) {
  std::string codes;
  std::istringstream lines(transcript);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t at = line.find(": ");
    const bool isPart = line.starts_with("  <");
    if (isPart || at == std::string::npos)
      codes += isPart ? "*" : "";
    else
      codes += " " + line.substr(at + 2, line.find(' ', at + 2) - at - 2);
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
      " 0** 0* -2* -2* 0* -2* -1* 0* 0 0 0* 0 -2 0 -2 0 -2 0* 0* 0 0* 0*** 0** 0* 0* -2* -2* 0* 0 -1 -1 0***"
      " 0* 0* -2* 0 0 -2 0** -1 0 0 -2 0* -2* 0* 0 0* 0* 0* 0* -2* 0* -2* 0 -2 0** 0* -2* 0 0* 0* -2* -1* -2"
      " 0 -1 0* 0* 0 -2 0 0** 0** -2** 0 0* 0* 0 0* 0* 0 0* 0* 0* 0* 0* -2* -2* -1 0 -2 0 -2");
  for (const KFAManagerOperation& operation : listManagerOperations())
    EXPECT_TRUE(there.loopback->called.contains(std::string(operation.manager) + "." + operation.name))
        << operation.manager << "." << operation.name << " is not in the script";
  EXPECT_EQ(listManagerOperations().size(), 52U);
}

TEST(KFAManagerCalls, WhatIsNotOfferedIsSaid) {
  KFALibFunctionality none;
  const auto stub = makeManagerStub<KFASampleM>(boost::make_shared<Loopback>(none));
  std::vector<std::string> names{"kept"};
  EXPECT_EQ(stub->list(names), KFAManagerFailed);
  EXPECT_EQ(getErrorMessage(), "samples are not offered by this agent for the implementation \"kelvarium\"");
  EXPECT_EQ(names, std::vector<std::string>{"kept"});
}

// A text that XML cannot hold is never sent, and never cuts a list short in silence.
TEST(KFAManagerCalls, WhatHasNoMessageFormIsRefused) {
  const LoopbackNode here;
  const Managers stubs = here.stubs();
  EXPECT_EQ(stubs.samples->remove(std::string("a\x01")), KFAManagerFailed);
  EXPECT_TRUE(here.loopback->called.empty());
  const auto local = here.managers.getKFASampleMLocal(nullptr, kTechnology);
  ASSERT_EQ(local->set("m\xff", KFAEnvConfig()), KFAManagerDone);
  std::vector<std::string> names{"kept"};
  EXPECT_EQ(stubs.samples->list(names), KFAManagerFailed);
  EXPECT_NE(getErrorMessage().find("samples.list"), std::string::npos) << getErrorMessage();
  EXPECT_EQ(names, std::vector<std::string>{"kept"});
}

// Elements are taken away, renamed and filled at random: the call is done or refused with a text, and where the answer
// was spoilt, what the caller had stays.
TEST(KFAManagerCalls, SpoiltMessagesAreRefusedWithoutHarm) {
  LoopbackNode here;
  std::mt19937 random(7);
  const auto pick = [&](std::size_t count) { return static_cast<std::size_t>(random() % count); };
  const auto spoilAt = [&](KFLMessageIterator it) {
    for (std::size_t depth = pick(4); depth > 0 && it.firstChild() == 0; --depth) {
      for (std::size_t step = pick(3); step > 0; --step)
        it.nextSibling();
    }
    switch (pick(4)) {
      case 0:
        it.removeCurrent();
        break;
      case 1:
        it.setName("other", it.getNamespace());
        break;
      case 2:
        it.putValue(std::string("\u20ac-1"));
        break;
      default:
        it.clear();
        break;
    }
  };
  here.loopback->spoil = [&](KFLMessage& message) {
    if (pick(2) == 0) spoilAt(message.getIterator());
  };
  here.loopback->spoilPart = [&](const std::string& part) {
    if (pick(2) == 0) return part;
    KFLMessage message;
    EXPECT_EQ(message.parse(part), 0);
    if (pick(8) == 0) return part.substr(pick(part.size()));
    spoilAt(message.getIterator());
    return message.toString();
  };
  for (int round = 0; round < 20; ++round) {
    const std::string transcript = ManagerScript::run(here.stubs());
    EXPECT_EQ(transcript.find(": -1 \n"), std::string::npos) << "a refusal without a text";
    EXPECT_EQ(transcript.find(": -5 \n"), std::string::npos) << "a refusal without a text";
  }
}

// A result of any number of parts but one is no answer where one thing is wanted.
TEST(KFAManagerCalls, PartsAreCounted) {
  struct Parts : KFAManagerChannel {
    int call(const KFAManagerOperation&, const std::string&, const KFAPartSink& sink) override {
      for (int i = 0; i < count; ++i)
        sink("<result>x</result>");
      return KFAManagerDone;
    }
    int count = 0;
  };
  const auto parts = boost::make_shared<Parts>();
  const auto support = makeManagerStub<KFASupport>(parts);
  for (parts->count = 0; parts->count < 3; ++parts->count) {
    std::string id = "kept";
    std::vector<std::string> ids;
    EXPECT_EQ(support->send({}, id), parts->count == 1 ? KFAManagerDone : KFAManagerUnreachable);
    EXPECT_EQ(id, parts->count == 1 ? "x" : "kept");
    EXPECT_EQ(support->list(ids), KFAManagerDone);
    EXPECT_EQ(ids, std::vector<std::string>(static_cast<std::size_t>(parts->count), "x"));
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
