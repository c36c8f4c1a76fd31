// SPDX-License-Identifier: Apache-2.0
#include "KFAConfigLines.h"

#include <algorithm>

#include <KFLCommon/KFLText.h>

namespace KFA {

void ConfigLine::take(std::string_view text) {
  text_.assign(text.substr(0, text.find('\0')));
  judged_ = KFL::examineBashLine(text_.c_str());
}

bool ConfigLine::isSilent() const {
  const auto first = std::find_if_not(text_.begin(), text_.end(), KFL::isSpace);
  return first == text_.end() || *first == '#';
}

std::string ConfigLine::key() const {
  return KFL::toLower(std::string(judged_.name));
}

std::string ConfigLine::value() const {
  std::string copy = text_;
  char* name = nullptr;
  char* value = nullptr;
  const bool taken = KFL::parseBashStr(copy.data(), &name, &value, nullptr, nullptr) == KFL::kBashAssignment;
  return taken ? value : "";
}

std::string_view ConfigLine::front() const {
  return std::string_view(text_).substr(0, static_cast<std::size_t>(judged_.value.data() - text_.data()));
}

std::string_view ConfigLine::rest() const {
  const auto end = static_cast<std::size_t>(judged_.value.data() - text_.data()) + judged_.value.size();
  return std::string_view(text_).substr(end);
}

bool ConfigLine::isAlone() const {
  const std::string_view behind = rest();
  const auto first =
      std::find_if_not(behind.begin(), behind.end(), [](char c) { return KFL::isBlank(c) || c == ';'; });
  return first == behind.end() || *first == '#';
}

bool ConfigLine::isPart() const {
  if (isSilent() || (isAssignment() && isAlone())) return false;
  // The grammar says what is open of a line that assigns, and of no other one.
  const std::string assigning = "A=1; " + text_;
  return judged_.continues ||
         KFL::examineBashLine(assigning.c_str()).kind == KFL::KFLBashLine::Kind::Malformed;
}

std::string ConfigLine::fault() const {
  const std::string text = judged_.describe();
  const std::size_t column = text.find(": ");
  return column == std::string::npos ? text : text.substr(column + 2);
}

bool ConfigLines::next() {
  if (left_.empty()) return false;
  const std::size_t newline = left_.find('\n');
  hasNewline_ = newline != std::string_view::npos;
  text_ = left_.substr(0, newline);
  offset_ = end_;
  const std::size_t length = text_.size() + (hasNewline_ ? 1 : 0);
  end_ += length;
  left_.remove_prefix(length);
  ++number_;
  line_.take(text_);
  return true;
}

KeyPlace placeOfKey(std::string_view text, const std::string& key) {
  KeyPlace place;
  ConfigLine line;
  std::size_t number = 0;
  const auto isSame = [](char a, char b) { return KFL::toLower(a) == b; };
  for (std::string_view left = text; !left.empty();) {
    const std::string_view here = left.substr(0, left.find('\n'));
    left.remove_prefix(std::min(here.size() + 1, left.size()));
    ++number;
    if (std::search(here.begin(), here.end(), key.begin(), key.end(), isSame) == here.end()) continue;
    line.take(here);
    if (line.isAssignment() && line.key() == key) place = {number, line.front().size() + 1, here};
  }
  return place;
}

}  // namespace KFA
