// SPDX-License-Identifier: Apache-2.0
// What texts stand for is the law of the fuzz target ManagerCallFuzz. Here is what stands for nothing.
#include <KFLCommon/KFLBase64.h>

#include <cctype>
#include <string>

#include <gtest/gtest.h>

namespace KFL::test {

namespace {

TEST(KFLBase64, RefusesTheRestAndLeavesTheBytes) {
  using namespace std::string_literals;
  std::string bytes = "kept";
  for (const std::string& text :
       {"Z"s, "Zg"s, "Zm8"s, "Zm9vZ"s, "===="s, "Z==="s, "Zm9vZg="s, "Zg=v"s, "Zg==Zm9v"s, "Zm8=Zg=="s,
        "Zh=="s, "Zk=="s, "Zo=="s, "Zm9="s, "Zm+="s, "=m9v"s})
    EXPECT_EQ(fromBase64(text, bytes), -1) << text;
  EXPECT_EQ(bytes, "kept");
  for (int byte = 0; byte < 256; ++byte) {
    const bool isDigit = (byte < 128 && std::isalnum(byte) != 0) || byte == '+' || byte == '/';
    for (std::size_t at = 0; at < 4; ++at) {
      std::string text = "Zm9v";
      text[at] = static_cast<char>(byte);
      EXPECT_EQ(fromBase64(text, bytes), isDigit ? 0 : -1) << text;
      EXPECT_TRUE(!isDigit || toBase64(bytes) == text);
    }
  }
}

}  // namespace

}  // namespace KFL::test
