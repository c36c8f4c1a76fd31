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
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>

#include "FailingAllocations.h"

// One call. Each try prepares a subject of its own; the state is all that a caller can see of it.
class AllocationLaw {
 public:
  std::function<std::shared_ptr<void>()> prepare;
  std::function<int(void*)> call;
  std::function<std::string(void*)> state;
  std::size_t points = 0;

  // The first fault; empty when there is none.
  std::string findFault() {
    // What is made once and kept is made by then.
    for (int i = 0; i < 2; ++i) {
      const auto subject = prepare();
      before_ = state(subject.get());
      result_ = call(subject.get());
      after_ = state(subject.get());
    }
    for (const failing::Mode mode : {failing::Mode::Once, failing::Mode::FromThenOn}) {
      wasReached_ = true;
      for (std::size_t number = 1; wasReached_; ++number) {
        if (const std::string fault = tryPoint(number, mode); !fault.empty())
          return "allocation " + std::to_string(number) +
                 (mode == failing::Mode::Once ? ": " : " and all behind it: ") + fault;
        points += wasReached_ ? 1 : 0;
      }
    }
    return {};
  }

 private:
  // What a call may leave behind; the error text of the thread has one block of its own.
  static std::pair<long, int> held() {
    KFL::setErrorMessage("%64s", "");
    int files = 0;
    for (int fd = 0; fd < 64; ++fd)
      files += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    return {failing::liveBlocks(), files};
  }

  std::string tryPoint(std::size_t number, failing::Mode mode) {
    const auto [blocks, files] = held();
    if (std::string fault = tryCall(number, mode); !fault.empty()) return fault;
    const auto [blocksNow, filesNow] = held();
    // They are fewer where something that had been kept for later calls was given back instead.
    if (blocksNow > blocks) return std::to_string(blocksNow - blocks) + " blocks are not given back";
    return filesNow == files ? "" : "a file is left open";
  }

  std::string tryCall(std::size_t number, failing::Mode mode) {
    const auto subject = prepare();
    // Looked at before each call, as it was for what is compared with.
    if (state(subject.get()) != before_) return "is not prepared the same each time";
    std::optional<int> result;
    bool isOther = false;
    failing::arm(number, mode);
    try {
      result = call(subject.get());
    } catch (const std::bad_alloc&) {
      // No result.
    } catch (...) {
      isOther = true;
    }
    wasReached_ = failing::disarm();
    if (isOther) return "another exception than std::bad_alloc";
    const std::string now = state(subject.get());
    if (result == result_ && now == after_) return {};
    if (result >= 0) return "answers " + std::to_string(*result) + " with " + now;
    if (result && !wasReached_) return "answers differently each time";
    if (now != before_) return "before\n" + before_ + "\nand then\n" + now;
    if (const int again = call(subject.get()); again != result_)
      return "called again, it answers " + std::to_string(again) + ": " + KFL::getErrorMessage();
    const std::string again = state(subject.get());
    return again == after_ ? "" : "called again, it gives\n" + again + "\nand not\n" + after_;
  }

  int result_ = 0;
  std::string before_;
  std::string after_;
  bool wasReached_ = false;
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
  void operator()(const std::string& name, Prepare prepare, Call call) {
    using Subject = std::invoke_result_t<Prepare>;
    AllocationLaw law;
    law.prepare = [&prepare] { return std::make_shared<Subject>(prepare()); };
    law.call = [&call](void* subject) {
      return static_cast<int>(std::invoke(call, *static_cast<Subject*>(subject)));
    };
    law.state = [this](void* subject) { return std::string(state_(*static_cast<Subject*>(subject))); };
    if (const std::string fault = law.findFault(); !fault.empty())
      ADD_FAILURE() << what_ << ": " << name << ", " << fault;
    points_ += law.points;
    ++entries_;
  }

 private:
  const std::string what_;
  const State state_;
  std::size_t entries_ = 0;
  std::size_t points_ = 0;
};

#endif
