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

  const std::string& text() const { return text_; }

 private:
  Roff& line(std::string_view text);

  std::string text_;
};

}  // namespace kfactl

#endif
