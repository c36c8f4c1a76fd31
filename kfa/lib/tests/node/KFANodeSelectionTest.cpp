// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeSelection.h>

#include <random>

#include <KFAFunctionality/node/KFAEnvironmentFilter.h>

#include "../files/FilesTest.h"

namespace {

using Paths = std::vector<std::string>;

class NodeSelectionTest : public testing::Test {
 protected:
  void SetUp() override {
    makeFile(folder_ / "9.conf", "ONBOOT=yes\nNAME=small\nIP_ADDRESS=192.0.2.9/24\n");
    makeFile(folder_ / "101.conf", "ONBOOT=no\nHOSTNAME=web.example.com\nROLES='web cache'\n");
    makeFile(folder_ / "102.conf",
             "VE_TYPE=repair:101\nNETIF=ifname=eth0,network=lan,mac=02:00:00:00:00:01,ip6=2001:db8::2/64\n");
    makeFile(folder_ / "110.conf", "ONBOOT=yes\nTECHNOLOGIES=x86_64\nNAME=\"a,b\"\nIP_ADDRESS=dhcp\n");
    makeFile(folder_ / "0101.conf", "");
    makeFile(folder_ / ".101.conf.new", "");
    makeFile(folder_ / "notes.txt", "");
    std::filesystem::create_directory(folder_ / "200.conf");
  }

  // The names that the words stand for, or the error text.
  Paths select(const Paths& words) {
    KFA::KFANodeSelection selection(folder_.path(), [] { return envParser(); });
    Paths names;
    for (const std::string& word : words)
      if (selection.add(word) != 0) names.push_back("error: " + KFL::getErrorMessage());
    for (const auto& file : selection.getFiles())
      names.push_back(std::filesystem::path(file.path).filename());
    others_ = selection.getOthers();
    troubles_ = selection.getTroubles();
    return names;
  }

  TemporaryFolder folder_;
  Paths others_;
  Paths troubles_;
};

TEST_F(NodeSelectionTest, WordsStandForEnvironments) {
  const std::string all = folder_.path();
  const std::pair<Paths, std::vector<Paths>> rows[] = {
      {{"7.conf"}, {{"7"}}},  // named, whether or not it is there
      {{"9.conf"}, {{"address=192.0.2.0/24"}, {"address=192.0.2.9"}}},
      {{"101.conf"}, {{"101"}, {"onboot=no"}, {"roles=cache"}, {"title=web*"}}},
      {{"102.conf"},
       {{"onboot="},
        {"ve_type=repair*"},
        {"title=#102"},
        {"address=2001:db8::/32"},
        {"network=lan,mac=02:*"}}},
      {{"110.conf"}, {{"ONBOOT=YES,veid=1*"}, {"arch=x86_64"}, {"name=a\\,b"}, {"address=dhcp"}}},
      {{"101.conf", "102.conf"}, {{"10*"}}},
      {{"101.conf", "102.conf", "110.conf"}, {{"101-110"}, {"1??.conf"}}},
      {{"110.conf", "101.conf", "102.conf"}, {{"110", "101-110", "110"}}},
      {{"9.conf", "102.conf", "110.conf"}, {{"onboot!=no"}}},
      {{"9.conf", "101.conf", "110.conf"}, {{"ve_type=regular"}}},
      {{"9.conf", "101.conf", "102.conf", "110.conf"}, {{all}, {all + "/[19]*.conf"}}},
  };
  for (const auto& [expected, each] : rows)
    for (const Paths& words : each)
      EXPECT_EQ(select(words), expected) << testing::PrintToString(words);
}

TEST_F(NodeSelectionTest, WordsThatStandForNothingAreRefused) {
  const std::pair<const char*, const char*> rows[] = {
      {"500-600", "no environment of"}, {"110-101", "smaller number first"}, {"x*", "no environment of"},
      {"colour=red", "is no key"},      {"onboot=no,", "no condition"},      {"onboot=maybe", "fulfils this"},
      {"/no*/x*", "last part"},
  };
  for (const auto& [word, part] : rows) {
    const Paths got = select({word});
    ASSERT_EQ(got.size(), 1U) << word;
    EXPECT_NE(got[0].find(part), std::string::npos) << got[0];
    EXPECT_TRUE(got[0].starts_with("error: ")) << got[0];
  }
}

TEST_F(NodeSelectionTest, ABrokenFileHidesNoOther) {
  makeFile(folder_ / "103.conf", "A=\"open\nONBOOT=no\n");
  EXPECT_EQ(select({"onboot=no"}), Paths{"101.conf"});
  ASSERT_EQ(troubles_.size(), 1U);
  EXPECT_NE(troubles_[0].find("103.conf:1:3"), std::string::npos) << troubles_[0];
  select({folder_.path()});
  EXPECT_EQ(others_,
            (Paths{folder_ / "0101.conf", folder_ / "notes.txt"}));  // what is hidden or a folder is nobody's
}

// Membership by arithmetic on one big number.
TEST(InNetworkTest, AgreesWithArithmetic) {
  std::mt19937 generator(7);
  const auto random = [&generator] { return static_cast<std::uint32_t>(generator()); };
  const auto text = [](std::uint32_t a) {
    return std::to_string(a >> 24) + "." + std::to_string(a >> 16 & 255) + "." +
           std::to_string(a >> 8 & 255) + "." + std::to_string(a & 255);
  };
  std::size_t inside = 0;
  for (int i = 0; i < 20000; ++i) {
    const unsigned bits = random() % 33;
    const std::uint32_t network = random();
    const std::uint32_t address = random() % 2 == 0 ? random() : network ^ (1U << (random() % 32));
    const bool expected = bits == 0 || (network ^ address) >> (32 - bits) == 0;
    inside += expected ? 1 : 0;
    ASSERT_EQ(KFA::isInNetwork(text(address), text(network) + "/" + std::to_string(bits)), expected)
        << text(address) << " " << text(network) << "/" << bits;
  }
  EXPECT_GT(inside, 4000U);
  EXPECT_FALSE(KFA::isInNetwork("::1", "0.0.0.0/0"));
  EXPECT_FALSE(KFA::isInNetwork("1.2.3.4", "1.2.3.4"));
}

}  // namespace
