// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: a compiled formula in the form that is evaluated fast.
//
// An evaluation term by term spends its time on telling terms apart and on putting values away. A program has
// one step for an operator together with the values that it takes, chosen when the formula is compiled:
//
//   a  b+100  <=  c  2097152  <  &&      three steps: a.soft <= b.hard; c.soft < 2097152; both &&
//
// A program knows the usual case only: every value is there, every operator can be applied. In any other it
// gives up, and the terms tell what is wrong. Immutable; any threads may run it.
#ifndef KFAFUNCTIONALITY_RESOURCES_KFAQOSPROGRAM_H
#define KFAFUNCTIONALITY_RESOURCES_KFAQOSPROGRAM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <KFAFunctionality/resources/KFAQoSTune.h>

#pragma GCC visibility push(hidden)

namespace KFA {

// Evaluates a formula term by term; see KFAQVTune::checkByFormula.
int evaluateTerms(const KFAQVTune& tune, const KFAQVTuneArray& values, const KFAQVPolishNotation& formula,
                  KFAQVParamIDSet& used, int multipleIndex, KFAQVEvaluationObserver* observer);

class KFAQVProgram {
 public:
  // The program of a valid formula; null for one that has none: with QOS, with parentheses, or unusually
  // long.
  static std::shared_ptr<const KFAQVProgram> make(const std::vector<KFAQVTermType>& terms);

  // Evaluates a formula that has a program; see KFAQVTune::checkByFormula.
  static int run(const KFAQVTune& tune, const KFAQVTuneArray& values, const KFAQVPolishNotation& formula,
                 KFAQVParamIDSet& used);

  // The parameters that a run reads.
  const KFAQVParamIDSet& parameters() const { return parameters_; }

  // Where a step takes its values from. Pushing adds a value; the last two forms take both values from the
  // step, and add their result.
  enum Shape : std::uint8_t {
    kPushParameter,
    kPushNumber,
    kLastTwo,
    kLastAndParameter,
    kLastAndNumber,
    kTwoParameters,
    kParameterAndNumber,
  };

  // What an evaluation was asked for.
  struct Call {
    const KFAQVTune& tune;
    const KFAQVTuneArray& values;
    const KFAQVPolishNotation& formula;
    KFAQVParamIDSet& used;
  };

  // One step. Its function does the work and calls the next step's as its last act, which the compiler makes
  // a jump.
  struct Step {
    using Run = int (*)(const Step* step, const KFAQVParamsValue* const* values, long long* top,
                        long long last, const Call& call);
    using Side = long long KFAQVParamsValue::*;
    Run run = nullptr;
    Side leftSide = nullptr;
    Side rightSide = nullptr;
    std::int32_t number = 0;
    std::uint8_t left = 0;  // indices of parameters
    std::uint8_t right = 0;
    std::uint8_t row = 0;  // of the operator table
    Shape shape = kPushNumber;
  };

 private:
  // A longer formula has no program. Where the compiler calls steps and does not jump, this bounds the calls'
  // depth.
  static constexpr std::size_t kMostTerms = 128;

  // Add the next term; false for one that a program does not know.
  bool add(const KFAQVTermType& term);
  bool addOperator(int row);

  std::vector<Step> steps_;
  KFAQVParamIDSet parameters_;
  std::size_t valuesNeeded_ = 0;
};

}  // namespace KFA

#pragma GCC visibility pop

#endif
