// SPDX-License-Identifier: Apache-2.0
// A child that is forked while other threads are at work in the libraries finds none of their locks taken.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLFolders.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace {

// Whatever takes a lock of the whole process; 0 when all of it worked.
int useTheLibraries() {
  int failures = 0;
  for (int i = 0; i < 3; ++i) {
    failures += KFL::listDerivedTypes().empty() ? 1 : 0;
    failures += KFL::findRecordType("KFAEnvConfig") == nullptr ? 1 : 0;
    failures += KFL::getUploadsFolder().empty() ? 1 : 0;
    KFL_LOG("Forks", KFL::kLogError, "%d", i);
    failures += KFL::KFLMessage().parse("<a/>") == 0 ? 0 : 1;
  }
  // The first text of a thread is where it takes a lock.
  std::thread([] { KFL::setErrorMessage("%s", "its own"); }).join();
  return failures;
}

TEST(Forks, ChildFindsNoLockOfTheProcessTaken) {
  KFL::setLogSink([](const KFL::LogRecord&, void*) { std::this_thread::yield(); }, nullptr);
  std::atomic<bool> isOver{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!isOver.load())
        useTheLibraries();
    });
  }
  int stuck = 0;
  for (int i = 0; i < 1000 && stuck == 0; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      const int failures = useTheLibraries();
      KFL::setLogSink(nullptr, nullptr);  // waits for whoever is in the former sink
      _exit(failures);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    stuck += status != 0 ? 1 : 0;
  }
  isOver.store(true);
  for (std::thread& thread : threads)
    thread.join();
  KFL::setLogSink(nullptr, nullptr);
  EXPECT_EQ(stuck, 0);
}

}  // namespace
