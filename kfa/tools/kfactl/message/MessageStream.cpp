// SPDX-License-Identifier: Apache-2.0
#include "message/MessageStream.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace kfactl {

namespace {

constexpr std::size_t kNone = std::string_view::npos;

// The next "<" that begins a tag, behind comments and the like; none when one of these is left open.
std::size_t findTag(std::string_view text, std::size_t at) {
  constexpr std::string_view kSkipped[][2] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
  for (at = text.find('<', at); at != kNone; at = text.find('<', at)) {
    const auto* const skipped = std::find_if(std::begin(kSkipped), std::end(kSkipped), [&](const auto& pair) {
      return text.substr(at).starts_with(pair[0]);
    });
    if (skipped == std::end(kSkipped)) return at;
    const std::size_t end = text.find((*skipped)[1], at + (*skipped)[0].size());
    if (end == kNone) return kNone;
    at = end + (*skipped)[1].size();
  }
  return kNone;
}

// Behind the ">" of the tag that begins here; one in a value ends no tag.
std::size_t endOfTag(std::string_view text, std::size_t at) {
  for (char quote = '\0'; at < text.size(); ++at) {
    const char c = text[at];
    if (quote != '\0')
      quote = c == quote ? '\0' : quote;
    else if (c == '"' || c == '\'')
      quote = c;
    else if (c == '>')
      return at + 1;
  }
  return kNone;
}

// Behind the end of the element that comes next.
std::size_t endOfMessage(std::string_view text, std::size_t at) {
  for (int depth = 0; (at = findTag(text, at)) != kNone;) {
    const std::size_t end = endOfTag(text, at);
    if (end == kNone || text[at + 1] == '!') return kNone;
    if (text[at + 1] == '/')
      --depth;
    else if (text[end - 2] != '/')
      ++depth;
    at = end;
    if (depth <= 0) return at;
  }
  return kNone;
}

// Newlines stand for the lines before the message: behind its declaration, which nothing may precede.
std::string atLine(std::string_view message, std::size_t linesBefore) {
  const std::size_t first = message.find_first_not_of(" \t\r\n");
  const std::string_view blanks = message.substr(0, first);
  message.remove_prefix(blanks.size());
  linesBefore += static_cast<std::size_t>(std::count(blanks.begin(), blanks.end(), '\n'));
  std::string text(message);
  const std::size_t declaration = message.starts_with("<?xml ") ? message.find("?>") : kNone;
  text.insert(declaration == kNone ? 0 : declaration + 2, linesBefore, '\n');
  return text;
}

std::size_t countLines(std::string_view text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

void eachMessage(const Input& input, const MessagePart& part) {
  const std::string_view text = input.text;
  std::size_t lines = 0;
  for (std::size_t begin = 0, end = 0; begin == 0 || begin < text.size(); begin = end) {
    end = endOfMessage(text, begin);
    if (end == kNone || findTag(text, end) == kNone) end = text.size();
    if (begin == 0 && end == text.size()) return part(input, input.name);
    const std::string_view message = text.substr(begin, end - begin);
    const std::size_t first = std::min(findTag(message, 0), message.size());
    part({input.name, atLine(message, lines)},
         input.name + ":" + std::to_string(lines + countLines(message.substr(0, first)) + 1));
    lines += countLines(message);
  }
}

}  // namespace kfactl
