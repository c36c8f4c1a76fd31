// SPDX-License-Identifier: Apache-2.0
#include "message/MessageCheck.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <KFLMessage/KFLElementLines.h>
#include <KFLMessage/KFLRecordRegistry.h>
#include <KFLMessage/KFLTagVocabulary.h>

#include "terminal/Hint.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

[[noreturn]] void refuseRecordName(const std::string& name) {
  std::vector<std::string> names;
  for (const KFL::KFLRecordType* record : KFL::listRecordTypes())
    names.emplace_back(record->name());
  const std::string hint = hintFor(name, names);
  throw Trouble("'" + name + "' is no record; " + hint + (hint.empty() ? "" : " ") +
                "'kfactl types --records' lists them");
}

using Records = std::vector<const KFL::KFLRecordType*>;

// Those with the root's type tag: a disk and a list of such disks share one.
Records findByType(const KFL::KFLMessageIterator& root) {
  Records records;
  for (const KFL::KFLRecordType* record : KFL::listRecordTypes())
    if (root.getTypeTag() == record->typeTag() && root.getTypeNamespace() == record->namespaceUri())
      records.push_back(record);
  return records;
}

// Those whose root has this name; those of the root's namespace, where there are some.
Records findByName(const KFL::KFLMessageIterator& root) {
  Records records;
  for (const KFL::KFLRecordType* record : KFL::listRecordTypes())
    if (root.getName() == record->rootName()) records.push_back(record);
  const auto isElsewhere = [&](const KFL::KFLRecordType* record) {
    return root.getNamespace() != record->namespaceUri();
  };
  if (!std::ranges::all_of(records, isElsewhere)) std::erase_if(records, isElsewhere);
  return records;
}

// The record named, or those that the root may be.
Records findRecords(const Input& input, const KFL::KFLMessageIterator& root, const std::string& recordName) {
  if (!recordName.empty()) {
    const KFL::KFLRecordType* const named = KFL::findRecordType(recordName);
    if (named == nullptr) refuseRecordName(recordName);
    return {named};
  }
  const bool isTagged = !root.getTypeTag().empty();
  const Records records = isTagged ? findByType(root) : findByName(root);
  if (!records.empty()) return records;
  if (!isTagged)
    refuseElement(input, {root.getPath(), 0,
                          "no type tag, and no record has this name; --record NAME says which record it is"});
  refuseElement(input,
                {root.getPath(), 0,
                 "no record has the type tag " + std::string(root.getTypeTag()) + " in the namespace '" +
                     std::string(root.getTypeNamespace()) + "'; 'kfactl types --records' lists them"});
}

bool hasRow(const KFL::KFLFieldTable& table, std::string_view name) {
  return std::ranges::any_of(table.rows(), [&](const KFL::KFLField& row) {
    if (row.shape == KFL::KFLFieldShape::Inline) return row.table != nullptr && hasRow(row.table(), name);
    return name == (row.id.number() != 0 ? KFL::tagName(row.id.number()) : row.id.name());
  });
}

// The root's children that the record has a place for; one that describes none keeps whatever there is.
std::size_t countKnownChildren(const KFL::KFLMessageIterator& root, const KFL::KFLRecordType& record) {
  std::size_t count = 0;
  const KFL::KFLMessageIterator it(root);
  for (int left = it.firstChild(); left == 0; left = it.nextSibling())
    count += record.table() == nullptr || hasRow(*record.table(), it.getName());
  return count;
}

// Those that know most of the root's children: an empty list would read any of its items as itself.
Records mostFamiliar(const Records& records, const KFL::KFLMessageIterator& root) {
  Records best;
  std::size_t most = 0;
  for (const KFL::KFLRecordType* record : records) {
    const std::size_t count = countKnownChildren(root, *record);
    if (count > most) best.clear();
    most = std::max(most, count);
    if (count == most) best.push_back(record);
  }
  return best;
}

struct Attempt {
  KFL::KFLMessageFindings findings;
  KFL::KFLMessageCheckResult result;
};

}  // namespace

void parseMessage(const Input& input, KFL::KFLMessage& message) {
  if (message.parse(input.text) != 0) throwLibraryError(input.name);
}

std::string elementText(const std::string& file, std::size_t line, const std::string& path,
                        const std::string& text) {
  return file + ":" + std::to_string(line) + ": element " + path + ": " + text;
}

void refuseElement(const Input& input, const KFL::KFLMessageFinding& finding) {
  throw Trouble(
      elementText(input.name, KFL::KFLElementLines(input.text)[finding.element], finding.path, finding.text));
}

MessageCheck checkMessage(const Input& input, const std::string& recordName) {
  KFL::KFLMessage message;
  parseMessage(input, message);
  const KFL::KFLMessageIterator root = message.getIterator();
  const Records records = mostFamiliar(findRecords(input, root, recordName), root);
  std::optional<Attempt> best;
  std::optional<KFL::KFLMessageFinding> refusal;
  for (const KFL::KFLRecordType* record : records) {
    Attempt attempt;
    if (KFL::checkMessage(root, *record, attempt.findings, &attempt.result) != 0) {
      if (!refusal) refusal = attempt.findings.front();
    } else if (!best || attempt.result.lost < best->result.lost) {
      best = std::move(attempt);
    }
  }
  if (!best) refuseElement(input, *refusal);
  MessageCheck check;
  const KFL::KFLElementLines lines(input.text);
  for (KFL::KFLMessageFinding& finding : best->findings)
    check.findings.push_back({lines[finding.element], std::move(finding.path), std::move(finding.text)});
  check.written = std::move(best->result.written);
  return check;
}

}  // namespace kfactl
