// SPDX-License-Identifier: Apache-2.0
// Addresses beside what the fuzz target ValueFuzz holds them to: which texts are addresses, and what their parts are.
#include <string>

#include <gtest/gtest.h>

#include <KFLFunctionality/KFLIPAddress.h>
#include <KFLFunctionality/KFLIPv6.h>

namespace {

using KFL::KFLIPAddress;
using KFL::KFLIPv4;
using KFL::KFLIPv6;

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

}  // namespace
