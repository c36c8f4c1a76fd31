// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: the lines of a KEY="value" text with what each says.
#ifndef KFAFUNCTIONALITY_NODE_KFACONFIGLINES_H
#define KFAFUNCTIONALITY_NODE_KFACONFIGLINES_H

#include <cstddef>
#include <string>
#include <string_view>

#include <KFLBash/KFLBashStr.h>

#include <KFAFunctionality/KFATypes.h>

#pragma GCC visibility push(hidden)

namespace KFA {

// One line, taken apart. It owns its text.
class ConfigLine {
 public:
  ConfigLine() = default;
  explicit ConfigLine(const std::string& text) { take(text); }
  ConfigLine(const ConfigLine&) = delete;
  ConfigLine& operator=(const ConfigLine&) = delete;

  void take(std::string_view text);

  const std::string& text() const { return text_; }
  const KFL::KFLBashLine& judged() const { return judged_; }
  bool isAssignment() const { return judged_.kind == KFL::KFLBashLine::Kind::Assignment; }
  bool isMalformed() const { return judged_.kind == KFL::KFLBashLine::Kind::Malformed; }
  // Blank, or a comment.
  bool isSilent() const;
  // Of an assignment: its key in lower case, its value as a shell reads it, and what stands on both sides.
  std::string key() const;
  std::string value() const;
  // The value as it is written, quotes included.
  std::string_view written() const { return judged_.value; }
  std::string_view front() const;
  std::string_view rest() const;
  // Whether nothing but blanks and a comment stands behind the value.
  bool isAlone() const;
  // Whether it is part of a command of several lines: it begins a compound command, a list or a here-document, or goes on
  // with one. A blank line, a comment, and an assignment that is alone do not tell.
  bool isPart() const;
  // What is wrong, without the column.
  std::string fault() const;

 private:
  std::string text_;
  KFL::KFLBashLine judged_;
};

// A walk over the lines of a text, which must outlive it.
class ConfigLines {
 public:
  explicit ConfigLines(std::string_view text) : left_(text) {}

  bool next();
  // From 1.
  std::size_t number() const { return number_; }
  // Where the line begins in the text.
  std::size_t offset() const { return offset_; }
  std::string_view text() const { return text_; }
  std::string withNewline() const { return std::string(text_) + (hasNewline_ ? "\n" : ""); }
  const ConfigLine& line() const { return line_; }

 private:
  std::string_view left_;
  std::string_view text_;
  std::size_t number_ = 0;
  std::size_t offset_ = 0;
  std::size_t end_ = 0;
  bool hasNewline_ = false;
  ConfigLine line_;
};

// Where a text assigns to a key, which is in lower case: the last such line, which counts or else is the one that a person
// looks for. All 0 and empty where no line does.
struct KeyPlace {
  std::size_t line = 0;    // from 1
  std::size_t column = 0;  // of the value, from 1
  std::string_view text;   // of the line, within the whole
};
KeyPlace placeOfKey(std::string_view text, const std::string& key);

}  // namespace KFA

#pragma GCC visibility pop

#endif
