// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLLog.h>

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>

#include <KFLCommon/KFLText.h>

#include "KFLPrint.h"

namespace KFL {

namespace detail {
std::atomic<int> logLevel{kLogWarning};
}

namespace {

constexpr std::array<std::string_view, 5> kLevelNames = {"fatal", "error", "warning", "info", "debug"};

std::string_view levelName(int level) {
  return kLevelNames[static_cast<std::size_t>(std::clamp(level, kLogFatal, kLogDebug))];
}

struct Sink {
  std::shared_mutex mutex;
  std::atomic<LogSink> function{nullptr};
  void* context = nullptr;
};

constinit Sink sink;
constinit thread_local bool insideSink = false;

// A sink may fork, or take its time: a fork does not wait for one, and the child begins with a new lock.
[[maybe_unused]] const int forkIsNoticed = pthread_atfork(nullptr, nullptr, [] {
  new (&sink.mutex) std::shared_mutex;
  if (insideSink) sink.mutex.lock_shared();
});

bool readLevelName(std::string_view text, int& level) {
  if (parseInteger(text, level) == 0) return true;
  for (int i = kLogFatal; i <= kLogDebug; ++i) {
    if (!equalsIgnoreCase(text, levelName(i))) continue;
    level = i;
    return true;
  }
  return false;
}

void appendVisible(std::string& out, std::string_view text) {
  constexpr std::string_view kHex = "0123456789abcdef";
  for (const char c : text) {
    if (!isControl(c) || c == '\t') {
      out += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    out += "\\x";
    out += kHex[byte >> 4];
    out += kHex[byte & 15U];
  }
}

std::string_view baseName(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// level: module: file:line: text
void writeToStandardError(const LogRecord& record) {
  std::string line;
  line.append(levelName(record.level)).append(": ").append(record.module).append(": ");
  line.append(baseName(record.file)).append(":").append(std::to_string(record.line)).append(": ");
  appendVisible(line, record.text);
  line += '\n';
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

// False when there is no sink to hand the record to.
bool writeToSink(const LogRecord& record) {
  if (insideSink || sink.function.load(std::memory_order_acquire) == nullptr) return false;
  const std::shared_lock lock(sink.mutex);
  const LogSink function = sink.function.load(std::memory_order_relaxed);
  if (function == nullptr) return false;
  insideSink = true;
  function(record, sink.context);
  insideSink = false;
  return true;
}

[[maybe_unused]] const bool levelWasRead = [] {
  int level = 0;
  const char* const text = std::getenv("KFA_LOG_LEVEL");
  if (text == nullptr) return false;
  if (readLevelName(text, level)) {
    setLogLevel(level);
    return true;
  }
  Log2("KFLCommon", __FILE__, __LINE__, "load", "")
      .put(kLogWarning,
           "KFA_LOG_LEVEL=%s is no level: a number from 0 to 4 or one of fatal, error, warning, info, debug",
           text);
  return false;
}();

}  // namespace

void setLogLevel(int level) {
  detail::logLevel.store(std::clamp(level, kLogFatal, kLogDebug), std::memory_order_relaxed);
}

void setLogSink(LogSink function, void* context) {
  const std::unique_lock lock(sink.mutex);
  sink.context = context;
  sink.function.store(function, std::memory_order_release);
}

void Logger::put(int level, const char* format, ...) const {
  if (!isLogged(level)) return;
  const int savedErrno = errno;
  va_list arguments;
  va_start(arguments, format);
  const std::string text = printText(format, arguments);
  va_end(arguments);
  const LogRecord record{level, module_, file_, line_, function_, signature_, text};
  if (!writeToSink(record)) writeToStandardError(record);
  errno = savedErrno;
}

}  // namespace KFL
