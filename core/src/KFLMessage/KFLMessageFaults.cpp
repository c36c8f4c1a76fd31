// SPDX-License-Identifier: Apache-2.0
#include "KFLMessageFaults.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLNumberNames.h>
#include <KFLMessage/KFLTagVocabulary.h>

namespace KFL {

namespace {

const KFLFieldTable* tableOfRow(const KFLField& row) {
  return row.table == nullptr ? nullptr : &row.table();
}

std::string_view nameOf(KFLElementID id) {
  return id.number() != 0 ? tagName(id.number()) : id.name();
}

// Base parts are nested as deep as classes derive.
void addRows(const KFLFieldTable& table, KFLRowsByName& rows) {
  for (const KFLField& row : table.rows()) {
    if (row.shape != KFLFieldShape::Inline)
      rows.emplace(row.elementName(), &row);
    else if (row.table != nullptr)
      addRows(row.table(), rows);
  }
}

// The first required element that is not there.
std::string missingIn(const KFLFieldTable& table, const KFLMessageIterator& it) {
  for (const KFLField& row : table.rows()) {
    if (row.shape == KFLFieldShape::Inline && row.table != nullptr) {
      std::string missing = missingIn(row.table(), it);
      if (!missing.empty()) return missing;
    } else if (row.needsElement() && !it.hasChild(row.id)) {
      return "element " + std::string(row.elementName()) + " is missing";
    }
  }
  return {};
}

// Why a value cannot be read; empty when it can. Records are looked at by their own elements.
std::string faultOfValue(const KFLMessageIterator& it, const KFLField& row) {
  int number = 0;
  const std::string text = "'" + std::string(it.getText()) + "' ";
  if (row.shape == KFLFieldShape::Presence)
    return it.getText().empty() ? std::string() : text + "is not read; an empty element is wanted";
  if (row.names != nullptr)
    return row.names->findNumber(it.getText(), number) == 0
               ? std::string()
               : text + "is no known name; " + row.names->listNames() + " is wanted";
  if (row.emptyItemIsNone && it.isEmptyElement()) return {};
  if (row.valueType.empty() || row.probe == nullptr || row.probe(it) == 0) return {};
  return reasonWithout(it.getPath());
}

}  // namespace

std::string reasonWithout(const std::string& path) {
  std::string text = getErrorMessage();
  if (text.starts_with(path + ": ")) text.erase(0, path.size() + 2);
  return text;
}

// Parents stand before their children.
KFLMessageFaults::KFLMessageFaults(const KFLMessageElements& elements, const KFLFieldTable* table,
                                   KFLFaultScope scope)
    : elements_(elements), derived_(listDerivedTypes()), expected_(elements.size()) {
  expected_[0].table = table;
  for (std::size_t i = 1; i < elements.size(); ++i)
    expected_[i] = expect(expected_[elements[i].parent], elements[i], scope);
}

const KFLRowsByName& KFLMessageFaults::rowsOf(const KFLFieldTable* table) const {
  const auto [at, isNew] = rows_.try_emplace(table);
  if (isNew && table != nullptr) addRows(*table, at->second);
  return at->second;
}

// Whether who reads the row chooses a class by the type tag. Of a record that tells no table nothing is known.
bool KFLMessageFaults::readsByType(const KFLField& row) const {
  if (row.table == nullptr) return row.valueType.empty();
  return row.isPolymorphic ||
         (row.shape == KFLFieldShape::Special && std::ranges::any_of(derived_, [&row](const auto& info) {
            return info.base == row.table().record();
          }));
}

// The table of an element whose type tag names its class; else that of the row which it belongs to. The row's own table
// comes first: a disk shares its type tag with a list of such disks.
const KFLFieldTable* KFLMessageFaults::tableOfElement(const KFLMessageIterator& it, const KFLField& row) {
  const KFLFieldTable* const rowTable = tableOfRow(row);
  if (it.getTypeTag().empty() || !readsByType(row)) return rowTable;
  const bool isOfRow = rowTable != nullptr && it.getTypeTag() == rowTable->typeTag() &&
                       it.getTypeNamespace() == rowTable->namespaceUri();
  if (isOfRow) return rowTable;
  std::string type;
  it.getTypeName(type);
  const auto [at, isNew] = tablesByType_.try_emplace(std::move(type));
  if (isNew) {
    const KFLRecordType* const record = findRecordType(it.getTypeNamespace(), it.getTypeTag());
    at->second = record == nullptr ? nullptr : record->elements();
  }
  return at->second == nullptr ? rowTable : at->second;
}

KFLExpectation KFLMessageFaults::expect(const KFLExpectation& parent, const KFLMessageElement& child,
                                        KFLFaultScope scope) {
  if (parent.isContainer) {
    if (child.name != nameOf(parent.row->itemId)) return {};
    return {parent.row, parent.table};
  }
  const KFLRowsByName& rows = rowsOf(parent.table);
  const auto found = rows.find(child.name);
  if (found == rows.end()) return {};
  const KFLField* const row = found->second;
  if (scope == KFLFaultScope::Required && !row->failsRead) return {};
  if (row->shape == KFLFieldShape::Map) return {.entry = row};
  const bool isList = row->shape == KFLFieldShape::List;
  if (isList && child.cursor.isEmptyElement() && !row->isPolymorphic) return {};
  return {row, tableOfElement(child.cursor, *row), row->shape == KFLFieldShape::Container};
}

// A registry with a default takes every type.
std::string KFLMessageFaults::faultOfType(const KFLMessageIterator& it, const KFLFieldTable& base) const {
  std::string known;
  for (const KFLDerivedTypeInfo& info : derived_) {
    if (info.base != base.record()) continue;
    if (info.isDefault || (info.tag == it.getTypeTag() && info.namespaceUri == it.getTypeNamespace()))
      return {};
    known += (known.empty() ? "" : ", ") + info.tag;
  }
  return "the type '" + std::string(it.getTypeTag()) + "' is not known; one of " + known + " is wanted";
}

// What keeps the element from being read as expected: its own value or type, or a required element that is missing.
std::string KFLMessageFaults::faultOf(std::size_t index) {
  const KFLExpectation& expected = expected_[index];
  const KFLMessageIterator& it = elements_[index].cursor;
  std::string fault;
  if (expected.row != nullptr) fault = faultOfValue(it, *expected.row);
  // What a function of the record reads may have a class of its own for types that are not known.
  if (fault.empty() && expected.row != nullptr && expected.row->isPolymorphic &&
      expected.row->shape != KFLFieldShape::Special && expected.row->table != nullptr)
    fault = faultOfType(it, expected.row->table());
  if (!fault.empty() || expected.table == nullptr) return fault;
  return missingIn(*expected.table, it);
}

// A record that refuses what its table allows.
std::string KFLMessageFaults::refusalOf(std::size_t index) const {
  const KFLExpectation& expected = expected_[index];
  if (expected.table == nullptr || expected.isContainer) return {};
  const KFLRecordType* const record = findRecordType(expected.table->record());
  if (record == nullptr || record->read(elements_[index].cursor, record->create().get()) == 0) return {};
  return reasonWithout(elements_.path(index));
}

KFLMessageFindings KFLMessageFaults::find() {
  KFLMessageFindings faults;
  for (std::size_t i = 0; i < elements_.size(); ++i) {
    if (expected_[i].isContainer) continue;
    std::string fault = faultOf(i);
    if (!fault.empty()) faults.push_back({elements_.path(i), i, std::move(fault)});
  }
  for (std::size_t i = 1; faults.empty() && i < elements_.size(); ++i) {
    std::string refusal = refusalOf(i);
    if (!refusal.empty()) faults.push_back({elements_.path(i), i, std::move(refusal)});
  }
  return faults;
}

// The row of its name in the table of what it stands in; null when there is none.
const KFLField* KFLMessageFaults::rowOf(std::size_t index) const {
  const KFLExpectation& parent = expected_[elements_[index].parent];
  if (parent.isContainer) return parent.row;
  const KFLRowsByName& rows = rowsOf(parent.table);
  const auto found = rows.find(elements_[index].name);
  return found == rows.end() ? nullptr : found->second;
}

bool KFLMessageFaults::hasPlace(std::size_t index) const {
  const KFLExpectation& parent = expected_[elements_[index].parent];
  const std::string_view name = elements_[index].name;
  if (parent.isContainer) return name == nameOf(parent.row->itemId);
  if (parent.entry != nullptr) {
    const KFLField& entry = *parent.entry;
    if (name == nameOf(entry.keyId)) return true;
    return entry.itemId.isEmpty() ? rowsOf(tableOfRow(entry)).contains(name) : name == nameOf(entry.itemId);
  }
  if (parent.table == nullptr) return parent.row == nullptr || parent.row->valueType.empty();
  const KFLRowsByName& rows = rowsOf(parent.table);
  return rows.contains(name) || std::ranges::any_of(rows, [name](const auto& entry) {
           const KFLElementID marker = entry.second->noneMarker;
           return !marker.isEmpty() && name == nameOf(marker);
         });
}

bool KFLMessageFaults::isItem(std::size_t index) const {
  const KFLField* const row = hasPlace(index) ? rowOf(index) : nullptr;
  if (row == nullptr) return false;
  return row->shape == KFLFieldShape::List || row->shape == KFLFieldShape::Map ||
         expected_[elements_[index].parent].isContainer;
}

std::string KFLMessageFaults::ownerOf(std::size_t index) const {
  const KFLExpectation& parent = expected_[elements_[index].parent];
  if (parent.isContainer || parent.entry != nullptr)
    return std::string(elements_[elements_[index].parent].name);
  return parent.table == nullptr ? "the record" : parent.table->record();
}

// The id of an item of which only the first with one id is read; empty for other elements.
std::string_view KFLMessageFaults::idOf(std::size_t item) const {
  constexpr int kId = 1010;
  const KFLFieldTable* const table = expected_[item].table;
  if (table == nullptr || table->rows().empty()) return {};
  const KFLField& first = table->rows().front();
  if (first.id.number() != kId || !first.needsElement()) return {};
  std::size_t child = elements_[item].firstChild;
  while (child != kNoElement && elements_[child].name != first.elementName())
    child = elements_[child].nextSibling;
  return child == kNoElement ? std::string_view() : elements_[child].text;
}

// Lists end at an empty element only in what is read in any order.
KFLMessageFindings KFLMessageFaults::findIgnored() const {
  using List = std::pair<std::size_t, const KFLField*>;
  std::set<List> ended;
  std::set<std::pair<List, std::string_view>> ids;
  KFLMessageFindings ignored;
  for (std::size_t i = 1; i < elements_.size(); ++i) {
    const KFLMessageElement& element = elements_[i];
    const KFLExpectation& parent = expected_[element.parent];
    const KFLField* const row = parent.table == nullptr || parent.isContainer ? nullptr : rowOf(i);
    if (row == nullptr || row->shape == KFLFieldShape::Presence) continue;
    const std::string name(element.name);
    const auto ignore = [&](const std::string& text) { ignored.push_back({elements_.path(i), i, text}); };
    const List list(element.parent, row);
    if (row->maxElements == 1) {
      if (element.position > 1) ignore("only the first " + name + " is read");
    } else if (!parent.table->isInAnyOrder() || row->shape != KFLFieldShape::List) {
      continue;
    } else if (ended.contains(list)) {
      ignore("an empty " + name + " before it ends the list");
    } else if (element.cursor.isEmptyElement()) {
      ended.insert(list);
    } else if (const std::string_view id = idOf(i); !id.empty() && !ids.emplace(list, id).second) {
      ignore("only the first " + name + " of the id '" + std::string(id) + "' is read");
    }
  }
  return ignored;
}

KFLMessageFindings findFaults(const KFLMessageIterator& it, const KFLFieldTable* table, KFLFaultScope scope) {
  if (!it.isValid()) return {};
  const KFLMessageElements elements(it);
  KFLMessageFaults all(elements, table, scope);
  KFLMessageFindings findings = all.find();
  if (scope == KFLFaultScope::Required) return findings;
  KFLMessageFindings ignored = all.findIgnored();
  const auto isBefore = [](const auto& a, const auto& b) { return a.element < b.element; };
  KFLMessageFindings merged;
  std::ranges::set_union(findings, ignored, std::back_inserter(merged), isBefore);
  return merged;
}

}  // namespace KFL
