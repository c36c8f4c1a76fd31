// SPDX-License-Identifier: Apache-2.0
// What an access file gives and what it does not, and that a change of it counts.
#include <KFARemote/KFARemoteAccess.h>

#include <thread>

#include "../src/KFARemote/KFARemoteChanges.h"
#include "TestCertificates.h"

namespace {

using namespace KFA;

// What the lines of a file give, and for which one it is refused, is the law of the fuzz target RemoteAccessFuzz.
TEST(KFARemoteAccess, NamesAndIdsAreWhole) {
  const KFAManagerOperation& list = *findManagerOperation("samples", "list");
  KFARemoteRights rights;
  ASSERT_EQ(rights.parse("a.example all", "access"), 0);
  EXPECT_TRUE(rights.allow({"a.example"}, list, KFLEID()));
  EXPECT_FALSE(rights.allow({"a.example."}, list, KFLEID()));
  EXPECT_EQ(rights.parse("a read * 00000000-0000-0000-0000-000000000000", "access"), -1);
}

TEST(KFARemoteAccess, FileCountsAsItIsNow) {
  const TemporaryFolder folder;
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
