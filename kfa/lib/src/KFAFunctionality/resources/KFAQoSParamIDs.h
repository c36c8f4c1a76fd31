// SPDX-License-Identifier: Apache-2.0
// Lists and sets of parameter indices. Plain values.
#ifndef KFAFUNCTIONALITY_RESOURCES_KFAQOSPARAMIDS_H
#define KFAFUNCTIONALITY_RESOURCES_KFAQOSPARAMIDS_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <vector>

#include <KFLCommon/KFLLanguage.h>

namespace KFA {

using KFAQVParamIDList = std::vector<int>;

// An ordered set of parameter indices from 0 to 127. What it has of the operations of std::set bears their names:
// insert and erase of an index (insert gives no result), merge, clear, count, contains, find, size, empty, iterators
// that go forward, and comparison for equality. It never allocates. An index is one bit; the elements that iterators
// refer to stand in a table of all of them, so references stay valid for good.
class KFAQVParamIDSet {
 public:
  static constexpr int kLimit = 128;

  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = int;
    using difference_type = std::ptrdiff_t;
    using pointer = const int*;
    using reference = const int&;

    const_iterator() = default;
    reference operator*() const { return kIndices[place()]; }
    pointer operator->() const { return &kIndices[place()]; }
    const_iterator& operator++() {
      std::uint64_t& word = rest_[0] != 0 ? rest_[0] : rest_[1];
      word &= word - 1;
      return *this;
    }
    const_iterator operator++(int) {
      const const_iterator before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const const_iterator&, const const_iterator&) = default;

   private:
    friend class KFAQVParamIDSet;
    explicit const_iterator(const std::array<std::uint64_t, 2>& rest) : rest_(rest) {}
    std::size_t place() const {
      return static_cast<std::size_t>(rest_[0] != 0 ? std::countr_zero(rest_[0])
                                                    : 64 + std::countr_zero(rest_[1]));
    }
    std::array<std::uint64_t, 2> rest_{};  // this element and all behind it
  };
  using iterator = const_iterator;
  using value_type = int;
  using key_type = int;
  using size_type = std::size_t;

  KFAQVParamIDSet() = default;
  KFAQVParamIDSet(std::initializer_list<int> ids) : KFAQVParamIDSet(ids.begin(), ids.end()) {}
  template <std::input_iterator Iterator>
  KFAQVParamIDSet(Iterator first, Iterator last) {
    for (; first != last; ++first)
      insert(*first);
  }

  // Numbers outside 0 to 127 are no indices and are left out.
  void insert(int id) {
    if (isIndex(id)) wordOf(id) |= bitOf(id);
  }
  std::size_t erase(int id) {
    const std::size_t before = count(id);
    if (before != 0) wordOf(id) &= ~bitOf(id);
    return before;
  }
  void merge(const KFAQVParamIDSet& other) {
    words_[0] |= other.words_[0];
    words_[1] |= other.words_[1];
  }
  void clear() { words_ = {}; }

  std::size_t count(int id) const {
    return isIndex(id) && (words_[static_cast<std::size_t>(id) >> 6] & bitOf(id)) != 0 ? 1 : 0;
  }
  bool contains(int id) const { return count(id) != 0; }
  std::size_t size() const { return sizeOf(words_[0]) + sizeOf(words_[1]); }
  bool empty() const { return words_[0] == 0 && words_[1] == 0; }

  // In ascending order.
  const_iterator begin() const { return const_iterator(words_); }
  const_iterator end() const { return {}; }
  const_iterator find(int id) const {
    if (!contains(id)) return end();
    const std::uint64_t from = ~(bitOf(id) - 1);
    return const_iterator(id < 64 ? Words{words_[0] & from, words_[1]} : Words{0, words_[1] & from});
  }

  friend bool operator==(const KFAQVParamIDSet&, const KFAQVParamIDSet&) = default;

 private:
  using Words = std::array<std::uint64_t, 2>;

  static constexpr std::array<int, kLimit> makeIndices() {
    std::array<int, kLimit> indices{};
    for (int id = 0; id < kLimit; ++id)
      indices[static_cast<std::size_t>(id)] = id;
    return indices;
  }
  static const std::array<int, kLimit> kIndices;

  static std::size_t sizeOf(std::uint64_t word) { return static_cast<std::size_t>(std::popcount(word)); }
  static bool isIndex(int id) { return static_cast<unsigned>(id) < static_cast<unsigned>(kLimit); }
  static std::uint64_t bitOf(int id) { return std::uint64_t{1} << (id & 63); }
  std::uint64_t& wordOf(int id) { return words_[static_cast<std::size_t>(id) >> 6]; }

  Words words_{};
};

inline constexpr std::array<int, KFAQVParamIDSet::kLimit> KFAQVParamIDSet::kIndices = makeIndices();

}  // namespace KFA

#endif
