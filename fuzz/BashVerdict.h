// SPDX-License-Identifier: Apache-2.0
// What bash says about a line, as it travels from the bash that was asked to the fuzz target.
#ifndef KFA_FUZZ_BASHVERDICT_H
#define KFA_FUZZ_BASHVERDICT_H

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace kfl_fuzz {

struct Verdict {
  // What may be answered for the line; several bits where the rule leaves it open.
  static constexpr std::uint32_t kAssigns = 1, kNothing = 2, kMalformed = 4;
  std::uint32_t allowed = 0;

  // Of an assignment: the value as written, from first to the character before end; end is -1 when it was not found.
  std::uint32_t first = 0, end = 0;
  // The value without its quoting, expansions kept as text. Unknown where bash does not tell the two apart.
  std::uint32_t isValueKnown = 0;
  std::string value;
  // bash's complaint, or how it prints the line.
  std::string why;

  void append(std::string& to) const {
    for (const std::uint32_t number : {allowed, first, end, isValueKnown})
      to.append(reinterpret_cast<const char*>(&number), sizeof number);
    for (const std::string& text : {value, why})
      (to += text) += '\0';
  }

  // Takes one off the front of what append has written.
  void take(std::string_view& from) {
    for (std::uint32_t* const number : {&allowed, &first, &end, &isValueKnown}) {
      std::memcpy(number, from.data(), sizeof *number);
      from.remove_prefix(sizeof *number);
    }
    for (std::string* const text : {&value, &why}) {
      *text = from.substr(0, from.find('\0'));
      from.remove_prefix(text->size() + 1);
    }
  }
};

}  // namespace kfl_fuzz

#endif
