// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAQoSAdvice.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <queue>
#include <tuple>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>

namespace KFA {

namespace {

constexpr std::size_t kMostSteps = 400;
// How many keys a violated formula is taken to cost still; one key may cure several.
constexpr double kExpectedKeys = 0.4;
constexpr long long kLargest = std::numeric_limits<long long>::max() / 4;

struct Value {
  long long soft = 0;
  long long hard = 0;
  bool hasSoft = false;

  auto operator<=>(const Value&) const = default;
};

using Values = std::map<std::string, Value>;

// One formula, and for one over QOS the parameter that it is about.
struct Violation {
  const KFAQVFormula* formula = nullptr;
  int multiple = -1;
  KFAQVParamIDSet used;
};

// Values on the way from what there is to what is wanted.
struct State {
  Values values;
  std::size_t keys = 0;  // that differ from what there is
  double distance = 0;   // by how much, in proportion
  std::size_t violated = 0;

  double cost() const { return static_cast<double>(keys) + kExpectedKeys * static_cast<double>(violated); }
  // The cheapest comes first; of equals, the one with the least change.
  bool operator<(const State& other) const {
    return std::make_tuple(cost(), distance) > std::make_tuple(other.cost(), other.distance);
  }
};

class Adviser {
 public:
  Adviser(const KFAQVTune& tune, const KFAEnvConfigBashParser& parser, const std::set<KFLQoS>& given)
      : tune_(tune), parser_(parser) {
    for (const KFLQoS& qos : given)
      start_[qos.getID()] = {qos.getSoft().isSpecified() ? qos.getSoft().getValue() : qos.getHard(),
                             qos.getHard(), qos.getSoft().isSpecified()};
  }

  KFAQoSAdvice run();

 private:
  static KFAQVTuneParameters parametersOf(const Values& values);
  std::vector<Violation> violationsOf(const Values& values) const;
  bool holds(const Values& values, const Violation& violation) const;
  void addChanges(const Values& values, const Violation& violation, std::vector<Values>& outcomes) const;
  std::optional<long long> nearest(const Values& values, const std::string& name, bool hard, int direction,
                                   const Violation& violation) const;
  void set(Values& values, const std::string& name, bool hard, long long number) const;
  bool isPair(const std::string& name) const;
  State stateOf(Values values) const;
  Values withoutIdleChanges(Values values) const;
  KFAQoSAdvice adviceOf(const Values& values) const;
  std::string textOf(const std::string& name, const Value& value) const;

  const KFAQVTune& tune_;
  const KFAEnvConfigBashParser& parser_;
  Values start_;
};

KFAQVTuneParameters Adviser::parametersOf(const Values& values) {
  std::set<KFLQoS> qoses;
  for (const auto& [name, value] : values) {
    KFLQoS qos(name);
    qos.setHard(value.hard);
    if (value.hasSoft) qos.setSoft(value.soft);
    qoses.insert(qos);
  }
  return tuneParameters(qoses);
}

std::vector<Violation> Adviser::violationsOf(const Values& values) const {
  const KFAQVTuneParameters parameters = parametersOf(values);
  const KFAQVTuneArray array = tune_.arrange(parameters);
  std::vector<Violation> violations;
  const auto check = [&](const KFAQVFormula& formula, int multiple) {
    Violation violation{&formula, multiple, {}};
    if (tune_.checkByFormula(array, formula.notation, violation.used, multiple) == 1)
      violations.push_back(violation);
  };
  for (const KFAQVFormula& formula : tune_.formulas) {
    if (formula.notation.hasMultiple == 0) {
      check(formula, -1);
      continue;
    }
    for (const int id : *formula.notation.multipleList)
      check(formula, id);
  }
  return violations;
}

bool Adviser::holds(const Values& values, const Violation& violation) const {
  const KFAQVTuneParameters parameters = parametersOf(values);
  KFAQVParamIDSet used;
  return tune_.checkByFormula(tune_.arrange(parameters), violation.formula->notation, used,
                              violation.multiple) == 0;
}

bool Adviser::isPair(const std::string& name) const {
  const auto definition = parser_.getQoSMap().find(KFL::toLower(name));
  return definition != parser_.getQoSMap().end() && definition->second.kind == 2;
}

void Adviser::set(Values& values, const std::string& name, bool hard, long long number) const {
  Value& value = values[name];
  if (!isPair(name)) {
    value.soft = value.hard = number;
    return;
  }
  (hard ? value.hard : value.soft) = number;
  value.hasSoft = value.hasSoft || value.soft != value.hard;
}

// The number nearest to the one there is, upwards or downwards, with which the formula holds; the formula is taken to go
// on holding beyond it.
std::optional<long long> Adviser::nearest(const Values& values, const std::string& name, bool hard,
                                          int direction, const Violation& violation) const {
  const Value& now = values.at(name);
  const long long from = hard ? now.hard : now.soft;
  const auto isGood = [&](long long step) {
    Values trial = values;
    set(trial, name, hard, from + direction * step);
    return holds(trial, violation);
  };
  // A limit is never negative, and downwards nothing lies beyond 0.
  const long long room = direction < 0 ? from : kLargest - std::max(from, 0LL);
  long long bad = 0;
  long long good = 1;
  while (good < room && !isGood(good)) {
    bad = good;
    good = good > room / 2 ? room : good * 2;
  }
  good = std::min(good, room);
  if (good <= 0 || !isGood(good)) return std::nullopt;
  while (good - bad > 1) {
    const long long middle = bad + (good - bad) / 2;
    (isGood(middle) ? good : bad) = middle;
  }
  return from + direction * good;
}

void Adviser::addChanges(const Values& values, const Violation& violation,
                         std::vector<Values>& outcomes) const {
  for (const int id : violation.used) {
    const std::string& indexed = tune_.getByIndex(id);
    // An average that nobody gave follows the number of processes.
    const std::string name = values.count(indexed) == 0 && indexed == "avnumproc" ? "numproc" : indexed;
    if (values.count(name) == 0) continue;
    for (const bool hard : {false, true}) {
      if (!hard && !isPair(name)) continue;
      for (const int direction : {-1, 1}) {
        const auto number = nearest(values, name, hard, direction, violation);
        if (!number) continue;
        Values outcome = values;
        set(outcome, name, hard, *number);
        outcomes.push_back(outcome);
        // The same with the other side of the pair brought along, where the two have crossed.
        Value& value = outcome[name];
        if (value.soft <= value.hard) continue;
        (hard ? value.soft : value.hard) = *number;
        outcomes.push_back(std::move(outcome));
      }
    }
  }
}

State Adviser::stateOf(Values values) const {
  const auto proportion = [](long long before, long long after) {
    const auto size = [](long long number) { return std::log1p(std::abs(static_cast<double>(number))); };
    const bool crosses = (before < 0) != (after < 0);
    return crosses ? size(before) + size(after) : std::abs(size(before) - size(after));
  };
  State state;
  for (const auto& [name, value] : values) {
    const Value& before = start_.at(name);
    if (before == value) continue;
    ++state.keys;
    state.distance += proportion(before.soft, value.soft) + proportion(before.hard, value.hard);
  }
  state.violated = violationsOf(values).size();
  state.values = std::move(values);
  return state;
}

std::string Adviser::textOf(const std::string& name, const Value& value) const {
  const auto definition = parser_.getQoSMap().find(KFL::toLower(name));
  const bool isFraction = definition != parser_.getQoSMap().end() && definition->second.kind == 1 &&
                          definition->second.valueType == 0;
  if (isFraction) return KFL::doubleToStr(static_cast<double>(value.hard) / 100);
  const std::string hard = std::to_string(value.hard);
  return isPair(name) && value.hasSoft ? std::to_string(value.soft) + ":" + hard : hard;
}

KFAQoSAdvice Adviser::adviceOf(const Values& values) const {
  KFAQoSAdvice advice;
  for (const auto& [name, value] : values)
    if (!(start_.at(name) == value))
      advice.changes.push_back(
          {KFL::toLower(name), textOf(name, value), textOf(name, start_.at(name)), false});
  const auto add = [](std::vector<int>& numbers, const std::vector<Violation>& violations) {
    for (const Violation& violation : violations)
      if (std::find(numbers.begin(), numbers.end(), violation.formula->identifier) == numbers.end())
        numbers.push_back(violation.formula->identifier);
  };
  add(advice.violated, violationsOf(start_));
  add(advice.left, violationsOf(values));
  return advice;
}

// A change that a later one made needless goes back.
Values Adviser::withoutIdleChanges(Values values) const {
  const std::size_t violated = violationsOf(values).size();
  for (const auto& [name, before] : start_) {
    Values trial = values;
    trial[name] = before;
    if (violationsOf(trial).size() <= violated) values = std::move(trial);
  }
  return values;
}

// The state with the fewest violations is kept for the case that there is no way to none.
KFAQoSAdvice Adviser::run() {
  std::priority_queue<State> open;
  std::set<Values> known;
  State best = stateOf(start_);
  known.insert(start_);
  open.push(best);
  for (std::size_t step = 0; step < kMostSteps && !open.empty(); ++step) {
    const State state = open.top();
    open.pop();
    if (state.violated < best.violated) best = state;
    if (best.violated == 0) break;
    const std::vector<Violation> violations = violationsOf(state.values);
    if (violations.empty()) continue;
    // All violations have to be cured, in whichever order: taking the first is enough.
    std::vector<Values> outcomes;
    for (const Violation& violation : violations) {
      addChanges(state.values, violation, outcomes);
      if (!outcomes.empty()) break;
    }
    for (Values& outcome : outcomes)
      if (known.insert(outcome).second) open.push(stateOf(std::move(outcome)));
  }
  return adviceOf(withoutIdleChanges(std::move(best.values)));
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
