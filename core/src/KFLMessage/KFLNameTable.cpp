// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLNameTable.h>

#include <cstring>
#include <limits>
#include <new>
#include <random>

namespace KFL {

namespace {

std::uint64_t makeSeed() {
  std::random_device device;
  return (static_cast<std::uint64_t>(device()) << 32U) | device();
}

std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64U);
}

std::uint64_t eightBytes(const char* from) {
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, from, sizeof bytes);
  return bytes;
}

std::uint64_t fewBytes(std::string_view text) {
  std::uint64_t bytes = 0;
  for (const char c : text)
    bytes = bytes << 8U | static_cast<unsigned char>(c);
  return bytes;
}

std::uint32_t hashOf(std::string_view text) {
  const std::uint64_t seed = KFLNameTable::seed();
  const std::uint64_t odd = seed ^ 0x9E3779B97F4A7C15U;
  std::uint64_t hash = seed ^ text.size();
  if (text.size() < 8) {
    hash = mix(hash ^ fewBytes(text), odd);
  } else {
    const char* const last = text.data() + text.size() - 8;
    for (const char* at = text.data(); at < last; at += 8)
      hash = mix(hash ^ eightBytes(at), odd);
    hash = mix(hash ^ eightBytes(last), odd);
  }
  return static_cast<std::uint32_t>(hash ^ (hash >> 32U));
}

}  // namespace

std::uint64_t KFLNameTable::seed() {
  static const std::uint64_t seed = makeSeed();
  return seed;
}

// Drawn while the library is loaded: a child that is forked during the first call would wait for its end.
[[maybe_unused]] static const std::uint64_t seedWasDrawn = KFLNameTable::seed();

std::uint32_t KFLNameTable::find(std::string_view text) const {
  return slots_.empty() ? findLinear(text) : findHashed(text, hashOf(text));
}

std::uint32_t KFLNameTable::findLinear(std::string_view text) const {
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    const Entry& entry = entries_[i];
    if (entry.size == text.size() && std::memcmp(entry.data, text.data(), text.size()) == 0) {
      return static_cast<std::uint32_t>(i + 1);
    }
  }
  return 0;
}

std::uint32_t KFLNameTable::findHashed(std::string_view text, std::uint32_t hash) const {
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t slot = hash & mask; slots_[slot] != 0; slot = (slot + 1) & mask) {
    const Entry& entry = entries_[slots_[slot] - 1];
    if (entry.hash == hash && std::string_view(entry.data, entry.size) == text) return slots_[slot];
  }
  return 0;
}

std::uint32_t KFLNameTable::intern(std::string_view text) {
  const bool isHashed = !slots_.empty();
  const std::uint32_t hash = hashOf(text);
  if (const std::uint32_t known = isHashed ? findHashed(text, hash) : findLinear(text); known != 0)
    return known;
  if (entries_.size() >= std::numeric_limits<std::int32_t>::max()) throw std::bad_alloc();
  if (entries_.size() >= kLinear && 2 * (entries_.size() + 1) > slots_.size()) grow();
  if (entries_.empty()) entries_.reserve(kLinear);
  char* const copy = arena_.take(text.empty() ? 1 : text.size());
  text.copy(copy, text.size());
  entries_.push_back({copy, text.size(), hash, NameState::Unknown});
  const auto number = static_cast<std::uint32_t>(entries_.size());
  if (!slots_.empty()) place(number);
  return number;
}

void KFLNameTable::grow() {
  slots_.assign(slots_.empty() ? 4 * kLinear : 2 * slots_.size(), 0);
  for (std::size_t i = 0; i < entries_.size(); ++i)
    place(static_cast<std::uint32_t>(i + 1));
}

void KFLNameTable::place(std::uint32_t number) {
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = entries_[number - 1].hash & mask;
  while (slots_[slot] != 0)
    slot = (slot + 1) & mask;
  slots_[slot] = number;
}

std::size_t KFLNameTable::memoryUsed() const {
  return entries_.capacity() * sizeof(Entry) + slots_.capacity() * sizeof(std::uint32_t);
}

}  // namespace KFL
