// SPDX-License-Identifier: Apache-2.0
// Random lines in the alphabet of bash: words and commands by its grammar, and any of its tokens and bytes in a row.
#ifndef KFA_FUZZ_BASHLINES_H
#define KFA_FUZZ_BASHLINES_H

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace kfl_fuzz {

// The lines of an input, the newlines and NULs taken away.
std::vector<std::string> linesOf(std::string_view input);

// Lines that an input stands for: an input always gives the same ones.
class BashLines {
 public:
  explicit BashLines(std::string_view input);

  // A line that bash's grammar can give, a row of its tokens, or a line of the input with some of its tokens changed.
  std::string next();

  // A value that reads back as it is from between double quotes.
  std::string safeValue();

 private:
  std::size_t below(std::size_t limit) { return random_() % limit; }
  bool oneIn(std::size_t limit) { return below(limit) == 0; }
  template <class Choices>
  std::string oneOf(const Choices& choices);

  std::string repeat(std::size_t limit, std::string (BashLines::*make)(), const char* between = "");
  std::string byte();
  std::string token();
  std::string soup();
  std::string changed(std::string line);

  std::string name();
  std::string plain();
  std::string escape();
  std::string ansiPart();
  std::string doublePart();
  std::string parameter();
  std::string arithmetic();
  std::string operand();
  std::string expansion();
  std::string part();
  std::string word();
  std::string value();
  std::string redirection();
  std::string argument();
  std::string simpleCommand();
  std::string condition();
  std::string caseClause();
  std::string compound();
  std::string command();
  std::string list();
  std::string block();
  std::string assignment();
  std::string line();

  std::mt19937 random_;
  std::vector<std::string> own_;
  int depth_ = 0;
};

}  // namespace kfl_fuzz

#endif
