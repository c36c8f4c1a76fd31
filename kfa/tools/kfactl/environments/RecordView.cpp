// SPDX-License-Identifier: Apache-2.0
#include "environments/RecordView.h"

#include <algorithm>
#include <map>
#include <string_view>

#include <nlohmann/json.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLNumberNames.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>

#include "environments/Elements.h"

namespace kfactl {

namespace {

using KFL::KFLField;
using KFL::KFLFieldShape;
using KFL::KFLFieldTable;
using KFL::KFLMessageIterator;

// --- The properties of a configuration --------------------------------------------------------------------------------

constexpr KFLField property(KFL::KFLElementID id, std::string_view valueType, KFLFieldShape shape) {
  KFLField row;
  row.id = id;
  row.shape = shape;
  row.valueType = valueType;
  return row;
}
constexpr KFLField value(KFL::KFLElementID id, std::string_view type) {
  return property(id, type, KFLFieldShape::Element);
}
constexpr KFLField texts(KFL::KFLElementID id) {
  return property(id, "string", KFLFieldShape::List);
}
template <class Record>
constexpr KFLField record(KFL::KFLElementID id, KFLFieldShape shape = KFLFieldShape::Element) {
  KFLField row = property(id, {}, shape);
  row.table = KFL::fields::tableOf<Record>();
  return row;
}
template <class Record>
constexpr KFLField records(KFL::KFLElementID id) {
  return record<Record>(id, KFLFieldShape::List);
}

}  // namespace

const KFLFieldTable& environmentFields() {
  using namespace KFA;
  static constexpr KFLField rows[] = {
      value("veid", "int"),
      value("on_boot", "boolean"),
      value("disabled", "boolean"),
      value("offline_management", "boolean"),
      value("config_customized", "boolean"),
      value("class_id", "int"),
      value("ts_mode", "int"),
      value("allow_reboot", "boolean"),
      value("rate_bound", "boolean"),
      value("is_sample", "boolean"),
      texts("iptables"),
      texts("role"),
      texts("offline_service"),
      texts("ts_license_server"),
      texts("address"),
      texts("nameserver"),
      texts("search_domain"),
      texts("wins_server"),
      texts("interface_rate"),
      records<KFATemplate>("template"),
      records<KFAEnvCapability>("capability"),
      records<KFANetVEth>("net_device"),
      records<KFLQoS>("qos"),
      record<KFATemplate>("os_template"),
      record<KFADistribution>("distribution"),
      record<KFAVPSType>("ve_type"),
      record<KFLOS>("os"),
  };
  static constexpr KFLFieldTable table{"KFAEnvConfig", kTypesURI, "venv_configType", rows};
  return table;
}

const KFLFieldTable* fieldTableOf(const std::string& recordName) {
  const KFL::KFLRecordType* const type = KFL::findRecordType(recordName);
  return type == nullptr ? nullptr : type->elements();
}

namespace {

// A table's rows by element name, those of its base parts included.
class Rows {
 public:
  explicit Rows(const KFLFieldTable* table) {
    if (table != nullptr) add(*table);
  }
  const KFLField* find(std::string_view name) const {
    const auto found = rows_.find(name);
    return found == rows_.end() ? nullptr : found->second;
  }
  auto begin() const { return rows_.begin(); }
  auto end() const { return rows_.end(); }

 private:
  // Base parts are nested as deep as classes derive.
  void add(const KFLFieldTable& table) {
    for (const KFLField& row : table.rows()) {
      if (row.shape != KFLFieldShape::Inline)
        rows_.emplace(row.elementName(), &row);
      else if (row.table != nullptr)
        add(row.table());
    }
  }

  std::map<std::string_view, const KFLField*> rows_;
};

// Made once for each table; the program has one thread.
const Rows& rowsOf(const KFLFieldTable* table) {
  static std::map<const KFLFieldTable*, Rows> known;
  return known.try_emplace(table, table).first->second;
}

const KFLFieldTable* tableOfRow(const KFLField& row) {
  return row.table == nullptr ? nullptr : &row.table();
}

// The table of an element that names its type; else that of the row which it belongs to. The row's own table comes first:
// a disk shares its type tag with a list of such disks.
const KFLFieldTable* tableOfElement(const KFLMessageIterator& it, const KFLFieldTable* rowTable) {
  if (it.getTypeTag().empty()) return rowTable;
  const bool isOfRow = rowTable != nullptr && it.getTypeTag() == rowTable->typeTag() &&
                       it.getTypeNamespace() == rowTable->namespaceUri();
  if (isOfRow) return rowTable;
  const KFL::KFLRecordType* const type = KFL::findRecordType(it.getTypeNamespace(), it.getTypeTag());
  return type == nullptr || type->elements() == nullptr ? rowTable : type->elements();
}

// --- Documents --------------------------------------------------------------------------------------------------------

Document describeScalar(const KFLMessageIterator& it, std::string_view type) {
  bool flag = false;
  long long number = 0;
  if (type == "boolean" && it.getValue(flag) == 0) return flag;
  if ((type == "int" || type == "long") && it.getValue(number) == 0) return number;
  return std::string(it.getText());
}

Document describeOne(const KFLMessageIterator& it, std::string_view type, const KFLFieldTable* rowTable) {
  const KFLFieldTable* const table = tableOfElement(it, rowTable);
  if (!type.empty() || (table == nullptr && it.countChildren() == 0)) return describeScalar(it, type);
  return describeElement(it, table);
}

Document describeItems(const KFLMessageIterator& it, const KFLField& row) {
  Document items = Document::array();
  if (it.firstChild() != 0) return items;
  do {
    items.push_back(describeOne(it, row.valueType, tableOfRow(row)));
  } while (it.nextSibling() == 0);
  it.leaveChild();
  return items;
}

// A member that stands twice becomes a list.
void addMember(Document& object, const std::string& name, Document value) {
  Document& member = object[name];
  if (member.is_null())
    member = std::move(value);
  else if (member.is_array())
    member.push_back(std::move(value));
  else
    member = Document::array({std::move(member), std::move(value)});
}

void addChild(Document& object, const KFLMessageIterator& child, const KFLField* row) {
  const std::string name(child.getName());
  if (row == nullptr) return addMember(object, name, describeOne(child, {}, nullptr));
  switch (row->shape) {
    case KFLFieldShape::Presence:
      object[name] = true;
      return;
    case KFLFieldShape::Container:
      object[name] = describeItems(child, *row);
      return;
    case KFLFieldShape::List:
    case KFLFieldShape::Map: {
      Document& items = object[name];
      if (items.is_null()) items = Document::array();
      const bool isMap = row->shape == KFLFieldShape::Map;
      if (!child.isEmptyElement())
        items.push_back(describeOne(child, isMap ? std::string_view() : row->valueType,
                                    isMap ? nullptr : tableOfRow(*row)));
      return;
    }
    default:
      addMember(object, name, describeOne(child, row->valueType, tableOfRow(*row)));
  }
}

// --- Faults -----------------------------------------------------------------------------------------------------------

// What an element is read as.
struct Expectation {
  const KFLField* row = nullptr;  // none for the root, and for what is not looked at
  const KFLFieldTable* table = nullptr;
  bool isContainer = false;  // only its children are
};

std::string faultOfScalar(const KFLMessageIterator& it, const KFLField& row) {
  bool flag = false;
  int number = 0;
  long long wide = 0;
  const std::string text = "'" + std::string(it.getText()) + "' ";
  if (row.shape == KFLFieldShape::Presence)
    return it.getText().empty() ? std::string() : text + "is not read; an empty element is wanted";
  if (row.names != nullptr && row.names->findNumber(it.getText(), number) != 0)
    return text + "is no known name; " + row.names->listNames() + " is wanted";
  if (row.valueType == "boolean" && it.getValue(flag) != 0)
    return text + "is no truth value; true or false is wanted";
  if (row.valueType == "int" && it.getValue(number) != 0)
    return text + "is no 32-bit number; one from -2147483648 to 2147483647 is wanted";
  if (row.valueType == "long" && it.getValue(wide) != 0)
    return text + "is no 64-bit number; one from -9223372036854775808 to 9223372036854775807 is wanted";
  return {};
}

// A registry with a default takes every type.
std::string faultOfType(const KFLMessageIterator& it, const KFLFieldTable& base) {
  std::string known;
  for (const KFL::KFLDerivedTypeInfo& info : KFL::listDerivedTypes()) {
    if (info.base != base.record()) continue;
    if (info.isDefault || (info.tag == it.getTypeTag() && info.namespaceUri == it.getTypeNamespace()))
      return {};
    known += (known.empty() ? "" : ", ") + info.tag;
  }
  return "the type '" + std::string(it.getTypeTag()) + "' is not known; one of " + known + " is wanted";
}

// What keeps the element from being read as expected: its own value or type, or a required field that is missing.
std::string faultOf(const KFLMessageIterator& it, const Expectation& expected) {
  std::string fault;
  if (expected.row != nullptr) fault = faultOfScalar(it, *expected.row);
  // What a function of the record reads may have a class of its own for types that are not known.
  if (fault.empty() && expected.row != nullptr && expected.row->isPolymorphic &&
      expected.row->shape != KFLFieldShape::Special)
    fault = faultOfType(it, expected.row->table());
  if (!fault.empty() || expected.table == nullptr) return fault;
  for (const auto& [name, row] : rowsOf(expected.table))
    if (row->needsElement() && !it.hasChild(row->id)) return "element " + std::string(name) + " is missing";
  return {};
}

Expectation expectationOf(const Expectation& parent, const Element& child, FaultScope scope) {
  if (parent.isContainer) return {parent.row, parent.table};
  const KFLField* const row = rowsOf(parent.table).find(child.name);
  if (row == nullptr || (scope == FaultScope::Required && !row->failsRead)) return {};
  const bool isContainer = row->shape == KFLFieldShape::Container;
  const bool isList = row->shape == KFLFieldShape::List;
  if (row->shape == KFLFieldShape::Map) return {};
  if (isList && child.cursor.isEmptyElement() && !row->isPolymorphic) return {};
  return {row, tableOfElement(child.cursor, tableOfRow(*row)), isContainer};
}

// Parents stand before their children.
std::vector<Expectation> expectAll(const Elements& elements, const KFLFieldTable* table, FaultScope scope) {
  std::vector<Expectation> expected(elements.size());
  expected[0].table = table;
  for (std::size_t i = 0; i < elements.size(); ++i)
    for (std::size_t child = elements[i].firstChild; child != kNoElement; child = elements[child].nextSibling)
      expected[child] = expectationOf(expected[i], elements[child], scope);
  return expected;
}

// Whether what an element is read as has a place for a child of this name.
bool hasPlace(const Expectation& parent, std::string_view name) {
  if (parent.isContainer) return true;
  if (parent.table == nullptr) return parent.row == nullptr || parent.row->valueType.empty();
  const Rows& rows = rowsOf(parent.table);
  return rows.find(name) != nullptr || std::ranges::any_of(rows, [name](const auto& entry) {
           return !entry.second->noneMarker.isEmpty() && name == entry.second->noneMarker.name();
         });
}

}  // namespace

std::string refusalOf(const KFLMessageIterator& it, const KFL::KFLRecordType& record) {
  KFL::setErrorMessage("%s", "");
  if (record.read(it, record.create().get()) == 0) return {};
  const std::string reason = KFL::getErrorMessage();
  return "cannot be read as " + std::string(record.name()) + (reason.empty() ? "" : ": " + reason);
}

Document describeElement(const KFLMessageIterator& it, const KFLFieldTable* table) {
  Document object = Document::object();
  const Rows& rows = rowsOf(table);
  if (it.firstChild() != 0) return object;
  do {
    addChild(object, it, rows.find(it.getName()));
  } while (it.nextSibling() == 0);
  it.leaveChild();
  return object;
}

std::vector<ElementFault> findFaults(const Elements& elements, const KFLFieldTable* table, FaultScope scope) {
  std::vector<ElementFault> faults;
  const std::vector<Expectation> expected = expectAll(elements, table, scope);
  for (std::size_t i = 0; i < elements.size(); ++i) {
    if (expected[i].isContainer) continue;
    std::string fault = faultOf(elements[i].cursor, expected[i]);
    if (!fault.empty()) faults.push_back({elements.path(i), i, std::move(fault)});
  }
  // A record that refuses what its table allows says no more than that.
  for (std::size_t i = 1; faults.empty() && i < elements.size(); ++i) {
    if (expected[i].table == nullptr || expected[i].isContainer) continue;
    const KFL::KFLRecordType* const record = KFL::findRecordType(expected[i].table->record());
    std::string refusal = record == nullptr ? std::string() : refusalOf(elements[i].cursor, *record);
    if (!refusal.empty()) faults.push_back({elements.path(i), i, std::move(refusal)});
  }
  return faults;
}

std::vector<std::size_t> findUnknown(const Elements& elements, const KFLFieldTable* table) {
  const std::vector<Expectation> expected = expectAll(elements, table, FaultScope::Any);
  std::vector<std::size_t> unknown;
  for (std::size_t i = 1; i < elements.size(); ++i)
    if (!hasPlace(expected[elements[i].parent], elements[i].name)) unknown.push_back(i);
  return unknown;
}

ElementFault findFault(const KFLMessageIterator& root, const KFLFieldTable* table, FaultScope scope) {
  const std::vector<ElementFault> faults = findFaults(Elements(root), table, scope);
  return faults.empty() ? ElementFault() : faults.front();
}

}  // namespace kfactl
