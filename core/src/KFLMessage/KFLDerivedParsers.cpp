// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLDerivedParsers.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <new>
#include <tuple>
#include <utility>

#include <KFLCommon/KFLClassName.h>
#include <KFLCommon/KFLLock.h>

namespace KFL {

// What is known of one derived type. Made when it is registered for the first time, never changed, and used again
// whenever it is registered, so that loading a library again takes nothing anew but small tables.
struct KFLDerivedRegistryData::Entry {
  std::string key;
  std::string typeName;
  std::size_t keyHash;
  std::size_t typeNameHash;
  KFLDerivedTypeInfo info;
  const Entry* next;
};

namespace {

using Entry = KFLDerivedRegistryData::Entry;

std::size_t hashOf(std::string_view text) {
  return std::hash<std::string_view>()(text);
}

std::string typeKey(std::string_view namespaceUri, std::string_view tag) {
  std::string key(namespaceUri);
  if (!key.empty()) key += ':';
  key += tag;
  return key;
}

}  // namespace

// What a registry publishes: never changed once it can be seen. Readers hold no lock, so a table that was replaced is
// kept; it holds two pointers for each factory, and there is one for each time that a factory comes or goes.
struct KFLDerivedRegistryData::Table {
  struct Row {
    const Entry* entry;
    const void* factory;
  };
  std::size_t count;
  const Table* retired;
  Row rows[1];  // as many as `count` says

  const Row* begin() const { return rows; }
  const Row* end() const { return rows + count; }

  static Table* make(std::size_t count) {
    const std::size_t size = offsetof(Table, rows) + count * sizeof(Row);
    auto* const table = static_cast<Table*>(::operator new(std::max(size, sizeof(Table))));
    table->count = count;
    table->retired = nullptr;
    return table;
  }
  static void free(const Table* table) { ::operator delete(const_cast<Table*>(table)); }
};

namespace {

// All registries that have a factory, the tables that were replaced, and the types that were ever registered.
// Constant-initialised.
constinit KFLLock guard;
const KFLForkWaits<guard> forkWaits;
constinit KFLDerivedRegistryData* firstRegistry = nullptr;
constinit const KFLDerivedRegistryData::Table* retiredTables = nullptr;
constinit const Entry* firstEntry = nullptr;

// Frees what was kept when this library is unloaded, unless a factory has outlived it.
struct Reclaimer {
  ~Reclaimer() {
    const KFLLockGuard lock(guard);
    if (firstRegistry != nullptr) return;
    while (retiredTables != nullptr)
      KFLDerivedRegistryData::Table::free(std::exchange(retiredTables, retiredTables->retired));
    while (firstEntry != nullptr)
      delete std::exchange(firstEntry, firstEntry->next);
  }
} reclaimer;

// The entry of this type, made where there is none. The guard is held.
const Entry* entryOf(KFLDerivedTypeInfo info, std::string typeName) {
  const auto same = [&](const Entry& entry) {
    return entry.typeName == typeName && entry.info.tag == info.tag && entry.info.base == info.base &&
           entry.info.namespaceUri == info.namespaceUri && entry.info.isDefault == info.isDefault;
  };
  for (const Entry* entry = firstEntry; entry != nullptr; entry = entry->next)
    if (same(*entry)) return entry;
  std::string key = typeKey(info.namespaceUri, info.tag);
  const std::size_t keyHash = hashOf(key);
  const std::size_t typeNameHash = hashOf(typeName);
  return firstEntry = new Entry{std::move(key), std::move(typeName), keyHash,
                                typeNameHash,   std::move(info),     firstEntry};
}

}  // namespace

// Publishes the table of these entries, and keeps the registry in the list of all exactly while it has some: its data
// may go away with its library once it is empty.
void KFLDerivedRegistryData::publish(Table* table) {
  const auto* const former = table_.load(std::memory_order_relaxed);
  if (table->count == 0) {
    Table::free(std::exchange(table, nullptr));
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
  KFLDerivedTypeInfo info{shortClassNameOf(base), shortClassNameOf(derived), std::string(namespaceUri),
                          std::string(tag), isDefault};
  const std::string key = typeKey(namespaceUri, tag);
  const KFLLockGuard lock(guard);
  const Table* const former = table_.load(std::memory_order_relaxed);
  const std::size_t count = former == nullptr ? 0 : former->count;
  if (findByKey(key) != nullptr) return Refusal::DuplicateKey;
  if (findByTypeName(derived.name()) != nullptr) return Refusal::DuplicateTypeName;
  if (isDefault && findDefault() != nullptr) return Refusal::SecondDefault;
  Table* const table = Table::make(count + 1);
  if (former != nullptr) std::copy(former->begin(), former->end(), table->rows);
  table->rows[count] = {entryOf(std::move(info), derived.name()), factory};
  publish(table);
  return Refusal::None;
}

void KFLDerivedRegistryData::remove(const void* factory) {
  const KFLLockGuard lock(guard);
  const Table* const former = table_.load(std::memory_order_relaxed);
  if (former == nullptr) return;
  const auto isMeant = [factory](const Table::Row& row) { return row.factory == factory; };
  if (std::none_of(former->begin(), former->end(), isMeant)) return;
  Table* const table = Table::make(former->count - 1);
  std::remove_copy_if(former->begin(), former->end(), table->rows, isMeant);
  publish(table);
}

// The factory of the first row that matches a text and its hash; null when there is none.
const void* KFLDerivedRegistryData::findIf(bool (*matches)(const Entry&, std::string_view, std::size_t),
                                           std::string_view text) const {
  const Table* const table = table_.load(std::memory_order_acquire);
  if (table == nullptr) return nullptr;
  const std::size_t hash = hashOf(text);
  for (const Table::Row& row : *table)
    if (matches(*row.entry, text, hash)) return row.factory;
  return nullptr;
}

const void* KFLDerivedRegistryData::findByKey(std::string_view key) const {
  return findIf([](const Entry& entry, std::string_view text,
                   std::size_t hash) { return entry.keyHash == hash && entry.key == text; },
                key);
}

const void* KFLDerivedRegistryData::findByTypeName(const char* typeName) const {
  return findIf([](const Entry& entry, std::string_view text,
                   std::size_t hash) { return entry.typeNameHash == hash && entry.typeName == text; },
                typeName);
}

const void* KFLDerivedRegistryData::findDefault() const {
  return findIf([](const Entry& entry, std::string_view, std::size_t) { return entry.info.isDefault; }, {});
}

std::vector<KFLDerivedTypeInfo> KFLDerivedRegistryData::list() const {
  std::vector<KFLDerivedTypeInfo> all;
  if (const Table* const table = table_.load(std::memory_order_acquire); table != nullptr) {
    for (const Table::Row& row : *table)
      all.push_back(row.entry->info);
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
