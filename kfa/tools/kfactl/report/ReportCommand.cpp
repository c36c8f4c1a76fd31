// SPDX-License-Identifier: Apache-2.0
// kfactl report: a page that shows the node.
#include <ctime>
#include <memory>

#include <CLI/CLI.hpp>

#include <KFAFunctionality/node/KFANodeReport.h>

#include "environments/Environments.h"
#include "environments/NodeOptions.h"
#include "qos/QosFormulas.h"
#include "report/ReportPage.h"
#include "terminal/Cli.h"
#include "terminal/Node.h"

namespace kfactl {

namespace {

std::string timeText() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  char text[32] = {};
  if (gmtime_r(&now, &parts) == nullptr ||
      std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &parts) == 0)
    return "at an unknown time";
  return text;
}

int report(Session& session, const NodeOptions& options) {
  Environments environments(session, session.arguments(), WhenNone::All);
  const KFA::KFANodeCheckOptions how = options.resolve(session);
  KFA::KFANodeReporter reporter(session.environmentParser(), session.vocabulary(), formulasOf(session), how,
                                nodeFiles());
  environments.eachAtOnce(
      judging(session, how, [&](KFA::KFAJudgedFile judged) { reporter.add(std::move(judged)); }),
      [&](const auto& file, const std::string& why) { reporter.addFailure(file, why); });
  session.out().add(pageOf(reporter.finish(), session.node(), timeText()));
  return environments.status(kFine);
}

Action prepareReport(CLI::App& app) {
  const auto options = std::make_shared<NodeOptions>();
  options->declare(app);
  return [options](Session& session) { return report(session, *options); };
}

constexpr Command kCommands[] = {
    {nullptr, "[FILE...]", "Write a page that shows the node: one HTML file for a browser",
     "A table of the environments that sorts and filters, what they take together beside what the node has, "
     "findings with\n"
     "their lines, violated formulas with advice, networks. The page needs no other file and no script; "
     "behind its name,\n"
     "#sort=NAME&filter=TEXT says how the table begins (-NAME: descending).\n\n"
     "Examples:\n"
     "  kfactl report > node.html\n"
     "  kfactl --node examples/node/conf report --memory 64G --cpus 16 > node.html",
     prepareReport, kTableOnly},
};

}  // namespace

extern const Group reportGroup;
const Group reportGroup{"report", "A page that shows the node", kCommands};

}  // namespace kfactl
