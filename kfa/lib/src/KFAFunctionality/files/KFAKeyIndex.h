// SPDX-License-Identifier: Apache-2.0
// Keys of a file and what is known of each: a hash table for short texts, quicker than an ordered map where every line
// of a file is looked up. It owns the texts of its keys. One thread at a time, or any number while nobody adds.
#ifndef KFAFUNCTIONALITY_FILES_KFAKEYINDEX_H
#define KFAFUNCTIONALITY_FILES_KFAKEYINDEX_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

template <class T>
class KFAKeyIndex {
 public:
  // A key that is known keeps its value.
  void add(std::string_view key, const T& value) {
    if (2 * count_ >= slots_.size()) grow();
    const std::uint64_t hash = hashOf(key);
    Slot& slot = slots_[locate(key, hash)];
    if (slot.used) return;
    T copy(value);
    const std::size_t at = texts_.size();
    texts_ += key;
    slot = {hash, at, key.size(), true, std::move(copy)};
    ++count_;
  }

  // What is known of the key, or null. Valid until the next key is added.
  const T* find(std::string_view key) const {
    if (count_ == 0) return nullptr;
    const Slot& slot = slots_[locate(key, hashOf(key))];
    return slot.used ? &slot.value : nullptr;
  }

  void clear() { *this = KFAKeyIndex(); }

 private:
  struct Slot {
    std::uint64_t hash = 0;
    std::size_t at = 0;
    std::size_t size = 0;
    bool used = false;
    T value{};
  };

  static constexpr std::size_t kFirstSize = 16;  // a few keys cost little
  static constexpr std::size_t kUsualSize = 128;

  // The beginning and the end of the key, eight bytes at a time.
  static std::uint64_t hashOf(std::string_view key) {
    constexpr std::uint64_t kFactor = 0x9e3779b97f4a7c15;
    std::uint64_t hash = key.size();
    while (key.size() > 8) {
      hash = mix((hash ^ load<8>(key.data())) * kFactor);
      key.remove_prefix(8);
    }
    std::uint64_t rest = 0;
    if (key.size() >= 4) {
      rest = load<4>(key.data()) << 32 | load<4>(key.data() + key.size() - 4);
    } else {
      for (const char c : key)
        rest = rest << 8 | static_cast<unsigned char>(c);
    }
    return mix((hash ^ rest) * kFactor);
  }

  static std::uint64_t mix(std::uint64_t value) { return value ^ (value >> 32); }

  template <std::size_t N>
  static std::uint64_t load(const char* at) {
    std::uint64_t value = 0;
    std::memcpy(&value, at, N);
    return value;
  }

  // Where the key stands, or would be added.
  std::size_t locate(std::string_view key, std::uint64_t hash) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = hash & mask;
    for (; slots_[at].used; at = (at + 1) & mask) {
      const Slot& slot = slots_[at];
      if (slot.hash == hash && key == std::string_view(texts_.data() + slot.at, slot.size)) break;
    }
    return at;
  }

  void grow() {
    std::vector<Slot> grown(slots_.empty() ? kFirstSize : std::max(kUsualSize, 2 * slots_.size()));
    const std::size_t mask = grown.size() - 1;
    for (const Slot& slot : slots_) {
      if (!slot.used) continue;
      std::size_t at = slot.hash & mask;
      while (grown[at].used)
        at = (at + 1) & mask;
      grown[at] = slot;
    }
    slots_.swap(grown);
  }

  std::vector<Slot> slots_;
  std::string texts_;
  std::size_t count_ = 0;
};

}  // namespace KFA

#endif
