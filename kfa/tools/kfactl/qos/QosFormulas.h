// SPDX-License-Identifier: Apache-2.0
// Formulas evaluated for people: with the values that took part, each step, and by how much a comparison
// fails.
#ifndef KFACTL_QOSFORMULAS_H
#define KFACTL_QOSFORMULAS_H

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <KFAFunctionality/resources/KFAQoSTune.h>

namespace kfactl {

using Document = nlohmann::ordered_json;

// One operator that was applied.
struct Step {
  std::string operation;
  long long left = 0;
  long long right = 0;
  long long result = 0;
};

// A parameter that took part, with its value, which belongs to whom the evaluation was asked of.
struct UsedValue {
  std::string name;
  const KFA::KFAQVParamsValue* value = nullptr;
};

// One evaluation of a formula.
struct Evaluation {
  enum class State { Holds, Violated, NotCheckable };
  State state = State::Holds;
  long long value = 0;               // what the formula comes to
  std::string reason;                // why it cannot be checked, where no value is missing
  std::vector<std::string> missing;  // the parameters without a value
  std::string multiple;              // the parameter that QOS stands for
  std::vector<UsedValue> used;       // the parameters that took part
  std::vector<Step> steps;
};

// Whether a formula holds, with QOS for each parameter of its list that has a value, and for one at least.
bool holdsThroughout(const KFA::KFAQVTune& tune, const KFA::KFAQVTuneArray& values,
                     const KFA::KFAQVPolishNotation& formula);

// Evaluates a formula; with QOS once for each parameter of its list that has a value, in the order of the
// list.
std::vector<Evaluation> evaluate(const KFA::KFAQVTune& tune, const KFA::KFAQVTuneArray& values,
                                 const KFA::KFAQVPolishNotation& formula);

// The first comparison that fails; null where the formula has none.
const Step* failingStep(const Evaluation& evaluation);
// The difference of its two sides.
unsigned long long differenceOf(const Step& step);

// A value as it is written in files: BARRIER:LIMIT, or the one number that is both.
std::string valueText(const KFA::KFAQVParamsValue& value);
// The parameters that took part: "numproc 200:240, openfiles 300".
std::string usedText(const Evaluation& evaluation);
// The same by name, each with soft and hard.
Document usedDocument(const Evaluation& evaluation);

// Where and why a formula is refused, for people: "column 7 of 'a <= e': REASON".
std::string refusalText(const std::string& formula, const KFA::KFAQVFormulaError& error);

}  // namespace kfactl

#endif
