// SPDX-License-Identifier: Apache-2.0
#include "message/MessageCheck.h"

#include <algorithm>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLRecordRegistry.h>
#include <KFLMessage/KFLTagVocabulary.h>

#include "environments/Elements.h"
#include "environments/RecordView.h"
#include "terminal/Hint.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

// Texts that say the same: numbers and truth values in another spelling.
bool isSameValue(std::string_view a, std::string_view b) {
  if (a == b) return true;
  long long first = 0;
  long long second = 0;
  if (KFL::parseInteger(a, first) == 0 && KFL::parseInteger(b, second) == 0) return first == second;
  const auto isTrue = [](std::string_view text) { return text == "1" || text == "true"; };
  const auto isFalse = [](std::string_view text) { return text == "0" || text == "false"; };
  return (isTrue(a) && isTrue(b)) || (isFalse(a) && isFalse(b));
}

// As it stands between the tags of a record that has no elements left.
bool isBlank(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

// What is wrong with an element, by its index.
using Findings = std::multimap<std::size_t, std::string>;

// Compares what was read with what was written. Children are held against children of the same name: first those that
// are equal, wherever they stand, then the others in their order.
class Comparison {
 public:
  Comparison(const Elements& source, const Elements& written) : source_(source), written_(written) {}

  const Findings& run() {
    pairs_.emplace_back(0, 0);
    while (!pairs_.empty()) {
      const auto [a, b] = pairs_.back();
      pairs_.pop_back();
      compareValues(a, b);
      pairChildren(a, b);
    }
    return lost_;
  }

  // The number of elements at fault; one that is not kept counts with all below it.
  std::size_t getLoss() const { return lost_.size() + lostBelow_; }

 private:
  void compareValues(std::size_t a, std::size_t b) {
    const Element& from = source_[a];
    const Element& to = written_[b];
    if (!isSameValue(from.text, to.text) && !(to.text.empty() && isBlank(from.text)))
      lost_.emplace(a, "'" + std::string(from.text) + "' is written as '" + std::string(to.text) + "'");
    if (from.attributes != to.attributes) lost_.emplace(a, "not all attributes are kept:" + from.attributes);
    if (!from.type.empty() && from.type != to.type)
      lost_.emplace(a, "type " + std::string(from.type) + " is " +
                           (to.type.empty() ? "not kept" : "written as " + std::string(to.type)));
  }

  void pairChildren(std::size_t a, std::size_t b) {
    std::unordered_multimap<std::uint64_t, std::size_t> equal;
    for (std::size_t child = written_[b].firstChild; child != kNoElement; child = written_[child].nextSibling)
      equal.emplace(written_[child].hash, child);
    std::vector<std::size_t> unequal;
    for (std::size_t child = source_[a].firstChild; child != kNoElement; child = source_[child].nextSibling) {
      const auto same = equal.find(source_[child].hash);
      if (same != equal.end())
        equal.erase(same);
      else
        unequal.push_back(child);
    }
    if (unequal.empty()) return;

    std::vector<std::size_t> rest;
    for (const auto& entry : equal)
      rest.push_back(entry.second);
    std::sort(rest.rbegin(), rest.rend());
    std::unordered_map<std::string_view, std::vector<std::size_t>> byName;
    for (const std::size_t child : rest)
      byName[written_[child].name].push_back(child);
    for (const std::size_t child : unequal) {
      std::vector<std::size_t>& candidates = byName[source_[child].name];
      if (candidates.empty()) {
        lost_.emplace(child, "not kept");
        lostBelow_ += countBelow(child);
      } else {
        pairs_.emplace_back(child, candidates.back());
        candidates.pop_back();
      }
    }
  }

  // Elements are in document order: those below end where the next one begins that is not below.
  std::size_t countBelow(std::size_t index) const {
    std::size_t at = index;
    while (at != kNoElement && source_[at].nextSibling == kNoElement)
      at = source_[at].parent;
    const std::size_t end = at == kNoElement ? source_.size() : source_[at].nextSibling;
    return end - index - 1;
  }

  const Elements& source_;
  const Elements& written_;
  std::vector<std::pair<std::size_t, std::size_t>> pairs_;
  Findings lost_;
  std::size_t lostBelow_ = 0;
};

// Whether the element, or one that it stands in, has a finding.
bool isInside(const Findings& findings, const Elements& source, std::size_t index) {
  while (index != kNoElement && findings.count(index) == 0)
    index = source[index].parent;
  return index != kNoElement;
}

// Says why what was lost could not be read. A configuration, wherever it stands, keeps also what it cannot read or does
// not know, so each fault is a finding, kept or not.
void addReasons(Findings& findings, const Elements& source, const KFL::KFLRecordType& record) {
  const KFL::KFLFieldTable* const table = record.elements();
  for (const ElementFault& fault : findFaults(source, table, FaultScope::Any)) {
    const auto lost = findings.find(fault.index);
    if (lost != findings.end())
      lost->second += ": " + fault.text;
    else
      findings.emplace(fault.index, fault.text);
  }
  for (const std::size_t index : findUnknown(source, table))
    if (!isInside(findings, source, index)) findings.emplace(index, "not known");
}

[[noreturn]] void refuseRecordName(const std::string& name) {
  std::vector<std::string> names;
  for (const KFL::KFLRecordType* record : KFL::listRecordTypes())
    names.emplace_back(record->name());
  const std::string hint = hintFor(name, names);
  throw Trouble("'" + name + "' is no record; " + hint + (hint.empty() ? "" : " ") +
                "'kfactl types --records' lists them");
}

using Records = std::vector<const KFL::KFLRecordType*>;

// The record named, or those that have the root's type tag: a disk and a list of such disks share one.
Records findRecords(const Input& input, const KFL::KFLMessageIterator& root, const std::string& recordName) {
  if (!recordName.empty()) {
    const KFL::KFLRecordType* const named = KFL::findRecordType(recordName);
    if (named == nullptr) refuseRecordName(recordName);
    return {named};
  }
  const std::string path = "/" + std::string(root.getName());
  const std::size_t line = lineOfElement(input.text, 0);
  if (root.getTypeTag().empty())
    throw Trouble(elementText(input.name, line, path, "no type tag; --record NAME says which record it is"));
  Records records;
  for (const KFL::KFLRecordType* record : KFL::listRecordTypes())
    if (root.getTypeTag() == record->typeTag() && root.getTypeNamespace() == record->namespaceUri())
      records.push_back(record);
  if (!records.empty()) return records;
  throw Trouble(elementText(input.name, line, path,
                            "no record has the type tag " + std::string(root.getTypeTag()) +
                                " in the namespace '" + std::string(root.getTypeNamespace()) +
                                "'; 'kfactl types --records' lists them"));
}

bool hasRow(const KFL::KFLFieldTable& table, std::string_view name) {
  return std::ranges::any_of(table.rows(), [&](const KFL::KFLField& row) {
    if (row.shape == KFL::KFLFieldShape::Inline) return row.table != nullptr && hasRow(row.table(), name);
    return name == (row.id.number() != 0 ? KFL::tagName(row.id.number()) : row.id.name());
  });
}

// The root's children that the record has a place for; one without a table keeps whatever there is.
std::size_t countKnownChildren(const Elements& elements, const KFL::KFLRecordType& record) {
  std::size_t count = 0;
  for (std::size_t child = elements[0].firstChild; child != kNoElement; child = elements[child].nextSibling)
    count += record.table() == nullptr || hasRow(*record.table(), elements[child].name);
  return count;
}

// Those that know most of the root's children: an empty list would read any of its items as itself.
Records mostFamiliar(const Records& records, const KFL::KFLMessageIterator& root) {
  const Elements elements(root);
  Records best;
  std::size_t most = 0;
  for (const KFL::KFLRecordType* record : records) {
    const std::size_t count = countKnownChildren(elements, *record);
    if (count > most) best.clear();
    most = std::max(most, count);
    if (count == most) best.push_back(record);
  }
  return best;
}

[[noreturn]] void refuseMessage(const Input& input, const KFL::KFLMessageIterator& root,
                                const KFL::KFLRecordType& record) {
  ElementFault fault = findFault(root, record.elements(), FaultScope::Required);
  if (fault.path.empty()) fault = {"/" + std::string(root.getName()), 0, refusalOf(root, record)};
  throw Trouble(elementText(input.name, lineOfElement(input.text, fault.index), fault.path, fault.text));
}

struct Attempt {
  MessageCheck check;
  std::size_t loss = 0;
};

// Reads the message as one record; false when it cannot be read.
bool checkAs(const Input& input, const KFL::KFLMessageIterator& root, const KFL::KFLRecordType& record,
             Attempt& attempt) {
  const KFL::KFLRecordType::Object object = record.create();
  if (record.read(root, object.get()) != 0) return false;
  MessageCheck& check = attempt.check;
  check.written = KFL::KFLMessage(std::string(root.getName()));
  KFL::KFLMessageIterator it = check.written.getIterator();
  if (record.write(it, object.get()) != 0)
    throw Trouble(input.name + ": " + record.name() + " was read but cannot be written");
  const Elements source(root);
  const Elements written(check.written.getIterator());
  Comparison comparison(source, written);
  Findings findings = comparison.run();
  attempt.loss = comparison.getLoss();
  addReasons(findings, source, record);
  for (const auto& [index, text] : findings)
    check.findings.push_back({lineOfElement(input.text, index), source.path(index), text});
  return true;
}

}  // namespace

void parseMessage(const Input& input, KFL::KFLMessage& message) {
  if (message.parse(input.text) != 0) throwLibraryError(input.name);
}

std::string elementText(const std::string& file, std::size_t line, const std::string& path,
                        const std::string& text) {
  return file + ":" + std::to_string(line) + ": element " + path + ": " + text;
}

MessageCheck checkMessage(const Input& input, const std::string& recordName) {
  KFL::KFLMessage message;
  parseMessage(input, message);
  const KFL::KFLMessageIterator root = message.getIterator();
  const Records records = mostFamiliar(findRecords(input, root, recordName), root);
  std::optional<Attempt> best;
  for (const KFL::KFLRecordType* record : records) {
    Attempt attempt;
    if (checkAs(input, root, *record, attempt) && (!best || attempt.loss < best->loss))
      best = std::move(attempt);
  }
  if (!best) refuseMessage(input, root, *records.front());
  return std::move(best->check);
}

}  // namespace kfactl
