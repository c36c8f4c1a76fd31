// SPDX-License-Identifier: Apache-2.0
// kfactl qos advise: the smallest changes that make every violated formula hold.
#include "qos/QosAdvise.h"

#include <memory>

#include <nlohmann/json.hpp>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/node/KFAQoSAdvice.h>

#include "environments/Environments.h"
#include "qos/QosFormulas.h"
#include "qos/QosParameters.h"
#include "terminal/Document.h"
#include "terminal/Session.h"

namespace kfactl {

namespace {

Document describe(KFA::KFAQoSMemoryMode mode, const KFA::KFAQoSAdvice& advice) {
  Document changes = Document::array();
  for (const KFA::KFAChange& change : advice.changes)
    changes.push_back({{"key", change.key}, {"value", *change.value}, {"before", *change.before}});
  return {{"memory_mode", wordFor(mode)},
          {"violated", advice.violated},
          {"changes", std::move(changes)},
          {"left", advice.left}};
}

void print(Session& session, const std::string& name, KFA::KFAQoSMemoryMode mode,
           const KFA::KFAQoSAdvice& advice) {
  Output& out = session.out();
  if (mode == KFA::KFAQoSMemoryMode::LimitMissing) out.addLine("# " + printable(name) + ": " + textOf(mode));
  if (advice.violated.empty()) return;
  out.addLine("# " + printable(name) + ": violated: " + numbersOf(advice.violated));
  if (!advice.changes.empty()) out.addLine(commandFor(name, advice.changes));
  if (!advice.left.empty()) out.addLine("# no change was found for: " + numbersOf(advice.left));
}

}  // namespace

std::string numbersOf(const std::vector<int>& numbers) {
  std::string text;
  for (const int number : numbers)
    text += (text.empty() ? "" : ", ") + std::to_string(number);
  return text;
}

std::string commandFor(const std::string& name, const KFA::KFAChangeList& changes) {
  std::string command = "kfactl config set " + KFA::quoteForShell(name);
  for (const KFA::KFAChange& change : changes)
    command += " " + KFL::toUpper(change.key) + "=" + *change.value;
  return command;
}

int adviseQos(Session& session) {
  Environments environments(session, session.arguments(), WhenNone::All);
  const auto parser = session.environmentParser();
  const auto tune = formulasOf(session);
  Document all = Document::array();
  int status = kFine;
  environments.each(
      [&](const auto& file, const Input& input) {
        const Resources resources = readResources(session, input);
        KFA::KFAQoSAdvice advice;
        const KFA::KFAQoSMemoryMode mode = resources.mode();
        if (mode == KFA::KFAQoSMemoryMode::Formulas) advice = adviseQoS(*tune, *parser, resources.qoses);
        if (!advice.violated.empty() || mode == KFA::KFAQoSMemoryMode::LimitMissing) status = kFinding;
        if (session.format() == Format::Table)
          print(session, file.path, mode, advice);
        else
          all.push_back(documentOf(file, describe(mode, advice)));
      },
      [&](const auto& file, const std::string& why) { all.push_back(failureOf(file, why)); });
  if (session.format() != Format::Table) printDocument(session, all, "environments", "environment");
  return environments.status(status);
}

}  // namespace kfactl
