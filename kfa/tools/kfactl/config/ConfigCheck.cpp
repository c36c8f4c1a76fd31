// SPDX-License-Identifier: Apache-2.0
// kfactl config check: what is wrong in files, and between them.
#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFAFunctionality/node/KFANodeCheck.h>

#include "config/Config.h"
#include "config/Sarif.h"
#include "environments/Environments.h"
#include "environments/Findings.h"
#include "environments/NodeOptions.h"
#include "terminal/Document.h"
#include "terminal/Hint.h"
#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using KFA::KFANodeFinding;
using Severity = KFANodeFinding::Severity;

struct CheckOptions {
  bool strict = false;
  std::string level = "note";
  NodeOptions node;
};

// --- The command ------------------------------------------------------------------------------------------------------

Severity levelOf(const std::string& name) {
  for (const Severity severity : {Severity::Error, Severity::Warning, Severity::Note})
    if (name == toString(severity)) return severity;
  throw Trouble("--level: unknown level '" + name + "'; " + hintFor(name, {"error", "warning", "note"}));
}

void print(Session& session, const std::vector<KFANodeFinding>& findings, const Environments& environments,
           Document failures) {
  if (session.format() == Format::Sarif) return printSarif(session, findings);
  if (session.format() != Format::Table) {
    Document all = Document::array();
    for (const KFANodeFinding& finding : findings)
      all.push_back(describeFinding(finding));
    for (Document& failure : failures)
      all.push_back(std::move(failure));
    return printDocument(session, all, "findings", "finding");
  }
  for (const KFANodeFinding& finding : findings)
    printFinding(session.out(), finding);
  if (!environments.isSingle())
    session.out().add(Colour::Bold, summaryOf(findings, environments.files().size())).add("\n");
}

int check(Session& session, const CheckOptions& options) {
  const Severity level = levelOf(options.level);
  Environments environments(session, session.arguments(), WhenNone::All);
  const KFA::KFANodeCheckOptions how = options.node.resolve(session);
  KFA::KFANodeCheck node(session.environmentParser(), how, nodeFiles());
  Document failures = Document::array();
  environments.eachAtOnce(
      judging(session, how, [&](KFA::KFAJudgedFile judged) { node.add(std::move(judged)); }),
      [&](const auto& file, const std::string& why) { failures.push_back(failureOf(file, why)); });
  std::vector<KFANodeFinding> findings = node.finish();
  std::erase_if(findings, [level](const KFANodeFinding& finding) { return finding.severity > level; });
  if (!environments.isSingle()) sortBySeverity(findings);
  const bool isFound = std::any_of(findings.begin(), findings.end(), [&](const KFANodeFinding& finding) {
    return options.strict || finding.severity != Severity::Note;
  });
  print(session, findings, environments, std::move(failures));
  return environments.status(isFound ? kFinding : kFine);
}

}  // namespace

Action prepareCheck(CLI::App& app) {
  const auto options = std::make_shared<CheckOptions>();
  app.add_flag("--strict", options->strict, "Status 1 for notes, too");
  app.add_option("--level", options->level, "Show error, warning or note, and what is worse")
      ->type_name("LEVEL");
  options->node.declare(app);
  return [options](Session& session) { return check(session, *options); };
}

}  // namespace kfactl
