// SPDX-License-Identifier: Apache-2.0
#include "terminal/Diff.h"

#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#include <dtl/dtl.hpp>
#pragma GCC diagnostic pop

namespace kfactl {

namespace {

// As diff prints a last line without a newline: what follows it belongs to the line.
std::vector<std::string> splitLines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) {
      lines.push_back(std::string(text) + "\n\\ No newline at end of file");
      break;
    }
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  return lines;
}

Colour colourOf(std::string_view line) {
  switch (line.empty() ? ' ' : line.front()) {
    case '+':
      return Colour::Green;
    case '-':
      return Colour::Red;
    case '@':
      return Colour::Cyan;
    default:
      return Colour::Plain;
  }
}

}  // namespace

std::string unifiedDiff(const std::string& name, const std::string& before, const std::string& after) {
  if (before == after) return {};
  dtl::Diff<std::string> diff(splitLines(before), splitLines(after));
  diff.onHuge();
  diff.compose();
  diff.composeUnifiedHunks();
  std::ostringstream hunks;
  diff.printUnifiedFormat(hunks);
  std::string text = std::move(hunks).str();
  // Before the first line of nothing is line 0.
  if (before.empty()) text.replace(text.find("-1,0"), 4, "-0,0");
  return "--- " + name + "\n+++ " + name + "\n" + text;
}

void printUnifiedDiff(Output& out, const std::string& name, const std::string& before,
                      const std::string& after) {
  const std::string text = unifiedDiff(name, before, after);
  if (!out.isTerminal()) {
    out.add(text);
    return;
  }
  std::size_t number = 0;
  for (std::string_view rest = text; !rest.empty(); ++number) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    out.add(number < 2 ? Colour::Bold : colourOf(line), printable(line)).add("\n");
    rest.remove_prefix(line.size() + 1);
  }
}

}  // namespace kfactl
