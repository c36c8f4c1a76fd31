// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLEnvFactory.h>

#include <algorithm>
#include <memory>
#include <string>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLock.h>

namespace KFL {

namespace {

// Held by those who change the table.
constinit KFLLock changing;
const KFLForkWaits<changing> forkWaits;

}  // namespace

struct KFLEnvFactory::Table {
  struct Entry {
    TypeName name;
    ChildFactorySP factory;
  };
  std::vector<Entry> entries;  // by name
  const Table* older = nullptr;

  // Where an entry of this name stands, or belongs.
  auto placeOf(std::string_view name) const {
    return std::ranges::lower_bound(entries, name, {}, [](const Entry& entry) { return entry.name.view(); });
  }
  auto find(std::string_view name) const {
    const auto place = placeOf(name);
    return place != entries.end() && place->name.view() == name ? place : entries.end();
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

int KFLEnvFactory::registerEnv(std::string_view name, const ChildFactorySP& factory) {
  const std::string text(name);
  if (!factory) {
    setErrorMessage("no factory was given for environments of the type \"%s\"", text.c_str());
    return -1;
  }
  if (name.empty() || !TypeName::fits(name)) {
    setErrorMessage("\"%s\" is no name for a type of environments; one of 1 to %zu characters is wanted",
                    text.c_str(), TypeName::kMaxLength);
    return -1;
  }
  const KFLLockGuard guard(changing);
  const Table* const current = table_.load(std::memory_order_relaxed);
  if (current != nullptr && current->find(name) != current->entries.end()) {
    setErrorMessage(
        "environments of the type \"%s\" have a factory; it must be taken out before another is registered",
        text.c_str());
    return -1;
  }
  auto table = current == nullptr ? std::make_unique<Table>() : std::make_unique<Table>(*current);
  table->entries.insert(table->placeOf(name), {TypeName(name), factory});
  publish(table.release());
  return 0;
}

int KFLEnvFactory::unregisterEnv(std::string_view name, const ChildFactorySP& factory) {
  const KFLLockGuard guard(changing);
  const Table* const current = table_.load(std::memory_order_relaxed);
  const auto isMeant = [&](const Table::Entry& entry) {
    return entry.name.view() == name && entry.factory == factory;
  };
  if (current == nullptr || std::ranges::none_of(current->entries, isMeant)) {
    setErrorMessage("this factory is not the one of environments of the type \"%s\"",
                    std::string(name).c_str());
    return -1;
  }
  auto table = std::make_unique<Table>(*current);
  std::erase_if(table->entries, isMeant);
  publish(table.release());
  return 0;
}

KFLEnvFactory::ChildFactorySP KFLEnvFactory::getFactory(std::string_view name) const {
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
