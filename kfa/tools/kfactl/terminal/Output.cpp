// SPDX-License-Identifier: Apache-2.0
#include "terminal/Output.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

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
  const int error = writeAll(STDOUT_FILENO, text_);
  text_.clear();
  if (error != 0 && error != EPIPE)
    throw Trouble(std::string("cannot write to standard output: ") + std::strerror(error));
}

void printError(std::string_view text) {
  writeAll(STDERR_FILENO, "kfactl: " + printable(text) + "\n");
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
  std::string line = KFL::toUpper(key) + "=";
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

Table::Table(std::initializer_list<const char*> headings) : widths_(headings.size()) {
  rows_.reserve(32);
  Row row(headings.begin(), headings.end());
  for (std::size_t i = 0; i < row.size(); ++i)
    widths_[i] = row[i].size();
  rows_.push_back(std::move(row));
}

void Table::add(std::initializer_list<std::string_view> cells) {
  Row row;
  row.reserve(cells.size());
  for (const std::string_view cell : cells) {
    row.push_back(cell.empty() ? "-" : printable(cell));
    std::size_t& width = widths_[row.size() - 1];
    width = std::max(width, displayWidth(row.back()));
  }
  rows_.push_back(std::move(row));
}

void Table::print(Output& out) const {
  std::string line;
  for (const Row& row : rows_) {
    line.clear();
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line.append(widths_[i] - displayWidth(row[i]) + 2, ' ');
    }
    out.add(&row == &rows_.front() ? Colour::Bold : Colour::Plain, line).add("\n");
  }
}

}  // namespace kfactl
