// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLDerivedParsers.h>

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <tuple>
#include <unordered_map>
#include <utility>

#include <KFLCommon/KFLLock.h>

namespace KFL {

namespace {

struct Hash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};
using FactoryMap = std::unordered_map<std::string, const void*, Hash, std::equal_to<>>;

struct Entry {
  const void* factory;
  std::string key;
  std::string typeName;
  KFLDerivedTypeInfo info;
};

const void* findIn(const FactoryMap& map, std::string_view name) {
  const auto found = map.find(name);
  return found == map.end() ? nullptr : found->second;
}

// A class name as people write it, without the namespaces of the core and the library.
std::string classNameOf(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> demangled(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  std::string name = demangled != nullptr ? demangled.get() : type.name();
  for (const std::string_view prefix : {"KFL::", "KFA::"}) {
    for (std::size_t at = name.find(prefix); at != std::string::npos; at = name.find(prefix, at)) {
      name.erase(at, prefix.size());
    }
  }
  return name;
}

std::string typeKey(std::string_view namespaceUri, std::string_view tag) {
  std::string key(namespaceUri);
  if (!key.empty()) key += ':';
  key += tag;
  return key;
}

}  // namespace

// What a registry publishes: never changed once it can be seen. Readers hold no lock, so a table that was replaced is
// kept; one is small, and there is one for each time a factory comes or goes.
struct KFLDerivedRegistryData::Table {
  std::vector<Entry> entries;
  FactoryMap byKey;
  FactoryMap byTypeName;
  const void* defaultFactory = nullptr;
  const Table* retired = nullptr;

  explicit Table(std::vector<Entry> all) : entries(std::move(all)) {
    for (const Entry& entry : entries) {
      byKey.emplace(entry.key, entry.factory);
      byTypeName.emplace(entry.typeName, entry.factory);
      if (entry.info.isDefault) defaultFactory = entry.factory;
    }
  }
};

namespace {

// All registries that have a factory, and the tables that were replaced. Constant-initialised.
constinit KFLLock guard;
constinit KFLDerivedRegistryData* firstRegistry = nullptr;
constinit const KFLDerivedRegistryData::Table* retiredTables = nullptr;

// Frees the replaced tables when this library is unloaded, unless a factory has outlived it.
struct Reclaimer {
  ~Reclaimer() {
    const KFLLockGuard lock(guard);
    while (firstRegistry == nullptr && retiredTables != nullptr) {
      delete std::exchange(retiredTables, retiredTables->retired);
    }
  }
} reclaimer;

}  // namespace

// Publishes the table of these entries, and keeps the registry in the list of all exactly while it has some: its data
// may go away with its library once it is empty.
void KFLDerivedRegistryData::publish(Table* table) {
  const auto* const former = table_.load(std::memory_order_relaxed);
  if (table->entries.empty()) {
    delete std::exchange(table, nullptr);
    KFLDerivedRegistryData** link = &firstRegistry;
    while (*link != nullptr && *link != this)
      link = &(*link)->next_;
    if (*link == this) *link = std::exchange(next_, nullptr);
  } else if (former == nullptr) {
    next_ = std::exchange(firstRegistry, this);
  }
  table_.store(table, std::memory_order_release);
  if (former != nullptr) {
    const_cast<Table*>(former)->retired = retiredTables;
    retiredTables = former;
  }
}

KFLDerivedRegistryData::Refusal KFLDerivedRegistryData::add(const void* factory, const std::type_info& base,
                                                            const std::type_info& derived,
                                                            std::string_view namespaceUri,
                                                            std::string_view tag, bool isDefault) {
  Entry entry{
      factory,
      typeKey(namespaceUri, tag),
      derived.name(),
      {classNameOf(base), classNameOf(derived), std::string(namespaceUri), std::string(tag), isDefault}};
  const KFLLockGuard lock(guard);
  std::vector<Entry> entries;
  if (const Table* const table = table_.load(std::memory_order_relaxed); table != nullptr) {
    if (findIn(table->byKey, entry.key) != nullptr) return Refusal::DuplicateKey;
    if (findIn(table->byTypeName, entry.typeName) != nullptr) return Refusal::DuplicateTypeName;
    if (isDefault && table->defaultFactory != nullptr) return Refusal::SecondDefault;
    entries = table->entries;
  }
  entries.push_back(std::move(entry));
  publish(new Table(std::move(entries)));
  return Refusal::None;
}

void KFLDerivedRegistryData::remove(const void* factory) {
  const KFLLockGuard lock(guard);
  const Table* const table = table_.load(std::memory_order_relaxed);
  if (table == nullptr) return;
  std::vector<Entry> entries = table->entries;
  if (std::erase_if(entries, [factory](const Entry& entry) { return entry.factory == factory; }) != 0) {
    publish(new Table(std::move(entries)));
  }
}

const void* KFLDerivedRegistryData::findByKey(std::string_view key) const {
  const Table* const table = table_.load(std::memory_order_acquire);
  return table == nullptr ? nullptr : findIn(table->byKey, key);
}

const void* KFLDerivedRegistryData::findByTypeName(const char* typeName) const {
  const Table* const table = table_.load(std::memory_order_acquire);
  return table == nullptr ? nullptr : findIn(table->byTypeName, typeName);
}

const void* KFLDerivedRegistryData::findDefault() const {
  const Table* const table = table_.load(std::memory_order_acquire);
  return table == nullptr ? nullptr : table->defaultFactory;
}

std::vector<KFLDerivedTypeInfo> KFLDerivedRegistryData::list() const {
  std::vector<KFLDerivedTypeInfo> all;
  if (const Table* const table = table_.load(std::memory_order_acquire); table != nullptr) {
    for (const Entry& entry : table->entries)
      all.push_back(entry.info);
  }
  return all;
}

std::vector<KFLDerivedTypeInfo> listDerivedTypes() {
  std::vector<KFLDerivedTypeInfo> all;
  {
    const KFLLockGuard lock(guard);
    for (const auto* registry = firstRegistry; registry != nullptr; registry = registry->nextRegistry()) {
      for (KFLDerivedTypeInfo& info : registry->list())
        all.push_back(std::move(info));
    }
  }
  std::sort(all.begin(), all.end(), [](const auto& a, const auto& b) {
    return std::tie(a.base, a.tag, a.namespaceUri) < std::tie(b.base, b.tag, b.namespaceUri);
  });
  return all;
}

}  // namespace KFL
