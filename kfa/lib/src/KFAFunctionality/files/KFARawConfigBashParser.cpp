// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory_resource>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/make_shared.hpp>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFABashConfig.h>

#include "KFABashLines.h"

namespace KFA {

namespace {

// ASCII letters among eight characters in lower case.
std::uint64_t toLower(std::uint64_t text) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  const std::uint64_t low = text & (0x7F * kOnes);
  const std::uint64_t fromA = low + (0x80 - 'A') * kOnes;
  const std::uint64_t behindZ = low + (0x7F - 'Z') * kOnes;
  return text | (((fromA ^ behindZ) & ~text & (0x80 * kOnes)) >> 2);
}

// What one line assigns; the key, NULs up to a multiple of eight bytes, and the value stand behind it.
struct Entry {
  using Word = std::uint64_t;
  static constexpr std::size_t kStep = sizeof(Word);

  // With one NUL at least.
  static std::size_t roomOf(std::size_t keySize) { return (keySize / kStep + 1) * kStep; }

  char* text() { return reinterpret_cast<char*>(this + 1); }
  const char* text() const { return reinterpret_cast<const char*>(this + 1); }
  std::string_view key() const { return {text(), keySize}; }
  std::string_view value() const { return {text() + roomOf(keySize), valueSize}; }

  // Eight characters of the key, as a number that sorts like them.
  Word wordAt(std::size_t offset) const {
    Word word = 0;
    std::memcpy(&word, text() + offset, kStep);
    return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
  }
  static bool endsKey(Word word) { return (word & 0xFF) == 0; }

  Entry* next;
  std::size_t number;
  std::size_t keySize;
  std::size_t valueSize;
};

// An entry to be sorted, with the part of its key that is looked at.
struct Item {
  Entry::Word word;
  const Entry* entry;
};

// An object, so that sorting has the comparison in it.
constexpr auto isBefore = [](const Item& a, const Item& b) {
  if (a.word != b.word) return a.word < b.word;
  const int order = a.entry->key().compare(b.entry->key());
  return order != 0 ? order < 0 : a.entry->number < b.entry->number;
};

// Keeps the order of equal words: byte by byte from the last one, where not all are alike.
void sortByWord(std::span<Item> items, std::span<Item> spare) {
  constexpr std::size_t kBytes = 256;
  std::array<std::array<std::size_t, kBytes>, Entry::kStep> counts{};
  for (const Item& item : items) {
    for (std::size_t i = 0; i < Entry::kStep; ++i)
      ++counts[i][(item.word >> (8 * i)) & 0xFF];
  }
  for (std::size_t i = 0; i < Entry::kStep; ++i) {
    const auto byteOf = [i](const Item& item) { return (item.word >> (8 * i)) & 0xFF; };
    if (counts[i][byteOf(items.front())] == items.size()) continue;
    std::size_t at = 0;
    for (std::size_t& count : counts[i])
      at += std::exchange(count, at);
    for (const Item& item : items)
      spare[counts[i][byteOf(item)]++] = item;
    std::ranges::copy(spare.first(items.size()), items.begin());
  }
}

// For many entries, whose keys no cache holds: a word of each key at a time, and only where the words before it are alike.
void sortMany(std::vector<Item>& items) {
  constexpr std::size_t kFew = 64;
  struct Run {
    std::size_t begin;
    std::size_t end;
    std::size_t offset;
  };
  std::vector<Item> spare(items.size());
  std::vector<Run> runs{{0, items.size(), 0}};
  while (!runs.empty()) {
    const Run run = runs.back();
    runs.pop_back();
    const auto part = std::span(items).subspan(run.begin, run.end - run.begin);
    for (Item& item : part)
      item.word = item.entry->wordAt(run.offset);
    if (part.size() <= kFew) {
      std::ranges::sort(part, isBefore);
      continue;
    }
    sortByWord(part, spare);
    for (std::size_t begin = run.begin, end = begin; begin != run.end; begin = end) {
      while (end != run.end && items[end].word == items[begin].word)
        ++end;
      if (end - begin > 1 && !Entry::endsKey(items[begin].word))
        runs.push_back({begin, end, run.offset + Entry::kStep});
    }
  }
}

// Gathers what a file assigns, and puts it into a map in the order of the keys, each behind the one before: a map that is
// filled in any other way compares long keys at every step.
class Gatherer {
 public:
  void putViews(std::string_view name, std::string_view value);
  void moveTo(std::map<std::string, std::string>& values) const;

 private:
  static constexpr std::size_t kUsualSize = 6144;
  static constexpr std::size_t kUsualCount = 64;

  template <class Items>
  void list(Items& items) const {
    for (const Entry* entry = first_; entry != nullptr; entry = entry->next)
      items.push_back({entry->wordAt(0), entry});
  }

  // Room for a usual file; the heap serves larger ones.
  alignas(std::max_align_t) std::array<std::byte, kUsualSize> room_;
  std::pmr::monotonic_buffer_resource memory_{room_.data(), room_.size()};
  Entry* first_ = nullptr;
  Entry** end_ = &first_;
  std::size_t count_ = 0;
};

void Gatherer::putViews(std::string_view name, std::string_view value) {
  const std::size_t keyRoom = Entry::roomOf(name.size());
  void* const memory = memory_.allocate(sizeof(Entry) + keyRoom + value.size(), alignof(Entry));
  auto* const entry = new (memory) Entry{nullptr, count_++, name.size(), value.size()};
  char* const text = entry->text();
  std::memset(text + keyRoom - Entry::kStep, 0, Entry::kStep);
  name.copy(text, name.size());
  for (std::size_t i = 0; i < keyRoom; i += Entry::kStep) {
    Entry::Word word = 0;
    std::memcpy(&word, text + i, Entry::kStep);
    word = toLower(word);
    std::memcpy(text + i, &word, Entry::kStep);
  }
  value.copy(text + keyRoom, value.size());
  *end_ = entry;
  end_ = &entry->next;
}

// Of a key that stands twice the first value counts. The map is empty.
template <class Items>
void put(const Items& items, std::map<std::string, std::string>& values) {
  const Entry* last = nullptr;
  for (const Item& item : items) {
    if (last == nullptr || last->key() != item.entry->key())
      values.emplace_hint(values.end(), item.entry->key(), item.entry->value());
    last = item.entry;
  }
}

void Gatherer::moveTo(std::map<std::string, std::string>& values) const {
  if (count_ <= kUsualCount) {
    std::array<std::byte, kUsualCount * sizeof(Item)> room;
    std::pmr::monotonic_buffer_resource memory(room.data(), room.size());
    std::pmr::vector<Item> items(&memory);
    items.reserve(count_);
    list(items);
    std::ranges::sort(items, isBefore);
    return put(items, values);
  }
  std::vector<Item> items;
  items.reserve(count_);
  list(items);
  sortMany(items);
  put(items, values);
}

}  // namespace

boost::shared_ptr<KFARawConfigBashParser> KFARawConfigBashParser::getInstance() {
  static const boost::shared_ptr<KFARawConfigBashParser> instance =
      boost::make_shared<KFARawConfigBashParser>();
  return instance;
}

int KFARawConfigBashParser::getConfig(std::istream& in, std::map<std::string, std::string>& values) const {
  Gatherer gathered;
  const int result = parseBashLikeConfig(gathered, in);
  std::map<std::string, std::string> read;
  gathered.moveTo(read);
  if (values.empty())
    values.swap(read);
  else
    values.merge(read);
  return result;
}

int KFARawConfigBashParser::putConfig(const std::map<std::string, std::string>& values, std::ostream& out,
                                      std::istream* existing, bool merge) const {
  ParameterParserGet parser(values);
  return serializeBashLikeConfig(parser, out, existing, merge);
}

int KFARawConfigBashParser::ParameterParserPut::put(const std::string& key, const char* value) {
  values_.emplace(key, value);
  return kParameterDone;
}

int KFARawConfigBashParser::ParameterParserGet::get(const std::string& key, std::string& value) {
  const auto found = values_.find(key);
  if (found == values_.end()) return kParameterUnknown;
  if (!KFL::isBashName(key)) return kParameterWithoutValue;
  value = found->second;
  return kParameterDone;
}

int KFARawConfigBashParser::ParameterParserGet::getNext(const std::string&, std::string& next) {
  while (next_ != values_.end() && !isAssignableKey(next_->first))
    ++next_;
  if (next_ == values_.end()) return kParameterFailed;
  next = next_->first;
  ++next_;
  return kParameterDone;
}

}  // namespace KFA
