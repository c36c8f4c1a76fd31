// SPDX-License-Identifier: Apache-2.0
// Every registered record: a message is refused with a reason, or read; what was read is written, and that reads and
// writes again to an equal message, which keeps to the record's field table and of which the check finds nothing lost. An
// object that was used reads as a new one does.
// The input is the XML of a message that names its record, or bytes that choose a record and make a message of it.
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLMessage/KFLMessageCheck.h>

#include <KFAFunctionality/network/KFANetVEth.h>

#include "RecordMessages.h"

namespace {

using KFL::KFLMessage;
using KFL::KFLRecordType;
using kfl_fuzz::require;

// All records; the linker leaves the library out where nothing of it is used.
const std::vector<const KFLRecordType*>& records() {
  static const std::vector<const KFLRecordType*> all = [] {
    require(!KFA::KFANetVEth::fields().rows().empty(), "the library is there");
    return KFL::listRecordTypes();
  }();
  return all;
}

KFLMessage written(const KFLRecordType& record, const void* object) {
  KFLMessage message(record.rootName());
  auto it = message.getIterator();
  require(record.write(it, object) == 0, "what was read is written", record.name());
  return message;
}

std::string about(const KFLRecordType& record, const KFLMessage& message) {
  return std::string(record.name()) + "\n" + message.toPrettyString();
}

void requireWhole(const KFLRecordType& record, const KFLMessage& message) {
  KFL::KFLMessageFindings findings;
  require(KFL::checkMessage(message.getIterator(), record, findings) == 0, "the check reads what is written",
          about(record, message));
  require(findings.empty(), "the check finds what is written kept whole",
          findings.empty() ? "" : findings[0].path + ": " + findings[0].text + "\n" + about(record, message));
  if (record.elements() == nullptr) return;
  const std::string fault = kfl_fuzz::schemaFault(message.getIterator(), *record.elements());
  require(fault.empty(), "what is written keeps to the table", fault + "\n" + about(record, message));
}

// Two records come to rest only when they were written twice, as their headers say: a Windows update's product marks its
// summary and is not written back, and an address that is not specified is written all the same.
int writingsToRest(const KFLMessage& message) {
  const std::string text = message.toPrettyString();
  for (const char* const name : {"windows_system_update", "update_con", "update_proxy"})
    if (text.find(name) != std::string::npos) return 2;
  return 0;
}

KFLRecordType::Object readAgain(const KFLRecordType& record, const KFLMessage& message) {
  KFLRecordType::Object object = record.create();
  require(record.read(message.getIterator(), object.get()) == 0, "what is written is read",
          about(record, message));
  return object;
}

// A configuration is its message, and keeps what it cannot read.
bool holdsConfiguration(const KFLMessage& message) {
  return message.toPrettyString().find("config") != std::string::npos;
}

// Of an environment's type a sub-type that is absent stays as it was.
void requireNothingLeft(const KFLRecordType& record, const KFLMessage& message, const KFLMessage& former) {
  KFLRecordType::Object fresh = record.create();
  KFLRecordType::Object used = record.create();
  record.read(former.getIterator(), used.get());
  const int result = record.read(message.getIterator(), fresh.get());
  require(record.read(message.getIterator(), used.get()) == result, "what was read before counts for nothing",
          about(record, message));
  if (result != 0 || std::string_view(record.name()) == "KFAVPSType") return;
  require(written(record, used.get()).getIterator().isEqualTree(written(record, fresh.get()).getIterator()),
          "nothing is left of a former value", about(record, former) + about(record, message));
}

// The elements that hold a text and nothing else, by their paths.
void addTexts(const KFL::KFLMessageIterator& it, std::map<std::string, std::string>& texts) {
  if (it.countChildren() == 0) {
    if (!it.getText().empty()) texts.emplace(it.getPath(), it.getText());
    return;
  }
  for (int left = it.firstChild(); left == 0; left = it.nextSibling())
    addTexts(it, texts);
  it.leaveChild();
}

// What the schema of the record has, and a message says, is written again: a truth value that is false may be left out, and a
// Windows update has its product for itself.
void requireWritten(const KFLRecordType& record, const KFLMessage& message,
                    const KFL::KFLMessageFindings& findings) {
  const bool isOfSchema = record.elements() != nullptr &&
                          kfl_fuzz::schemaFault(message.getIterator(), *record.elements()).empty();
  if (!isOfSchema || findings.empty() || writingsToRest(message) > 0) return;
  std::map<std::string, std::string> texts;
  addTexts(message.getIterator(), texts);
  for (const auto& finding : findings) {
    const auto found = texts.find(finding.path);
    const bool isSaid = found != texts.end() && found->second != "false" && found->second != "0";
    require(!isSaid || !finding.text.ends_with("does not write it"), "what a message says is written again",
            finding.path + ": " + finding.text + "\n" + about(record, message));
  }
}

// What nobody has set is written so that it can be read, or refused with a reason.
void requireNewObject(const KFLRecordType& record) {
  KFLMessage message(record.rootName());
  auto it = message.getIterator();
  KFL::setErrorMessage("%s", "");
  if (record.write(it, record.create().get()) == 0)
    readAgain(record, message);
  else
    require(!KFL::getErrorMessage().empty(), "a refusal has a reason", record.name());
}

void check(const KFLRecordType& record, const KFLMessage& message, const KFLMessage& former) {
  KFLRecordType::Object object = record.create();
  KFL::setErrorMessage("%s", "");
  const int result = record.read(message.getIterator(), object.get());
  require(result == 0 || !KFL::getErrorMessage().empty(), "a refusal has a reason", about(record, message));
  requireNothingLeft(record, message, former);
  requireNewObject(record);
  KFL::KFLMessageFindings findings;
  require((KFL::checkMessage(message.getIterator(), record, findings) == 0) == (result == 0),
          "the check reads what the record reads", about(record, message));
  if (result != 0) return;
  requireWritten(record, message, findings);
  for (int more = writingsToRest(message); more > 0; --more)
    object = readAgain(record, written(record, object.get()));
  const KFLMessage first = written(record, object.get());
  const KFLMessage second = written(record, readAgain(record, first).get());
  require(second.getIterator().isEqualTree(first.getIterator()), "a second writing is the first",
          about(record, first) + second.toPrettyString());
  if (findings.empty() || !holdsConfiguration(message)) requireWhole(record, first);
  KFLMessage parsed;
  std::string text;
  if (first.print(text) == 0)
    require(parsed.parse(text) == 0 && parsed.getIterator().isEqualTree(first.getIterator()),
            "what is written goes through its text", text);
}

const KFLRecordType* recordOf(const KFL::KFLMessageIterator& root) {
  const std::vector<const KFLRecordType*>& all = records();
  if (const auto* const typed = KFL::findRecordType(root.getTypeNamespace(), root.getTypeTag())) return typed;
  for (const KFLRecordType* const record : all)
    if (root.getName() == record->rootName()) return record;
  return nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  KFL::setLogLevel(KFL::kLogFatal);
  const std::string_view input = kfl_fuzz::viewOf(data, size);
  KFLMessage message;
  if (input.starts_with('<')) {
    if (message.parse(std::string(input)) != 0) return 0;
    kfl_fuzz::Choices choices(input.substr(input.size() / 2));
    if (const KFLRecordType* const record = recordOf(message.getIterator()))
      check(*record, message, kfl_fuzz::randomMessage(*record, choices));
    return 0;
  }
  kfl_fuzz::Choices choices(input);
  const KFLRecordType& record = *records()[choices.below(records().size())];
  const KFLMessage made = kfl_fuzz::randomMessage(record, choices);
  std::string text;
  if (made.print(text) == 0)  // no message brings a text that XML cannot hold
    check(record, made, kfl_fuzz::randomMessage(record, choices));
  return 0;
}
