// SPDX-License-Identifier: Apache-2.0
// The memory of an agent for the changes that it was asked for, so that one that is asked for twice, because an answer
// was lost, is made once. Not installed. Any thread.
#ifndef KFAREMOTE_KFAREMOTECHANGES_H
#define KFAREMOTE_KFAREMOTECHANGES_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace KFA {

// How a change ended.
struct KFARemoteAnswer {
  int code = 0;
  std::string text;
  std::vector<std::string> parts;
  bool partsAreKept = true;
};

class KFARemoteChanges {
 public:
  using Clock = std::chrono::steady_clock;
  struct Limits {
    std::chrono::milliseconds keep = std::chrono::minutes(10);  // after its end
    std::size_t changes = 100000;      // how many are remembered; further ones are not begun
    std::size_t partBytes = 64 << 20;  // of all results together; beyond it only codes and texts are kept
  };

  enum class Admission {
    New,       // nobody has asked for it: make it, and call end
    Repeated,  // wait for its answer
    Foreign,   // the id was given to another change
    Full,      // there is no room to remember one more
  };

  KFARemoteChanges() : KFARemoteChanges(Limits()) {}
  explicit KFARemoteChanges(const Limits& limits) : limits_(limits) {}

  // `key` names the change, `content` is all that it says.
  Admission begin(const std::string& key, const std::string& content);
  // What a change that was begun came to.
  void end(const std::string& key, KFARemoteAnswer answer);
  // The answer of a repeated change; null when it has not ended by the time that `isOver` says true, which is asked
  // several times a second.
  template <class IsOver>
  std::shared_ptr<const KFARemoteAnswer> wait(const std::string& key, IsOver isOver) {
    std::unique_lock<std::mutex> guard(lock_);
    for (;;) {
      const auto found = changes_.find(key);
      if (found == changes_.end()) return nullptr;
      if (found->second.answer) return found->second.answer;
      if (isOver()) return nullptr;
      ended_.wait_for(guard, std::chrono::milliseconds(50));
    }
  }

 private:
  struct Change {
    std::size_t content = 0;
    std::shared_ptr<const KFARemoteAnswer> answer;
  };
  struct Ended {
    Clock::time_point when;
    std::string key;
    std::size_t partBytes;
  };
  void forget(Clock::time_point now);

  const Limits limits_;
  std::mutex lock_;
  std::condition_variable ended_;
  std::map<std::string, Change> changes_;
  std::deque<Ended> order_;  // those that have ended, the oldest first
  std::size_t partBytes_ = 0;
};

}  // namespace KFA

#endif
