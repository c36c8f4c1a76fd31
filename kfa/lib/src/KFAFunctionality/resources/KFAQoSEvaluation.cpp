// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/resources/KFAQoSTune.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <KFLCommon/KFLCheck.h>
#include <KFLCommon/KFLError.h>

#include <KFAFunctionality/resources/KFAQoSOperators.h>
#include <KFAFunctionality/resources/KFAQoSProgram.h>

namespace KFA {

namespace {

constexpr const char* kUnit = "KFAQoSTune";

// The most values that wait at a time. A formula that can be evaluated needs one more than there are
// priorities.
std::size_t depthOf(const std::vector<KFAQVTermType>& terms) {
  std::size_t depth = 0;
  std::size_t deepest = 0;
  for (const KFAQVTermType& term : terms) {
    if (term.kind != KFAQVTermOperator) {
      deepest = std::max(deepest, ++depth);
    } else if (depth > 0) {
      --depth;
    }
  }
  return deepest;
}

// Room for the values that an evaluation has still to join; only a notation of unusual depth needs the heap.
class ValueRoom {
 public:
  explicit ValueRoom(const std::vector<KFAQVTermType>& terms) {
    if (terms.size() <= small_.size()) return;
    const std::size_t depth = depthOf(terms);
    if (depth <= small_.size()) return;
    large_ = std::make_unique<long long[]>(depth);
    first_ = large_.get();
  }
  ValueRoom(const ValueRoom&) = delete;
  ValueRoom& operator=(const ValueRoom&) = delete;

  long long* first() { return first_; }

 private:
  std::array<long long, 64> small_;
  std::unique_ptr<long long[]> large_;
  long long* first_ = small_.data();
};

long long sideOf(const KFAQVParamsValue& value, const KFAQVTermType& term) {
  return term.value / kHardOffset != 0 ? value.hard : value.soft;
}

const KFAQVParamsValue* valueAt(const KFAQVTuneArray& values, int id) {
  const auto place = static_cast<std::size_t>(id);  // a negative one lies beyond the end
  return place < values.size() ? values[place] : nullptr;
}

[[gnu::cold]] int refuseAbsent(const KFAQVTune& tune, int id) {
  const auto place = static_cast<std::size_t>(id);
  setErrorMessage("parameter '%s' is absent", place < tune.names.size() ? tune.names[place].c_str() : "");
  return kTuneParameterAbsent;
}

// A formula of the object by its expression, another one by its postfix form.
std::string nameOf(const KFAQVTune& tune, const KFAQVPolishNotation& notation) {
  const auto own = std::find_if(tune.formulas.begin(), tune.formulas.end(),
                                [&](const KFAQVFormula& formula) { return &formula.notation == &notation; });
  return own != tune.formulas.end() ? own->expression : tune.toString(notation);
}

[[gnu::cold]] int refuseOperator(const KFAQVTune& tune, const KFAQVPolishNotation& notation, int row,
                                 long long right) {
  const char* reason = "parentheses have no value; a formula without them would be right";
  if (row == kOperatorDivide)
    reason = right == 0 ? "division by zero; another divisor would be right"
                        : "the quotient is out of range; another divisor would be right";
  setErrorMessage("can not evaluate formula: %s: %s", nameOf(tune, notation).c_str(), reason);
  return -1;
}

[[gnu::cold]] int refuseKind(int kind) {
  setErrorMessage("can not evaluate formula: a term of the unknown kind %d", kind);
  return -1;
}

}  // namespace

int evaluateTerms(const KFAQVTune& tune, const KFAQVTuneArray& values, const KFAQVPolishNotation& formula,
                  KFAQVParamIDSet& used, int multipleIndex, KFAQVEvaluationObserver* observer) {
  ValueRoom room(formula.terms);
  long long* const first = room.first();
  long long* top = first;  // behind the last value
  for (const KFAQVTermType& term : formula.terms) {
    switch (term.kind) {
      case KFAQVTermNumber:
        *top++ = term.value;
        break;
      case KFAQVTermParameter: {
        const int id = term.value % kHardOffset;
        const KFAQVParamsValue* const value = valueAt(values, id);
        if (value == nullptr) return refuseAbsent(tune, id);
        used.insert(id);
        *top++ = sideOf(*value, term);
        break;
      }
      case KFAQVTermMultiple: {
        KFL_CHECK(multipleIndex >= 0, kModule, kUnit);
        const KFAQVParamsValue* const value = valueAt(values, multipleIndex);
        if (value == nullptr) return 0;
        used.insert(multipleIndex);
        *top++ = sideOf(*value, term);
        break;
      }
      case KFAQVTermOperator: {
        KFL_CHECK(top - first >= 2, kModule, kUnit);
        const long long right = *--top;
        const long long left = top[-1];
        if (!operators::apply(term.value, left, right, top[-1])) {
          return refuseOperator(tune, formula, term.value, right);
        }
        if (observer != nullptr) observer->step(term, left, right, top[-1]);
        break;
      }
      default:
        return refuseKind(term.kind);
    }
  }
  KFL_CHECK(top - first == 1, kModule, kUnit);
  return *first == 0 ? 1 : 0;
}

int KFAQVTune::checkByFormula(const KFAQVTuneArray& values, const KFAQVPolishNotation& formula,
                              KFAQVParamIDSet& used, int multipleIndex,
                              KFAQVEvaluationObserver* observer) const {
  if (observer == nullptr && formula.terms.program() != nullptr) {
    return KFAQVProgram::run(*this, values, formula, used);
  }
  return evaluateTerms(*this, values, formula, used, multipleIndex, observer);
}

}  // namespace KFA
