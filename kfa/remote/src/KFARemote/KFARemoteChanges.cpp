// SPDX-License-Identifier: Apache-2.0
#include <KFARemote/KFARemoteChanges.h>

#include <functional>
#include <utility>

namespace KFA {

void KFARemoteChanges::forget(Clock::time_point now) {
  while (!order_.empty() && now - order_.front().when > limits_.keep) {
    partBytes_ -= order_.front().partBytes;
    changes_.erase(order_.front().key);
    order_.pop_front();
  }
}

KFARemoteChanges::Admission KFARemoteChanges::begin(const std::string& key, const std::string& content) {
  const std::lock_guard<std::mutex> guard(lock_);
  forget(Clock::now());
  const std::size_t hash = std::hash<std::string>()(content);
  if (const auto found = changes_.find(key); found != changes_.end())
    return found->second.content == hash ? Admission::Repeated : Admission::Foreign;
  if (changes_.size() >= limits_.changes) return Admission::Full;
  changes_.emplace(key, Change{hash, nullptr});
  return Admission::New;
}

void KFARemoteChanges::end(const std::string& key, KFARemoteAnswer answer) {
  const std::lock_guard<std::mutex> guard(lock_);
  std::size_t bytes = 0;
  for (const std::string& part : answer.parts)
    bytes += part.size();
  if (partBytes_ + bytes > limits_.partBytes) {
    answer.parts.clear();
    answer.partsAreKept = false;
    bytes = 0;
  }
  partBytes_ += bytes;
  order_.push_back({Clock::now(), key, bytes});
  changes_[key].answer = std::make_shared<const KFARemoteAnswer>(std::move(answer));
  ended_.notify_all();
}

}  // namespace KFA
