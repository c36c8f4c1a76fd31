// SPDX-License-Identifier: Apache-2.0
// Formulas evaluated for people: what holds and what does not, with the values that took part, each step, and by how much
// a comparison fails.
//
// A judgement points into the formulas of its KFAQVTune and into its own values: it is moved, not copied, and must not
// outlive the tune. Any thread.
#ifndef KFAFUNCTIONALITY_NODE_KFAQOSJUDGEMENT_H
#define KFAFUNCTIONALITY_NODE_KFAQOSJUDGEMENT_H

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include <KFLFunctionality/KFLQoS.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>
#include <KFAFunctionality/resources/KFAQoSTune.h>

namespace KFA {

class KFAKeyCatalogue;

// One evaluation of a formula.
struct KFAFormulaEvaluation {
  enum class State { Holds, Violated, NotCheckable };

  // One operator that was applied.
  struct Step {
    std::string operation;
    long long left = 0;
    long long right = 0;
    long long result = 0;

    // How far the two sides are apart.
    unsigned long long difference() const;
  };
  // A parameter that took part, with its value, which belongs to whom the evaluation was asked of.
  struct Used {
    std::string name;
    const KFAQVParamsValue* value = nullptr;
  };

  State state = State::Holds;
  long long value = 0;               // what the formula comes to
  std::string reason;                // why it cannot be checked, where no value is missing
  std::vector<std::string> missing;  // the parameters without a value
  std::string multiple;              // the parameter that QOS stands for
  std::vector<Used> used;            // the parameters that took part
  std::vector<Step> steps;

  // The comparison that is the first side of && that does not hold, or the whole formula; null where that is no comparison.
  const Step* failingStep() const;
  // The parameters that took part: "numproc 200:240, cpulimit 150 %", without a catalogue "cpulimit 15000".
  std::string usedText(const KFAKeyCatalogue* catalogue) const;
};

// Evaluates a formula; with QOS once for each parameter of its list that has a value, in the order of the list.
std::vector<KFAFormulaEvaluation> evaluateFormula(const KFAQVTune& tune, const KFAQVTuneArray& values,
                                                  const KFAQVPolishNotation& formula);

// What became of one formula.
struct KFAFormulaFinding {
  const KFAQVFormula* formula = nullptr;
  KFAFormulaEvaluation::State state = KFAFormulaEvaluation::State::Holds;
  std::vector<KFAFormulaEvaluation> violations;
  std::string reason;  // why it cannot be checked, where no value is missing
  std::vector<std::string> missing;
};

// What became of all formulas for one environment.
struct KFAQoSJudgement {
  KFAQoSMemoryMode mode = KFAQoSMemoryMode::Formulas;
  KFAQVTuneParameters values;
  std::vector<KFAFormulaFinding> findings;  // none where the memory mode leaves the formulas out

  KFAQoSJudgement() = default;
  KFAQoSJudgement(KFAQoSJudgement&&) = default;
  KFAQoSJudgement& operator=(KFAQoSJudgement&&) = default;
  KFAQoSJudgement(const KFAQoSJudgement&) = delete;
  KFAQoSJudgement& operator=(const KFAQoSJudgement&) = delete;
  ~KFAQoSJudgement() = default;

  std::size_t count(KFAFormulaEvaluation::State state) const;
  bool isFine() const;
};

// Holds the resource parameters of a configuration against all formulas of a tune that has been initialised.
KFAQoSJudgement judgeQoSes(const KFAQVTune& tune, const KFLVEnvConfig& config, const std::set<KFLQoS>& qoses);

}  // namespace KFA

#endif
