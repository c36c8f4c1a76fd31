// SPDX-License-Identifier: Apache-2.0
// The log: leveled messages that go to standard error, or to a sink that the host program sets.
//
// Warnings and everything graver are shown by default. KFA_LOG_LEVEL (a number or a name such as "debug") is
// read once, when the library is loaded; setLogLevel overrides it. All functions may be called from any
// thread. A message is written by one system call, so those of several threads never mix; control characters
// in it are shown as \xNN, so a message is always one line. In a hot path use KFL_LOG, which does not
// evaluate its arguments when the level is off.
#ifndef KFLCOMMON_KFLLOG_H
#define KFLCOMMON_KFLLOG_H

#include <atomic>
#include <string_view>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

inline constexpr int kLogFatal = 0;
inline constexpr int kLogError = 1;
inline constexpr int kLogWarning = 2;
inline constexpr int kLogInfo = 3;
inline constexpr int kLogDebug = 4;

namespace detail {
extern std::atomic<int> logLevel;
}

// The most talkative level that is shown; values beyond the named ones are brought back to the nearest.
void setLogLevel(int level);
inline int getLogLevel() {
  return detail::logLevel.load(std::memory_order_relaxed);
}
inline bool isLogged(int level) {
  return level <= getLogLevel();
}

// Where a message comes from. Holds pointers to static texts, so it is made on the spot and not kept.
class Logger {
 public:
  constexpr Logger(const char* module, const char* file, int line, const char* function,
                   const char* signature)
      : module_(module), file_(file), function_(function), signature_(signature), line_(line) {}

  // Writes one message if the level is shown; printf-style. Leaves errno as it was.
  void put(int level, const char* format, ...) const __attribute__((format(printf, 3, 4)));

 private:
  const char* module_;
  const char* file_;
  const char* function_;
  const char* signature_;
  int line_;
};

inline Logger Log2(const char* module, const char* file, int line, const char* function,
                   const char* signature) {
  return Logger(module, file, line, function, signature);
}

// One message as a sink receives it; the texts live only during the call.
struct LogRecord {
  int level;
  const char* module;
  const char* file;
  int line;
  const char* function;
  const char* signature;
  std::string_view text;
};

using LogSink = void (*)(const LogRecord& record, void* context);

// Sends every shown message to the sink instead of standard error; a null sink restores standard error. A
// sink may be called by several threads at once. When setLogSink returns, the previous sink is no longer
// running. What a sink itself logs goes to standard error; a sink must not call setLogSink.
void setLogSink(LogSink function, void* context);

}  // namespace KFL

// KFL_LOG("KFAFunctionality", KFL::kLogDebug, "[%s] ...", __func__): a load and a compare when the level is
// off.
#define KFL_LOG(module, level, ...)                                                                   \
  do {                                                                                                \
    if (::KFL::isLogged(level))                                                                       \
      ::KFL::Log2(module, __FILE__, __LINE__, __func__, __PRETTY_FUNCTION__).put(level, __VA_ARGS__); \
  } while (false)

#endif
