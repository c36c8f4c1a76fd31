// SPDX-License-Identifier: Apache-2.0
// Addresses: which texts are addresses, what their parts are, and that every text is kept.
#include <array>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KFLFunctionality/KFLIPAddress.h>
#include <KFLFunctionality/KFLIPv6.h>

namespace {

using KFL::KFLIPAddress;
using KFL::KFLIPv4;
using KFL::KFLIPv6;

enum Kind { None, V4, V6 };

struct Row {
  const char* text;
  Kind kind;
  int prefix;
  const char* address;
};

constexpr Row kRows[] = {{"10.0.0.5", V4, -1, "10.0.0.5"},
                         {"10.0.0.5/0", V4, 0, "10.0.0.5"},
                         {"10.0.0.5/32", V4, 32, "10.0.0.5"},
                         {"10.0.0.5/255.255.240.0", V4, 20, "10.0.0.5"},
                         {"10.0.0.5/255.255.255.255", V4, 32, "10.0.0.5"},
                         {"10.0.0.5/0.0.0.0", V4, 0, "10.0.0.5"},
                         {"fe80::1", V6, -1, "fe80::1"},
                         {"FE80:0:0::1/128", V6, 128, "fe80::1"},
                         {"fe80::1/ffff:ffff::", V6, 32, "fe80::1"},
                         {"::ffff:10.0.0.1", V6, -1, "::ffff:10.0.0.1"}};

const char* const kNearMisses[] = {
    "", "dhcp", "10.0.0", "10.0.0.256", "10.0.0.5 ", "010.0.0.5", "fe80::1%eth0", "fe80::1::2",
    "1:2:3:4:5:6:7:8:9",
    // Prefix lengths and netmasks.
    "10.0.0.5/", "10.0.0.5/33", "10.0.0.5/-1", "10.0.0.5/4294967320", "fe80::1/129", "10.0.0.5/24/24",
    "10.0.0.5/255.0.255.0", "10.0.0.5/255.254.1.0", "10.0.0.5/ffff::", "fe80::1/255.255.0.0",
    "a long text that is no address, longer than the longest address there is"};

TEST(KFLIPAddress, TextsAreKeptAndUnderstood) {
  std::vector<Row> rows(std::begin(kRows), std::end(kRows));
  for (const char* const text : kNearMisses)
    rows.push_back({text, None, -1, ""});
  for (const auto& [text, kind, prefix, expected] : rows) {
    SCOPED_TRACE(text);
    const KFLIPAddress address(text);
    EXPECT_EQ(address.toString(), text);
    EXPECT_EQ(address.toStringWithNetwork(), text);
    EXPECT_EQ(address.isValid(), kind != None);
    EXPECT_EQ(address.isIPv6(), kind == V6);
    EXPECT_EQ(address.getPrefixLength(), prefix);
    ASSERT_EQ(address.getIPv4().has_value(), kind == V4);
    ASSERT_EQ(address.getIPv6().has_value(), kind == V6);
    EXPECT_EQ(kind == V4   ? address.getIPv4()->toString()
              : kind == V6 ? address.getIPv6()->toString()
                           : "",
              expected);
  }
}

TEST(KFLIPAddress, TextWithANulByteIsNoAddress) {
  EXPECT_FALSE(KFLIPAddress(std::string("10.0.0.5\0", 9)).isValid());
  EXPECT_FALSE(KFLIPAddress(std::string("10.0.0.5/255.0.0.0\0x", 20)).isValid());
}

TEST(KFLIPv4, RefusedTextLeavesTheAddress) {
  KFLIPv4 address("nonsense");
  EXPECT_TRUE(address.isAny());
  EXPECT_EQ(address.fromString("192.168.0.1"), 0);
  EXPECT_EQ(address.fromString("10.0.0.1.2"), -1);
  EXPECT_EQ(address.toString(), "192.168.0.1");
}

TEST(KFLIPv6, ResemblingLooksAtTheAddressPartAlone) {
  for (const char* text : {"fe80::1", "::", "::1/64", "a:b", "10.0.0.1:80", ":"})
    EXPECT_TRUE(KFLIPv6::isResembling(text)) << text;
  for (const char* text : {"10.0.0.1", "10.0.0.1/24", "10.0.0.1/ff::", "dhcp", "", "/:"})
    EXPECT_FALSE(KFLIPv6::isResembling(text)) << text;
}

TEST(KFLIPv6, CarriesIPv4WhenCompatible) {
  using Row3 = std::array<const char*, 3>;
  for (const auto& [text, embedded, formatted] :
       {Row3{"::10.0.0.1", "10.0.0.1", "10.0.0.1"}, Row3{"::0.0.0.2", "0.0.0.2", "0.0.0.2"},
        Row3{"::", "", "::"}, Row3{"::1", "", "::1"}, Row3{"::ffff:10.0.0.1", "", "::ffff:10.0.0.1"},
        Row3{"fe80::10.0.0.1", "", "fe80::a00:1"}}) {
    const KFLIPv6 address(text);
    const std::optional<KFLIPv4> found = KFL::IPv6Format::IPv4Compatible::test(address);
    EXPECT_EQ(found ? found->toString() : "", embedded) << text;
    EXPECT_EQ(KFL::IPv6Format::IPv4Compatible::format(address), formatted);
  }
  EXPECT_TRUE(KFLIPv6("::").isAny());
  EXPECT_TRUE(KFLIPv6("nonsense").isAny());
  EXPECT_FALSE(KFLIPv6("::1").isAny());
}

}  // namespace
