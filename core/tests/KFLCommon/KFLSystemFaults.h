// SPDX-License-Identifier: Apache-2.0
// System calls on files that fail, stop half way, or end the process, at a place of a test's choice.
//
// While an object lives, the calls of KFLSystem are counted and pass through its plan. One thread makes those that fail, and one
// object lives at a time. A plan that does nothing counts:
//
//   KFLSystemFaults faults({[](const KFLSystemFaults::Point& point) { return point.number == 3 ? EIO : 0; }});
#ifndef KFL_TESTS_KFLSYSTEMFAULTS_H
#define KFL_TESTS_KFLSYSTEMFAULTS_H

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <utility>

#include <KFLCommon/KFLSystem.h>

class KFLSystemFaults {
 public:
  struct Point {
    std::size_t number;  // from 0
    std::string_view call;
  };
  struct Plan {
    // The errno with which the call fails instead of being made, as the system's own would: what closes has closed.
    // 0: it is made.
    std::function<int(const Point&)> before = {};
    std::function<void(const Point&)> after = {};
    // Reads and writes move half of what they are asked for.
    bool isShort = false;
    // A call that this file system does not know, and its errno.
    std::string_view missing = {};
    int missingError = 0;

    // Acts right before or right behind the call of that number.
    static Plan at(std::size_t number, bool isBehind, const std::function<void()>& act) {
      const auto then = [number, act](const Point& point) {
        if (point.number == number) act();
        return 0;
      };
      return isBehind ? Plan{{}, then} : Plan{then};
    }
    Plan without(std::string_view call, int error) const {
      Plan plan = *this;
      plan.missing = call;
      plan.missingError = error;
      return plan;
    }
  };

  KFLSystemFaults() : KFLSystemFaults(Plan{}) {}
  explicit KFLSystemFaults(Plan plan) : plan_(std::move(plan)) {
    current() = this;
    // NOLINTBEGIN(bugprone-macro-parentheses): types and lists of parameters
#define KFL_STAND_IN(result, name, parameters, arguments)                        \
  KFL::KFLSystem::calls.name = [] parameters -> result {                         \
    return current()->pass<result>(#name, [&] { return own().name arguments; }); \
  };
    KFL_SYSTEM_CALLS(KFL_STAND_IN)
#undef KFL_STAND_IN
    // NOLINTEND(bugprone-macro-parentheses)
    if (plan_.isShort) shorten();
  }
  KFLSystemFaults(const KFLSystemFaults&) = delete;
  KFLSystemFaults& operator=(const KFLSystemFaults&) = delete;
  ~KFLSystemFaults() {
    KFL::KFLSystem::calls = own();
    current() = nullptr;
  }

  std::size_t count() const {
    return count_;
  }
  // Of this process, but for the one that counts.
  static std::size_t countDescriptors() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(open), end(open)));
  }
  // The call that the plan made fail first; empty when it did not.
  std::string_view failed() const {
    return failed_;
  }

 private:
  static const KFL::KFLSystem::Calls& own() {
    static const KFL::KFLSystem::Calls calls = KFL::KFLSystem::calls;
    return calls;
  }
  static KFLSystemFaults*& current() {
    static KFLSystemFaults* current = (own(), nullptr);
    return current;
  }
  template <class Result>
  static Result failureOf(std::string_view name, int error) {
    if constexpr (std::is_same_v<Result, void*>) return MAP_FAILED;
    if constexpr (std::is_integral_v<Result>)
      return name.starts_with("posix_") ? static_cast<Result>(error) : -1;
    if constexpr (!std::is_integral_v<Result> && !std::is_same_v<Result, void*>) return nullptr;
  }
  static std::size_t half(std::size_t size) {
    return (size + 1) / 2;
  }

  static void shorten() {
    KFL::KFLSystem::calls.read = [](int file, void* to, std::size_t size) {
      return current()->pass<ssize_t>("read", [&] { return own().read(file, to, half(size)); });
    };
    KFL::KFLSystem::calls.pread = [](int file, void* to, std::size_t size, off_t at) {
      return current()->pass<ssize_t>("pread", [&] { return own().pread(file, to, half(size), at); });
    };
    KFL::KFLSystem::calls.write = [](int file, const void* from, std::size_t size) {
      return current()->pass<ssize_t>("write", [&] { return own().write(file, from, half(size)); });
    };
  }

  template <class Result, class Call>
  Result pass(std::string_view name, Call call) {
    const Point point{count_++, name};
    const int planned = plan_.before ? plan_.before(point) : 0;
    const int error = planned == 0 && name == plan_.missing ? plan_.missingError : planned;
    Result result{};
    if (error == 0 || name.starts_with("close") || name == "munmap") result = call();
    if (error != 0) {
      if (failed_.empty() && planned != 0) failed_ = name;
      result = failureOf<Result>(name, error);
    }
    const int own = error != 0 ? error : errno;
    if (plan_.after) plan_.after(point);
    errno = own;
    return result;
  }

  Plan plan_;
  std::atomic<std::size_t> count_ = 0;
  std::string_view failed_;
};

#endif
