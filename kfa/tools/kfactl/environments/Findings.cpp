// SPDX-License-Identifier: Apache-2.0
#include "environments/Findings.h"

#include <array>
#include <set>
#include <string_view>

#include <nlohmann/json.hpp>

#include "terminal/Output.h"

namespace kfactl {

namespace {

using Severity = KFA::KFANodeFinding::Severity;

Colour colourOf(Severity severity) {
  constexpr Colour kColours[] = {Colour::Red, Colour::Magenta, Colour::Cyan};
  return kColours[static_cast<std::size_t>(severity)];
}

}  // namespace

void printFinding(Output& out, const KFA::KFANodeFinding& finding) {
  std::string place = printable(finding.file);
  if (finding.line != 0) place += ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column);
  out.add(Colour::Bold, place + ": ")
      .add(colourOf(finding.severity), toString(finding.severity) + std::string(": "));
  out.addLine(printable(finding.text));
  if (finding.line == 0) return;
  out.addLine("  " + printable(finding.lineText));
  const std::string before = printable(std::string_view(finding.lineText).substr(0, finding.column - 1));
  out.add("  " + std::string(displayWidth(before), ' ')).add(Colour::Green, "^").add("\n");
}

Document describeFinding(const KFA::KFANodeFinding& finding) {
  Document document = {{"file", finding.file}};
  if (finding.veid >= 0) document["veid"] = finding.veid;
  document.update({{"line", finding.line},
                   {"column", finding.column},
                   {"severity", toString(finding.severity)},
                   {"rule", finding.rule},
                   {"text", finding.text}});
  if (!finding.related.empty()) document["related"] = finding.related;
  return document;
}

static std::string countText(std::size_t count, const char* word) {
  return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

std::string summaryOf(const std::vector<KFA::KFANodeFinding>& findings, std::size_t files) {
  std::array<std::size_t, 3> counts{};
  std::set<std::string> names;
  for (const KFA::KFANodeFinding& finding : findings) {
    ++counts[static_cast<std::size_t>(finding.severity)];
    if (finding.line != 0) names.insert(finding.file);
  }
  const std::string notes = counts[2] == 0 ? "" : ", " + countText(counts[2], "note");
  return countText(counts[0], "error") + ", " + countText(counts[1], "warning") + notes + " in " +
         std::to_string(names.size()) + " of " + countText(files, "file");
}

}  // namespace kfactl
