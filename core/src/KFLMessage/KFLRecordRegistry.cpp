// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLRecordRegistry.h>

#include <algorithm>

#include <KFLCommon/KFLLock.h>
#include <KFLMessage/KFLRootName.h>

namespace KFL {

namespace {

constinit KFLLock guard;
const KFLForkWaits<guard> forkWaits;
std::vector<const KFLRecordType*>& records() {
  static auto* all = new std::vector<const KFLRecordType*>;
  return *all;
}

template <class Predicate>
const KFLRecordType* findIf(Predicate matches) {
  const KFLLockGuard lock(guard);
  const auto found = std::find_if(records().begin(), records().end(), matches);
  return found == records().end() ? nullptr : *found;
}

}  // namespace

KFLRecordType::KFLRecordType(const char* className, Text namespaceText, Text typeTagText,
                             KFLField::Table fieldTable, KFLField::Table elementTable, Object (*creator)(),
                             Read reader, Write writer)
    : name_(className),
      namespaceUri_(namespaceText),
      typeTag_(typeTagText),
      table_(fieldTable),
      elements_(elementTable),
      create_(creator),
      read_(reader),
      write_(writer) {
  const KFLLockGuard lock(guard);
  records().push_back(this);
}

KFLRecordType::~KFLRecordType() {
  const KFLLockGuard lock(guard);
  std::erase(records(), this);
}

std::string KFLRecordType::rootName() const {
  constexpr std::string_view kTypeSuffix = "Type";
  std::string_view name = typeTag();
  if (!name.empty()) {
    if (name.ends_with(kTypeSuffix)) name.remove_suffix(kTypeSuffix.size());
    return std::string(name);
  }
  return rootNameOf(name_);
}

const KFLRecordType* findRecordType(std::string_view name) {
  return findIf([name](const KFLRecordType* record) { return record->name() == name; });
}

const KFLRecordType* findRecordType(std::string_view namespaceUri, std::string_view typeTag) {
  if (typeTag.empty()) return nullptr;
  return findIf([&](const KFLRecordType* record) {
    return record->typeTag() == typeTag && record->namespaceUri() == namespaceUri;
  });
}

std::vector<const KFLRecordType*> listRecordTypes() {
  std::vector<const KFLRecordType*> sorted;
  {
    const KFLLockGuard lock(guard);
    sorted = records();
  }
  std::sort(sorted.begin(), sorted.end(),
            [](const auto* a, const auto* b) { return std::string_view(a->name()) < b->name(); });
  return sorted;
}

}  // namespace KFL
