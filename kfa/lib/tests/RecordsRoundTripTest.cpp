// SPDX-License-Identifier: Apache-2.0
// One law for every record: a filled message of it is read and written back the same. The messages are the
// files of examples/messages; a comment in each names its record. A record without a message fails.
#include <string_view>
#include <vector>

#include <KFAFunctionality/network/KFANetVEth.h>

#include "MessageExamples.h"

namespace {

using KFL::KFLField;
using KFL::KFLMessage;
using KFL::KFLMessageIterator;
using KFL::KFLRecordType;

// Keeps the library loaded: without a use of it the linker leaves it out.
[[maybe_unused]] const KFL::KFLFieldTable& (*const libraryIsUsed)() = &KFA::KFANetVEth::fields;

// Elements that a record reads and does not write back, as its header says.
const std::map<std::string_view, const char*> notWrittenBack = {{"KFAWindowsSystemUpdate", "product"}};

TEST(RecordsRoundTrip, EveryRecordHasAMessageThatHoldsEachOfItsFields) {
  for (const KFLRecordType* record : KFL::listRecordTypes())
    EXPECT_EQ(examples().count(record) == 0 ? record->name() : "", std::string()) << "has no example";
  forEachExample([](const KFLRecordType& record, const Example&, const KFLMessage& message) {
    if (record.table() == nullptr) return;
    visitRows(*record.table(), [&](const KFLField& row) {
      const bool isElement = row.shape != KFL::KFLFieldShape::Inline && !row.id.isEmpty();
      EXPECT_TRUE(!isElement || message.getIterator().hasChild(row.id)) << "lacks " << row.elementName();
    });
  });
}

// By itself, and below a root of another namespace, where every element stands as it does in a message of its own.
TEST(RecordsRoundTrip, ReadAndWrittenIsTheSame) {
  forEachExample([](const KFLRecordType& record, const Example&, KFLMessage& message) {
    KFLMessageIterator source = message.getIterator();
    const KFLRecordType::Object object = record.create();
    ASSERT_EQ(record.read(source, object.get()), 0) << KFL::getErrorMessage();
    const KFLRecordType* const found = KFL::findRecordType(source.getTypeNamespace(), source.getTypeTag());
    EXPECT_STREQ(found == nullptr ? "" : found->typeTag(), record.typeTag());
    if (const auto lost = notWrittenBack.find(record.name()); lost != notWrittenBack.end())
      source.removeChildren(lost->second);
    for (const char* const place : {"<r/>", "<foreign xmlns='urn:foreign'><before/></foreign>"}) {
      KFLMessage copy;
      ASSERT_EQ(copy.parse(place), 0);
      KFLMessageIterator it = copy.getIterator();
      if (it.countChildren() != 0) it.addChild("part");
      if (it.getName() == "r") it.setName(source.getName(), source.getNamespace());
      ASSERT_EQ(record.write(it, object.get()), 0);
      it.setName(source.getName(), source.getNamespace());
      EXPECT_TRUE(it.isEqualTree(source)) << copy.toString();
      std::string text;
      KFLMessage reread;
      ASSERT_EQ(it.print(text), 0);
      ASSERT_EQ(reread.parse(text), 0) << KFL::getErrorMessage();
      EXPECT_TRUE(reread.getIterator().isEqualTree(source)) << text;
      ASSERT_EQ(copy.pack(text) | reread.unpack(text), 0) << KFL::getErrorMessage();
      EXPECT_TRUE(reread.getIterator().isEqualTree(copy.getIterator())) << reread.toString();
    }
  });
}

// Texts that are no value of the row's type.
std::vector<const char*> malformedFor(const KFLField& row) {
  if (row.shape != KFL::KFLFieldShape::Element) return {};
  if (row.names != nullptr) return {"no such name", "1", " "};
  if (row.valueType == "boolean") return {"", "maybe", "True", "2"};
  if (row.valueType == "int") return {"", "one", "1x", " 1", "2147483648", "-2147483649"};
  if (row.valueType == "long") return {"", "one", "0x1", "1 ", "9223372036854775808"};
  return {};
}

// Reads the record; a refusal names the element.
int readChanged(const KFLRecordType& record, const KFLMessage& message, const KFLField& row) {
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
bool isMandatory(const KFLRecordType& record, const KFLField& row) {
  return row.needsElement() ||
         (std::string_view(record.name()) == "KFANetVEth" && row.elementName() == "name");
}

// One element at a time is taken away or spoilt: that is the record's failure when the element is mandatory, and
// otherwise reading goes on.
TEST(RecordsRoundTrip, RefusesWhatItNeedsAndReadsOnWithoutTheRest) {
  forEachExample([](const KFLRecordType& record, const Example&, const KFLMessage& whole) {
    if (record.elements() == nullptr) return;
    visitRows(*record.elements(), [&](const KFLField& row) {
      if (row.id.isEmpty() || row.shape == KFL::KFLFieldShape::Inline) return;
      SCOPED_TRACE(row.elementName());
      KFLMessage message(whole);
      KFLMessageIterator it = message.getIterator();
      for (const char* const text : malformedFor(row)) {
        if (record.table() == nullptr || row.shape == KFL::KFLFieldShape::Special) break;
        ASSERT_EQ(it.findChild(row.id), 0);
        it.putValue(text);
        it.leaveChild();
        EXPECT_EQ(readChanged(record, message, row), row.failsRead ? -1 : 0) << text;
      }
      it.removeChildren(row.id);
      EXPECT_EQ(readChanged(record, message, row), isMandatory(record, row) ? -1 : 0);
    });
  });
}

}  // namespace
