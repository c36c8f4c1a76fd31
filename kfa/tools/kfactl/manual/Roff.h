// SPDX-License-Identifier: Apache-2.0
// Text in the macros of man(7).
#ifndef KFACTL_MANUAL_ROFF_H
#define KFACTL_MANUAL_ROFF_H

#include <string>
#include <string_view>

namespace kfactl {

class Roff {
 public:
  Roff(std::string_view name, int section, std::string_view summary);

  Roff& section(std::string_view title);
  Roff& subsection(std::string_view title);
  // A paragraph in the running text.
  Roff& paragraph(std::string_view text);
  // The name of a thing in bold, and what it is below it.
  Roff& item(std::string_view name, std::string_view text);
  // Paragraphs, with lines behind two blanks as they stand and "Word:" lines as they stand above these.
  Roff& help(std::string_view text);
  // Ends the paragraph.
  Roff& part();
  // Lines that are macros and escaped text already.
  Roff& raw(std::string_view lines);

  const std::string& text() const { return text_; }

  // A text of UTF-8 as it is printed: no escapes, hyphens that can be copied, nothing but ASCII.
  static std::string escape(std::string_view text);
  // An escaped line that no macro can be read from.
  static std::string guarded(std::string line);

 private:
  Roff& line(std::string_view text);

  std::string text_;
};

}  // namespace kfactl

#endif
