// SPDX-License-Identifier: Apache-2.0
// kfactl config fix: the edits that cure findings with one right answer.
#include <memory>

#include <CLI/CLI.hpp>

#include <KFAFunctionality/node/KFAConfigFix.h>

#include "config/Config.h"
#include "environments/ChangeMany.h"
#include "environments/Environments.h"

namespace kfactl {

namespace {

struct FixOptions {
  ChangeMany change;
  bool apply = false;
};

int fix(Session& session, FixOptions& options) {
  Environments environments(session, session.arguments(), options.apply ? WhenNone::Refuse : WhenNone::All);
  if (!options.apply) options.change.setDryRun();
  const KFA::KFAEnvConfigRules rules(session.environmentParser());
  const auto edit = [&](const std::string& name, const std::string& before) {
    std::vector<KFA::KFAConfigFix> fixes;
    std::string after = fixConfig(rules, before, fixes);
    if (session.format() == Format::Table && !options.apply)
      for (const KFA::KFAConfigFix& one : fixes)
        session.out().addLine(printable(name + ":" + std::to_string(one.line) + ": " + one.what));
    return after;
  };
  return environments.status(
      options.change.apply(session, environments.files(), environments.isSingle(), edit));
}

}  // namespace

Action prepareFix(CLI::App& app) {
  const auto options = std::make_shared<FixOptions>();
  options->change.declare(app, true);
  app.add_flag("--apply", options->apply, "Make the edits; without, they are only shown")
      ->excludes("--dry-run");
  return [options](Session& session) { return fix(session, *options); };
}

}  // namespace kfactl
