// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLRecordFields.h>

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordRegistry.h>

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
  std::string name;
  std::string remark;
  KFLOptionalProperty<int> limit;
  bool enabled = false;
  std::vector<std::string> words;
  std::set<int> numbers;
  std::vector<Part> parts;
  std::map<std::string, int> counts;
  Part one;
  int kept = 5;

  static const KFLFieldTable& fields() {
    using R = Whole;
    static constexpr KFLField rows[] = {
        field<R, &R::name>(1026).required(),
        field<R, &R::remark>(1481).whenNotEmpty(),
        field<R, &R::limit>(1818),
        presence<R, &R::enabled>(1248),
        list<R, &R::words>("word"),
        list<R, &R::numbers>("number"),
        container<R, &R::parts>("parts", "part"),
        entries<R, &R::counts>("count_of", 1010, 1004),
        field<R, &R::one>("one"),
        base<R, Part>(),
        field<R, &R::kept>("kept"),
    };
    static constexpr KFLFieldTable table{"Whole", "u", "wholeType", rows};
    return table;
  }
  using Writer = KFLRecordWriter<Whole>;
  using Reader = KFLRecordReader<Whole>;
};

// The content of the root after the record was written into it.
std::string written(const Whole& record) {
  KFLMessage message("r");
  KFLMessageIterator it = message.getIterator();
  EXPECT_EQ(it.putObj(record), 0);
  it.setName("r", "u");
  const std::string text = message.toString();
  const std::size_t from = text.find('>') + 1;
  return text.substr(from, text.rfind('<') - from);
}

int read(const std::string& content, Whole& record) {
  KFLMessage message;
  EXPECT_EQ(message.parse("<r>" + content + "</r>"), 0);
  return message.getIterator().getObj(record);
}

TEST(KFLRecordFields, WritesInTheOrderOfTheRowsAndReadsTheSame) {
  Whole record;
  record.name = "n";
  EXPECT_EQ(written(record),
            "<name>n</name><parts/><one xsi:type=\"partType\"><x>0</x></one><x>0</x><kept>5</kept>");
  record.remark = "r";
  record.limit = KFLOptionalProperty<int>(0);
  record.enabled = true;
  record.words = {"b", "", "a"};  // an empty text is no item
  record.numbers = {2, 1};
  record.parts = {{3}, {4}};
  record.counts = {{"k", 7}, {"a", 8}};
  record.one.x = 6;
  record.x = 9;
  const std::string full =
      "<name>n</name><remark>r</remark><limit>0</limit><enabled/><word>b</word><word>a</word>"
      "<number>1</number><number>2</number><parts><part xsi:type=\"partType\"><x>3</x></part>"
      "<part xsi:type=\"partType\"><x>4</x></part></parts><count_of><id>a</id><count>8</count></count_of>"
      "<count_of><id>k</id><count>7</count></count_of><one xsi:type=\"partType\"><x>6</x></one><x>9</x>"
      "<kept>5</kept>";
  EXPECT_EQ(written(record), full);

  Whole again;
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  it.putObj(record);
  EXPECT_EQ(it.getObj(again), 0);
  EXPECT_EQ(written(again), full);
}

TEST(KFLRecordFields, OnlyARequiredFieldFailsTheRead) {
  const struct {
    const char* content;
    int result, kept;
    bool hasLimit;
  } rows[] = {{"<name>n</name><x>1</x><kept>6</kept><limit>1</limit>", 0, 6, true},
              {"<name>n</name><x>1</x><kept>six</kept><limit/>", 0, 5, false},
              {"<name>n</name><x>one</x><kept>6</kept>", -1, 5, false},
              {"<x>1</x><kept>6</kept><limit>1</limit>", -1, 5, false},
              {"<name/><x>1</x><number>1</number><number>no</number>", 0, 5, false}};
  for (const auto& row : rows) {
    Whole record;
    record.words = {"former"};
    record.enabled = true;
    EXPECT_EQ(read(row.content, record), row.result) << row.content;
    EXPECT_EQ(record.kept, row.kept) << row.content;
    EXPECT_EQ(record.limit.isSpecified(), row.hasLimit) << row.content;
    if (row.result == 0) {
      EXPECT_TRUE(record.words.empty() && !record.enabled) << row.content;
    }
  }
}

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
    ASSERT_EQ(message.parse("<r><name>n</name><x>1</x></r>"), 0);
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
