// SPDX-License-Identifier: Apache-2.0
#include "qos/QosFormulas.h"

#include <memory>

#include <nlohmann/json.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLVEnvConfig.h>
#include <KFLFunctionality/KFLVocMap.h>

#include "terminal/Session.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

// What would be right, for the faults of a vocabulary that the library's text leaves open.
std::string adviceFor(const std::string& reason) {
  constexpr std::pair<const char*, const char*> kAdvice[] = {
      {"can not read QOS", "; a category of the words \"kelvarium qos\" with parameters is needed"},
      {"can not read FORMULAE", "; a category of the words \"kelvarium tune\" with formulas is needed"},
      {"double index", "; give each parameter an id of its own, and none the id QOS"},
      {"no index for", "; leave parameters out"},
  };
  for (const auto& [beginning, advice] : kAdvice)
    if (reason.starts_with(beginning)) return advice;
  return {};
}

// Names the first formula of the vocabulary that the checker refuses.
void refuseFormula(Session& session, const KFA::KFAQVTune& tune) {
  const std::unique_ptr<KFL::KFLVocIterator> it(
      session.vocabulary()->readCategory({KFA::kTechnology, "tune"}));
  if (!it) return;
  for (int left = it->firstParameter(); left == 0; left = it->nextParameter()) {
    std::string number, expression, comment;
    if (it->getStringAttribute(KFL::kVocFormulaIdentifier, number) != 0 ||
        it->getStringAttribute(KFL::kVocExpression, expression) != 0 ||
        it->getStringAttribute(KFL::kVocComment, comment) != 0)
      continue;
    KFA::KFAQVPolishNotation notation;
    KFA::KFAQVFormulaError error;
    if (tune.formFormula(expression, notation, &error) != 0)
      throw Trouble(session.vocabularyPath() + ": formula " + number + ": " + refusalText(expression, error));
  }
}

}  // namespace

std::shared_ptr<const KFA::KFAQVTune> formulasOf(Session& session) {
  if (auto tune = KFA::KFAQVTune::getShared(session.vocabulary())) return tune;
  const std::string reason = KFL::getErrorMessage();
  if (reason.starts_with("can not parse formula")) {
    const KFL::KFLVEnvConfig config;
    KFA::KFAQVTune names(config, session.vocabulary());
    names.init();
    refuseFormula(session, names);
  }
  throw Trouble(session.vocabularyPath() + ": " + reason + adviceFor(reason));
}

Document usedDocument(const Evaluation& evaluation) {
  Document parameters = Document::object();
  for (const Evaluation::Used& used : evaluation.used)
    parameters[used.name] = {{"soft", used.value->soft}, {"hard", used.value->hard}};
  return parameters;
}

std::string refusalText(const std::string& formula, const KFA::KFAQVFormulaError& error) {
  constexpr std::size_t kShown = 200;
  const std::string shown = formula.size() > kShown ? formula.substr(0, kShown) + "..." : formula;
  return "column " + std::to_string(error.offset + 1) + " of '" + shown + "': " + error.reason;
}

}  // namespace kfactl
