// SPDX-License-Identifier: Apache-2.0
// One law for every record: a filled message of it is read and written back the same. The messages are the
// files of examples/messages; a comment in each names its record. A record without a message fails.
#include <map>
#include <set>
#include <string>
#include <string_view>
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

// Elements that a record reads and does not write back, as its header says.
const std::map<std::string_view, const char*> notWrittenBack = {{"KFAWindowsSystemUpdate", "product"}};

// The rows of a table that the message has no element for, base and member parts included.
void findMissing(const KFL::KFLFieldTable& table, const KFLMessageIterator& it,
                 std::vector<std::string>& missing) {
  for (const KFL::KFLField& row : table.rows()) {
    if (row.shape == KFL::KFLFieldShape::Inline && row.table != nullptr) {
      findMissing(row.table(), it, missing);
    } else if (!row.id.isEmpty() && !it.hasChild(row.id)) {
      missing.emplace_back(row.elementName());
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
    if (const auto lost = notWrittenBack.find(record->name()); lost != notWrittenBack.end())
      message.getIterator().removeChildren(lost->second);
    KFLMessage copy = written(*record, object.get(), message);
    EXPECT_TRUE(copy.getIterator().isEqualTree(message.getIterator())) << copy.toString();

    KFLMessage reread;
    ASSERT_EQ(reread.parse(copy.toString()), 0) << KFL::getErrorMessage();
    EXPECT_TRUE(reread.getIterator().isEqualTree(message.getIterator())) << reread.toString();
  }
}

// Below a root of another namespace every element stands where it stands in a message of its own.
TEST(RecordsRoundTrip, WrittenBelowAForeignRootItIsTheSame) {
  for (const auto& [record, example] : examples()) {
    SCOPED_TRACE(example.file);
    KFLMessage message;
    ASSERT_EQ(message.parse(example.xml), 0);
    const KFLMessageIterator source = message.getIterator();
    const KFLRecordType::Object object = record->create();
    ASSERT_EQ(record->read(source, object.get()), 0);
    KFLMessage whole;
    ASSERT_EQ(whole.parse("<foreign xmlns='urn:foreign'><before/></foreign>"), 0);
    KFLMessageIterator it = whole.getIterator();
    it.addChild("part");
    ASSERT_EQ(record->write(it, object.get()), 0);
    if (const auto lost = notWrittenBack.find(record->name()); lost != notWrittenBack.end())
      message.getIterator().removeChildren(lost->second);
    it.setName(source.getName(), source.getNamespace());
    EXPECT_TRUE(it.isEqualTree(source)) << whole.toString();
  }
}

// The elements without which a record cannot be read; each other one that its message holds may be absent.
TEST(RecordsRoundTrip, OnlyMissingMandatoryElementsFailTheRead) {
  using Names = std::set<std::string>;
  const std::map<std::string, Names> needed = {
      {"HardDisk::List::KfFS", {"disk"}},
      {"HardDisk::Loopback", {"device", "mount_point"}},
      {"HardDisk::Zloop", {}},
      {"KFACalculateHWNodeNotes", {}},
      {"KFACalculateHWNodeWarning", {}},
      {"KFAConnectionLinkInfo", {"link"}},
      {"KFAEnvCapability", {"id", "value"}},
      {"KFAExcludePath", {}},
      {"KFALogOptions", {}},
      {"KFAMigratorCloneOptions", {}},
      {"KFANativeConfig", {"native_config"}},
      {"KFANetConfiguration", {}},
      {"KFANetVEth", {"name"}},
      {"KFANetworkInterfaceShaping", {"net_device_id", "bandwidth"}},
      {"KFANetworkShapingClass", {"id"}},
      {"KFANetworkShapingIPRange", {"shaping_class_id", "ip_address"}},
      {"KFAPackage", {"name"}},
      {"KFAPackageInfo", {"name", "description", "kind", "version"}},
      {"KFAPackageVersion", {"package_version", "is_standard"}},
      {"KFAProblemReportData", {"name", "contact", "email", "subject", "report"}},
      {"KFAQoSValidation", {"kind", "parameter", "statement", "remark"}},
      {"KFAQuotaInfo", {"current", "soft", "hard", "count", "expire"}},
      {"KFAQuotaStats", {"disk_space", "diks_inodes", "ugids"}},
      {"KFARedirectService", {"id", "port", "address"}},
      {"KFATemplate", {"name"}},
      {"KFATemplateConfigInfo", {"is_standard", "name", "base_template"}},
      {"KFAUGIDQuotaGracePeriod", {"inodes", "space"}},
      {"KFAUGIDQuotaInfo", {"kind"}},
      {"KFAUGIDQuotaLimit", {"id", "inode_limit", "space_limit"}},
      {"KFAUbc", {"id", "current"}},
      {"KFAVPSType", {"kind"}},
      {"KFAVeCPULoad", {"user_time", "nice_time", "system_time", "idle_time"}},
      {"KFAVtSettings", {}},
      {"KFLDevMountInfo", {"device", "mount_point"}},
      {"KFLIPPoolAllocation", {"gateway"}},
      {"KFLQoS", {"id", "hard"}},
  };
  for (const auto& [record, example] : examples()) {
    const auto row = record == nullptr ? needed.end() : needed.find(record->name());
    if (row == needed.end()) continue;
    KFLMessage whole;
    ASSERT_EQ(whole.parse(example.xml), 0) << example.file;
    Names elements;
    const KFLMessageIterator at = whole.getIterator();
    for (int left = at.firstChild(); left == 0; left = at.nextSibling())
      elements.emplace(at.getName());
    for (const std::string& element : elements) {
      KFLMessage message(whole);
      message.getIterator().removeChildren(element);
      const KFLRecordType::Object object = record->create();
      EXPECT_EQ(record->read(message.getIterator(), object.get()), row->second.count(element) == 0 ? 0 : -1)
          << example.file << " without " << element;
    }
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

// The rows of a table, base and member parts included.
void addRows(const KFL::KFLFieldTable& table, std::vector<KFL::KFLField>& rows) {
  for (const KFL::KFLField& row : table.rows()) {
    if (row.shape == KFL::KFLFieldShape::Inline && row.table != nullptr)
      addRows(row.table(), rows);
    else
      rows.push_back(row);
  }
}

// Texts that are no value of the row's type.
std::vector<std::string> malformedFor(const KFL::KFLField& row) {
  if (row.shape != KFL::KFLFieldShape::Element) return {};
  if (row.names != nullptr) return {"no such name", "1", " "};
  if (row.valueType == "boolean") return {"", "maybe", "True", "2"};
  if (row.valueType == "int") return {"", "one", "1x", " 1", "2147483648", "-2147483649"};
  if (row.valueType == "long") return {"", "one", "0x1", "1 ", "9223372036854775808"};
  return {};
}

// Reads the record; a refusal names the element.
int readChanged(const KFLRecordType& record, const KFLMessage& message, const KFL::KFLField& row) {
  KFL::setErrorMessage("%s", "");
  const int result = record.read(message.getIterator(), record.create().get());
  const std::string root = message.getIterator().getPath();
  const std::string name(row.elementName());
  const std::string text = KFL::getErrorMessage();
  EXPECT_TRUE(result == 0 || text.starts_with(root + "/" + name) ||
              (text.starts_with(root + ": ") && text.find(name) != std::string::npos))
      << text;
  return result;
}

// A network device needs the name that its base part can do without.
bool isMandatory(const KFLRecordType& record, const KFL::KFLField& row) {
  return row.needsElement() ||
         (std::string_view(record.name()) == "KFANetVEth" && row.elementName() == "name");
}

// One element at a time is taken away or spoilt: that is the record's failure when the element is mandatory, and
// otherwise reading goes on.
TEST(RecordsRoundTrip, RefusesWhatItNeedsAndReadsOnWithoutTheRest) {
  for (const auto& [record, example] : examples()) {
    if (record == nullptr || record->table() == nullptr) continue;
    std::vector<KFL::KFLField> rows;
    addRows(*record->table(), rows);
    for (const KFL::KFLField& row : rows) {
      if (row.shape == KFL::KFLFieldShape::Special || row.id.isEmpty()) continue;
      SCOPED_TRACE(example.file + ": " + std::string(row.elementName()));
      KFLMessage message;
      ASSERT_EQ(message.parse(example.xml), 0);
      KFLMessageIterator it = message.getIterator();
      for (const std::string& text : malformedFor(row)) {
        ASSERT_EQ(it.findChild(row.id), 0);
        it.putValue(text);
        it.leaveChild();
        EXPECT_EQ(readChanged(*record, message, row), row.failsRead ? -1 : 0) << text;
      }
      it.removeChildren(row.id);
      EXPECT_EQ(readChanged(*record, message, row), isMandatory(*record, row) ? -1 : 0);
    }
  }
}

}  // namespace
