// SPDX-License-Identifier: Apache-2.0
#include "manual/Roff.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace kfactl {

namespace {

// A sign that would be printed as another one, or read as an escape; empty for any other.
std::string_view signOf(char c) {
  switch (c) {
    case '\\':
      return "\\e";
    case '-':
      return "\\-";
    case '\'':
      return "\\(aq";
    case '`':
      return "\\(ga";
    case '^':
      return "\\(ha";
    case '~':
      return "\\(ti";
    default:
      return {};
  }
}

// The first character of the text, which is not ASCII, taken from it.
std::string unicodeEscape(std::string_view& text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t size = std::min<std::size_t>(lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2, text.size());
  unsigned code = lead & (0xFFU >> (size + 1));
  for (std::size_t i = 1; i < size; ++i)
    code = code << 6 | (static_cast<unsigned char>(text[i]) & 0x3FU);
  text.remove_prefix(size);
  char escape[16];
  std::snprintf(escape, sizeof escape, "\\[u%04X]", code);
  return escape;
}

std::string upper(std::string_view text) {
  std::string made(text);
  std::transform(made.begin(), made.end(), made.begin(),
                 [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); });
  return made;
}

}  // namespace

std::string Roff::escape(std::string_view text) {
  std::string made;
  while (!text.empty()) {
    const char c = text.front();
    if (static_cast<unsigned char>(c) >= 0x80) {
      made += unicodeEscape(text);
      continue;
    }
    text.remove_prefix(1);
    const std::string_view sign = signOf(c);
    made += sign.empty() ? std::string_view(&c, 1) : sign;
  }
  return made;
}

std::string Roff::guarded(std::string line) {
  if (!line.empty() && line.front() == '.') line.insert(0, "\\&");
  return line;
}

Roff::Roff(std::string_view name, int section, std::string_view summary) {
  text_ = ".TH " + escape(upper(name)) + " " + std::to_string(section) +
          " " KFACTL_DATE " \"kfactl " KFACTL_VERSION "\" \"KFAFunctionality\"\n";
  this->section("NAME");
  text_ += escape(name) + " \\- " + escape(summary) + "\n";
}

Roff& Roff::part() {
  const std::size_t last = text_.rfind('\n', text_.size() - 2) + 1;
  if (text_.compare(last, 2, ".S") != 0 && text_.compare(last, 3, ".PP") != 0) text_ += ".PP\n";
  return *this;
}

Roff& Roff::line(std::string_view text) {
  text_ += guarded(escape(text)) + "\n";
  return *this;
}

Roff& Roff::section(std::string_view title) {
  text_ += ".SH " + escape(title) + "\n";
  return *this;
}

Roff& Roff::subsection(std::string_view title) {
  text_ += ".SS " + escape(title) + "\n";
  return *this;
}

Roff& Roff::paragraph(std::string_view text) {
  return part().line(text);
}

Roff& Roff::item(std::string_view name, std::string_view text) {
  text_ += ".TP\n\\fB" + escape(name) + "\\fR\n";
  return line(text);
}

Roff& Roff::help(std::string_view text) {
  bool isExample = false;
  part();
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view row = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const bool wasExample = isExample;
    isExample = row.substr(0, 2) == "  ";
    if (isExample && !wasExample) part().raw(".nf\n.RS 4\n");
    if (!isExample && wasExample) raw(".RE\n.fi\n").part();
    if (!row.empty())
      line(isExample ? row.substr(2) : row);
    else
      part();
  }
  if (isExample) text_ += ".RE\n.fi\n";
  return *this;
}

Roff& Roff::raw(std::string_view lines) {
  text_ += lines;
  return *this;
}

}  // namespace kfactl
