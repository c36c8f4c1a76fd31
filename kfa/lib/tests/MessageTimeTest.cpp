// SPDX-License-Identifier: Apache-2.0
// A message from outside that is read and checked in time with its size, whichever of its elements cannot be read.
#include <ctime>
#include <vector>

#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLMessageCheck.h>
#include <KFLMessage/KFLNumberNames.h>

#include "MessageExamples.h"

namespace {

using namespace KFL;

std::string inTag(std::string_view name, const std::string& content, const std::string& attributes = {}) {
  return "<" + std::string(name) + attributes + ">" + content + "</" + std::string(name) + ">";
}

std::vector<KFLField> rowsOf(const KFLFieldTable& table) {
  std::vector<KFLField> rows;
  visitRows(table, [&](const KFLField& row) {
    if (row.shape != KFLFieldShape::Inline) rows.push_back(row);
  });
  return rows;
}

std::string_view nameOf(KFLElementID id) {
  return id.number() != 0 ? tagName(id.number()) : id.name();
}

// A value that is read, and one that is not where there is any.
std::string valueOf(const KFLField& row, bool isGood) {
  if (!isGood) return "?";
  if (row.names != nullptr) return row.names->listNames().substr(0, row.names->listNames().find(','));
  return row.valueType == "string" ? "1.2.3.4" : "1";
}

// All that reading needs, and one element more that cannot be read: the kinds of an item that reading passes over.
std::vector<std::string> itemsOf(const KFLField& row, const KFLFieldTable* table) {
  if (table == nullptr) return {valueOf(row, false)};
  std::string needed;
  for (const KFLField& inner : rowsOf(*table))
    if (inner.needsElement() && !inner.valueType.empty())
      needed += inTag(inner.elementName(), valueOf(inner, true));
  std::vector<std::string> items = {needed};
  for (const KFLField& inner : rowsOf(*table))
    if (!inner.valueType.empty() && inner.valueType != "string" && !inner.needsElement()) {
      items.push_back(needed + inTag(inner.elementName(), valueOf(inner, false)));
      break;
    }
  return items;
}

// What stands before and behind the items of a list, and one item.
struct Kind {
  const KFLRecordType* record;
  std::string before, item, behind;
};

// A tag of one class that the row takes.
std::string attributesOf(const KFLField& row, const KFLFieldTable*& table) {
  if (!row.isPolymorphic || table == nullptr) return {};
  for (const KFLDerivedTypeInfo& type : listDerivedTypes()) {
    const KFLRecordType* const record = findRecordType(type.namespaceUri, type.tag);
    if (type.base != table->record() || record == nullptr || record->elements() == nullptr) continue;
    table = record->elements();
    return " xmlns:t=\"" + type.namespaceUri +
           "\" xmlns:x=\"http://www.w3.org/2001/XMLSchema-instance\" x:type=\"t:" + type.tag + "\"";
  }
  return {};
}

void addKinds(const Kind& around, const KFLFieldTable& table, int depth, std::vector<Kind>& kinds) {
  for (const KFLField& row : rowsOf(table)) {
    const bool isContainer = row.shape == KFLFieldShape::Container;
    const KFLFieldTable* inner = row.table == nullptr ? nullptr : &row.table();
    const std::string attributes = attributesOf(row, inner);
    const std::string name(row.elementName());
    const std::string start = "<" + name + (isContainer ? "" : attributes) + ">";
    const Kind within{around.record, around.before + start, {}, "</" + name + ">" + around.behind};
    for (const std::string& item : itemsOf(row, inner)) {
      if (isContainer)
        kinds.push_back(
            {around.record, within.before, inTag(nameOf(row.itemId), item, attributes), within.behind});
      else if (row.maxElements == 0)
        kinds.push_back({around.record, around.before, inTag(name, item, attributes), around.behind});
    }
    if (!isContainer && inner != nullptr && depth > 0) addKinds(within, *inner, depth - 1, kinds);
  }
}

// As many items, with as many elements before them that nobody knows.
std::string messageOf(const Kind& kind, std::size_t count) {
  std::string xml = "<r>";
  for (std::size_t i = 0; i < count; ++i)
    xml += "<zz/>";
  xml += kind.before;
  for (std::size_t i = 0; i < count; ++i)
    xml += kind.item;
  return xml + kind.behind + "</r>";
}

double secondsFor(const Kind& kind, std::size_t count) {
  KFLMessage message;
  EXPECT_EQ(message.parse(messageOf(kind, count)), 0) << getErrorMessage();
  const std::clock_t start = std::clock();
  KFLMessageFindings findings;
  checkMessage(message.getIterator(), *kind.record, findings);
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

// Eight times as many take about eight times as long, and would take sixty times as long if each were looked for among
// all; a machine that is busy gets some more tries.
TEST(MessageTime, GrowsWithTheSizeWhateverCannotBeRead) {
  std::vector<Kind> kinds;
  for (const KFLRecordType* record : listRecordTypes())
    if (record->elements() != nullptr) addKinds({record, {}, {}, {}}, *record->elements(), 2, kinds);
  ASSERT_GT(kinds.size(), 100U);
  for (const Kind& kind : kinds) {
    double ratio = 100;
    for (int tries = 0; tries < 4 && ratio > 24; ++tries)
      ratio = secondsFor(kind, 8000) / secondsFor(kind, 1000);
    EXPECT_LT(ratio, 24) << kind.record->name() << ": " << kind.before << kind.item;
  }
}

}  // namespace
