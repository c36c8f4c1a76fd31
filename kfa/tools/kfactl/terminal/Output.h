// SPDX-License-Identifier: Apache-2.0
// What the program prints: one buffer for standard output, tables for people, texts made fit for a terminal.
#ifndef KFACTL_OUTPUT_H
#define KFACTL_OUTPUT_H

#include <cstddef>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kfactl {

enum class Colour { Plain, Bold, Red, Green, Magenta, Cyan };

// Collects standard output and writes it at once. One thread.
class Output {
 public:
  Output& add(std::string_view text) {
    text_ += text;
    return *this;
  }
  Output& add(Colour colour, std::string_view text);
  Output& addLine(std::string_view text) { return add(text).add("\n"); }

  bool isTerminal() const;
  // Colours are for terminals, unless NO_COLOR is set or the terminal is dumb.
  bool isColoured() const;
  // The columns of a line on the terminal; 0 where lines may be of any length.
  std::size_t width() const;

  // Writes what was collected. A reader that went away ends the output quietly; anything else is a Trouble.
  void flush();

 private:
  std::string text_;
};

// One line on standard error: "kfactl: TEXT".
void printError(std::string_view text);
// The same for what is worth knowing and changes nothing: "kfactl: note: TEXT".
void printNote(std::string_view text);

// The text with control characters and bytes that are not UTF-8 as \n, \t, \r or \xNN, so that it is one line and
// cannot steer a terminal.
std::string printable(std::string_view text);

// The number of columns that a printable text takes on a terminal.
std::size_t displayWidth(std::string_view text);

// KEY="value" with the key in upper case, quoted so that a shell reads the same value back.
std::string assignment(const std::string& key, const std::string& value);

// Rows of cells that line up by display width; the cells are made printable. On a terminal that is too narrow the text
// of a cell goes on below it, broken between words only; where even that does not fit, each cell has a line of its own.
class Table {
 public:
  explicit Table(std::initializer_list<std::string> headings);
  explicit Table(const std::vector<std::string>& headings);
  void add(std::initializer_list<std::string_view> cells);
  void add(std::span<const std::string> cells);
  void print(Output& out, bool withHeadings = true) const;

 private:
  using Row = std::vector<std::string>;

  void addCell(Row& row, std::string_view cell);
  std::vector<std::size_t> fittingWidths(std::size_t limit) const;
  void printStacked(Output& out, std::size_t limit) const;

  std::vector<std::size_t> widths_;
  std::vector<Row> rows_;
};

}  // namespace kfactl

#endif
