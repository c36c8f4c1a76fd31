// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLMessageIterator.h>

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <functional>
#include <string>
#include <utility>
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

TEST(KFLMessageIterator, FindsByNameWhateverTheNamespace) {
  const KFLMessage message = parsed("<a>x<veid>1</veid>y<veid xmlns='u'>2</veid><foo/>z</a>");
  const KFLMessageIterator it = message.getIterator();
  ASSERT_EQ(it.findChild(1002), 0);
  EXPECT_EQ(it.getText(), "1");
  ASSERT_EQ(it.findNextChild("veid"), 0);
  EXPECT_EQ(it.findNextChild(1002), -1);
  EXPECT_EQ(it.getText(), "2");
  EXPECT_EQ(it.nextSibling(), 0);
  EXPECT_EQ(it.getName(), "foo");
  EXPECT_EQ(it.nextSibling(), -1);
  it.leaveChild();
  it.leaveChild();
  EXPECT_EQ(it.getName(), "a");
  EXPECT_EQ(it.countChildren(), 3U);
  for (const char* const absent : {"", "vei", "x", "a", "#text"})
    EXPECT_EQ(it.findChild(absent), -1) << absent;
  for (const int absent : {0, 1003, 1023, -5})
    EXPECT_EQ(it.findChild(absent), -1) << absent;
  EXPECT_EQ(it.findNameKey("unheard"), 0U);
}

TEST(KFLMessageIterator, NewElementsTakeTheirNamespace) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  it.setTypeByName("t", "aType");
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

TEST(KFLMessageIterator, TheFirstTypeStays) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  std::string key = "former";
  it.getTypeName(key);
  EXPECT_EQ(key, "");
  it.setTypeByName("u", "");
  it.setTypeById(292, 119);
  it.setTypeById(292, 121);
  it.setTypeByName("u", "laterType");
  it.getTypeName(key);
  EXPECT_EQ(key, "http://kelvarium.internal/webservices/kfl/4.0.0/types:venv_configType");
}

TEST(KFLMessageIterator, ReadsNumbersAndFlagsStrictly) {
  const struct {
    bool isInt, isLong, isFlag;
    std::vector<const char*> texts;
  } rows[] = {
      {true, true, true, {"0", "1"}},
      {true, true, false, {"-1", "2147483647", "-2147483648"}},
      {false, true, false, {"2147483648", "9223372036854775807"}},
      {false, false, true, {"true", "false"}},
      {false, false, false, {"", " 1", "1 ", "+1", "1.0", "yes", "True", "0x10", "9223372036854775808"}}};
  for (const auto& row : rows) {
    for (const char* const text : row.texts) {
      KFLMessage message;
      KFLMessageIterator it = message.getIterator();
      it.putValue(text, 1018);
      int number = 77;
      long long wide = 77;
      bool flag = true;
      EXPECT_EQ(it.getValue(number, 1018), row.isInt ? 0 : -1) << text;
      EXPECT_EQ(it.getValue(wide, 1018), row.isLong ? 0 : -1) << text;
      EXPECT_EQ(it.getValue(flag, 1018), row.isFlag ? 0 : -1) << text;
      EXPECT_EQ(std::to_string(number), row.isInt ? text : "77");
      EXPECT_EQ(std::to_string(wide), row.isLong ? text : "77");
    }
  }
}

TEST(KFLMessageIterator, WritesValuesAsTheyAreRead) {
  KFLMessage message("a");
  KFLMessageIterator it = message.getIterator();
  it.putValue(static_cast<const char*>(nullptr), "s");
  EXPECT_EQ(printed(it), "<a><s/></a>");
  const std::string withNul("a\0b", 3);
  it.putValue(withNul, "z");
  std::string text;
  EXPECT_EQ(it.getValue(text, "z"), 0);
  EXPECT_EQ(it.getValue(text, "absent"), -1);
  EXPECT_EQ(text, withNul);
  it.putValue("own");
  EXPECT_EQ(it.getValue(text), 0);
  EXPECT_EQ(text, "own");
}

TEST(KFLMessageIterator, InsertsBeforeASibling) {
  KFLMessage message = parsed("<a><b/><c/></a>");
  KFLMessageIterator it = message.getIterator();
  KFLMessageIterator c = it;
  c.findChild("c");
  it.setInsertionPoint(c);
  it.putValue(1, "x");
  it.addChild("y");
  it.addEmptyChild("below");
  it.leaveChild();
  it.clearInsertionPoint();
  it.addEmptyChild("last");
  EXPECT_EQ(printed(it), "<a><b/><x>1</x><y><below/></y><c/><last/></a>");
  it.setInsertionPoint(c);
  c.removeCurrent();
  EXPECT_TRUE(c.isSameElement(it));
  it.addEmptyChild("end");
  EXPECT_EQ(printed(it), "<a><b/><x>1</x><y><below/></y><last/><end/></a>");
}

TEST(KFLMessageIterator, TextStaysInOrderWhenElementsGo) {
  using Row = std::array<const char*, 3>;
  for (const auto& [text, removed, expected] :
       {Row{"<a>1<b/>2<c/>3</a>", "b", "<a>12<c/>3</a>"}, Row{"<a>1<b/>2<c/>3</a>", "c", "<a>1<b/>23</a>"},
        Row{"<a>1<b/>2<b/>3<b/>4</a>", "b", "<a>1234</a>"}, Row{"<a><b/><c/><b/></a>", "b", "<a><c/></a>"},
        Row{"<a><b/>2</a>", "c", "<a><b/>2</a>"}}) {
    KFLMessage message = parsed(text);
    message.getIterator().removeChildren(removed);
    EXPECT_EQ(message.toString(), expected) << text;
    EXPECT_TRUE(message.getIterator().isEqualTree(parsed(expected).getIterator())) << text;
  }
}

TEST(KFLMessageIterator, AnElementWithTextOrChildrenIsNotEmpty) {
  for (const char* const text : {"<a/>", "<a><!-- x --></a>", "<a b='1'/>"})
    EXPECT_TRUE(parsed(text).getIterator().isEmptyElement()) << text;
  for (const char* const text : {"<a> </a>", "<a><b/></a>"})
    EXPECT_FALSE(parsed(text).getIterator().isEmptyElement()) << text;
}

TEST(KFLMessageIterator, RemovesAndClears) {
  KFLMessage message = parsed("<a p='1'>t<b><c/></b><b/></a>");
  KFLMessageIterator it = message.getIterator();
  it.findChild("b");
  it.clear();
  EXPECT_EQ(message.toString(), "<a p=\"1\">t<b/><b/></a>");
  it.leaveChild();
  EXPECT_EQ(it.removeChildren("absent"), 0U);
  EXPECT_EQ(it.removeChildren("b"), 2U);
  it.removeCurrent();
  EXPECT_EQ(message.toString(), "<a/>");
  std::string ns, name, value;
  EXPECT_EQ(it.getAttribute(0, ns, name, value), -1);
}

TEST(KFLMessageIterator, CopiesContentBehindWhatIsThere) {
  using Row = std::array<const char*, 3>;
  for (const auto& [from, to, expected] :
       {Row{"<s/>", "<a><b/></a>", "<a><b/></a>"},
        Row{"<s>x<c><d k='v'>1</d></c>y</s>", "<a/>", "<a>x<c><d k=\"v\">1</d></c>y</a>"},
        Row{"<s>x<c/></s>", "<a>w<b/></a>", "<a>w<b/>x<c/></a>"},
        Row{"<s xmlns='u'><veid/><odd/></s>", "<a/>", "<a><veid xmlns=\"u\"/><odd xmlns=\"u\"/></a>"},
        Row{"<s p='1' q='2'/>", "<a p='0'/>", "<a p=\"0\" q=\"2\"/>"}}) {
    KFLMessage target = parsed(to);
    EXPECT_EQ(target.getIterator().copyContent(parsed(from).getIterator()), 0);
    EXPECT_EQ(target.toString(), expected) << from;
    EXPECT_TRUE(target.getIterator().isEqualTree(parsed(expected).getIterator())) << from;
  }
  KFLMessage message = parsed("<a><b><c/></b></a>");
  KFLMessageIterator c = message.getIterator();
  c.findChild("b");
  c.findChild("c");
  EXPECT_EQ(c.copyContent(message.getIterator()), 0);
  EXPECT_EQ(message.toString(), "<a><b><c><b><c/></b></c></b></a>");
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

TEST(KFLMessageIterator, ACursorOnNoTreeIsHarmless) {
  KFLMessageIterator it;
  it.addChild("x");
  it.setTypeByName("u", "t");
  it.selectNamespace("u");
  it.removeCurrent();
  it.clear();
  it.leaveChild();
  for (const int result : {it.findChild(1002), it.findNextChild("x"), it.firstChild(), it.copyContent(it)})
    EXPECT_EQ(result, -1);
  EXPECT_FALSE(it.isValid());
  EXPECT_TRUE(it.isEmptyElement());
  EXPECT_TRUE(it.isEqualTree(KFLMessageIterator()));
}

TEST(KFLMessageIterator, UnknownNumbersAreOurOwnMistakes) {
  KFLMessage message;
  EXPECT_DEATH(message.getIterator().addChild(1003), "KFLMessageIterator");
  EXPECT_DEATH(message.getIterator().addChild(""), "KFLMessageIterator");
}

TEST(KFLMessage, CursorsKeepTheTreeAndCopiesAreIndependent) {
  KFLMessage message("a");
  KFLMessageIterator it = message.getIterator();
  it.putValue(1, 1002);
  const KFLMessage copy = message;
  {
    const KFLMessage moved = std::move(message);
    message = KFLMessage();
    EXPECT_EQ(message.toString(), "<message/>");
    EXPECT_EQ(moved.toString(), "<a><veid>1</veid></a>");
  }
  it.putValue(2, 1002);
  EXPECT_EQ(printed(it), "<a><veid>1</veid><veid>2</veid></a>");
  EXPECT_EQ(copy.toString(), "<a><veid>1</veid></a>");
}

// A configuration that is set over and over: everything that was removed is used again.
TEST(KFLMessage, AMillionSetsLeaveTheMemorySteady) {
  KFLMessage message("a");
  KFLMessageIterator it = message.getIterator();
  std::size_t steady = 0;
  for (int i = 0; i < 1'000'000; ++i) {
    if (it.findChild(1002 + i % 2 * 2) == 0) it.removeCurrent();
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

// Writes a value, and reads it back into the same type.
template <class T>
void expectWritten(T value, const std::string& text) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  EXPECT_EQ(it.putValue(value, "v"), text.empty() ? -1 : 0);
  if (text.empty()) return;
  ASSERT_EQ(it.findChild("v"), 0);
  EXPECT_EQ(it.getText(), text);
  T back{};
  EXPECT_EQ(it.getValue(back), 0);
  EXPECT_EQ(back, value);
}

TEST(KFLMessageIterator, EveryIntegerIsANumberAndOnlyABoolATruthValue) {
  expectWritten(true, "true");
  expectWritten(LLONG_MIN, "-9223372036854775808");
  expectWritten(static_cast<unsigned char>(200), "200");
  expectWritten(static_cast<signed char>(-5), "-5");
  expectWritten(static_cast<short>(-300), "-300");
  expectWritten(static_cast<unsigned short>(65535), "65535");
  expectWritten(4294967295U, "4294967295");
  expectWritten(std::size_t{3}, "3");
  expectWritten(9223372036854775807ULL, "9223372036854775807");
  expectWritten(9223372036854775808ULL, "");
  EXPECT_EQ(getErrorMessage(),
            "/message: the number of v is beyond 9223372036854775807, which a message cannot carry");
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  it.putValue(256, "v");
  unsigned char byte = 7;
  EXPECT_EQ(it.getValue(byte, "v"), -1);
  EXPECT_EQ(getErrorMessage(), "/message/v: '256' is no 8-bit number; one from 0 to 255 is wanted");
  EXPECT_EQ(byte, 7);
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
  for (const auto& row : rows) {
    setErrorMessage("%s", "former");
    EXPECT_EQ(row.call(), -1) << row.starts;
    EXPECT_TRUE(getErrorMessage().starts_with(row.starts)) << getErrorMessage();
  }
  EXPECT_EQ(printed(it), "<b>x<c/></b>");
}

// Held elements stand apart when they are removed; what is held no more is used again.
TEST(KFLMessageIterator, AHeldElementOutlivesItsRemoval) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  std::size_t steady = 0;
  for (int i = 0; i < 300; ++i) {
    it.addChild("list");
    it.addChild("one");
    it.putValue("a text that stands outside of its node", "x");
    KFLElementHold one(it);
    const KFLElementHold again(it);
    const KFLMessageIterator cursor(it);
    it.leaveChild();
    it.putValue("other", "y");
    if (i % 2 == 0)
      it.removeCurrent();
    else
      message.getIterator().clear();
    it = message.getIterator();
    it.putValue("something else, of some length, in the place of what was freed", "z");
    ASSERT_EQ(printed(cursor), "<one><x>a text that stands outside of its node</x></one>");
    cursor.leaveChild();
    ASSERT_EQ(cursor.getPath(), "/one");
    KFLElementHold moved(std::move(one));
    one = std::move(moved);
    it.clear();
    if (i == 100) steady = message.memoryUsed();
  }
  EXPECT_LE(message.memoryUsed(), steady);
  EXPECT_EQ(message.toString(), "<message/>");
}

}  // namespace
}  // namespace KFL
