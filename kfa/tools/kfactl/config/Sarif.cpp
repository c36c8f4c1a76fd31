// SPDX-License-Identifier: Apache-2.0
#include "config/Sarif.h"

#include <algorithm>
#include <string_view>

#include <nlohmann/json.hpp>

#include <KFLCommon/KFLText.h>

#include "terminal/Document.h"
#include "terminal/Session.h"

namespace kfactl {

namespace {

using KFA::KFANodeFinding;

// A path as a reference: what a URI has no place for as %XX.
std::string uriOf(const std::string& path) {
  constexpr std::string_view kPlain = "-._~/";
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string uri = path.starts_with('/') ? "file://" : "";
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (KFL::isAlnum(c) || kPlain.find(c) != std::string_view::npos)
      uri += c;
    else
      uri += {'%', kDigits[byte >> 4U], kDigits[byte & 15U]};
  }
  return uri;
}

// Columns count characters, not bytes.
std::size_t columnOf(const KFANodeFinding& finding) {
  const std::string_view before = std::string_view(finding.lineText).substr(0, finding.column - 1);
  const auto inside = std::count_if(before.begin(), before.end(),
                                    [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) == 0x80U; });
  return finding.column - static_cast<std::size_t>(inside);
}

Document placeOf(const std::string& path) {
  return {{"artifactLocation", {{"uri", uriOf(path)}}}};
}

Document resultOf(const KFANodeFinding& finding) {
  Document place = placeOf(finding.file);
  if (finding.line != 0) place["region"] = {{"startLine", finding.line}, {"startColumn", columnOf(finding)}};
  Document result = {{"ruleId", finding.rule},
                     {"level", toString(finding.severity)},
                     {"message", {{"text", finding.text}}},
                     {"locations", Document::array({Document{{"physicalLocation", place}}})}};
  const std::size_t colon = finding.related.rfind(':');
  if (colon == std::string::npos) return result;
  Document other = placeOf(finding.related.substr(0, colon));
  std::size_t line = 0;
  if (KFL::parseInteger(std::string_view(finding.related).substr(colon + 1), line) == 0 && line != 0)
    other["region"] = {{"startLine", line}};
  result["relatedLocations"] = Document::array({Document{{"physicalLocation", other}}});
  return result;
}

}  // namespace

void printSarif(Session& session, const std::vector<KFANodeFinding>& findings) {
  Document rules = Document::array();
  for (const KFA::KFANodeRule& rule : KFA::nodeRules())
    rules.push_back({{"id", rule.name}, {"shortDescription", {{"text", rule.description}}}});
  Document results = Document::array();
  for (const KFANodeFinding& finding : findings)
    results.push_back(resultOf(finding));
  const Document driver = {{"name", "kfactl"}, {"version", KFACTL_VERSION}, {"rules", std::move(rules)}};
  const Document run = {
      {"tool", {{"driver", driver}}}, {"columnKind", "unicodeCodePoints"}, {"results", std::move(results)}};
  printDocument(session,
                {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
                 {"version", "2.1.0"},
                 {"runs", Document::array({run})}},
                "sarif");
}

}  // namespace kfactl
