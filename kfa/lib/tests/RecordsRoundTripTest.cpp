// One law for every record: a filled message of it is read and written back the same. The messages are the
// files of examples/messages; a comment in each names its record. A record without a message fails.
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include "MessageExamples.h"

namespace {

using KFL::KFLMessage;
using KFL::KFLMessageIterator;
using KFL::KFLRecordType;

// Keeps the library loaded: without a use of it the linker leaves it out.
[[maybe_unused]] const KFL::KFLFieldTable& (*const libraryIsUsed)() = &KFA::KFANetVEth::fields;

// Writes an object under an element that is named as the one it was read from.
KFLMessage written(const KFLRecordType& record, const void* object, KFLMessage& source) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  it.setName(source.getIterator().getName(), source.getIterator().getNamespace());
  EXPECT_EQ(record.write(it, object), 0);
  return message;
}

// The rows of a table that the message has no element for, base and member parts included.
void findMissing(const KFL::KFLFieldTable& table, const KFLMessageIterator& it,
                 std::vector<std::string>& missing) {
  for (const KFL::KFLField& row : table.rows()) {
    if (row.shape == KFL::KFLFieldShape::Inline && row.table != nullptr) {
      findMissing(row.table(), it, missing);
    } else if (!row.id.isEmpty() && !it.hasChild(row.id)) {
      missing.push_back(row.id.number() != 0 ? std::to_string(row.id.number()) : std::string(row.id.name()));
    }
  }
}

TEST(RecordsRoundTrip, EveryRecordHasAMessageThatHoldsEachOfItsFields) {
  for (const KFLRecordType* record : KFL::listRecordTypes()) {
    SCOPED_TRACE(record->name());
    const auto [first, last] = examples().equal_range(record);
    EXPECT_NE(first, last) << "no message in examples/messages names this record";
    for (auto at = first; at != last && record->table() != nullptr; ++at) {
      KFLMessage message;
      ASSERT_EQ(message.parse(at->second.xml), 0) << at->second.file << ": " << KFL::getErrorMessage();
      std::vector<std::string> missing;
      findMissing(*record->table(), message.getIterator(), missing);
      for (const std::string& element : missing)
        ADD_FAILURE() << at->second.file << " lacks " << element;
    }
  }
}

TEST(RecordsRoundTrip, ReadAndWrittenIsTheSame) {
  for (const auto& [record, example] : examples()) {
    SCOPED_TRACE(example.file);
    if (record == nullptr) {
      ADD_FAILURE() << "names no record";
      continue;
    }
    KFLMessage message;
    ASSERT_EQ(message.parse(example.xml), 0) << KFL::getErrorMessage();
    const KFLRecordType::Object object = record->create();
    EXPECT_EQ(record->read(message.getIterator(), object.get()), 0) << KFL::getErrorMessage();
    KFLMessage copy = written(*record, object.get(), message);
    EXPECT_TRUE(copy.getIterator().isEqualTree(message.getIterator())) << copy.toString();

    KFLMessage reread;
    ASSERT_EQ(reread.parse(copy.toString()), 0) << KFL::getErrorMessage();
    EXPECT_TRUE(reread.getIterator().isEqualTree(message.getIterator())) << reread.toString();
  }
}

TEST(RecordsRoundTrip, TypeTagFindsTheRecord) {
  for (const auto& [record, example] : examples()) {
    if (record == nullptr || *record->typeTag() == '\0') continue;
    SCOPED_TRACE(example.file);
    KFLMessage message;
    ASSERT_EQ(message.parse(example.xml), 0);
    const KFLMessageIterator it = message.getIterator();
    const KFLRecordType* found = KFL::findRecordType(it.getTypeNamespace(), it.getTypeTag());
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found->typeTag(), record->typeTag());
  }
}

// A record that lacks everything is read without harm, whatever the result, and can be written.
TEST(RecordsRoundTrip, EmptyElementIsHarmless) {
  for (const KFLRecordType* record : KFL::listRecordTypes()) {
    SCOPED_TRACE(record->name());
    KFLMessage empty("empty");
    const KFLRecordType::Object object = record->create();
    record->read(empty.getIterator(), object.get());
    KFLMessage message;
    KFLMessageIterator it = message.getIterator();
    EXPECT_EQ(record->write(it, object.get()), 0);
  }
}

// Reads the record's example with all elements of one name taken out, or replaced by one that holds "?".
int readDamaged(const KFLRecordType& record, const Example& example, const std::string& name,
                bool isReplaced) {
  KFLMessage message;
  EXPECT_EQ(message.parse(example.xml), 0);
  KFLMessageIterator it = message.getIterator();
  it.removeChildren(name);
  if (isReplaced) it.putValue(std::string("?"), name);
  return record.read(it, record.create().get());
}

std::string join(const std::set<std::string>& names) {
  std::string text;
  for (const std::string& name : names)
    text += (text.empty() ? "" : " ") + name;
  return text;
}

TEST(RecordsRoundTrip, WhichElementsMustBeThereAndSound) {
  const struct {
    const char* record;
    const char* mustBeThere;
    const char* mustBeSound;
  } rows[] = {
      {"KFACalculateHWNodeNotes", "", "eid"},
      {"KFACalculateHWNodeWarning", "", ""},
      {"KFAExcludePath", "", ""},
      {"KFALogOptions", "", ""},
      {"KFAMigratorCloneOptions", "", "eid"},
      {"KFANativeConfig", "native_config", ""},
      {"KFANetConfiguration", "", "interface_shaping ip_range shaping_class"},
      {"KFANetworkInterfaceShaping", "bandwidth net_device_id", "bandwidth"},
      {"KFANetworkShapingClass", "id", ""},
      {"KFANetworkShapingIPRange", "ip_address shaping_class_id", ""},
      {"KFAProblemReportData", "contact email name report subject", ""},
      {"KFLIPPoolAllocation", "gateway", "gateway"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.record);
    const KFLRecordType* const record = KFL::findRecordType(row.record);
    ASSERT_NE(record, nullptr);
    const Example& example = examples().find(record)->second;
    KFLMessage message;
    ASSERT_EQ(message.parse(example.xml), 0);
    std::set<std::string> missed;
    std::set<std::string> refused;
    const KFLMessageIterator it = message.getIterator();
    for (int more = it.firstChild(); more == 0; more = it.nextSibling()) {
      const std::string name(it.getName());
      if (readDamaged(*record, example, name, false) != 0) missed.insert(name);
      if (readDamaged(*record, example, name, true) != 0) refused.insert(name);
    }
    EXPECT_EQ(join(missed), row.mustBeThere);
    EXPECT_EQ(join(refused), row.mustBeSound);
  }
}

}  // namespace
