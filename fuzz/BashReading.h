// SPDX-License-Identifier: Apache-2.0
// A line as this system reads it, and the law of its stretch.
#ifndef KFA_FUZZ_BASHREADING_H
#define KFA_FUZZ_BASHREADING_H

#include <cstddef>
#include <string>
#include <string_view>

namespace kfl_fuzz {

struct Reading {
  int result = 0;
  std::string name, value;
  // The value as written, from first to the character before end.
  std::size_t first = 0, end = 0;
  // What it breaks by itself, whatever the line means; empty when nothing.
  std::string broken;
};

// The first line of the text, where it is plain, means to the grammar what it means without. Gives what breaks it.
std::string checkPlain(std::string_view text);

// Reads the line from a block that holds it, its NUL and no byte more.
Reading readLine(const std::string& line);

// The line with another value, written between double quotes, in the place of its own.
std::string replaceValue(const std::string& line, const Reading& reading, const std::string& value);

// "Replace the stretch by a safe value, read again: that value, and every other byte as before." Gives what breaks it.
std::string checkReplacement(const std::string& line, const Reading& reading, const std::string& value);

// The line as C would write it.
std::string printable(const std::string& line);

}  // namespace kfl_fuzz

#endif
