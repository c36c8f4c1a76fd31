// SPDX-License-Identifier: Apache-2.0
// kfactl types: what the library knows by name and number.
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordRegistry.h>
#include <KFLMessage/KFLSchemaWriter.h>
#include <KFLMessage/KFLTagVocabulary.h>

#include "terminal/Cli.h"
#include "terminal/Document.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

// Prints rows of a listing: the table's cells, or an array of objects.
template <class Rows, class Cells, class Describe>
int printRows(Session& session, Table table, const Rows& rows, Cells addCells, Describe describe,
              const char* root, const char* item) {
  if (session.format() == Format::Table) {
    for (const auto& row : rows)
      addCells(table, row);
    table.print(session.out());
    return kFine;
  }
  Document document = Document::array();
  for (const auto& row : rows)
    document.push_back(describe(row));
  printDocument(session, document, root, item);
  return kFine;
}

int showTypes(Session& session) {
  using Info = KFL::KFLDerivedTypeInfo;
  return printRows(
      session, Table({"BASE", "TYPE", "TAG", "NAMESPACE"}), KFL::listDerivedTypes(),
      [](Table& table, const Info& info) {
        table.add({info.base, info.isDefault ? info.derived + " (default)" : info.derived, info.tag,
                   info.namespaceUri});
      },
      [](const Info& info) -> Document {
        return {{"base", info.base},
                {"type", info.derived},
                {"tag", info.tag},
                {"namespace", info.namespaceUri},
                {"default", info.isDefault}};
      },
      "types", "type");
}

int showRecords(Session& session) {
  using Record = KFL::KFLRecordType;
  return printRows(
      session, Table({"RECORD", "TAG", "NAMESPACE"}), KFL::listRecordTypes(),
      [](Table& table, const Record* record) {
        table.add({record->name(), record->typeTag(), record->namespaceUri()});
      },
      [](const Record* record) -> Document {
        return {
            {"record", record->name()}, {"tag", record->typeTag()}, {"namespace", record->namespaceUri()}};
      },
      "records", "record");
}

int showTags(Session& session) {
  return printRows(
      session, Table({"NUMBER", "ELEMENT"}), KFL::tagVocabulary(),
      [](Table& table, const KFL::KFLTag& tag) {
        table.add({std::to_string(tag.number), tag.name});
      },
      [](const KFL::KFLTag& tag) -> Document {
        return {{"number", tag.number}, {"name", std::string(tag.name)}};
      },
      "tags", "tag");
}

int showSchema(Session& session, const std::string& name) {
  if (session.format() == Format::Json) throw Trouble("a schema has no json form; leave --format out");
  std::string names;
  for (const KFL::KFLSchema& schema : KFL::makeSchemas()) {
    if (schema.name == name) {
      session.out().add(schema.text);
      return kFine;
    }
    names += (names.empty() ? "" : ", ") + schema.name;
  }
  throw Trouble("there is no schema '" + name + "'; there are " + names);
}

Action prepare(CLI::App& app) {
  struct Choice {
    bool records = false;
    bool tags = false;
    std::string schema;
  };
  const auto choice = std::make_shared<Choice>();
  CLI::Option* const records = app.add_flag("--records", choice->records, "Every record by its class name");
  CLI::Option* const tags =
      app.add_flag("--tags", choice->tags, "The tag vocabulary: number and element name")->excludes(records);
  app.add_option("--schema", choice->schema,
                 "The XML schema of the records of one namespace, kfatypes at first")
      ->expected(0, 1)
      ->default_str("kfatypes")
      ->type_name("NAME")
      ->excludes(records)
      ->excludes(tags);
  return [choice](Session& session) {
    if (!choice->schema.empty()) return showSchema(session, choice->schema);
    return choice->records ? showRecords(session) : choice->tags ? showTags(session) : showTypes(session);
  };
}

constexpr Command kCommands[] = {
    {nullptr, "", "Types, records and element names that the library knows",
     "Every registered derived type with its base, type tag and namespace.\n\n"
     "Examples:\n"
     "  kfactl types\n"
     "  kfactl types --records\n"
     "  kfactl --format json types --tags\n"
     "  kfactl types --schema kfaup2date",
     prepare},
};

}  // namespace

extern const Group typesGroup;
const Group typesGroup{"types", "Types, records and element names that the library knows", kCommands};

}  // namespace kfactl
