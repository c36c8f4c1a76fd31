// SPDX-License-Identifier: Apache-2.0
#include "manual/Markdown.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace kfactl {

namespace {

constexpr std::string_view kFence = "```";

// The pages of sections that other sections name by their numbers.
struct NamedSection {
  std::string_view link;
  std::string_view page;
};
constexpr NamedSection kSections[] = {{"(#3-netif)", "kfa-environment(5)"},
                                      {"(#4-messages)", "kfa-messages(7)"},
                                      {"(#6-formulas)", "kfa-formulas(7)"}};

std::string_view takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// The number of #; 0 for a line that is no heading.
std::size_t levelOf(std::string_view line) {
  const std::size_t level = std::min(line.find_first_not_of('#'), line.size());
  return level < line.size() && line[level] == ' ' ? level : 0;
}

// The text between equal runs of back quotes at the front, taken from the text; blanks around it that keep the quotes
// apart do not count.
std::string_view takeCode(std::string_view& text) {
  const std::size_t quotes = std::min(text.find_first_not_of('`'), text.size());
  const std::string_view mark = text.substr(0, quotes);
  const std::size_t end = text.find(mark, quotes);
  if (end == text.npos) return std::exchange(text, {});
  const std::string_view code = text.substr(quotes, end - quotes);
  text.remove_prefix(end + quotes);
  return quotes > 1 ? trimmed(code) : code;
}

std::string inlineText(std::string_view text);

// The text of a link whose label ends there, or the page that it leads to; the link is taken from the text.
std::string takeLink(std::string_view& text, std::size_t labelEnd) {
  const std::string_view label = text.substr(1, labelEnd - 1);
  text.remove_prefix(labelEnd + 1);
  const std::string_view target = text.substr(0, text.find(')') + 1);
  text.remove_prefix(target.size());
  const auto* const section = std::ranges::find(kSections, target, &NamedSection::link);
  return section == std::end(kSections) ? inlineText(label) : Roff::escape(section->page);
}

// Running text with code and what is emphasised in bold.
std::string inlineText(std::string_view text) {
  std::string made;
  bool isBold = false;
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find_first_of("`*["), text.size());
    made += Roff::escape(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) break;
    const std::size_t label = text.front() == '[' ? text.find("](") : text.npos;
    if (text.front() == '`') {
      made += "\\fB" + Roff::escape(takeCode(text)) + (isBold ? "" : "\\fR");
    } else if (text.starts_with("**")) {
      made += (isBold = !isBold) ? "\\fB" : "\\fR";
      text.remove_prefix(2);
    } else if (label != text.npos && text.find(']') == label) {
      made += takeLink(text, label);
    } else {
      made += Roff::escape(text.substr(0, 1));
      text.remove_prefix(1);
    }
  }
  return made;
}

std::vector<std::string> cellsOf(std::string_view row) {
  std::vector<std::string> cells;
  row = trimmed(row);
  row.remove_prefix(1);
  std::string cell;
  bool isCode = false;
  for (std::size_t i = 0; i < row.size(); ++i) {
    if (row[i] == '`') isCode = !isCode;
    if (row[i] == '|' && !isCode)
      cells.emplace_back(trimmed(std::exchange(cell, {})));
    else
      cell += row[i];
  }
  return cells;
}

class Converter {
 public:
  explicit Converter(Roff& page) : page_(page) {}

  void add(std::string_view text) {
    while (!text.empty()) {
      const std::string_view line = takeLine(text);
      if (line.starts_with(kFence)) {
        endPart();
        addCode(text);
      } else if (const std::size_t level = levelOf(line); level > 0) {
        endPart();
        page_.subsection(trimmed(line.substr(level)));
      } else if (line.starts_with('|')) {
        addRow(cellsOf(line));
      } else if (trimmed(line).empty()) {
        endPart();
      } else {
        addWords(line);
      }
    }
    endPart();
  }

 private:
  void addCode(std::string_view& text) {
    page_.part().raw(".nf\n.RS 4\n");
    while (!text.empty()) {
      const std::string_view line = takeLine(text);
      if (line.starts_with(kFence)) break;
      page_.raw(Roff::guarded(Roff::escape(line)) + "\n");
    }
    page_.raw(".RE\n.fi\n");
  }

  // The first row is the heading; the one below it has nothing but dashes.
  void addRow(std::vector<std::string> cells) {
    if (heading_.empty()) {
      heading_ = std::move(cells);
      return;
    }
    if (std::ranges::all_of(
            cells, [](const std::string& cell) { return cell.find_first_not_of("-:") == cell.npos; }))
      return;
    const auto name = std::ranges::find_if(cells, [](const std::string& cell) { return !cell.empty(); });
    if (name == cells.end()) return;
    std::string text;
    const auto filled =
        std::count_if(name + 1, cells.end(), [](const std::string& cell) { return !cell.empty(); });
    for (auto cell = name + 1; cell != cells.end(); ++cell) {
      const auto column = static_cast<std::size_t>(cell - cells.begin());
      if (cell->empty()) continue;
      const bool isNamed = filled > 1 && column < heading_.size() && !heading_[column].empty();
      text += (text.empty() ? "" : "; ") + (isNamed ? heading_[column] + ": " : std::string()) + *cell;
    }
    page_.raw(".TP 7\n" + Roff::guarded(inlineText(*name)) + "\n" + Roff::guarded(inlineText(text)) + "\n");
  }

  void addWords(std::string_view line) {
    if (line.starts_with("* ")) {
      endPart();
      isItem_ = true;
      line.remove_prefix(2);
    }
    words_ += (words_.empty() ? "" : " ") + std::string(trimmed(line));
  }

  void endPart() {
    heading_.clear();
    if (!words_.empty()) {
      isItem_ ? page_.raw(".IP \\(bu 2\n") : page_.part();
      page_.raw(Roff::guarded(inlineText(words_)) + "\n");
    }
    words_.clear();
    isItem_ = false;
  }

  Roff& page_;
  std::string words_;
  bool isItem_ = false;
  std::vector<std::string> heading_;
};

}  // namespace

std::string_view sectionOf(std::string_view document, std::string_view heading) {
  bool isInside = false;
  bool isCode = false;
  std::string_view rest = document;
  const char* begin = nullptr;
  while (!rest.empty()) {
    const std::string_view line = takeLine(rest);
    if (line.starts_with(kFence)) isCode = !isCode;
    const std::size_t level = isCode ? 0 : levelOf(line);
    if (isInside && level > 0 && level <= levelOf(heading))
      return {begin, static_cast<std::size_t>(line.data() - begin)};
    if (isInside || line != heading) continue;
    isInside = true;
    begin = rest.data();
  }
  return isInside
             ? std::string_view(begin, static_cast<std::size_t>(document.data() + document.size() - begin))
             : std::string_view();
}

void addMarkdown(Roff& page, std::string_view text) {
  Converter(page).add(text);
}

}  // namespace kfactl
