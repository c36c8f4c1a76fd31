// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAQoSJudgement.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <span>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/node/KFAKeyCatalogue.h>

namespace KFA {

namespace {

using Evaluation = KFAFormulaEvaluation;
using State = Evaluation::State;

class StepRecorder final : public KFAQVEvaluationObserver {
 public:
  StepRecorder(const KFAQVTune& tune, std::vector<Evaluation::Step>& steps) : tune_(tune), steps_(steps) {}
  void step(const KFAQVTermType& term, long long left, long long right, long long result) override {
    steps_.push_back({tune_.toString(term), left, right, result});
  }

 private:
  const KFAQVTune& tune_;
  std::vector<Evaluation::Step>& steps_;
};

// The value of a formula that is one term.
long long valueOf(const KFAQVTermType& term, const KFAQVTuneArray& values, int multipleIndex) {
  if (term.kind == KFAQVTermNumber) return term.value;
  const int id = term.kind == KFAQVTermMultiple ? multipleIndex : term.value % kHardOffset;
  const KFAQVParamsValue& value = *values[static_cast<std::size_t>(id)];
  return term.value >= kHardOffset ? value.hard : value.soft;
}

// The parameters of a formula that have no value, each once.
std::vector<std::string> missingOf(const KFAQVTune& tune, const KFAQVTuneArray& values,
                                   const KFAQVPolishNotation& formula) {
  KFAQVParamIDSet missing;
  for (const KFAQVTermType& term : formula.terms) {
    const int id = term.value % kHardOffset;
    if (term.kind == KFAQVTermParameter && values[static_cast<std::size_t>(id)] == nullptr)
      missing.insert(id);
  }
  std::vector<std::string> names;
  for (const int id : missing)
    names.push_back(tune.getByIndex(id));
  return names;
}

Evaluation evaluateOnce(const KFAQVTune& tune, const KFAQVTuneArray& values,
                        const KFAQVPolishNotation& formula, int multipleIndex) {
  Evaluation evaluation;
  StepRecorder recorder(tune, evaluation.steps);
  KFAQVParamIDSet used;
  const int result = tune.checkByFormula(values, formula, used, multipleIndex, &recorder);
  for (const int id : used)
    evaluation.used.push_back({tune.getByIndex(id), values[static_cast<std::size_t>(id)]});
  if (multipleIndex >= 0) evaluation.multiple = tune.getByIndex(multipleIndex);
  if (result < 0) {
    evaluation.state = State::NotCheckable;
    if (result == kTuneParameterAbsent)
      evaluation.missing = missingOf(tune, values, formula);
    else
      evaluation.reason = KFL::getErrorMessage();
    return evaluation;
  }
  evaluation.state = result == 0 ? State::Holds : State::Violated;
  evaluation.value = evaluation.steps.empty() ? valueOf(formula.terms.front(), values, multipleIndex)
                                              : evaluation.steps.back().result;
  return evaluation;
}

// Whether a formula holds, with QOS for each parameter of its list that has a value, and for one at least: most do, and
// need no evaluation that remembers its steps.
bool holdsThroughout(const KFAQVTune& tune, const KFAQVTuneArray& values,
                     const KFAQVPolishNotation& formula) {
  KFAQVParamIDSet used;
  if (formula.hasMultiple == 0) return tune.checkByFormula(values, formula, used, -1) == 0;
  bool isEvaluated = false;
  for (const int id : *formula.multipleList) {
    if (values[static_cast<std::size_t>(id)] == nullptr) continue;
    if (tune.checkByFormula(values, formula, used, id) != 0) return false;
    isEvaluated = true;
  }
  return isEvaluated;
}

KFAFormulaFinding judge(const KFAQVTune& tune, const KFAQVTuneArray& values, const KFAQVFormula& formula) {
  KFAFormulaFinding finding;
  finding.formula = &formula;
  if (holdsThroughout(tune, values, formula.notation)) return finding;
  std::vector<Evaluation> evaluations = evaluateFormula(tune, values, formula.notation);
  if (evaluations.empty()) {
    finding.state = State::NotCheckable;
    finding.reason = "no parameter that QOS stands for has a value";
  }
  for (Evaluation& evaluation : evaluations) {
    if (evaluation.state == State::NotCheckable) {
      finding.state = State::NotCheckable;
      finding.reason = evaluation.reason;
      finding.missing = evaluation.missing;
    } else if (evaluation.state == State::Violated) {
      finding.violations.push_back(std::move(evaluation));
    }
  }
  if (!finding.violations.empty()) finding.state = State::Violated;
  return finding;
}

bool isConjunction(const Evaluation::Step& step) {
  return step.operation == "&&";
}

bool isComparison(const Evaluation::Step& step) {
  return step.operation.find_first_of("<>=;") != std::string::npos;
}

// Of the steps of the two sides of a conjunction whose left one is 0, the comparison that is the left one's value. A
// comparison goes on from the one before it, where it is of the same side; the sides are parted where all of that fits.
const Evaluation::Step* firstFailing(std::span<const Evaluation::Step> steps, long long right) {
  std::vector<const Evaluation::Step*> comparisons;
  for (const Evaluation::Step& step : steps)
    if (isComparison(step)) comparisons.push_back(&step);
  const auto isChain = [&](std::size_t first, std::size_t end) {
    for (std::size_t i = first + 1; i < end; ++i)
      if (comparisons[i]->left != comparisons[i - 1]->result) return false;
    return true;
  };
  for (std::size_t end = 1; end <= comparisons.size(); ++end) {
    const bool fits = end == comparisons.size() || comparisons.back()->result == right;
    if (fits && comparisons[end - 1]->result == 0 && isChain(0, end) && isChain(end, comparisons.size()))
      return comparisons[end - 1];
  }
  return nullptr;
}

std::string valueText(const Evaluation::Used& used, const KFAKeyCatalogue* catalogue) {
  const auto& [soft, hard, list] = *used.value;
  std::optional<long long> barrier;
  if (soft != hard) barrier = soft;
  if (catalogue != nullptr) return catalogue->showHeld(KFL::toLower(used.name), barrier, hard);
  return (barrier ? std::to_string(soft) + ":" : "") + std::to_string(hard);
}

}  // namespace

unsigned long long Evaluation::Step::difference() const {
  const auto a = static_cast<unsigned long long>(left);
  const auto b = static_cast<unsigned long long>(right);
  return left > right ? a - b : b - a;
}

const Evaluation::Step* Evaluation::failingStep() const {
  if (state != State::Violated) return nullptr;
  const auto show = [](const Step& step) { return step.result == 0 && isComparison(step) ? &step : nullptr; };
  // From the last conjunction back to the one whose right side, the last step before it, is what does not hold.
  auto last = steps.end();
  while (last != steps.begin() && isConjunction(*std::prev(last))) {
    const Step& conjunction = *--last;
    if (conjunction.left != 0) return last == steps.begin() ? nullptr : show(*std::prev(last));
    const auto before = std::find_if(std::reverse_iterator(last), steps.rend(), isConjunction).base();
    if (before == steps.begin()) return firstFailing({steps.begin(), last}, conjunction.right);
    last = before;
  }
  return last == steps.begin() ? nullptr : show(*std::prev(last));
}

std::string Evaluation::usedText(const KFAKeyCatalogue* catalogue) const {
  std::string text;
  for (const Used& one : used)
    text += (text.empty() ? "" : ", ") + one.name + " " + valueText(one, catalogue);
  return text;
}

std::vector<KFAFormulaEvaluation> evaluateFormula(const KFAQVTune& tune, const KFAQVTuneArray& values,
                                                  const KFAQVPolishNotation& formula) {
  if (formula.hasMultiple == 0) return {evaluateOnce(tune, values, formula, -1)};
  std::vector<Evaluation> evaluations;
  for (const int id : *formula.multipleList) {
    if (values[static_cast<std::size_t>(id)] != nullptr)
      evaluations.push_back(evaluateOnce(tune, values, formula, id));
  }
  return evaluations;
}

std::size_t KFAQoSJudgement::count(State state) const {
  return static_cast<std::size_t>(
      std::count_if(findings.begin(), findings.end(),
                    [state](const KFAFormulaFinding& finding) { return finding.state == state; }));
}

bool KFAQoSJudgement::isFine() const {
  return mode != KFAQoSMemoryMode::LimitMissing && count(State::Violated) == 0;
}

KFAQoSJudgement judgeQoSes(const KFAQVTune& tune, const KFLVEnvConfig& config,
                           const std::set<KFLQoS>& qoses) {
  KFAQoSJudgement judgement;
  judgement.mode = judgeMemoryMode(config, qoses);
  if (judgement.mode != KFAQoSMemoryMode::Formulas) return judgement;
  judgement.values = tuneParameters(qoses);
  const KFAQVTuneArray array = tune.arrange(judgement.values);
  judgement.findings.reserve(tune.formulas.size());
  for (const KFAQVFormula& formula : tune.formulas)
    judgement.findings.push_back(judge(tune, array, formula));
  return judgement;
}

}  // namespace KFA
