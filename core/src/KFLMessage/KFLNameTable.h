// SPDX-License-Identifier: Apache-2.0
// Not installed: the distinct texts of one tree (names, namespaces, type tags), each with a small number.
//
// Numbers count from 1 in the order of arrival and are never given back; texts stand in the tree's arena. Threads as the
// tree's.
#ifndef KFLMESSAGE_KFLNAMETABLE_H
#define KFLMESSAGE_KFLNAMETABLE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include <KFLMessage/KFLTextArena.h>

namespace KFL {

class KFLNameTable {
 public:
  // A number of this process that no sender knows: names come from outside, and this keeps him from choosing them so that
  // all fall into one slot.
  static std::uint64_t seed();

  explicit KFLNameTable(KFLTextArena& arena) : arena_(arena) {}

  // The number of a text; 0 when the table does not have it.
  std::uint32_t find(std::string_view text) const;
  std::uint32_t intern(std::string_view text);
  std::string_view text(std::uint32_t number) const {
    return {entries_[number - 1].data, entries_[number - 1].size};
  }

  std::size_t size() const { return entries_.size(); }
  std::size_t memoryUsed() const;

  // What is known of a text's standing as an XML name: asked once, remembered here, also by readers at the same time.
  enum class NameState : std::uint8_t { Unknown, Valid, Invalid };
  NameState nameState(std::uint32_t number) const {
    return std::atomic_ref<NameState>(entries_[number - 1].state).load(std::memory_order_relaxed);
  }
  void setNameState(std::uint32_t number, NameState state) const {
    std::atomic_ref<NameState>(entries_[number - 1].state).store(state, std::memory_order_relaxed);
  }

 private:
  struct Entry {
    const char* data;
    std::size_t size;
    std::uint32_t hash;
    mutable NameState state;
  };
  // Tables of up to this size are searched from end to end.
  static constexpr std::size_t kLinear = 8;

  std::uint32_t findLinear(std::string_view text) const;
  std::uint32_t findHashed(std::string_view text, std::uint32_t hash) const;
  void grow();
  void place(std::uint32_t number);

  KFLTextArena& arena_;
  std::vector<Entry> entries_;
  std::vector<std::uint32_t>
      slots_;  // numbers by hash, open addressing, half full at most; empty for few entries
};

}  // namespace KFL

#endif
