// SPDX-License-Identifier: Apache-2.0
// The packed form byte by byte. That every tree goes through it unchanged, and what is spoilt is refused or a tree, is a law
// of the fuzz target MessageFuzz.
#include <gtest/gtest.h>

#include <string>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>

namespace KFL {
namespace {

using namespace std::string_literals;

// The text of what a packed form holds; the error text when it is refused.
std::string unpacked(const std::string& packed) {
  KFLMessage message("former");
  if (message.unpack(packed) == 0) return message.toString();
  EXPECT_EQ(message.toString(), "<former/>");
  return getErrorMessage();
}

const std::string kSpellings = "\x01\x03\x01"s + "a" + "\x01" + "b" + "\x03" + "urn";
const std::string kDeep = [] {
  std::string nodes;
  for (int i = 0; i < 256; ++i)
    nodes += "\x06\x00"s;
  return kSpellings + nodes;
}();

TEST(KFLPackedMessage, IsReadByteByByte) {
  struct Row {
    std::string packed, expected;
  };
  const Row rows[] = {
      {"\x04\x00"s, "<a/>"},
      {"\x04\x02xy", "<a>xy</a>"},
      {"\x06\x01x\x08\x00\x01\x01y\x08\x01z\x00"s, "<a>x<b/>y<b>z</b></a>"},
      {"\x07\x03\x00\x00\x00\x08\x00\x00"s, "<a xmlns=\"urn\"><b/></a>"},
      {"\x07\x03\x02\x00\x00\x00\x09\x00\x01\x03\x00\x00\x00"s,
       "<n:a xmlns:n=\"urn\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:type=\"b\">"
       "<b xmlns:t=\"urn\" xsi:type=\"t:a\"/></n:a>"},
      {"\x05\x00\x00\x02\x02\x00\x01x\x02\x03\x00\x00"s, "<a b=\"x\" xmlns:a1=\"urn\" a1:b=\"\"/>"},
      // White space between elements means nothing.
      {"\x06\x01 \x01\x01\n\x08\x01 \x01\x02 y\x00"s, "<a><b> </b> y</a>"},
      {"\x84\x00\x80\x00"s, "<a/>"},
      {"", "byte 10: the message ends within a number"},
      {"\x04", "byte 11: the message ends within a number"},
      {"\x04\x02x", "byte 12: the message ends within a text"},
      {"\x04\x00\x04\x00"s, "byte 12: something follows"},
      {"\x00"s, "byte 11: there is no root"},
      {"\x01\x01x", "byte 11: there is no root"},
      {"\x06\x00\x02"s, "byte 13: this is neither"},
      {"\x06\x00\x08\x00"s, "byte 14: the message ends within a number"},
      {"\x10\x00"s, "byte 11: the message has no such spelling"},
      {"\x05\x04", "byte 12: the message has no such spelling"},
      {"\x84\x80\x80\x80\x10", "byte 14: a number has more than 32 bits"},
      {"\x04\x01\x02", "byte 13: holds a control character"},
      {"\x04\x01\xE9", "byte 13: is not UTF-8"},
      {"\x05\x00\x00\x02\x02\x00\x01x\x02\x00\x00\x00"s, "byte 21: an attribute stands twice"},
  };
  // The same with other spellings.
  const Row whole[] = {
      {"\x01\x02\x01"
       "1\x01u\x04\x00"s,
       "byte 7: a name is none in XML"},
      {"\x01\x02\x00\x01u\x04\x00"s, "byte 3: a spelling is empty"},
      {"\x01\x02\x1Dhttp://www.w3.org/2000/xmlns/\x01u\x09\x01"s, "byte 36: a namespace is XML's own"},
      {"\x01\x02\x05xmlns\x01u\x09\x00\x00\x01\x01\x00\x00\x00"s, "byte 17: an attribute is XML's own"},
      {"\x02", "byte 0: this is "},
      {"\x01\xFF\xFF\x03", "byte 4: the message ends within its s"},
      {kDeep + "\x04\x00"s, "byte 523: elements are nes"},
  };
  const auto expectStart = [](const std::string& packed, const std::string& expected) {
    const std::string text = unpacked(packed);
    EXPECT_EQ(text.substr(0, expected.size()), expected) << text;
  };
  for (const Row& row : rows)
    expectStart(kSpellings + row.packed, row.expected);
  for (const Row& row : whole)
    expectStart(row.packed, row.expected);
  EXPECT_EQ(unpacked(kDeep + std::string(256, '\0')).size(), 255 * 7 + 4);
}

}  // namespace
}  // namespace KFL
