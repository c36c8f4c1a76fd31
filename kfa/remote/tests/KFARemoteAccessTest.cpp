// SPDX-License-Identifier: Apache-2.0
// What an access file gives and what it does not, and that a change of it counts.
#include <KFARemote/KFARemoteAccess.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <KFLCommon/KFLError.h>

#include "../src/KFARemote/KFARemoteChanges.h"
#include "TestCertificates.h"

namespace {

using namespace KFA;

constexpr const char* kOne = "11111111-0000-4000-8000-000000000001";
constexpr const char* kOther = "11111111-0000-4000-8000-000000000002";

struct Question {
  const char* caller;
  const char* manager;
  const char* operation;
  const char* environment;  // empty: the node
  bool isAllowed;
};

bool isAllowed(const KFARemoteRights& rights, const Question& asked) {
  const KFAManagerOperation* const operation = findManagerOperation(asked.manager, asked.operation);
  EXPECT_NE(operation, nullptr) << asked.operation;
  return rights.allow({"unknown", asked.caller}, *operation, KFLEID(asked.environment));
}

TEST(KFARemoteAccess, LinesGiveWhatTheySay) {
  const std::string text = std::string("# comment\n\n all.example   all\r\nreader read # everything\n") +
                           "*.nodes.example change *\nshop change environments,processes " + kOne +
                           "\nhost read * node," + kOther + "\n";
  KFARemoteRights rights;
  ASSERT_EQ(rights.parse(text, "access"), 0) << KFL::getErrorMessage();
  const Question questions[] = {
      {"all.example", "environments", "remove", kOne, true},
      {"ALL.example", "processes", "execute", kOne, true},
      {"all.example.", "environments", "list", "", false},
      {"all.exampl", "environments", "list", "", false},
      {"reader", "environments", "list", "", true},
      {"reader", "environments", "getConfig", kOther, true},
      {"reader", "environments", "setConfig", kOne, false},
      {"a.nodes.example", "samples", "set", "", true},
      {"a.b.nodes.example", "samples", "set", "", true},
      {"a.nodes.example", "samples", "remove", "", false},
      {"nodes.example", "samples", "list", "", false},
      {".nodes.example", "samples", "list", "", false},
      {"anodes.example", "samples", "list", "", false},
      {"*.nodes.example", "samples", "list", "", true},
      {"shop", "environments", "start", kOne, true},
      {"shop", "processes", "list", kOne, true},
      {"shop", "processes", "execute", kOne, false},
      {"shop", "environments", "start", kOther, false},
      {"shop", "environments", "list", "", false},
      {"shop", "network", "get", kOne, false},
      {"host", "network", "getShaping", "", true},
      {"host", "environments", "get", kOther, true},
      {"host", "environments", "get", kOne, false},
      {"nobody", "environments", "list", "", false},
      {"#", "environments", "list", "", false},
  };
  for (const Question& asked : questions)
    EXPECT_EQ(isAllowed(rights, asked), asked.isAllowed)
        << asked.caller << " " << asked.manager << "." << asked.operation << " " << asked.environment;
  EXPECT_FALSE(isAllowed(KFARemoteRights(), questions[0]));
}

TEST(KFARemoteAccess, MalformedFilesAreRefusedWithTheLine) {
  KFARemoteRights rights;
  ASSERT_EQ(rights.parse("a all", "access"), 0);
  const char* const lines[] = {"a",
                               "a write",
                               "a READ",
                               "a read envs",
                               "a read *,samples",
                               "a read * x",
                               "a read * *,node",
                               "a read * ,",
                               "a read samples, node",
                               "* read",
                               "a*b read",
                               "a read * node x",
                               "*.* read",
                               "a read * 00000000-0000-0000-0000-000000000000"};
  for (const std::string line : lines) {
    EXPECT_EQ(rights.parse("b read\n" + line + "\n", "access"), -1) << line;
    EXPECT_TRUE(KFL::getErrorMessage().starts_with("access:2: ")) << KFL::getErrorMessage();
  }
  EXPECT_TRUE(isAllowed(rights, {"a", "samples", "remove", "", true})) << "a refused text leaves the rights";
}

TEST(KFARemoteAccess, FileCountsAsItIsNow) {
  const TestFolder folder;
  const std::string path = folder / "access";
  const auto write = [&](const std::string& text) { std::ofstream(path) << text; };
  const KFAManagerOperation& list = *findManagerOperation("samples", "list");
  KFARemoteAccess access(path);
  EXPECT_EQ(access.load(), -1);
  EXPECT_FALSE(access.allow({"a"}, list, KFLEID()));
  const std::pair<const char*, bool> states[] = {
      {"a read", true}, {"b read", false}, {"a read\nb", false}, {"a read\nb all", true}};
  for (const auto& [text, isAllowed] : states) {
    write(text);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_EQ(access.allow({"a"}, list, KFLEID()), isAllowed) << text;
  }
  std::filesystem::remove(path);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  EXPECT_FALSE(access.allow({"a"}, list, KFLEID())) << "without its file all is denied";
}

TEST(KFARemoteChanges, EachIsBegunOnceWhileItIsRemembered) {
  using Admission = KFARemoteChanges::Admission;
  KFARemoteChanges changes({std::chrono::milliseconds(60), 2, 10});
  EXPECT_EQ(changes.begin("1", "a"), Admission::New);
  EXPECT_EQ(changes.begin("1", "a"), Admission::Repeated);
  EXPECT_EQ(changes.begin("1", "b"), Admission::Foreign);
  EXPECT_EQ(changes.wait("1", [] { return true; }), nullptr);
  std::thread ending([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    changes.end("1", {-1, "text", {"12345678"}});
  });
  const auto answer = changes.wait("1", [] { return false; });
  ending.join();
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->text, "text");
  EXPECT_EQ(changes.begin("2", "a"), Admission::New);
  EXPECT_EQ(changes.begin("3", "a"), Admission::Full) << "what is remembered is not forgotten for another";
  changes.end("2", {0, "", {"123"}});
  EXPECT_FALSE(changes.wait("2", [] { return true; })->partsAreKept);
  std::this_thread::sleep_for(std::chrono::milliseconds(80));
  EXPECT_EQ(changes.begin("1", "b"), Admission::New);
}

}  // namespace
