// SPDX-License-Identifier: Apache-2.0
#include "qos/QosFormulas.h"

#include <nlohmann/json.hpp>

#include <KFLCommon/KFLError.h>

namespace kfactl {

namespace {

using KFA::KFAQVTermType;

class StepRecorder final : public KFA::KFAQVEvaluationObserver {
 public:
  StepRecorder(const KFA::KFAQVTune& tune, std::vector<Step>& steps) : tune_(tune), steps_(steps) {}
  void step(const KFAQVTermType& term, long long left, long long right, long long result) override {
    steps_.push_back({tune_.toString(term), left, right, result});
  }

 private:
  const KFA::KFAQVTune& tune_;
  std::vector<Step>& steps_;
};

// The value of a formula that is one term.
long long valueOf(const KFAQVTermType& term, const KFA::KFAQVTuneArray& values, int multipleIndex) {
  if (term.kind == KFA::KFAQVTermNumber) return term.value;
  const int id = term.kind == KFA::KFAQVTermMultiple ? multipleIndex : term.value % KFA::kHardOffset;
  const KFA::KFAQVParamsValue& value = *values[static_cast<std::size_t>(id)];
  return term.value >= KFA::kHardOffset ? value.hard : value.soft;
}

// The parameters of a formula that have no value, each once.
std::vector<std::string> missingOf(const KFA::KFAQVTune& tune, const KFA::KFAQVTuneArray& values,
                                   const KFA::KFAQVPolishNotation& formula) {
  KFA::KFAQVParamIDSet missing;
  for (const KFAQVTermType& term : formula.terms) {
    const int id = term.value % KFA::kHardOffset;
    if (term.kind == KFA::KFAQVTermParameter && values[static_cast<std::size_t>(id)] == nullptr)
      missing.insert(id);
  }
  std::vector<std::string> names;
  for (const int id : missing)
    names.push_back(tune.getByIndex(id));
  return names;
}

Evaluation evaluateOnce(const KFA::KFAQVTune& tune, const KFA::KFAQVTuneArray& values,
                        const KFA::KFAQVPolishNotation& formula, int multipleIndex) {
  Evaluation evaluation;
  StepRecorder recorder(tune, evaluation.steps);
  KFA::KFAQVParamIDSet used;
  const int result = tune.checkByFormula(values, formula, used, multipleIndex, &recorder);
  for (const int id : used)
    evaluation.used.push_back({tune.getByIndex(id), values[static_cast<std::size_t>(id)]});
  if (multipleIndex >= 0) evaluation.multiple = tune.getByIndex(multipleIndex);
  if (result < 0) {
    evaluation.state = Evaluation::State::NotCheckable;
    if (result == KFA::kTuneParameterAbsent) {
      evaluation.missing = missingOf(tune, values, formula);
    } else {
      evaluation.reason = KFL::getErrorMessage();
    }
    return evaluation;
  }
  evaluation.state = result == 0 ? Evaluation::State::Holds : Evaluation::State::Violated;
  evaluation.value = evaluation.steps.empty() ? valueOf(formula.terms.front(), values, multipleIndex)
                                              : evaluation.steps.back().result;
  return evaluation;
}

bool isComparison(const Step& step) {
  return step.operation.find_first_of("<>=;") != std::string::npos;
}

}  // namespace

bool holdsThroughout(const KFA::KFAQVTune& tune, const KFA::KFAQVTuneArray& values,
                     const KFA::KFAQVPolishNotation& formula) {
  KFA::KFAQVParamIDSet used;
  if (formula.hasMultiple == 0) return tune.checkByFormula(values, formula, used, -1) == 0;
  bool isEvaluated = false;
  for (const int id : *formula.multipleList) {
    if (values[static_cast<std::size_t>(id)] == nullptr) continue;
    if (tune.checkByFormula(values, formula, used, id) != 0) return false;
    isEvaluated = true;
  }
  return isEvaluated;
}

std::vector<Evaluation> evaluate(const KFA::KFAQVTune& tune, const KFA::KFAQVTuneArray& array,
                                 const KFA::KFAQVPolishNotation& formula) {
  if (formula.hasMultiple == 0) return {evaluateOnce(tune, array, formula, -1)};
  std::vector<Evaluation> evaluations;
  for (const int id : *formula.multipleList) {
    if (array[static_cast<std::size_t>(id)] != nullptr)
      evaluations.push_back(evaluateOnce(tune, array, formula, id));
  }
  return evaluations;
}

const Step* failingStep(const Evaluation& evaluation) {
  if (evaluation.state != Evaluation::State::Violated) return nullptr;
  for (const Step& step : evaluation.steps)
    if (step.result == 0 && isComparison(step)) return &step;
  return nullptr;
}

unsigned long long differenceOf(const Step& step) {
  const auto left = static_cast<unsigned long long>(step.left);
  const auto right = static_cast<unsigned long long>(step.right);
  return step.left > step.right ? left - right : right - left;
}

std::string valueText(const KFA::KFAQVParamsValue& value) {
  const std::string hard = std::to_string(value.hard);
  return value.soft == value.hard ? hard : std::to_string(value.soft) + ":" + hard;
}

std::string usedText(const Evaluation& evaluation) {
  std::string text;
  for (const UsedValue& used : evaluation.used)
    text += (text.empty() ? "" : ", ") + used.name + " " + valueText(*used.value);
  return text;
}

Document usedDocument(const Evaluation& evaluation) {
  Document parameters = Document::object();
  for (const UsedValue& used : evaluation.used)
    parameters[used.name] = {{"soft", used.value->soft}, {"hard", used.value->hard}};
  return parameters;
}

std::string refusalText(const std::string& formula, const KFA::KFAQVFormulaError& error) {
  constexpr std::size_t kShown = 200;
  const std::string shown = formula.size() > kShown ? formula.substr(0, kShown) + "..." : formula;
  return "column " + std::to_string(error.offset + 1) + " of '" + shown + "': " + error.reason;
}

}  // namespace kfactl
