// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAQoSAdvice.h>

#include <algorithm>
#include <cmath>
#include <compare>
#include <limits>
#include <optional>
#include <queue>
#include <set>
#include <tuple>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/files/KFAFraction.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>
#include <KFAFunctionality/resources/KFAQoSOperators.h>

namespace KFA {

namespace {

constexpr std::size_t kMostSteps = 400;
// For a formula that is left when all were searched for at once.
constexpr std::size_t kMostStepsForOne = 60;
// How many keys a violated formula is taken to cost still; one key may cure several.
constexpr double kExpectedKeys = 0.4;
constexpr long long kLargest = std::numeric_limits<long long>::max();

struct Value {
  long long soft = 0;
  long long hard = 0;
  bool hasSoft = false;

  auto operator<=>(const Value&) const = default;
};

using Values = std::vector<Value>;  // in the order of the parameters

// How a value is written, which tells the numbers that it can have.
enum class Form { Pair, Single, Fraction, None };

struct Parameter {
  std::string name;
  Form form = Form::None;
};

// A formula, and for one over QOS the parameter that it is about.
struct Check {
  const KFAQVFormula* formula = nullptr;
  int multiple = -1;
};

// What became of the checks: 0 holds, 1 violated, -1 not checkable.
using Results = std::vector<signed char>;

// How a value is moved. Bringing: a barrier that goes up takes the limit along, a limit that goes down the barrier, where
// the two would cross.
struct Move {
  bool hard = false;
  int direction = 1;
  bool isBringing = false;
};
constexpr Move kMoves[] = {{false, -1, false}, {false, 1, false}, {false, 1, true},
                           {true, -1, false},  {true, 1, false},  {true, -1, true}};

// Values on the way from what there is to what is wanted.
struct State {
  Values values;
  std::size_t keys = 0;    // that differ from what there is
  double distance = 0;     // by how much, in proportion
  std::size_t wanted = 0;  // checks that are to hold and do not
  std::size_t broken = 0;  // others that came to less than they were

  std::size_t open() const { return wanted + broken; }
  double cost() const { return static_cast<double>(keys) + kExpectedKeys * static_cast<double>(open()); }
  // The cheapest comes first; of equals, the one with the least change.
  bool operator<(const State& other) const {
    return std::make_tuple(cost(), distance) > std::make_tuple(other.cost(), other.distance);
  }
};

// The number itself where a file can hold it, else the next one in the direction that it can; nothing where there is none
// near. Numbers in single precision stand further apart than hundredths where they are large.
std::optional<long long> heldFrom(long long number, int direction, Form form) {
  constexpr int kMostTries = 64;
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  if (form != Form::Fraction) return number;
  for (int i = 0; i < kMostTries; ++i) {
    long long read = 0;
    if (!readFraction(writeFraction(number).c_str(), read)) return std::nullopt;
    if (read == number) return number;
    const bool isBeyond = direction < 0 ? read < number : read > number;
    const auto near = static_cast<float>(static_cast<double>(number) / 100.0);
    const double next = std::trunc(std::nextafter(near, direction < 0 ? -kInfinity : kInfinity) * 100.0);
    if (!isBeyond && !(std::abs(next) < static_cast<double>(kLargest))) return std::nullopt;
    const long long beyond = isBeyond ? read : static_cast<long long>(next);
    number = direction < 0 ? std::min(number - 1, beyond) : std::max(number + 1, beyond);
  }
  return std::nullopt;
}

// Tells whether sums and products wrapped, which makes of a number that is far too large one that seems to do.
class WrapWatch final : public KFAQVEvaluationObserver {
 public:
  void step(const KFAQVTermType& term, long long left, long long right, long long) override {
    const std::string_view operation = operators::kTable[static_cast<std::size_t>(term.value)].text;
    long long result = 0;
    hasWrapped_ = hasWrapped_ || (operation == "+" && __builtin_add_overflow(left, right, &result)) ||
                  (operation == "-" && __builtin_sub_overflow(left, right, &result)) ||
                  (operation == "*" && __builtin_mul_overflow(left, right, &result));
  }
  bool hasWrapped() const { return hasWrapped_; }

 private:
  bool hasWrapped_ = false;
};

// By how much the sides of each comparison lie apart, in the order of evaluation.
class GapWatch final : public KFAQVEvaluationObserver {
 public:
  void step(const KFAQVTermType& term, long long left, long long right, long long) override {
    const std::string_view operation = operators::kTable[static_cast<std::size_t>(term.value)].text;
    if (operation != "&&" && operation.find_first_of("<=>;") != std::string_view::npos)
      gaps_.push_back(static_cast<long double>(left) - static_cast<long double>(right));
  }
  const std::vector<long double>& gaps() const { return gaps_; }

 private:
  std::vector<long double> gaps_;
};

class Adviser {
 public:
  Adviser(const KFAQVTune& tune, const KFAEnvConfigBashParser& parser, const std::set<KFLQoS>& given);

  KFAQoSAdvice run();

 private:
  void addParameter(const KFAEnvConfigBashParser& parser, const KFLQoS& qos);
  void addChecks();
  void load(const Values& values);
  void load(std::size_t parameter, const Value& value);
  int resultOf(const Check& check, KFAQVParamIDSet& used) const;
  bool hasWrapped(const Check& check) const;
  Results resultsOf(const Values& values);
  bool isWorse(std::size_t check, signed char result) const;
  bool isOpen(std::size_t check, signed char result) const;

  Values search(const Values& from, std::size_t mostSteps);
  void addChanges(const Values& values, const Check& check, std::vector<Values>& outcomes);
  std::optional<Value> nearest(const Values& values, std::size_t parameter, Move move, const Check& check);
  std::set<long long> crossings(const Values& values, std::size_t parameter, Move move, const Check& check);
  bool set(Value& value, std::size_t parameter, Move move, long long number) const;
  State stateOf(Values values);
  std::size_t parameterOf(int id) const;

  bool isAsGood(const Values& values, const Results& results);
  bool takeBack(Values& values, std::size_t parameter, bool hard, const Results& results);
  void takeBack(Values& values);

  KFAQoSAdvice adviceOf(const Values& values);
  std::string textOf(std::size_t parameter, const Value& value) const;

  const KFAQVTune& tune_;
  std::vector<Parameter> parameters_;
  Values start_;
  std::vector<Check> checks_;
  // What the checks are evaluated over: the values that were loaded, behind them an average number of processes that
  // nobody gave, and all of them by index.
  std::vector<KFAQVParamsValue> held_;
  KFAQVTuneArray array_;
  std::size_t processes_ = 0;  // which the average follows; one behind the last where it follows none
  // What the checks came to where a search began, and which of them it is to make hold.
  Results base_;
  std::vector<bool> isWanted_;
};

Adviser::Adviser(const KFAQVTune& tune, const KFAEnvConfigBashParser& parser, const std::set<KFLQoS>& given)
    : tune_(tune), held_(given.size() + 1), array_(static_cast<std::size_t>(tune.count), nullptr) {
  const KFAQVTuneParameters values = tuneParameters(given);
  processes_ = given.size();
  const KFLQoS* const processes = values.size() > given.size() ? findQoS(given, "numproc") : nullptr;
  for (const KFLQoS& qos : given) {
    if (&qos == processes) processes_ = parameters_.size();
    tune.place(qos.getID(), held_[parameters_.size()], array_);
    addParameter(parser, qos);
  }
  if (processes != nullptr) tune.place("avnumproc", held_.back(), array_);
  addChecks();
}

void Adviser::addParameter(const KFAEnvConfigBashParser& parser, const KFLQoS& qos) {
  Parameter parameter{qos.getID(), Form::None};
  if (const auto known = parser.getQoSMap().find(KFL::toLower(qos.getID()));
      known != parser.getQoSMap().end()) {
    const auto& [kind, type] = std::tie(known->second.kind, known->second.valueType);
    if (type == 1 && (kind == 1 || kind == 2)) parameter.form = kind == 2 ? Form::Pair : Form::Single;
    if (type == 0 && kind == 1) parameter.form = Form::Fraction;
  }
  parameters_.push_back(std::move(parameter));
  const bool hasSoft = qos.getSoft().isSpecified();
  start_.push_back({hasSoft ? qos.getSoft().getValue() : qos.getHard(), qos.getHard(), hasSoft});
}

void Adviser::addChecks() {
  for (const KFAQVFormula& formula : tune_.formulas) {
    if (formula.notation.hasMultiple == 0) {
      checks_.push_back({&formula, -1});
      continue;
    }
    for (const int id : *formula.notation.multipleList)
      if (array_[static_cast<std::size_t>(id)] != nullptr) checks_.push_back({&formula, id});
  }
}

void Adviser::load(const Values& values) {
  for (std::size_t i = 0; i < values.size(); ++i)
    load(i, values[i]);
}

void Adviser::load(std::size_t parameter, const Value& value) {
  held_[parameter].soft = value.soft;
  held_[parameter].hard = value.hard;
  if (parameter != processes_) return;
  held_.back().soft = value.soft / 2;
  held_.back().hard = value.hard / 2;
}

// Over the values that were loaded.
int Adviser::resultOf(const Check& check, KFAQVParamIDSet& used) const {
  return tune_.checkByFormula(array_, check.formula->notation, used, check.multiple);
}

bool Adviser::hasWrapped(const Check& check) const {
  KFAQVParamIDSet used;
  WrapWatch watch;
  tune_.checkByFormula(array_, check.formula->notation, used, check.multiple, &watch);
  return watch.hasWrapped();
}

Results Adviser::resultsOf(const Values& values) {
  load(values);
  Results results;
  results.reserve(checks_.size());
  for (const Check& check : checks_) {
    KFAQVParamIDSet used;
    results.push_back(static_cast<signed char>(std::max(resultOf(check, used), -1)));
  }
  return results;
}

// Whether a check came to less than it was: what held does not, or what could be told cannot.
bool Adviser::isWorse(std::size_t check, signed char result) const {
  return result != 0 && result != base_[check];
}

bool Adviser::isOpen(std::size_t check, signed char result) const {
  return isWanted_[check] ? result != 0 : isWorse(check, result);
}

// Makes of a side a number that a file can hold, the one given or one beyond it in the direction; false where there is
// none.
bool Adviser::set(Value& value, std::size_t parameter, Move move, long long number) const {
  const std::optional<long long> held = heldFrom(number, move.direction, parameters_[parameter].form);
  if (!held) return false;
  if (parameters_[parameter].form != Form::Pair) {
    value.soft = value.hard = *held;
    return true;
  }
  (move.hard ? value.hard : value.soft) = *held;
  if (move.isBringing && value.soft > value.hard) value.soft = value.hard = *held;
  value.hasSoft = start_[parameter].hasSoft || value.soft != value.hard;
  return true;
}

// The steps at which the sides of a comparison meet, with those before and behind, if the difference goes on as it does in
// the first step: an equality, or two bounds, may hold there alone.
std::set<long long> Adviser::crossings(const Values& values, std::size_t parameter, Move move,
                                       const Check& check) {
  const long long from = move.hard ? values[parameter].hard : values[parameter].soft;
  load(values);
  const auto gapsAt = [&](long long step) {
    KFAQVParamIDSet used;
    GapWatch watch;
    Value trial = values[parameter];
    if (!set(trial, parameter, move, from + move.direction * step)) return watch.gaps();
    load(parameter, trial);
    tune_.checkByFormula(array_, check.formula->notation, used, check.multiple, &watch);
    return watch.gaps();
  };
  const std::vector<long double> now = gapsAt(0);
  const std::vector<long double> next = gapsAt(1);
  std::set<long long> steps;
  for (std::size_t i = 0; i < std::min(now.size(), next.size()); ++i) {
    const long double meets = now[i] == next[i] ? 0 : now[i] / (now[i] - next[i]);
    if (meets < 1 || meets > static_cast<long double>(kLargest / 2)) continue;
    const auto step = static_cast<long long>(meets);
    steps.insert({std::max(step - 1, 1LL), step, step + 1});
  }
  return steps;
}

// The value with the number nearest to the one there is, upwards or downwards, with which the check holds; it is taken to
// go on holding beyond it, or else to hold where the sides of a comparison meet.
std::optional<Value> Adviser::nearest(const Values& values, std::size_t parameter, Move move,
                                      const Check& check) {
  const long long from = move.hard ? values[parameter].hard : values[parameter].soft;
  load(values);
  const bool mayWrap = hasWrapped(check);
  Value trial;
  const auto isGood = [&](long long step) {
    KFAQVParamIDSet used;
    trial = values[parameter];
    if (!set(trial, parameter, move, from + move.direction * step)) return false;
    load(parameter, trial);
    return resultOf(check, used) == 0 && (mayWrap || !hasWrapped(check));
  };
  // Sides that have only to meet need no move beyond that.
  if (move.isBringing && isGood(0)) return std::nullopt;
  // A limit is never negative, and downwards nothing lies beyond 0.
  const long long room = move.direction < 0 ? from : kLargest - std::max(from, 0LL);
  long long bad = 0;
  long long good = 1;
  while (good < room && !isGood(good)) {
    bad = good;
    good = good > room / 2 ? room : good * 2;
  }
  good = std::min(good, room);
  if (good <= 0) return std::nullopt;
  if (!isGood(good)) {
    const std::set<long long> steps = crossings(values, parameter, move, check);
    const bool isFound =
        std::any_of(steps.begin(), steps.end(), [&](long long step) { return step <= room && isGood(step); });
    return isFound ? std::optional(trial) : std::nullopt;
  }
  while (good - bad > 1) {
    const long long middle = bad + (good - bad) / 2;
    (isGood(middle) ? good : bad) = middle;
  }
  isGood(good);
  return trial;
}

// The parameter that has the value of an index, or that it is made from; one behind the last where there is none.
std::size_t Adviser::parameterOf(int id) const {
  const KFAQVParamsValue* const value = array_[static_cast<std::size_t>(id)];
  const auto place = value == nullptr ? parameters_.size() : static_cast<std::size_t>(value - held_.data());
  return place == parameters_.size() ? processes_ : place;
}

void Adviser::addChanges(const Values& values, const Check& check, std::vector<Values>& outcomes) {
  KFAQVParamIDSet used;
  load(values);
  resultOf(check, used);
  for (const int id : used) {
    const std::size_t parameter = parameterOf(id);
    if (parameters_[parameter].form == Form::None) continue;
    for (const Move move : kMoves) {
      // A single number has no sides.
      if (parameters_[parameter].form != Form::Pair && (!move.hard || move.isBringing)) continue;
      const auto value = nearest(values, parameter, move, check);
      if (!value) continue;
      outcomes.push_back(values);
      outcomes.back()[parameter] = *value;
    }
  }
}

State Adviser::stateOf(Values values) {
  const auto proportion = [](long long before, long long after) {
    const auto size = [](long long number) { return std::log1p(std::abs(static_cast<double>(number))); };
    const bool crosses = (before < 0) != (after < 0);
    return crosses ? size(before) + size(after) : std::abs(size(before) - size(after));
  };
  State state;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (start_[i] == values[i]) continue;
    ++state.keys;
    state.distance += proportion(start_[i].soft, values[i].soft) + proportion(start_[i].hard, values[i].hard);
  }
  const Results results = resultsOf(values);
  for (std::size_t i = 0; i < results.size(); ++i) {
    if (!isOpen(i, results[i])) continue;
    ++(isWorse(i, results[i]) ? state.broken : state.wanted);
  }
  state.values = std::move(values);
  return state;
}

// Goes on from the most hopeful outcome until all that is wanted holds, and gives the outcome that has the most of it and
// broke nothing.
Values Adviser::search(const Values& from, std::size_t mostSteps) {
  std::priority_queue<State> open;
  std::set<Values> known{from};
  State best = stateOf(from);
  open.push(best);
  for (std::size_t step = 0; step < mostSteps && !open.empty(); ++step) {
    const State state = open.top();
    open.pop();
    if (state.broken == 0 && state.wanted < best.wanted) best = state;
    if (best.wanted == 0) break;
    const Results results = resultsOf(state.values);
    // All have to be cured, in whichever order: taking the first is enough.
    std::vector<Values> outcomes;
    for (std::size_t i = 0; i < results.size() && outcomes.empty(); ++i)
      if (isOpen(i, results[i])) addChanges(state.values, checks_[i], outcomes);
    for (Values& outcome : outcomes)
      if (known.insert(outcome).second) open.push(stateOf(std::move(outcome)));
  }
  return best.values;
}

bool Adviser::isAsGood(const Values& values, const Results& results) {
  const Results now = resultsOf(values);
  for (std::size_t i = 0; i < now.size(); ++i)
    if (now[i] != 0 && now[i] != results[i]) return false;
  return true;
}

// Moves a number back towards what it was, as far as halving the way finds that all stays as good; whether it moved.
bool Adviser::takeBack(Values& values, std::size_t parameter, bool hard, const Results& results) {
  const auto sideOf = [hard](const Value& value) { return hard ? value.hard : value.soft; };
  const auto before = static_cast<unsigned long long>(sideOf(start_[parameter]));
  const auto now = static_cast<unsigned long long>(sideOf(values[parameter]));
  if (now == before) return false;
  const int direction = sideOf(values[parameter]) < sideOf(start_[parameter]) ? -1 : 1;
  Values best = values;
  const auto isGood = [&](unsigned long long step) {
    const auto number = static_cast<long long>(direction < 0 ? before - step : before + step);
    Values trial = values;
    if (step == 0 && parameters_[parameter].form != Form::Pair)
      trial[parameter] = start_[parameter];
    else if (!set(trial[parameter], parameter, {hard, direction, false}, number))
      return false;
    if (!isAsGood(trial, results)) return false;
    best = std::move(trial);
    return true;
  };
  unsigned long long bad = 0;
  unsigned long long good = isGood(0) ? 0 : direction < 0 ? before - now : now - before;
  while (good > bad + 1) {
    const unsigned long long middle = bad + (good - bad) / 2;
    (isGood(middle) ? good : bad) = middle;
  }
  const bool isMoved = best != values;
  values = std::move(best);
  return isMoved;
}

// A change that a later one made needless goes back, and what is left of the others as far as it can.
void Adviser::takeBack(Values& values) {
  constexpr int kMostRounds = 16;
  const Results results = resultsOf(values);
  bool isMoved = true;
  for (int round = 0; isMoved && round < kMostRounds; ++round) {
    isMoved = false;
    for (std::size_t i = 0; i < values.size(); ++i) {
      Values trial = values;
      trial[i] = start_[i];
      if (trial != values && isAsGood(trial, results)) values = std::move(trial);
    }
    for (std::size_t i = 0; i < values.size(); ++i)
      for (const bool hard : {false, true})
        isMoved = takeBack(values, i, hard, results) || isMoved;
  }
}

std::string Adviser::textOf(std::size_t parameter, const Value& value) const {
  const Form form = parameters_[parameter].form;
  if (form == Form::Fraction) return writeFraction(value.hard);
  const std::string hard = std::to_string(value.hard);
  return form == Form::Pair && value.hasSoft ? std::to_string(value.soft) + ":" + hard : hard;
}

KFAQoSAdvice Adviser::adviceOf(const Values& values) {
  KFAQoSAdvice advice;
  for (std::size_t i = 0; i < values.size(); ++i)
    if (values[i] != start_[i])
      advice.changes.push_back(
          {KFL::toLower(parameters_[i].name), textOf(i, values[i]), textOf(i, start_[i]), false});
  const auto add = [](std::vector<int>& numbers, int number) {
    if (std::find(numbers.begin(), numbers.end(), number) == numbers.end()) numbers.push_back(number);
  };
  const Results before = resultsOf(start_);
  const Results after = resultsOf(values);
  for (std::size_t i = 0; i < checks_.size(); ++i) {
    if (before[i] != 1) continue;
    add(advice.violated, checks_[i].formula->identifier);
    if (after[i] != 0) add(advice.left, checks_[i].formula->identifier);
  }
  return advice;
}

// All at once; then one after the other what no way was found for, so that one that has none leaves the others theirs.
KFAQoSAdvice Adviser::run() {
  base_ = resultsOf(start_);
  const auto isViolated = [](signed char result) { return result == 1; };
  isWanted_.resize(checks_.size());
  std::transform(base_.begin(), base_.end(), isWanted_.begin(), isViolated);
  const std::vector<bool> violated = isWanted_;
  Values values = search(start_, kMostSteps);
  base_ = resultsOf(values);
  for (std::size_t i = 0; i < checks_.size(); ++i) {
    if (!violated[i] || base_[i] != 1) continue;
    isWanted_.assign(checks_.size(), false);
    isWanted_[i] = true;
    values = search(values, kMostStepsForOne);
    base_ = resultsOf(values);
  }
  takeBack(values);
  return adviceOf(values);
}

}  // namespace

KFAQoSAdvice adviseQoS(const KFAQVTune& tune, const KFAEnvConfigBashParser& parser,
                       const std::set<KFLQoS>& given) {
  return Adviser(tune, parser, given).run();
}

int adviseQoS(KFAQVTune& tune, const KFAEnvConfigBashParser& parser, const std::set<KFLQoS>& given,
              KFAQoSAdvice& advice) {
  if (tune.init() != 0) return -1;
  advice = adviseQoS(tune, parser, given);
  return 0;
}

}  // namespace KFA
