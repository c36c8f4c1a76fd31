// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLLog.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <KFLCommon/KFLLock.h>

namespace KFL::test {

namespace {

struct Heard {
  KFLLock lock;
  std::vector<std::string> texts KFL_GUARDED_BY(lock);
};

void listen(const LogRecord& record, void* context) {
  // What a sink says itself it does not hear.
  KFL_LOG("KFLCommon", kLogInfo, "%s", "heard");
  auto& heard = *static_cast<Heard*>(context);
  const KFLLockGuard guard(heard.lock);
  heard.texts.push_back(std::to_string(record.level) + " " + record.module + " " + record.function + " " +
                        std::string(record.text));
}

class KFLLogTest : public testing::Test {
 protected:
  ~KFLLogTest() override {
    setLogSink(nullptr, nullptr);
    setLogLevel(kLogWarning);
  }

  static void put(int level, const char* text) {
    Log2("KFLCommon", "src/KFLLog.cpp", 12, "put", "void put()").put(level, "[%s] %s", "put", text);
  }
};

TEST_F(KFLLogTest, ShowsWarningsAndGraverByDefault) {
  testing::internal::CaptureStderr();
  errno = EAGAIN;
  for (int level = kLogFatal; level <= kLogDebug; ++level)
    put(level, "text");
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "fatal: KFLCommon: KFLLog.cpp:12: [put] text\n"
            "error: KFLCommon: KFLLog.cpp:12: [put] text\n"
            "warning: KFLCommon: KFLLog.cpp:12: [put] text\n");
}

TEST_F(KFLLogTest, OneMessageIsOneLine) {
  testing::internal::CaptureStderr();
  put(kLogError, "a\nb\x1b[0m\tc\xc3\xa9");
  Log2("KFLCommon", "KFLLog.cpp", 1, "f", "void f()").put(kLogError, "x");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "error: KFLCommon: KFLLog.cpp:12: [put] a\\x0ab\\x1b[0m\tc\xc3\xa9\n"
            "error: KFLCommon: KFLLog.cpp:1: x\n");
}

TEST_F(KFLLogTest, ASinkHearsEveryThread) {
  Heard heard;
  setLogSink(listen, &heard);
  setLogLevel(99);
  EXPECT_EQ(getLogLevel(), kLogDebug);
  testing::internal::CaptureStderr();
  std::vector<std::jthread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int n = 0; n < 100; ++n)
        KFL_LOG("KFLCommon", kLogDebug, "%d", n);
    });
  }
  threads.clear();
  setLogSink(nullptr, nullptr);
  EXPECT_NE(testing::internal::GetCapturedStderr().find(": heard\n"), std::string::npos);
  const KFLLockGuard guard(heard.lock);
  EXPECT_EQ(heard.texts.size(), 400U);
  EXPECT_EQ(heard.texts.front(), "4 KFLCommon operator() 0");
}

TEST_F(KFLLogTest, AnUnshownLevelEvaluatesNothing) {
  int evaluated = 0;
  setLogLevel(kLogError);
  KFL_LOG("KFLCommon", kLogWarning, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 0);
}

// The threadsafe style runs this program anew, so the library is loaded with the variable set.
TEST(KFLLogDeathTest, ReadsItsLevelFromTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::tuple<const char*, int, const char*> rows[] = {{"0", kLogFatal, ""},
                                                            {"Debug", kLogDebug, ""},
                                                            {"99", kLogDebug, ""},
                                                            {"loud", kLogWarning, "is no level"}};
  for (const auto& [text, level, message] : rows) {
    setenv("KFA_LOG_LEVEL", text, 1);
    EXPECT_EXIT(std::exit(getLogLevel()), testing::ExitedWithCode(level), message) << text;
  }
  unsetenv("KFA_LOG_LEVEL");
}

}  // namespace

}  // namespace KFL::test
