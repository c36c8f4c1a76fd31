// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLMessageIterator.h>

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {
namespace {

std::string printed(const KFLMessageIterator& it) {
  std::string out;
  return it.print(out) == 0 ? out : getErrorMessage();
}

KFLMessage parsed(const std::string& text) {
  KFLMessage message;
  EXPECT_EQ(message.parse(text), 0) << text << ": " << getErrorMessage();
  return message;
}

TEST(KFLMessageIterator, NewElementsTakeTheirNamespace) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  it.setTypeByName("u", "");
  it.setTypeByName("t", "aType");
  it.setTypeById(292, 119);  // the first one stays
  it.putValue(1, "of_type");
  it.selectNamespace("s");
  it.putValue(2, "selected");
  it.addChild("outer");
  it.selectNamespaceId(0);
  it.putValue(3, "of_parent");
  it.setTypeByName("", "untold");
  it.putValue(4, "of_parent_too");
  it.selectNamespaceId(292);
  it.addChild("numbered");
  it.selectNamespaceId(5);
  it.setItemNSType(0);
  it.addEmptyChild("again_of_parent");
  it.setItemNSType(294);
  it.addEmptyChild("moved");
  it.leaveChild();
  EXPECT_EQ(
      printed(message.getIterator()),
      "<a xmlns=\"t\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:type=\"aType\">"
      "<of_type>1</of_type><selected xmlns=\"s\">2</selected><n:outer xmlns:n=\"s\" xmlns=\"\" "
      "xsi:type=\"untold\"><of_parent xmlns=\"s\">3</of_parent><of_parent_too xmlns=\"s\">4</of_parent_too>"
      "<numbered xmlns=\"http://kelvarium.internal/webservices/kfl/4.0.0/relocator\"><again_of_parent "
      "xmlns=\"http://kelvarium.internal/webservices/kfl/4.0.0/types\"/><moved/></numbered></n:outer></a>");
}

TEST(KFLMessageIterator, TellsTreesApart) {
  const char* const different[] = {"<a/>", "<b/>", "<a>1</a>", "<a xmlns='u'/>", "<a p='1'/>", "<a p='2'/>",
                                   "<a xmlns:i='http://www.w3.org/2001/XMLSchema-instance' i:type='a'/>",
                                   // Children, their order and their depth.
                                   "<a><b/></a>", "<a><c/></a>", "<a><b/><b/></a>", "<a><b/>1</a>",
                                   "<a>1<b/></a>", "<a><b>1</b></a>", "<a><b><b/></b></a>",
                                   "<a><b xmlns='u'/></a>"};
  for (const char* const left : different) {
    for (const char* const right : different) {
      EXPECT_EQ(parsed(left).getIterator().isEqualTree(parsed(right).getIterator()), left == right)
          << left << right;
    }
  }
}

TEST(KFLMessageIterator, UnknownNumbersAreOurOwnMistakes) {
  KFLMessage message;
  EXPECT_DEATH(message.getIterator().addChild(1003), "KFLMessageIterator");
  EXPECT_DEATH(message.getIterator().addChild(""), "KFLMessageIterator");
}

// A configuration that is set over and over: everything that was removed, and is held no more, is used again.
TEST(KFLMessage, AMillionSetsLeaveTheMemorySteady) {
  KFLMessage message("a");
  KFLMessageIterator it = message.getIterator();
  KFLElementHold held;
  std::size_t steady = 0;
  for (int i = 0; i < 1'000'000; ++i) {
    if (it.findChild(1002 + i % 2 * 2) == 0) {
      held = KFLElementHold(it);
      it.removeCurrent();
    }
    it.addChild(1002 + i % 2 * 2);
    it.putValue(std::string(static_cast<std::size_t>(i * 7919LL % 600), 'x'), "odd_name");
    it.putValue(i, 1018);
    it.leaveChild();
    if (i == 10'000) steady = message.memoryUsed();
  }
  constexpr std::size_t kLongestValue = 600;
  EXPECT_LE(message.memoryUsed(), steady + kLongestValue);
  EXPECT_LT(steady, 64U * 1024U);
}

// Whether a value is written, and reads back from its text and from no other.
template <class T>
void expectWritten(T value, const std::string& text, const std::vector<std::string>& refused = {}) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  EXPECT_EQ(it.putValue(value, "v"), text.empty() ? -1 : 0);
  if (text.empty()) return;
  T back{};
  EXPECT_EQ(it.getValue(back, "v"), 0);
  EXPECT_EQ(back, value);
  ASSERT_EQ(it.findChild("v"), 0);
  EXPECT_EQ(it.getText(), text);
  for (const std::string& other : refused) {
    it.putValue(other);
    EXPECT_EQ(it.getValue(back), -1) << other;
    EXPECT_EQ(back, value);
  }
}

// How strictly numbers are read is shown where texts are (KFLText).
TEST(KFLMessageIterator, EveryIntegerIsANumberAndOnlyABoolATruthValue) {
  expectWritten(true, "true", {"", " 1", "True", "yes", "2"});
  expectWritten(LLONG_MIN, "-9223372036854775808", {"9223372036854775808", "1.0"});
  expectWritten(static_cast<unsigned char>(200), "200", {"256", "-1", "true"});
  expectWritten(static_cast<signed char>(-5), "-5", {"-129", "128", "+1"});
  expectWritten(static_cast<short>(-300), "-300", {"32768"});
  expectWritten(static_cast<unsigned short>(65535), "65535", {"65536"});
  expectWritten(INT_MAX, "2147483647", {"2147483648", "-2147483649"});
  expectWritten(4294967295U, "4294967295");
  expectWritten(std::size_t{3}, "3");
  expectWritten(9223372036854775807ULL, "9223372036854775807");
  expectWritten(std::string("a\0b", 3), std::string("a\0b", 3));
  expectWritten(9223372036854775808ULL, "");
  EXPECT_EQ(getErrorMessage(),
            "/message: the number of v is beyond 9223372036854775807, which a message cannot carry");
  KFLMessage message = parsed("<a><flag>1</flag><byte>256</byte></a>");
  KFLMessageIterator it = message.getIterator();
  bool flag = false;
  EXPECT_EQ(it.getValue(flag, "flag"), 0);
  EXPECT_TRUE(flag);
  unsigned char byte = 7;
  EXPECT_EQ(it.getValue(byte, "byte"), -1);
  EXPECT_EQ(getErrorMessage(), "/a/byte: '256' is no 8-bit number; one from 0 to 255 is wanted");
  EXPECT_EQ(it.putValue(static_cast<const char*>(nullptr)), 0);
  EXPECT_EQ(it.getText(), "");
}

struct Empty {
  struct Writer : KFLUntypedWriter {
    int operator()(KFLMessageIterator&, const Empty&) const { return 0; }
  };
  struct Reader {
    int operator()(const KFLMessageIterator&, Empty&) const { return 0; }
  };
};

struct Word {
  std::string text;
  int fromString(const std::string& from) { return from.empty() ? -1 : (text = from, 0); }
  const std::string& toString() const { return text; }
  using Writer = KFLTextWriter<Word>;
};

// What fails leaves a text of its own, which says where.
TEST(KFLMessageIterator, EveryFailureSaysWhere) {
  KFLMessage message = parsed("<a><b>1</b><b>x<c/></b></a>");
  KFLMessageIterator it = message.getIterator();
  it.findChild("b");
  it.findNextChild("b");
  KFLMessageIterator none;
  Empty object;
  int number = 0;
  std::string text;
  const struct {
    std::function<int()> call;
    std::string starts;
  } rows[] = {
      {[&] { return it.getValue(number); }, "/a/b[2]: 'x' is no 32-bit number"},
      {[&] { return it.getValue(number, 1002); }, "/a/b[2]: element veid is missing"},
      {[&] { return it.getValue(text, "d"); }, "/a/b[2]: element d is missing"},
      {[&] { return it.getObj(object, "d"); }, "/a/b[2]: element d is missing"},
      {[&] { return it.getValue(text, 999999); }, "/a/b[2]: the vocabulary has no element 999999"},
      {[&] { return it.putValue(1, 999999); }, "/a/b[2]: the vocabulary has no element 999999"},
      {[&] { return it.putObj(object, 999999); }, "/a/b[2]: the vocabulary has no element 999999"},
      {[&] { return it.addEmptyChild(999999); }, "/a/b[2]: the vocabulary has no element 999999"},
      {[&] { return it.addEmptyChild(std::string()); }, "/a/b[2]: an element without a name"},
      {[&] { return it.putObj(Word()); }, "/a/b[2]: an empty text is not read"},
      {[&] { return it.copyContent(none); }, "/a/b[2]: nothing can be copied"},
      {[&] { return none.getValue(text); }, "the cursor stands on no element"},
      {[&] { return none.putValue("v", "x"); }, "the cursor stands on no element"},
      {[&] { return none.putObj(object, "x"); }, "the cursor stands on no element"},
      {[&] { return none.putObj(object); }, "the cursor stands on no element"},
      {[&] { return none.addEmptyChild("x"); }, "the cursor stands on no element"},
      {[&] { return none.print(text); }, "the cursor stands on no element"},
  };
  none.addChild("x");
  none.setTypeByName("u", "t");
  none.selectNamespace("u");
  none.removeCurrent();
  none.clear();
  none.leaveChild();
  EXPECT_EQ(none.findChild(1002) + none.findNextChild("x") + none.firstChild(), -3);
  EXPECT_TRUE(!none.isValid() && none.isEmptyElement() && none.isEqualTree(KFLMessageIterator()));
  for (const auto& row : rows) {
    setErrorMessage("%s", "former");
    EXPECT_EQ(row.call(), -1) << row.starts;
    EXPECT_TRUE(getErrorMessage().starts_with(row.starts)) << getErrorMessage();
  }
  EXPECT_EQ(printed(it), "<b>x<c/></b>");
}

}  // namespace
}  // namespace KFL
