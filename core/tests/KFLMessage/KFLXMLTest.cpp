// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>

namespace KFL {
namespace {

#define XSI "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""

// The text that is printed after reading `text`; the error text when it is refused. That it is the same tree, and so are its
// other forms, is a law of the fuzz target MessageFuzz.
std::string reprint(const std::string& text) {
  KFLMessage message;
  std::string out;
  return message.parse(text) == 0 && message.print(out) == 0 ? out : getErrorMessage();
}

// Blank texts that come to stand beside elements mean nothing any more, wherever they come from.
TEST(KFLXML, BlankTextsAreNoneBesideElements) {
  for (const char* const text : {"<a><b> </b></a>", "<a><b> </b><c/></a>", "<a> </a>"}) {
    KFLMessage message;
    ASSERT_EQ(message.parse(text), 0);
    KFLMessageIterator it = message.getIterator();
    it.firstChild();
    it.copyContent(KFLMessage(message).getIterator());
    it.addEmptyChild("d");
    KFLMessage blank;
    ASSERT_EQ(blank.parse("<a> </a>"), 0);
    it.copyContent(blank.getIterator());
    KFLMessage again;
    ASSERT_EQ(again.parse(message.toString()), 0);
    EXPECT_TRUE(again.getIterator().isEqualTree(message.getIterator())) << message.toString();
    EXPECT_NE(reprint(message.toString()).find("<d/>"), std::string::npos);
  }
}

struct Row {
  std::string text, expected;
};

TEST(KFLXML, ReadsAndPrintsTheSameTree) {
  // What is printed stands behind " => ", where it is not what was read.
  const char* const rows[] = {
      // Elements and texts.
      "<a/>", "<?xml version='1.0' encoding='utf-8'?>\n<a/>\n<!-- behind --> => <a/>",
      "\xEF\xBB\xBF<a/> => <a/>", "<a> \t\n</a>", "<a>\n  <b>x</b>\n  <b/>\n</a>\n => <a><b>x</b><b/></a>",
      "<a>123456789</a>", "<a>x<!-- no --><?pi no?>y</a> => <a>xy</a>",
      // Characters.
      "<a>&lt;&gt;&amp;&quot;&apos;</a> => <a>&lt;&gt;&amp;\"'</a>",
      "<a><![CDATA[<x>&y;]]></a> => <a>&lt;x&gt;&amp;y;</a>",
      "<a>one\ntwo\r\nthree\rfour&#13;five&#10;</a> => <a>one\ntwo\nthree\nfour&#13;five\n</a>",
      "<a>&#x1F600;\xC3\xA9\x7F</a> => <a>\xF0\x9F\x98\x80\xC3\xA9\x7F</a>",
      "<a b='&#9;&#10;&#13;&quot;&lt;&apos; c\td'/> => <a b=\"&#9;&#10;&#13;&quot;&lt;' c d\"/>",
      "<\xC3\xA9t\xC3\xA9 \xC3\xA0=\"1\"/>",
      // Text beside elements.
      "<a>one<b/>two<c/>three</a>", "<a><b/> two <!-- --> more<c/> </a> => <a><b/> two  more<c/></a>",
      // Namespaces: any prefix is read, the default one is written.
      "<p:a xmlns:p='u'><p:b/><c/></p:a> => <a xmlns=\"u\"><b/><c xmlns=\"\"/></a>",
      "<a xmlns=\"u\"><b xmlns=\"v\"><c xmlns=\"u\"/></b><b/></a>", "<a xmlns=\"u&amp;v&quot;\"/>",
      "<xml:a xmlns='u'><b/></xml:a> => <xml:a><b xmlns=\"u\"/></xml:a>",
      // Types.
      "<a xmlns=\"u\" " XSI " xsi:type=\"t\"/>", "<a " XSI " xsi:type=\"xml:t\"/>",
      "<a " XSI "><b xmlns:p='u' xsi:type=' p:t '/></a> => <a " XSI
      "><b xmlns:t=\"u\" xsi:type=\"t:t\"/></a>",
      "<p:a xmlns:p='u' " XSI
      " xsi:type='t'><p:b/></p:a> => "
      "<n:a xmlns:n=\"u\" " XSI " xsi:type=\"t\"><b xmlns=\"u\"/></n:a>",
      "<p:a xmlns:p='u' xmlns='v' " XSI
      "><p:b xsi:type='t'/></p:a> => "
      "<a xmlns=\"u\" " XSI "><b xmlns:t=\"v\" xsi:type=\"t:t\"/></a>",
      // Other attributes.
      "<a xml:lang='de' xmlns:p='u' xmlns:q='u' xmlns:r='v' p:x='1' q:y='2' r:x='3'/> => "
      "<a xml:lang=\"de\" xmlns:a1=\"u\" a1:x=\"1\" a1:y=\"2\" xmlns:a2=\"v\" a2:x=\"3\"/>",
      "<a><b " XSI " xsi:nil='true'/></a> => <a " XSI "><b xsi:nil=\"true\"/></a>"};
  for (const std::string row : rows) {
    const std::size_t arrow = row.find(" => ");
    EXPECT_EQ(reprint(row.substr(0, arrow)), arrow == std::string::npos ? row : row.substr(arrow + 4));
  }
}

TEST(KFLXML, RefusesWithLineAndColumn) {
  const auto nested = [](int depth) {
    std::string text;
    for (int i = 0; i < 2 * depth; ++i)
      text += i < depth ? "<a>" : "</a>";
    return text;
  };
  const Row rows[] = {
      {"", "line 1, column 1: there is no root element"},
      {"<a>\n <b></a>", "line 2, column 7: the end tag does not match"},
      {"<a>\n\n", "line 3, column 1: there is no root element, or it is not closed"},
      {"<a", "line 1, column 1: a tag"},
      {"<a/><b/>", "line 1, column 5: something follows the root element"},
      {"<a>\xC3\xA9\xC3\xA9&nbsp;</a>", "line 1, column 6: an entity is not declared"},
      {"<a>&#0;</a>", "line 1, column 4: a reference names no character"},
      {"<a>\x01</a>", "line 1, column 4: this character cannot stand here"},
      {"<a>\xEF\xBF\xBF</a>", "line 1, column 4: this character cannot stand here"},
      {"<a>x\xC3(</a>", "line 1, column 5: the text is not UTF-8"},
      {std::string("\xFF\xFE<\0a\0/\0>\0", 10), "line 1, column 1: the text is not UTF-8"},
      {std::string("\0<\0a\0/\0>", 8), "line 1, column 1: the text is not UTF-8"},
      {std::string("<a>\0</a>", 8), "line 1, column 4: this character cannot stand here"},
      {"<a b='1' b='2'/>", "line 1, column 10: an attribute stands twice"},
      {"<a xmlns:p='u' xmlns:q='u' p:b='1' q:b='2'/>", "line 1, column 1: an attribute stands twice"},
      {"<a b=1/>", "line 1, column 6: this character cannot stand here"},
      {"<a><![CDATA[x", "line 1, column 14: a CDATA section is not closed"},
      {"<a xmlns:xml='u'/>", "line 1, column 1: a prefix or namespace is XML's own"},
      {"<p:a/>", "line 1, column 1: a prefix is not declared"},
      {"<a xmlns:p=''/>", "line 1, column 1: a prefix is declared without a URI"},
      {"<?xml version='1.0' encoding='ISO-8859-1'?><a/>", "line 1, column 1: another encoding is declared"},
      {"\n<?xml version='1.0'?><a/>", "line 2, column 1: the XML declaration stands late"},
      {"<!DOCTYPE a [<!ENTITY b 'c'>]><a>&b;</a>", "line 1, column 13: there is a document type declaration"},
      {"<a>\n<b " XSI " xsi:type='p:t'/></a>", "line 2, column 1: the prefix of an xsi:type is not declared"},
      {"<a " XSI "><b xmlns:p='u'/><b xsi:type='p:t'/></a>", "line 1, column 74: the prefix of an xsi:type"},
      {"<a " XSI " xsi:type='1t'/>", "line 1, column 1: an xsi:type is no name"},
      {"<a xmlns:p='u' " XSI " xsi:type='p:t:t'/>", "line 1, column 1: an xsi:type is no name"},
      {nested(257), "line 1, column 769: elements are nested too deeply; 256 levels are taken"},
      {nested(100'000), "line 1, column 769: elements are nested too deeply"},
  };
  KFLMessage message;
  ASSERT_EQ(message.parse("<kept/>"), 0);
  for (const Row& row : rows) {
    EXPECT_EQ(message.parse(row.text), -1) << row.text;
    EXPECT_EQ(getErrorMessage().substr(0, row.expected.size()), row.expected) << row.text;
    EXPECT_EQ(message.toString(), "<kept/>");
  }
  EXPECT_EQ(message.parse(nested(256)), 0);
}

TEST(KFLXML, RefusesLongTexts) {
  const std::size_t limit = KFLMessage::getSizeLimit();
  KFLMessage::setSizeLimit(8);
  EXPECT_EQ(KFLMessage().parse("<abcde/>"), 0);
  EXPECT_EQ(reprint("<abcdef/>"), "line 1, column 1: the text has 9 bytes; at most 8 are taken");
  EXPECT_EQ(KFLMessage().unpack("123456789"), -1);
  EXPECT_EQ(getErrorMessage(), "byte 0: there are 9 bytes; at most 8 are taken");
  KFLMessage::setSizeLimit(limit);
}

// Texts that arrive in several pieces: longer than what the parser is handed at once, and broken by references.
TEST(KFLXML, KeepsLongTexts) {
  std::string value(17 << 20, 'x');
  for (std::size_t i = 0; i < value.size(); i += 4099)
    value[i] = "&\n<\r>"[i % 5];
  KFLMessage message;
  message.getIterator().putValue(value, 1496);
  message.getIterator().putValue(std::string(300, 'y'), 1002);
  KFLMessage again;
  ASSERT_EQ(again.parse(message.toString()), 0);
  EXPECT_TRUE(again.getIterator().isEqualTree(message.getIterator()));
  std::string read;
  EXPECT_EQ(again.getIterator().getValue(read, 1496), 0);
  EXPECT_TRUE(read == value);
}

TEST(KFLXML, PrintRefusesWhatXmlCannotCarry) {
  const struct {
    std::string name, namespaceUri, tag, value;
    std::string error;  // empty: it can be printed and read again
  } cases[] = {
      {"a", "", "", "tab\t newline\n return\r \xEF\xBF\xBD \xED\x9F\xBF \xF4\x8F\xBF\xBF", ""},
      {"a", "u\n\"<", "tType", "", ""},
      {"a", "", "", std::string("a\0b", 3),
       "/m/x/a[2]: its text, namespace or attribute holds a control character"},
      {"a", "", "", "caf\xE9", "/m/x/a[2]: its text, namespace or attribute is not UTF-8"},
      {"a", "", "", "12345678\xEF\xBF\xBE", "/m/x/a[2]: its text, namespace or attribute holds U+FFFE"},
      {"a", "\x02", "", "", "/m/x/a[2]: its text, namespace or attribute holds a control character"},
      {"a", "http://www.w3.org/2000/xmlns/", "", "", "/m/x/a[2]: its namespace is XML's own"},
      {"a", "", "no tag", "", "/m/x/a[2]: its type tag is no name"},
      {"1a", "", "", "", "/m/x/1a: its name is none in XML"},
      {"a:b", "", "", "", "/m/x/a:b: its name is none in XML"},
      {"\xC3\x97", "", "", "", "/m/x/\xC3\x97: its name is none in XML"}};
  for (const auto& row : cases) {
    KFLMessage message("m");
    KFLMessageIterator it = message.getIterator();
    it.addChild("x");
    it.addEmptyChild("a");
    it.addChild("a");
    it.setName(row.name, row.namespaceUri);
    it.setTypeByName("t", row.tag);
    it.putValue(row.value);
    std::string out = "former";
    EXPECT_EQ(message.print(out), row.error.empty() ? 0 : -1) << row.name << row.value;
    KFLMessage again;
    std::string packed = "former";
    if (row.error.empty()) {
      ASSERT_EQ(again.parse(out), 0) << out << getErrorMessage();
      EXPECT_TRUE(again.getIterator().isEqualTree(message.getIterator())) << out;
      ASSERT_EQ(message.pack(packed) | again.unpack(packed), 0) << getErrorMessage();
      EXPECT_TRUE(again.getIterator().isEqualTree(message.getIterator())) << out;
    } else {
      EXPECT_TRUE(getErrorMessage().starts_with(row.error)) << getErrorMessage();
      EXPECT_EQ(message.pack(packed), -1);
      EXPECT_EQ(packed, "");
      EXPECT_TRUE(getErrorMessage().starts_with(row.error)) << getErrorMessage();
      EXPECT_EQ(out + message.toString(), "");
    }
  }
}

// Texts are scanned by words: what needs an escape is found at every place of one.
TEST(KFLXML, EscapesAtEveryPosition) {
  const Row specials[] = {
      {"&", "&amp;"},       {"<", "&lt;"},   {">", "&gt;"}, {"\r", "&#13;"}, {"\n", "\n"},
      {"\"", "\""},         {"\x1F", ""},    {"\xC3", ""},  {"=", "="},      {"\xC3\xBE", "\xC3\xBE"},
      {"\xEF\xBF\xBF", ""}, {"\x7F", "\x7F"}};
  for (std::size_t length = 0; length < 26; ++length) {
    for (std::size_t at = 0; at <= length; ++at) {
      for (const Row& special : specials) {
        std::string value(length, 'a');
        value.insert(at, special.text);
        std::string expected(length, 'a');
        expected.insert(at, special.expected).insert(0, "<m><x>").append("</x></m>");
        KFLMessage message("m");
        message.getIterator().putValue(value, "x");
        ASSERT_EQ(message.toString(), special.expected.empty() ? "" : expected);
      }
    }
  }
}

TEST(KFLXML, AnUnnamedRootIsNamedAfterItsType) {
  for (const auto& [type, name] : {std::pair<std::string, std::string>("venv_configType", "venv_config"),
                                   {"ct_zloop_disk", "ct_zloop_disk"},
                                   {"Type", "Type"},
                                   {"", "message"}}) {
    KFLMessage message;
    message.getIterator().setTypeByName("u", type);
    const std::string typed = " xmlns=\"u\" " XSI " xsi:type=\"" + type + "\"";
    EXPECT_EQ(message.toString(), "<" + name + (type.empty() ? "" : typed) + "/>");
    KFLMessage again;
    ASSERT_EQ(again.parse(message.toString()), 0);
    EXPECT_TRUE(message.getIterator().isEqualTree(again.getIterator()));
    EXPECT_TRUE(again.getIterator().isEqualTree(message.getIterator()));
    std::string packed;
    ASSERT_EQ(message.pack(packed) | again.unpack(packed), 0) << getErrorMessage();
    EXPECT_EQ(again.toString(), message.toString());
  }
}

TEST(KFLXML, IndentsElementsThatHoldElementsOnly) {
  KFLMessage message;
  ASSERT_EQ(message.parse("<a><b><c>1</c><d>x<e/></d></b><f/><g> </g></a>"), 0);
  EXPECT_EQ(message.toPrettyString(),
            "<a>\n  <b>\n    <c>1</c>\n    <d>x<e/></d>\n  </b>\n  <f/>\n  <g> </g>\n</a>\n");
}

// Deeper than a text may be, through the cursor: printing, copying, comparing and freeing know no depth.
TEST(KFLXML, DepthCostsNoStack) {
  KFLMessage message("a");
  KFLMessageIterator it = message.getIterator();
  constexpr int kDepth = 1'000'000;
  for (int i = 0; i < kDepth; ++i)
    it.addChild("a");
  std::string out;
  ASSERT_EQ(message.print(out), 0);
  EXPECT_EQ(out.size(), std::size_t{7} * kDepth + 4);
  KFLMessage copy = message;
  EXPECT_TRUE(copy.getIterator().isEqualTree(message.getIterator()));
  copy.getIterator().removeCurrent();
  EXPECT_EQ(copy.toString(), "<a/>");
}

}  // namespace
}  // namespace KFL
