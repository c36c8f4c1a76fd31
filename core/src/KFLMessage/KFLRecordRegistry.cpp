// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLRecordRegistry.h>

#include <algorithm>
#include <mutex>

#include <KFLCommon/KFLText.h>

namespace KFL {

namespace {

std::mutex guard;
std::vector<const KFLRecordType*>& records() {
  static auto* all = new std::vector<const KFLRecordType*>;
  return *all;
}

template <class Predicate>
const KFLRecordType* findIf(Predicate matches) {
  const std::lock_guard lock(guard);
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
  const std::lock_guard lock(guard);
  records().push_back(this);
}

KFLRecordType::~KFLRecordType() {
  const std::lock_guard lock(guard);
  std::erase(records(), this);
}

// --- The root element --------------------------------------------------------------------------------------

namespace {

bool isUpper(char c) {
  return c >= 'A' && c <= 'Z';
}

// Words whose capitals do not begin one.
constexpr std::string_view kMixedWords[] = {"QoS", "IPv4", "IPv6"};

// The length of the word that a class name begins with: "CPU" of "CPULoad", "Load" of "Load".
std::size_t wordLength(std::string_view name) {
  for (const std::string_view word : kMixedWords)
    if (name.starts_with(word)) return word.size();
  std::size_t end = 1;
  while (end < name.size() && isUpper(name[end - 1]) && isUpper(name[end]))
    ++end;
  const bool isAcronym = end > 1;
  if (isAcronym) return end < name.size() && !isUpper(name[end]) ? end - 1 : end;
  while (end < name.size() && !isUpper(name[end]))
    ++end;
  return end;
}

// "UGIDQuotaInfo" as ugid_quota_info.
std::string wordsOf(std::string_view name) {
  std::string words;
  while (!name.empty()) {
    const std::size_t length = wordLength(name);
    if (!words.empty()) words += '_';
    words += toLower(std::string(name.substr(0, length)));
    name.remove_prefix(length);
  }
  return words;
}

}  // namespace

std::string KFLRecordType::rootName() const {
  constexpr std::string_view kTypeSuffix = "Type";
  std::string_view name = typeTag();
  if (!name.empty()) {
    if (name.ends_with(kTypeSuffix)) name.remove_suffix(kTypeSuffix.size());
    return std::string(name);
  }
  name = name_;
  if (const std::size_t scope = name.rfind("::"); scope != std::string_view::npos)
    name.remove_prefix(scope + 2);
  if (name.starts_with("KFL") || name.starts_with("KFA")) name.remove_prefix(3);
  return wordsOf(name);
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
    const std::lock_guard lock(guard);
    sorted = records();
  }
  std::sort(sorted.begin(), sorted.end(),
            [](const auto* a, const auto* b) { return std::string_view(a->name()) < b->name(); });
  return sorted;
}

}  // namespace KFL
