// SPDX-License-Identifier: Apache-2.0
// One law for every entry of the libraries: whichever of its allocations fails, once or from then on, the entry passes
// std::bad_alloc on, or answers with a failure, or does its work all the same. Nothing that it was to change has changed
// unless the work is done, nothing is lost or kept, and the same call then does what it always does.
#ifndef KFA_TESTS_ALLOCATIONS_ALLOCATIONLAW_H
#define KFA_TESTS_ALLOCATIONS_ALLOCATIONLAW_H

#include <fcntl.h>

#include <cstddef>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>

#include "FailingAllocations.h"

// One call. Each try prepares a subject of its own; the state is all that a caller can see of it.
struct Entry {
  std::string name;
  std::function<std::shared_ptr<void>()> prepare;
  std::function<int(void*)> call;
  std::function<std::string(void*)> state;
};

class AllocationLaw {
 public:
  explicit AllocationLaw(const Entry& entry) : entry_(entry) {}

  // The first fault; empty when there is none.
  std::string findFault() {
    // What is made once and kept is made by then.
    for (int i = 0; i < 2; ++i) {
      const auto subject = entry_.prepare();
      before_ = entry_.state(subject.get());
      result_ = entry_.call(subject.get());
      after_ = entry_.state(subject.get());
    }
    for (const failing::Mode mode : {failing::Mode::Once, failing::Mode::FromThenOn}) {
      for (std::size_t number = 1;; ++number) {
        const std::string fault = tryPoint(number, mode);
        if (!fault.empty())
          return entry_.name + ", allocation " + std::to_string(number) +
                 (mode == failing::Mode::Once ? ": " : " and all behind it: ") + fault;
        if (!wasReached_) break;
        ++points_;
      }
    }
    return {};
  }
  std::size_t countPoints() const { return points_; }

 private:
  // The error text of the thread has one block of its own from here on.
  static void resetErrorText() { KFL::setErrorMessage("%64s", ""); }
  static int countOpenFiles() {
    int count = 0;
    for (int fd = 0; fd < 64; ++fd)
      count += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    return count;
  }

  std::string tryPoint(std::size_t number, failing::Mode mode) {
    resetErrorText();
    const long blocks = failing::liveBlocks();
    const int files = countOpenFiles();
    if (std::string fault = tryCall(number, mode); !fault.empty()) return fault;
    resetErrorText();
    const long leaked = failing::liveBlocks() - blocks;
    // They are fewer where something that had been kept for later calls was given back instead.
    if (leaked > 0) return std::to_string(leaked) + " blocks are not given back";
    return countOpenFiles() == files ? "" : "a file is left open";
  }

  std::string tryCall(std::size_t number, failing::Mode mode) {
    const auto subject = entry_.prepare();
    // Looked at before each call, as it was for what is compared with.
    if (entry_.state(subject.get()) != before_) return "is not prepared the same each time";
    enum { Returned, ThrewBadAlloc, ThrewOther } end = Returned;
    int result = 0;
    failing::arm(number, mode);
    try {
      result = entry_.call(subject.get());
    } catch (const std::bad_alloc&) {
      end = ThrewBadAlloc;
    } catch (...) {
      end = ThrewOther;
    }
    wasReached_ = failing::disarm();
    if (end == ThrewOther) return "another exception than std::bad_alloc";
    const std::string state = entry_.state(subject.get());
    if (end == Returned && result == result_ && state == after_) return {};
    if (end == Returned && result >= 0) return "answers " + std::to_string(result) + " with " + state;
    if (end == Returned && !wasReached_) return "answers differently each time";
    if (state != before_) return "before\n" + before_ + "\nand then\n" + state;
    result = entry_.call(subject.get());
    if (result != result_)
      return "called again, it answers " + std::to_string(result) + ": " + KFL::getErrorMessage();
    const std::string again = entry_.state(subject.get());
    return again == after_ ? "" : "called again, it gives\n" + again + "\nand not\n" + after_;
  }

  const Entry& entry_;
  int result_ = 0;
  std::string before_;
  std::string after_;
  bool wasReached_ = false;
  std::size_t points_ = 0;
};

// Holds calls against the law, one after the other, on subjects whose state is seen in one way, and tells how many points
// were tried.
template <class State>
class AllocationLaws {
 public:
  AllocationLaws(std::string what, State state) : what_(std::move(what)), state_(std::move(state)) {}
  AllocationLaws(const AllocationLaws&) = delete;
  AllocationLaws& operator=(const AllocationLaws&) = delete;
  ~AllocationLaws() {
    EXPECT_GT(points_, entries_) << "hardly an allocation was met";
    std::cout << what_ << ": " << entries_ << " entries, " << points_ << " points tried\n";
  }

  template <class Prepare, class Call>
  void operator()(std::string name, Prepare prepare, Call call) {
    using Subject = std::invoke_result_t<Prepare>;
    const Entry entry{std::move(name), [&prepare] { return std::make_shared<Subject>(prepare()); },
                      [&call](void* subject) {
                        return static_cast<int>(std::invoke(call, *static_cast<Subject*>(subject)));
                      },
                      [this](void* subject) { return std::string(state_(*static_cast<Subject*>(subject))); }};
    AllocationLaw law(entry);
    if (const std::string fault = law.findFault(); !fault.empty()) ADD_FAILURE() << what_ << ": " << fault;
    points_ += law.countPoints();
    ++entries_;
  }

 private:
  const std::string what_;
  const State state_;
  std::size_t entries_ = 0;
  std::size_t points_ = 0;
};

#endif
