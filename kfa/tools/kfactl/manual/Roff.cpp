// SPDX-License-Identifier: Apache-2.0
#include "manual/Roff.h"

#include <algorithm>
#include <cctype>

namespace kfactl {

namespace {

// A text as it is printed: no escapes, no requests, and hyphens that can be copied.
std::string plain(std::string_view text) {
  std::string made;
  if (!text.empty() && (text.front() == '.' || text.front() == '\'')) made = "\\&";
  for (const char c : text) {
    if (c == '\\') {
      made += "\\e";
    } else if (c == '-') {
      made += "\\-";
    } else {
      made += c;
    }
  }
  return made;
}

std::string upper(std::string_view text) {
  std::string made(text);
  std::transform(made.begin(), made.end(), made.begin(),
                 [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); });
  return made;
}

}  // namespace

Roff::Roff(std::string_view name, int section, std::string_view summary) {
  text_ = ".TH " + plain(upper(name)) + " " + std::to_string(section) +
          " \"\" \"kfactl " KFACTL_VERSION "\" \"KFAFunctionality\"\n";
  this->section("NAME");
  text_ += plain(name) + " \\- " + plain(summary) + "\n";
}

Roff& Roff::line(std::string_view text) {
  text_ += plain(text) + "\n";
  return *this;
}

Roff& Roff::section(std::string_view title) {
  text_ += ".SH " + plain(title) + "\n";
  return *this;
}

Roff& Roff::subsection(std::string_view title) {
  text_ += ".SS " + plain(title) + "\n";
  return *this;
}

Roff& Roff::paragraph(std::string_view text) {
  text_ += ".PP\n";
  return line(text);
}

Roff& Roff::item(std::string_view name, std::string_view text) {
  text_ += ".TP\n\\fB" + plain(name) + "\\fR\n";
  return line(text);
}

Roff& Roff::help(std::string_view text) {
  bool isExample = false;
  text_ += ".PP\n";
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view row = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const bool wasExample = isExample;
    isExample = row.substr(0, 2) == "  ";
    if (isExample && !wasExample) text_ += ".PP\n.nf\n.RS 4\n";
    if (!isExample && wasExample) text_ += ".RE\n.fi\n.PP\n";
    if (!row.empty())
      line(isExample ? row.substr(2) : row);
    else if (!wasExample)
      text_ += ".PP\n";
  }
  if (isExample) text_ += ".RE\n.fi\n";
  return *this;
}

}  // namespace kfactl
