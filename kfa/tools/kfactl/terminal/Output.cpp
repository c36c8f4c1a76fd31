// SPDX-License-Identifier: Apache-2.0
#include "terminal/Output.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <utility>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

const char* escapeOf(Colour colour) {
  static constexpr const char* codes[] = {"", "\033[1m", "\033[31m", "\033[32m", "\033[35m", "\033[36m"};
  return codes[static_cast<std::size_t>(colour)];
}

// Writes it all: 0, or the error's number.
int writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

void appendHex(std::string& out, char c) {
  static constexpr char digits[] = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  out += {'\\', 'x', digits[byte >> 4], digits[byte & 15U]};
}

// Control characters as escapes that bash's $'...' takes too; `quoted` adds its quote and backslash.
void appendEscaped(std::string& out, std::string_view text, bool quoted) {
  for (const char c : text) {
    if (c == '\n')
      out += "\\n";
    else if (c == '\t')
      out += "\\t";
    else if (c == '\r')
      out += "\\r";
    else if (KFL::isControl(c) || c == '\0')
      appendHex(out, c);
    else if (quoted && (c == '\'' || c == '\\'))
      out += {'\\', c};
    else
      out += c;
  }
}

// The length of the well-formed text in front of an ill-formed sequence or a C1 control character.
std::size_t soundLength(std::string_view text) {
  std::size_t length = text.size();
  if (!KFL::isUtf8(text, &length)) text = text.substr(0, length);
  for (std::size_t i = 0; i + 1 < text.size(); ++i)
    if (text[i] == '\xc2' && static_cast<unsigned char>(text[i + 1]) < 0xa0) return i;
  return text.size();
}

bool isPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

void appendPrintable(std::string& out, std::string_view text, bool quoted) {
  while (!text.empty()) {
    const std::size_t sound = soundLength(text);
    appendEscaped(out, text.substr(0, sound), quoted);
    text.remove_prefix(sound);
    if (text.empty()) return;
    appendHex(out, text.front());
    text.remove_prefix(1);
  }
}

// Widths by the C library's tables for UTF-8, whatever the user's locale.
class Utf8Locale {
 public:
  Utf8Locale() : locale_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {}
  Utf8Locale(const Utf8Locale&) = delete;
  Utf8Locale& operator=(const Utf8Locale&) = delete;
  ~Utf8Locale() {
    if (locale_ != nullptr) freelocale(locale_);
  }
  locale_t get() const { return locale_; }

 private:
  locale_t locale_;
};

}  // namespace

Output& Output::add(Colour colour, std::string_view text) {
  if (colour == Colour::Plain || !isColoured()) return add(text);
  return add(escapeOf(colour)).add(text).add("\033[0m");
}

bool Output::isTerminal() const {
  static const bool terminal = isatty(STDOUT_FILENO) != 0;
  return terminal;
}

bool Output::isColoured() const {
  if (!isTerminal()) return false;
  static const bool coloured = [] {
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return (refused == nullptr || *refused == '\0') && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0;
  }();
  return coloured;
}

void Output::flush() {
  if (Kept* const kept = keptByThread()) {
    kept->text += std::exchange(text_, {});
    return;
  }
  const int error = writeAll(STDOUT_FILENO, text_);
  text_.clear();
  if (error != 0 && error != EPIPE)
    throw Trouble(std::string("cannot write to standard output: ") + std::strerror(error));
}

std::size_t Output::width() const {
  if (!isTerminal()) return 0;
  const char* const columns = std::getenv("COLUMNS");
  std::size_t width = 0;
  if (columns != nullptr && KFL::parseInteger(columns, width) == 0 && width > 0) return width;
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

void printError(std::string_view text) {
  if (Kept* const kept = keptByThread()) {
    kept->errors.emplace_back(text);
    return;
  }
  writeAll(STDERR_FILENO, "kfactl: " + printable(text) + "\n");
}

void printNote(std::string_view text) {
  printError("note: " + std::string(text));
}

std::string printable(std::string_view text) {
  if (isPlain(text)) return std::string(text);
  std::string out;
  out.reserve(text.size() + 8);
  appendPrintable(out, text, false);
  return out;
}

std::size_t displayWidth(std::string_view text) {
  if (isPlain(text)) return text.size();
  static const Utf8Locale utf8;
  if (utf8.get() == nullptr) return text.size();
  const locale_t previous = uselocale(utf8.get());
  std::size_t width = 0;
  std::mbstate_t state{};
  while (!text.empty()) {
    wchar_t character = 0;
    std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
    if (length == 0 || length > text.size()) {
      state = {};
      length = 1;
      width += 1;
    } else {
      width += static_cast<std::size_t>(std::max(wcwidth(character), 0));
    }
    text.remove_prefix(length);
  }
  uselocale(previous);
  return width;
}

std::string assignment(const std::string& key, const std::string& value) {
  std::string line = KFL::toUpper(key);
  if (KFL::isSpecialBashName(line)) line = key;
  line += "=";
  std::string shown;
  appendPrintable(shown, value, false);
  if (shown != value) {
    line += "$'";
    appendPrintable(line, value, true);
    return line += "'";
  }
  if (KFL::isBashSafe(value, nullptr)) return line + "\"" + value + "\"";
  line += "'";
  for (const char c : value)
    line += c == '\'' ? std::string_view("'\\''") : std::string_view(&c, 1);
  return line += "'";
}

Table::Table(std::initializer_list<std::string> headings) : Table(std::vector<std::string>(headings)) {}

Table::Table(const std::vector<std::string>& headings) : widths_(headings.size()) {
  rows_.reserve(32);
  add(headings);
}

void Table::addCell(Row& row, std::string_view cell) {
  row.push_back(cell.empty() ? "-" : printable(cell));
  std::size_t& width = widths_[row.size() - 1];
  width = std::max(width, displayWidth(row.back()));
}

void Table::add(std::initializer_list<std::string_view> cells) {
  Row& row = rows_.emplace_back();
  row.reserve(cells.size());
  for (const std::string_view cell : cells)
    addCell(row, cell);
}

void Table::add(std::span<const std::string> cells) {
  Row& row = rows_.emplace_back();
  row.reserve(cells.size());
  for (const std::string& cell : cells)
    addCell(row, cell);
}

namespace {

constexpr std::size_t kGap = 2;

std::size_t totalOf(const std::vector<std::size_t>& widths) {
  return std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
}

// The words of a cell, each with the blanks before it.
std::vector<std::string_view> wordsOf(std::string_view cell) {
  std::vector<std::string_view> words;
  while (!cell.empty()) {
    const std::size_t begin = std::min(cell.find_first_not_of(' '), cell.size());
    const std::size_t end = std::min(cell.find(' ', begin), cell.size());
    words.push_back(cell.substr(0, end));
    cell.remove_prefix(end);
  }
  return words;
}

std::string_view trimmed(std::string_view word) {
  return word.substr(std::min(word.find_first_not_of(' '), word.size()));
}

// The lines of a cell; a word that is wider than the column stands alone.
std::vector<std::string> wrap(const std::string& cell, std::size_t width) {
  if (displayWidth(cell) <= width) return {cell};
  std::vector<std::string> lines(1);
  for (const std::string_view word : wordsOf(cell)) {
    if (!lines.back().empty() && displayWidth(lines.back()) + displayWidth(word) > width)
      lines.emplace_back();
    lines.back() += lines.back().empty() ? trimmed(word) : word;
  }
  return lines;
}

std::size_t longestWord(const std::string& cell) {
  std::size_t longest = 0;
  for (const std::string_view word : wordsOf(cell))
    longest = std::max(longest, displayWidth(trimmed(word)));
  return longest;
}

// One row as lines whose cells line up; the last cell ends its line.
std::string layOut(const std::vector<std::vector<std::string>>& cells,
                   const std::vector<std::size_t>& widths) {
  std::size_t height = 0;
  for (const auto& lines : cells)
    height = std::max(height, lines.size());
  std::string text;
  for (std::size_t at = 0; at < height; ++at) {
    std::string line;
    std::size_t due = 0;  // blanks that only a further cell needs
    for (std::size_t column = 0; column < cells.size(); ++column) {
      const std::string cell = at < cells[column].size() ? cells[column][at] : std::string();
      if (!cell.empty()) line.append(std::exchange(due, 0), ' ').append(cell);
      due += widths[column] + kGap - std::min(displayWidth(cell), widths[column]);
    }
    text += line + "\n";
  }
  return text;
}

}  // namespace

// The widest columns give way first, none below its longest word.
std::vector<std::size_t> Table::fittingWidths(std::size_t limit) const {
  std::vector<std::size_t> widths = widths_;
  if (limit == 0 || totalOf(widths) <= limit) return widths;
  std::vector<std::size_t> least(widths.size(), 1);
  for (const Row& row : rows_)
    for (std::size_t i = 0; i < row.size(); ++i)
      least[i] = std::max(least[i], longestWord(row[i]));
  for (std::size_t total = totalOf(widths); total > limit; --total) {
    std::size_t widest = widths.size();
    for (std::size_t i = 0; i < widths.size(); ++i)
      if (widths[i] > least[i] && (widest == widths.size() || widths[i] > widths[widest])) widest = i;
    if (widest == widths.size()) break;
    --widths[widest];
  }
  return widths;
}

void Table::print(Output& out, bool withHeadings) const {
  if (Kept* const kept = keptByThread()) {
    kept->rows.insert(kept->rows.end(), rows_.begin(), rows_.end());
    return;
  }
  const std::size_t limit = out.width();
  const std::vector<std::size_t> widths = fittingWidths(limit);
  if (limit > 0 && totalOf(widths) > limit) return printStacked(out, limit);
  std::vector<std::vector<std::string>> cells(widths.size());
  for (const Row& row : rows_) {
    const bool isHeading = &row == &rows_.front();
    if (isHeading && !withHeadings) continue;
    for (std::size_t i = 0; i < row.size(); ++i)
      cells[i] = wrap(row[i], widths[i]);
    const std::string text = layOut(cells, widths);
    out.add(isHeading ? Colour::Bold : Colour::Plain, std::string_view(text).substr(0, text.size() - 1))
        .add("\n");
  }
}

// One cell to a line, for a terminal on which no row fits.
void Table::printStacked(Output& out, std::size_t limit) const {
  const Row& headings = rows_.front();
  std::size_t widest = 0;
  for (const std::string& heading : headings)
    widest = std::max(widest, displayWidth(heading));
  const std::size_t room = limit > widest + kGap ? limit - widest - kGap : 1;
  for (std::size_t i = 1; i < rows_.size(); ++i) {
    if (i > 1) out.add("\n");
    for (std::size_t column = 0; column < headings.size(); ++column)
      out.add(layOut({{headings[column]}, wrap(rows_[i][column], room)}, {widest, room}));
  }
}

}  // namespace kfactl
