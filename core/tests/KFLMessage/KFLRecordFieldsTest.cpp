// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLRecordFields.h>

#include <gtest/gtest.h>

#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordRegistry.h>

// What tables of fields make of records is held to the laws of RecordsRoundTrip and RecordRows, over all records of the
// library, and of the fuzz target RecordFuzz.
namespace KFL {
namespace {

struct Part {
  int x = 0;
  static const KFLFieldTable& fields() {
    static constexpr KFLField rows[] = {field<Part, &Part::x>("x").required()};
    static constexpr KFLFieldTable table{"Part", "u", "partType", rows};
    return table;
  }
  using Writer = KFLRecordWriter<Part>;
  using Reader = KFLRecordReader<Part>;
};

struct Whole : Part {
  int kept = 5;
  static const KFLFieldTable& fields() {
    static constexpr KFLField rows[] = {base<Whole, Part>(), field<Whole, &Whole::kept>("kept")};
    static constexpr KFLFieldTable table{"Whole", "u", "wholeType", rows};
    return table;
  }
  using Writer = KFLRecordWriter<Whole>;
  using Reader = KFLRecordReader<Whole>;
};

TEST(KFLRecordRegistry, FindsByNameAndByTypeWhileRegistered) {
  {
    const KFLRecordRegistration<Whole> whole("Whole");
    const KFLRecordRegistration<Part> part("Part");
    const KFLRecordType* const found = findRecordType("u", "wholeType");
    ASSERT_EQ(found, &whole);
    EXPECT_EQ(findRecordType("Whole"), found);
    EXPECT_EQ(findRecordType("v", "wholeType"), nullptr);
    EXPECT_EQ(findRecordType("u", ""), nullptr);
    ASSERT_EQ(listRecordTypes().size(), 2U);
    EXPECT_STREQ(listRecordTypes()[0]->name(), "Part");

    const KFLRecordType::Object object = found->create();
    KFLMessage message;
    ASSERT_EQ(message.parse("<r><x>1</x></r>"), 0);
    KFLMessage out("r");
    KFLMessageIterator it = out.getIterator();
    EXPECT_EQ(found->read(message.getIterator(), object.get()), 0);
    EXPECT_EQ(found->write(it, object.get()), 0);
    EXPECT_EQ(it.getTypeTag(), "wholeType");
    EXPECT_TRUE(it.hasChild("kept"));
  }
  EXPECT_TRUE(listRecordTypes().empty());
}

}  // namespace
}  // namespace KFL
