// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: a walk over the lines of a text as bash sees them, one at a time.
#ifndef KFAFUNCTIONALITY_FILES_KFABASHLINES_H
#define KFAFUNCTIONALITY_FILES_KFABASHLINES_H

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>

#pragma GCC visibility push(hidden)

namespace KFA {

// Whether a line KEY="value" assigns the key. What is no such name is kept out of files, which shells source.
inline bool isAssignableKey(std::string_view key) {
  return !key.empty() && !KFL::isDigit(key.front()) &&
         std::all_of(key.begin(), key.end(), [](char c) { return KFL::isAlnum(c) || c == '_'; });
}

class BashLines {
 public:
  explicit BashLines(std::string_view text) : stream_(text) {}

  // Goes to the next line; false when there is none.
  bool next() {
    const int length = buffer_.read(stream_);
    if (length < 0) return false;
    length_ = static_cast<std::size_t>(length);
    ++number_;
    return true;
  }

  // From 1.
  std::size_t getNumber() const { return number_; }
  // NUL-terminated; may be altered.
  char* getText() { return buffer_.text(); }
  std::string_view view() const { return {buffer_.text(), length_}; }
  KFL::KFLBashLine examine() const { return KFL::examineBashLine(buffer_.text()); }

 private:
  KFAMemoryStream stream_;
  detail::LineBuffer buffer_;
  std::size_t length_ = 0;
  std::size_t number_ = 0;
};

// What is wrong with a line, without the column.
std::string describeFault(const KFL::KFLBashLine& line);

// A text between quotes for a message of one line: control characters as \xNN, a long text cut.
std::string quoteText(const std::string& text);

}  // namespace KFA

#pragma GCC visibility pop

#endif
