// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFABashConfig.h>

#include <cstdlib>
#include <random>
#include <set>
#include <stdexcept>

#include "FilesTest.h"

namespace {

using Values = std::map<std::string, std::string>;

// A stream that hands its text out in pieces of a few characters, each in the place of the one before.
class PieceBuffer : public std::streambuf {
 public:
  PieceBuffer(std::string text, std::size_t piece) : text_(std::move(text)), piece_(piece) {}

 protected:
  int_type underflow() override {
    if (at_ == text_.size()) return traits_type::eof();
    const std::size_t size = std::min(piece_, text_.size() - at_);
    ready_ = text_.substr(at_, size);
    setg(ready_.data(), ready_.data(), ready_.data() + size);
    at_ += size;
    return traits_type::to_int_type(*gptr());
  }

 private:
  std::string text_;
  std::string ready_;
  std::size_t piece_;
  std::size_t at_ = 0;
};

// The lines that a reader finds in a stream, and the state in which it leaves it.
struct Lines {
  std::vector<std::string> lines;
  std::ios_base::iostate state;
  bool operator==(const Lines&) const = default;
};

Lines readLines(std::istream& in) {
  Lines result;
  {
    KFA::detail::ConfigLines lines(in);
    KFL::KFLBashPlainLine plain;
    bool isPlain = false;
    for (std::string_view line; lines.next(line, plain, isPlain);)
      result.lines.emplace_back(line);
  }
  result.state = in.rdstate();
  return result;
}

Lines readStrings(std::istream& in) {
  Lines result;
  KFA::detail::LineBuffer buffer;
  for (int length = buffer.read(in); length >= 0; length = buffer.read(in))
    result.lines.emplace_back(buffer.text(), static_cast<std::size_t>(length));
  result.state = in.rdstate();
  return result;
}

Lines readStandard(std::istream& in) {
  Lines result;
  for (std::string line; std::getline(in, line);)
    result.lines.push_back(line);
  result.state = in.rdstate();
  return result;
}

TEST(ConfigLines, AreThoseOfTheStandardReader) {
  const std::string longLines = std::string(300, 'q') + "\n" + std::string(20, 'r');
  const std::string texts[] = {"", "\n", "a", "a\n", "a\n\nb", "a\r\nb\r", {"x\0y\nz", 5}, longLines};
  for (const std::string& text : texts) {
    for (const std::size_t piece : {1U, 2U, 3U, 7U, 1000U}) {
      PieceBuffer buffers[] = {{text, piece}, {text, piece}, {text, piece}, {text, piece}};
      std::istream standard(&buffers[0]), lines(&buffers[1]), tied(&buffers[2]), strings(&buffers[3]);
      std::ostringstream other;
      tied.tie(&other);
      const Lines expected = readStandard(standard);
      for (const Lines& found : {readLines(lines), readLines(tied), readStrings(strings)})
        EXPECT_EQ(found, expected) << text << " by " << piece;
    }
  }
}

TEST(ConfigLines, LeaveTheStreamBehindTheLastLineGiven) {
  std::istringstream in("one\ntwo\nthree\n");
  std::string_view line;
  KFL::KFLBashPlainLine plain;
  bool isPlain = false;
  KFA::detail::ConfigLines(in).next(line, plain, isPlain);
  std::string rest;
  std::getline(in, rest);
  EXPECT_EQ(rest, "two");
}

// What a stream throws ends it, as its state tells.
TEST(ConfigLines, EndWhereTheStreamThrows) {
  struct Broken : std::streambuf {
    int_type underflow() override { throw std::runtime_error("gone"); }
  } broken;
  std::istream in(&broken);
  EXPECT_EQ(readStrings(in), (Lines{{}, std::ios_base::badbit}));
}

TEST(ReadStringFromStream, GrowsTheBufferToExactlyTheLongestLine) {
  std::istringstream in("abc\nabcdefg\nx\n");
  char* buffer = nullptr;
  unsigned int capacity = 0;
  std::vector<unsigned int> capacities;
  while (KFA::readStringFromStream(in, &buffer, &capacity) >= 0)
    capacities.push_back(capacity);
  EXPECT_EQ(capacities, (std::vector<unsigned int>{4, 8, 8}));
  EXPECT_STREQ(buffer, "x");
  std::free(buffer);

  std::istream none(nullptr);
  buffer = nullptr;
  EXPECT_EQ(KFA::readStringFromStream(none, &buffer, &capacity), -1);
  EXPECT_EQ(buffer, nullptr);
}

// However the stream hands the text out.
std::string rewritten(const std::string& existing, const Values& values) {
  std::set<std::string> results;
  for (const std::size_t piece : {std::size_t{7}, std::size_t{300}, existing.size() + 1}) {
    PieceBuffer buffer(existing, piece);
    std::istream in(&buffer);
    std::ostringstream out;
    EXPECT_EQ(KFA::KFARawConfigBashParser::getInstance()->putConfig(values, out, &in, true), 0);
    results.insert(out.str());
  }
  EXPECT_EQ(results.size(), 1U);
  return *results.begin();
}

// Few entries and many are sorted in different ways; the first value of a key counts, whatever the case of its letters, and
// each line of the key gets it.
TEST(RawConfig, HoldsAndWritesTheFirstValueOfEachKey) {
  std::mt19937 random(5);
  for (const std::size_t count : {0U, 1U, 63U, 64U, 65U, 300U, 20000U}) {
    std::string text;
    std::string written;
    Values expected;
    for (std::size_t i = 0; i < count; ++i) {
      std::string key = "k";
      for (std::size_t n = random() % 4; n > 0; --n)
        key += random() % 3 == 0 ? "_seven_A" : std::string(1, "aAbB_0z"[random() % 7]);
      if (random() % 2 == 0) key += std::to_string(i);
      const auto& [name, value] = *expected.emplace(KFL::toLower(key), std::to_string(i)).first;
      text += key + '=' + std::to_string(i) + '\n';
      written += key + "=\"" + value + "\"\n";
    }
    std::istringstream in(text);
    Values values;
    EXPECT_EQ(KFA::KFARawConfigBashParser::getInstance()->getConfig(in, values), 0);
    EXPECT_EQ(values, expected) << count;
    EXPECT_EQ(rewritten(text, values), written) << count;
  }
}

TEST(SerializeBashLikeConfig, CopiesOnlyWhenAskedToMergeAGoodStream) {
  const auto parser = KFA::KFARawConfigBashParser::getInstance();
  const Values values{{"b", "say \"hi\""}, {"a", "1"}};
  const std::string expected = "A=\"1\"\nB=\"say \"hi\"\"\n";
  for (const bool failed : {false, true}) {
    std::istringstream existing("B=2\n");
    if (failed) existing.setstate(std::ios_base::failbit);
    std::ostringstream out;
    EXPECT_EQ(parser->putConfig(values, out, &existing, failed), 0);
    EXPECT_EQ(out.str(), expected);
  }
  std::ostringstream alone;
  EXPECT_EQ(parser->putConfig(values, alone, nullptr, true), 0);
  EXPECT_EQ(alone.str(), expected);
}

TEST(SerializeBashLikeConfig, SaysThatTheOutputFailed) {
  std::ostringstream out;
  out.setstate(std::ios_base::badbit);
  EXPECT_EQ(KFA::KFARawConfigBashParser::getInstance()->putConfig({{"a", "1"}}, out, nullptr, true), -1);
  EXPECT_EQ(KFL::getErrorMessage(), "failed to write output stream");
}

// A parser whose get leaves the text alone, as for a resource of an unknown kind.
struct UntouchedParser {
  int get(const std::string& key, std::string& value) const {
    if (key == "a") value = "1";
    return 0;
  }
  int getNext(const std::string&, std::string&) const { return -1; }
};

TEST(SerializeBashLikeConfig, GivesNoKeyTheValueOfAnother) {
  UntouchedParser parser;
  std::istringstream in("A=x\nB=y\n");
  std::ostringstream out;
  EXPECT_EQ(KFA::serializeBashLikeConfig(parser, out, &in, true), 0);
  EXPECT_EQ(out.str(), "A=\"1\"\nB=\"\"\n");
}

}  // namespace
