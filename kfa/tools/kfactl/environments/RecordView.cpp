// SPDX-License-Identifier: Apache-2.0
#include "environments/RecordView.h"

#include <map>
#include <string_view>

#include <nlohmann/json.hpp>

#include <KFLMessage/KFLRecordRegistry.h>

namespace kfactl {

namespace {

using KFL::KFLField;
using KFL::KFLFieldShape;
using KFL::KFLFieldTable;
using KFL::KFLMessageIterator;

}  // namespace

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

}  // namespace

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

}  // namespace kfactl
