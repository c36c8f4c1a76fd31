// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLSchemaWriter.h>

#include <algorithm>
#include <map>
#include <string_view>

#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLNumberNames.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include "KFLSchemaText.h"

namespace KFL {

namespace {

// --- Names -----------------------------------------------------------------------------------------------------------

// "HardDisk::List::Images<Zloop>" as an XML name: HardDisk.List.Images.Zloop.
std::string xmlName(std::string_view className) {
  std::string name;
  for (const char c : className) {
    const bool isMark = c == ':' || c == '<' || c == '>';
    if (!isMark)
      name += c;
    else if (c != '>' && name.back() != '.')
      name += '.';
  }
  return name;
}

std::string typeNameOf(const KFLRecordType& record) {
  return *record.typeTag() != '\0' ? record.typeTag() : xmlName(record.name());
}

// A text that names no namespace is one of the core's values.
std::string_view namespaceOf(const KFLRecordType& record) {
  return *record.namespaceUri() != '\0' ? record.namespaceUri() : kTypesNamespaceURI;
}

std::string occurrence(bool isNeeded, int most) {
  std::string text;
  if (!isNeeded) text += attribute("minOccurs", "0");
  if (most != 1) text += attribute("maxOccurs", most == 0 ? "unbounded" : std::to_string(most));
  return text;
}
std::string occurrence(const KFLField& row) {
  return occurrence(row.needsElement(), row.maxElements);
}

// --- What there is ---------------------------------------------------------------------------------------------------

// Everything that the schemas speak of, in the order in which it is printed.
struct Model {
  using Tables = std::map<std::string, const KFLFieldTable*>;
  using Records = std::vector<const KFLRecordType*>;
  struct Namespace {
    Tables bases;                          // of polymorphic elements
    Tables groups;                         // by class name
    std::map<std::string, Records> types;  // by type tag or class name
  };

  Model();

  // The base of a polymorphic element that a record is one of; null when there is none.
  const KFLFieldTable* baseOf(const KFLRecordType& record) const;

  std::map<std::string, Namespace> namespaces;

 private:
  void addTable(const KFLFieldTable& table);
  std::vector<KFLDerivedTypeInfo> derived_ = listDerivedTypes();
};

Model::Model() {
  for (const KFLRecordType* const record : listRecordTypes()) {
    namespaces[std::string(namespaceOf(*record))].types[typeNameOf(*record)].push_back(record);
    if (record->elements() != nullptr) addTable(*record->elements());
  }
}

// Nested as deep as classes are.
void Model::addTable(const KFLFieldTable& table) {
  Namespace& own = namespaces[table.namespaceUri()];
  if (!own.groups.emplace(table.record(), &table).second) return;
  for (const KFLField& row : table.rows()) {
    if (row.table == nullptr) continue;
    const KFLFieldTable& part = row.table();
    if (row.isPolymorphic) namespaces[part.namespaceUri()].bases.emplace(part.record(), &part);
    if (!row.isPolymorphic || !part.rows().empty()) addTable(part);
  }
}

// Whether a table is another, or holds it as its base part.
bool isA(const KFLFieldTable& table, const KFLFieldTable& base) {
  if (&table == &base) return true;
  return std::ranges::any_of(table.rows(), [&base](const KFLField& row) {
    return row.shape == KFLFieldShape::Inline && row.table != nullptr && isA(row.table(), base);
  });
}

const KFLFieldTable* Model::baseOf(const KFLRecordType& record) const {
  for (const auto& [uri, known] : namespaces) {
    for (const auto& [name, base] : known.bases) {
      if (record.elements() != nullptr && isA(*record.elements(), *base)) return base;
      for (const KFLDerivedTypeInfo& info : derived_) {
        if (info.base == name && info.namespaceUri == record.namespaceUri() && info.tag == record.typeTag())
          return base;
      }
    }
  }
  return nullptr;
}

// --- One namespace ---------------------------------------------------------------------------------------------------

class NamespaceWriter {
 public:
  NamespaceWriter(const Model& model, const std::string& uri) : model_(model), uri_(uri), out_(uri) {}

  std::string write() {
    const Model::Namespace& own = model_.namespaces.at(uri_);
    for (const auto& [name, base] : own.bases)
      out_.add("complexType", attribute("name", baseTypeName(*base)));
    for (const auto& [name, table] : own.groups)
      addGroup(*table);
    for (const auto& [name, records] : own.types)
      addType(name, records);
    for (const auto& [name, records] : own.types)
      out_.add("element",
               attribute("name", records.front()->rootName()) + attribute("type", out_.refer(uri_, name)));
    return out_.finish();
  }

 private:
  static std::string baseTypeName(const KFLFieldTable& base) { return "Any" + xmlName(base.record()); }

  // In any order, each element stands once for each time that the choice is repeated.
  void addGroup(const KFLFieldTable& table) {
    const bool isChoice = table.isInAnyOrder();
    out_.open("group", attribute("name", xmlName(table.record())));
    out_.open(isChoice ? "choice" : "sequence");
    for (const KFLField& row : table.rows()) {
      if (row.shape == KFLFieldShape::Inline)
        referToGroup(row.table(), isChoice ? std::string() : repetition(row.table()));
      else
        addRow(row, isChoice ? std::string() : occurrence(row));
    }
    out_.close(2);
  }

  static std::string repetition(const KFLFieldTable& table) {
    return table.isInAnyOrder() ? occurrence(false, 0) : std::string();
  }

  void referToGroup(const KFLFieldTable& table, const std::string& occurs) {
    const std::string group = out_.refer(table.namespaceUri(), xmlName(table.record()));
    out_.add("group", attribute("ref", group) + occurs);
  }

  // --- The type of a record, or of several that share a tag

  void addType(const std::string& name, const Model::Records& records) {
    const KFLRecordType& first = *records.front();
    if (first.elements() == nullptr) {
      addTextType(name);
      return;
    }
    out_.open("complexType", attribute("name", name));
    const KFLFieldTable* const base = model_.baseOf(first);
    if (base != nullptr) {
      out_.open("complexContent");
      out_.open("extension", attribute("base", out_.refer(base->namespaceUri(), baseTypeName(*base))));
    }
    if (records.size() > 1) out_.open("choice");
    for (const KFLRecordType* const record : records)
      referToGroup(*record->elements(), repetition(*record->elements()));
    if (records.size() > 1) out_.close();
    if (base != nullptr) {
      out_.close(2);
    }
    out_.close();
  }

  void addTextType(const std::string& name) {
    out_.open("simpleType", attribute("name", name));
    out_.add("restriction", attribute("base", "xs:string"));
    out_.close();
  }

  // --- One row

  void addRow(const KFLField& row, const std::string& occurs) {
    switch (row.shape) {
      case KFLFieldShape::Container:
        openElement(row.id, occurs);
        addElement(row, row.itemId, occurrence(false, 0));
        closeElement();
        break;
      case KFLFieldShape::Map:
        addMap(row, occurs);
        break;
      default:
        addMarked(row, occurs);
    }
  }

  // An element whose content is a sequence that stands in place.
  void openElement(KFLElementID id, const std::string& occurs) {
    out_.open("element", attribute("name", elementName(id)) + occurs);
    out_.open("complexType");
    out_.open("sequence");
  }
  void closeElement() { out_.close(3); }

  void addMap(const KFLField& row, const std::string& occurs) {
    openElement(row.id, occurs);
    addTyped(row.keyId, "xs:string", {});
    if (row.itemId.isEmpty())
      referToGroup(row.table(), {});
    else
      addElement(row, row.itemId, {});
    closeElement();
  }

  // The row's element, or the one that says that there is none.
  void addMarked(const KFLField& row, const std::string& occurs) {
    if (row.noneMarker.isEmpty()) {
      addElement(row, row.id, occurs);
      return;
    }
    out_.open("choice");
    addElement(row, row.id, occurs);
    addEmptyElement(row.noneMarker, {});
    out_.close();
  }

  // --- One element

  static std::string elementName(KFLElementID id) {
    return std::string(id.number() != 0 ? tagName(id.number()) : id.name());
  }

  void addEmptyElement(KFLElementID id, const std::string& occurs) {
    out_.open("element", attribute("name", elementName(id)) + occurs);
    out_.add("complexType", {});
    out_.close();
  }

  void addTyped(KFLElementID id, const std::string& type, const std::string& occurs) {
    out_.add("element", attribute("name", elementName(id)) + attribute("type", type) + occurs);
  }

  void addElement(const KFLField& row, KFLElementID id, const std::string& occurs) {
    if (row.shape == KFLFieldShape::Presence)
      addEmptyElement(id, occurs);
    else if (row.names != nullptr)
      addNames(id, occurs, *row.names);
    else if (!row.valueType.empty())
      addTyped(id, "xs:" + std::string(row.valueType), occurs);
    else if (row.isPolymorphic)
      addTyped(id, out_.refer(row.table().namespaceUri(), baseTypeName(row.table())), occurs);
    else
      addRecord(row, id, occurs);
  }

  void addNames(KFLElementID id, const std::string& occurs, const KFLNumberNames& names) {
    out_.open("element", attribute("name", elementName(id)) + occurs);
    out_.open("simpleType");
    out_.open("restriction", attribute("base", "xs:string"));
    for (const KFLNumberName& row : names)
      out_.add("enumeration", attribute("value", row.name));
    out_.close(3);
  }

  // Under its own type, unless an empty element stands for none; a type tag needs the type in either case.
  void addRecord(const KFLField& row, KFLElementID id, const std::string& occurs) {
    const KFLFieldTable& table = row.table();
    const KFLRecordType* const record = findRecordType(table.record());
    if (record != nullptr && (!row.emptyItemIsNone || *record->typeTag() != '\0')) {
      addTyped(id, out_.refer(namespaceOf(*record), typeNameOf(*record)), occurs);
      return;
    }
    out_.open("element", attribute("name", elementName(id)) + occurs);
    out_.open("complexType");
    referToGroup(table, row.emptyItemIsNone ? occurrence(false, 1) : repetition(table));
    out_.close(2);
  }

  const Model& model_;
  const std::string uri_;
  KFLSchemaText out_;
};

}  // namespace

std::vector<KFLSchema> makeSchemas() {
  const Model model;
  std::vector<KFLSchema> schemas;
  for (const auto& [uri, own] : model.namespaces)
    schemas.push_back({uri, schemaName(uri), NamespaceWriter(model, uri).write()});
  std::ranges::sort(schemas, {}, &KFLSchema::name);
  return schemas;
}

}  // namespace KFL
