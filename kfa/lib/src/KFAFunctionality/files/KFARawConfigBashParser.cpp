// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

#include <boost/make_shared.hpp>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFABashConfig.h>

#include "KFABashLines.h"

namespace KFA {

namespace {

// Gathers what a file assigns, and puts it into a map in the order of the keys, each behind the one before: a map that is
// filled in any other way compares long keys at every step.
class Gatherer {
 public:
  Gatherer() {
    texts_.reserve(kUsualSize);
    entries_.reserve(kUsualCount);
  }

  void putViews(std::string_view name, std::string_view value);
  void moveTo(std::map<std::string, std::string>& values);

 private:
  struct Entry {
    std::uint64_t beginning;  // of the key, to be compared as a number
    std::size_t at;           // in the texts: the key, then the value
    std::size_t keySize;
    std::size_t valueSize;
  };

  std::string_view keyOf(const Entry& entry) const { return {texts_.data() + entry.at, entry.keySize}; }
  std::string_view valueOf(const Entry& entry) const {
    return {texts_.data() + entry.at + entry.keySize, entry.valueSize};
  }

  static constexpr std::size_t kUsualSize = 4096;
  static constexpr std::size_t kUsualCount = 64;

  // Room for a usual file; the heap serves larger ones.
  alignas(std::max_align_t) std::array<std::byte, kUsualSize + kUsualCount * sizeof(Entry) + 64> room_;
  std::pmr::monotonic_buffer_resource memory_{room_.data(), room_.size()};
  std::pmr::string texts_{&memory_};
  std::pmr::vector<Entry> entries_{&memory_};
};

// ASCII letters among eight characters in lower case.
std::uint64_t toLower(std::uint64_t text) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  const std::uint64_t low = text & (0x7F * kOnes);
  const std::uint64_t fromA = low + (0x80 - 'A') * kOnes;
  const std::uint64_t behindZ = low + (0x7F - 'Z') * kOnes;
  return text | (((fromA ^ behindZ) & ~text & (0x80 * kOnes)) >> 2);
}

void Gatherer::putViews(std::string_view name, std::string_view value) {
  constexpr std::size_t kStep = sizeof(std::uint64_t);
  const std::size_t at = texts_.size();
  texts_.append(name).append(kStep, '\0');
  Entry entry{0, at, name.size(), value.size()};
  for (std::size_t i = 0; i < name.size(); i += kStep) {
    std::uint64_t text = 0;
    std::memcpy(&text, &texts_[at + i], kStep);
    text = toLower(text);
    std::memcpy(&texts_[at + i], &text, kStep);
    if (i == 0) entry.beginning = std::endian::native == std::endian::little ? __builtin_bswap64(text) : text;
  }
  texts_.resize(at + name.size());
  texts_.append(value);
  entries_.push_back(entry);
}

// Of a key that stands twice the first value counts.
void Gatherer::moveTo(std::map<std::string, std::string>& values) {
  std::ranges::sort(entries_, [this](const Entry& a, const Entry& b) {
    if (a.beginning != b.beginning) return a.beginning < b.beginning;
    const int order = keyOf(a).compare(keyOf(b));
    return order != 0 ? order < 0 : a.at < b.at;
  });
  auto place = values.begin();
  const Entry* last = nullptr;
  for (const Entry& entry : entries_) {
    if (last == nullptr || keyOf(*last) != keyOf(entry)) {
      // Behind the last one is the end, which need not be sought from there.
      const bool isLast = place == values.end();
      const auto put = values.emplace_hint(place, keyOf(entry), valueOf(entry));
      if (!isLast) place = std::next(put);
    }
    last = &entry;
  }
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
