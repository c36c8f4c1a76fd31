// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLEnvFactory.h>

#include <algorithm>
#include <memory>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLock.h>

namespace KFL {

namespace {

// Held by those who change the table.
constinit KFLLock changing;

}  // namespace

struct KFLEnvFactory::Table {
  struct Entry {
    TypeName name;
    ChildFactorySP factory;
  };
  std::vector<Entry> entries;  // by name
  const Table* older = nullptr;

  auto find(const TypeName& name) const {
    const auto place = std::ranges::lower_bound(entries, name, {}, &Entry::name);
    return place != entries.end() && place->name == name ? place : entries.end();
  }
};

KFLEnvFactory* KFLEnvFactory::getInstance() {
  static constinit KFLEnvFactory instance;
  return &instance;
}

void KFLEnvFactory::publish(Table* table) {
  table->older = table_.load(std::memory_order_relaxed);
  table_.store(table, std::memory_order_release);
}

int KFLEnvFactory::registerEnv(const TypeName& name, const ChildFactorySP& factory) {
  if (!factory) {
    setErrorMessage("no factory was given for environments of the type \"%s\"", name.c_str());
    return -1;
  }
  const KFLLockGuard guard(changing);
  const Table* const current = table_.load(std::memory_order_relaxed);
  if (current != nullptr && current->find(name) != current->entries.end()) {
    setErrorMessage(
        "environments of the type \"%s\" have a factory; it must be taken out before another is registered",
        name.c_str());
    return -1;
  }
  auto table = current == nullptr ? std::make_unique<Table>() : std::make_unique<Table>(*current);
  const auto place = std::ranges::lower_bound(table->entries, name, {}, &Table::Entry::name);
  table->entries.insert(place, {name, factory});
  publish(table.release());
  return 0;
}

int KFLEnvFactory::unregisterEnv(const TypeName& name, const ChildFactorySP& factory) {
  const KFLLockGuard guard(changing);
  const Table* const current = table_.load(std::memory_order_relaxed);
  const auto isMeant = [&](const Table::Entry& entry) {
    return entry.name == name && entry.factory == factory;
  };
  if (current == nullptr || std::ranges::none_of(current->entries, isMeant)) {
    setErrorMessage("this factory is not the one of environments of the type \"%s\"", name.c_str());
    return -1;
  }
  auto table = std::make_unique<Table>(*current);
  std::erase_if(table->entries, isMeant);
  publish(table.release());
  return 0;
}

KFLEnvFactory::ChildFactorySP KFLEnvFactory::getFactory(const TypeName& name) const {
  const Table* const table = table_.load(std::memory_order_acquire);
  if (table == nullptr) return {};
  const auto place = table->find(name);
  return place == table->entries.end() ? ChildFactorySP() : place->factory;
}

std::vector<KFLEnvFactory::TypeName> KFLEnvFactory::listTypes() const {
  std::vector<TypeName> names;
  const Table* const table = table_.load(std::memory_order_acquire);
  if (table == nullptr) return names;
  for (const Table::Entry& entry : table->entries)
    names.push_back(entry.name);
  return names;
}

}  // namespace KFL
