// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/resources/KFAQoSProgram.h>

#include <algorithm>
#include <array>
#include <utility>

#include <KFAFunctionality/resources/KFAQoSOperators.h>

namespace KFA {

namespace {

using Program = KFAQVProgram;
using Step = Program::Step;
using Call = Program::Call;
using Values = const KFAQVParamsValue* const*;

int giveUp(const Call& call) {
  return evaluateTerms(call.tune, call.values, call.formula, call.used, -1, nullptr);
}

// The functions of the steps. `last` is the last value so far; those before it wait below `top`, the lowest
// of them is none.

enum class Source { Parameter, Number, Last, Waiting };

template <Source From>
bool load(long long& value, const Step* step, Values values, int id, Step::Side side) {
  if constexpr (From == Source::Parameter) {
    if (values[id] == nullptr) return false;
    value = values[id]->*side;
  } else if constexpr (From == Source::Number) {
    value = step->number;
  }
  return true;
}

template <bool IsEnd>
int goOn(const Step* step, Values values, long long* top, long long last, const Call& call) {
  if constexpr (IsEnd) {
    call.used.merge(call.formula.terms.program()->parameters());
    return last == 0 ? 1 : 0;
  }
  return step[1].run(step + 1, values, top, last, call);
}

template <Source From, bool IsEnd>
int push(const Step* step, Values values, long long* top, long long last, const Call& call) {
  long long value = 0;
  if (!load<From>(value, step, values, step->right, step->rightSide)) return giveUp(call);
  *top = last;
  return goOn<IsEnd>(step, values, top + 1, value, call);
}

template <int Row, Source Left, Source Right, bool IsEnd>
int join(const Step* step, Values values, long long* top, long long last, const Call& call) {
  long long left = last;
  long long right = last;
  if (!load<Left>(left, step, values, step->left, step->leftSide)) return giveUp(call);
  if (!load<Right>(right, step, values, step->right, step->rightSide)) return giveUp(call);
  if constexpr (Left == Source::Waiting) left = *--top;
  if constexpr (Left == Source::Parameter) *top++ = last;
  long long result = 0;
  if (!operators::apply(Row, left, right, result)) return giveUp(call);
  return goOn<IsEnd>(step, values, top, result, call);
}

template <int Row, bool IsEnd>
Step::Run functionOf(Program::Shape shape) {
  switch (shape) {
    case Program::kPushParameter:
      return &push<Source::Parameter, IsEnd>;
    case Program::kPushNumber:
      return &push<Source::Number, IsEnd>;
    case Program::kLastTwo:
      return &join<Row, Source::Waiting, Source::Last, IsEnd>;
    case Program::kLastAndParameter:
      return &join<Row, Source::Last, Source::Parameter, IsEnd>;
    case Program::kLastAndNumber:
      return &join<Row, Source::Last, Source::Number, IsEnd>;
    case Program::kTwoParameters:
      return &join<Row, Source::Parameter, Source::Parameter, IsEnd>;
    case Program::kParameterAndNumber:
      return &join<Row, Source::Parameter, Source::Number, IsEnd>;
  }
  return nullptr;
}

template <bool IsEnd>
Step::Run functionOf(const Step& step) {
  using Choose = Step::Run (*)(Program::Shape);
  static constexpr auto kChoices = []<int... Rows>(std::integer_sequence<int, Rows...>) {
    return std::array<Choose, sizeof...(Rows)>{&functionOf<operators::plainRow(Rows), IsEnd>...};
  }
  (std::make_integer_sequence<int, operators::kTable.size()>());
  return kChoices[step.row](step.shape);
}

}  // namespace

bool KFAQVProgram::add(const KFAQVTermType& term) {
  if (term.kind == KFAQVTermOperator) return addOperator(term.value);
  Step step;
  if (term.kind == KFAQVTermNumber) {
    step.number = term.value;
  } else if (term.kind == KFAQVTermParameter) {
    step.shape = kPushParameter;
    step.right = static_cast<std::uint8_t>(term.value % kHardOffset);
    step.rightSide = term.value >= kHardOffset ? &KFAQVParamsValue::hard : &KFAQVParamsValue::soft;
    parameters_.insert(step.right);
    valuesNeeded_ = std::max(valuesNeeded_, std::size_t{step.right} + 1);
  } else {
    return false;
  }
  steps_.push_back(step);
  return true;
}

// A value pushed directly before its operator becomes part of the operator's step, and so does a parameter
// before that.
bool KFAQVProgram::addOperator(int row) {
  if (row <= kOperatorClose) return false;
  Step step;
  step.shape = kLastTwo;
  if (steps_.back().shape == kPushParameter || steps_.back().shape == kPushNumber) {
    step = steps_.back();
    steps_.pop_back();
    const bool isNumber = step.shape == kPushNumber;
    step.shape = isNumber ? kLastAndNumber : kLastAndParameter;
    if (!steps_.empty() && steps_.back().shape == kPushParameter) {
      step.left = steps_.back().right;
      step.leftSide = steps_.back().rightSide;
      steps_.pop_back();
      step.shape = isNumber ? kParameterAndNumber : kTwoParameters;
    }
  }
  step.row = static_cast<std::uint8_t>(row);
  steps_.push_back(step);
  return true;
}

std::shared_ptr<const KFAQVProgram> KFAQVProgram::make(const std::vector<KFAQVTermType>& terms) {
  if (terms.size() > kMostTerms) return nullptr;
  const auto program = std::make_shared<KFAQVProgram>();
  program->steps_.reserve(terms.size());
  for (const KFAQVTermType& term : terms) {
    if (!program->add(term)) return nullptr;
  }
  for (Step& step : program->steps_)
    step.run = functionOf<false>(step);
  program->steps_.back().run = functionOf<true>(program->steps_.back());
  return program;
}

int KFAQVProgram::run(const KFAQVTune& tune, const KFAQVTuneArray& values, const KFAQVPolishNotation& formula,
                      KFAQVParamIDSet& used) {
  const KFAQVProgram& program = *formula.terms.program();
  const Call call{tune, values, formula, used};
  if (values.size() < program.valuesNeeded_) return giveUp(call);
  long long room[kMostTerms];
  return program.steps_.front().run(program.steps_.data(), values.data(), room, 0, call);
}

}  // namespace KFA
