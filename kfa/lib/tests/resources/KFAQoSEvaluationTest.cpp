// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <KFLCommon/KFLError.h>

#include "FormulaNames.h"

namespace {

using namespace KFA;

constexpr long long kLeast = std::numeric_limits<long long>::min();
constexpr long long kMost = std::numeric_limits<long long>::max();
constexpr int kLeastInt = std::numeric_limits<int>::min();
constexpr int kMostInt = std::numeric_limits<int>::max();

// Records the steps as "LEFT OPERATOR RIGHT = RESULT".
class Steps final : public KFAQVEvaluationObserver {
 public:
  explicit Steps(const KFAQVTune& tune) : tune_(tune) {}
  void step(const KFAQVTermType& term, long long left, long long right, long long result) override {
    text += std::to_string(left) + " " + tune_.toString(term) + " " + std::to_string(right) + " = " +
            std::to_string(result) + "; ";
  }
  std::string text;

 private:
  const KFAQVTune& tune_;
};

class QoSEvaluation : public testing::Test {
 protected:
  QoSEvaluation() { setErrorMessage("none"); }

  // The result of a formula; both ways of evaluating must agree on it, and on the parameters used.
  int evaluate(const std::string& formula, int multipleIndex = -1) {
    KFAQVPolishNotation notation;
    if (names_.tune.formFormula(formula, notation) != 0) return -100;
    return evaluate(notation, multipleIndex);
  }
  int evaluate(const KFAQVPolishNotation& notation, int multipleIndex) {
    const KFAQVTuneArray values = names_.tune.arrange(values_);
    Steps steps(names_.tune);
    KFAQVParamIDSet usedInSteps;
    used_.clear();
    const int result = names_.tune.checkByFormula(values, notation, used_, multipleIndex);
    EXPECT_EQ(names_.tune.checkByFormula(values, notation, usedInSteps, multipleIndex, &steps), result);
    EXPECT_EQ(usedInSteps, used_);
    steps_ = steps.text;
    return result;
  }

  FormulaNames names_;
  KFAQVTuneParameters values_ = {{"a", {1, 2, {}}}, {"b", {-5, 5, {}}}, {"x.y", {kLeast, kMost, {}}}};
  KFAQVParamIDSet used_;
  std::string steps_;
};

TEST_F(QoSEvaluation, Results) {
  const std::pair<int, std::vector<const char*>> rows[] = {
      {0,
       {"a", "a.soft < a.hard", "a.hard - a - 1 == 0", "7 - 2 - 1 == 4", "1 + 2 * 3 == 7", "7 / 2 * 2 == 6",
        "b / 2 + 2 == 0", "0 - 7 / 2 + 3 == 0", "a < 5 < a.hard", "5 && 2 && b", "9999999999 < 0",
        // 64 bits, wrapping.
        "x.y.hard + 1 == x.y.soft", "x.y.soft - 1 == x.y.hard", "x.y.hard * 2 + 2 == 0",
        "x.y.soft * x.y.soft == 0", "x.y.soft / 1 == x.y.soft"}},
      {1, {"0", "a.hard < a.soft", "a.hard &lt; a.soft", "5 && 0", "a && b == 1"}},
      // What ends an evaluation; both sides are always evaluated.
      {-1, {"a / 0", "(a) b", "0 && 1 / 0", "a / 0 < c"}},
      {-3, {"c < a", "c < a / 0"}},
  };
  for (const auto& [result, formulas] : rows) {
    for (const char* const formula : formulas)
      EXPECT_EQ(evaluate(formula), result) << formula;
  }
}

TEST_F(QoSEvaluation, RefusalsNameTheFormulaOrTheParameter) {
  values_["c"] = {-1, 0, {}};
  EXPECT_EQ(evaluate("x.y.soft / c.soft"), -1);
  EXPECT_EQ(getErrorMessage(),
            "can not evaluate formula: x.y.soft c.soft /: the quotient is out of range; another divisor "
            "would be right");
  EXPECT_EQ(evaluate("a / c.hard"), -1);
  EXPECT_EQ(getErrorMessage(),
            "can not evaluate formula: a.soft c.hard /: division by zero; another divisor would be right");
  EXPECT_EQ(evaluate("a + d"), -3);
  EXPECT_EQ(getErrorMessage(), "parameter 'd' is absent");
  EXPECT_EQ(used_, KFAQVParamIDSet({1}));
}

TEST_F(QoSEvaluation, StepsAndUsedParameters) {
  EXPECT_EQ(evaluate("b.hard < a * 3 && a < 2"), 1);
  EXPECT_EQ(steps_, "1 * 3 = 3; 5 < 3 = 0; 1 < 2 = 1; 0 && 1 = 0; ");
  EXPECT_EQ(used_, KFAQVParamIDSet({1, 2}));
  EXPECT_EQ(evaluate("1"), 0);
  EXPECT_TRUE(used_.empty());
}

TEST_F(QoSEvaluation, MultipleReference) {
  EXPECT_EQ(evaluate("QOS.soft <= QOS.hard && a", 2), 0);
  EXPECT_EQ(used_, KFAQVParamIDSet({1, 2}));
  EXPECT_EQ(evaluate("QOS.soft >= QOS.hard", 1), 1);
  // Without a value there is nothing to check.
  EXPECT_EQ(evaluate("a < 0 && QOS", 4), 0);
  EXPECT_EQ(used_, KFAQVParamIDSet({1}));
  EXPECT_EQ(evaluate("c && QOS", 4), -3);
  EXPECT_DEATH(evaluate("QOS", -1), "KFAFunctionality.*KFAQoSTune");
}

// A notation that was made or changed by hand.
TEST_F(QoSEvaluation, TermsOutOfRangeAreRefused) {
  for (const int value : {1000, 6, -1, kLeastInt, 0})
    EXPECT_EQ(evaluate({{{1, value}}, 0, nullptr}, -1), -3) << value;
  for (const int kind : {0, 5, -1})
    EXPECT_EQ(evaluate({{{kind, 1}}, 0, nullptr}, -1), -1) << kind;
  for (const int row : {17, -1, 0, kMostInt})
    EXPECT_EQ(evaluate({{{3, 1}, {3, 1}, {2, row}}, 0, nullptr}, -1), -1) << row;
  EXPECT_EQ(evaluate({{{3, -7}}, 0, nullptr}, -1), 0);
  EXPECT_DEATH(evaluate({{{3, 1}, {2, 13}}, 0, nullptr}, -1), "KFAFunctionality");
  EXPECT_DEATH(evaluate({{{3, 1}, {3, 1}}, 0, nullptr}, -1), "KFAFunctionality");
  EXPECT_DEATH(evaluate({{}, 0, nullptr}, -1), "KFAFunctionality");

  KFAQVPolishNotation notation;
  ASSERT_EQ(names_.tune.formFormula("a < 5", notation), 0);
  notation.terms[1].value = -5;
  EXPECT_EQ(evaluate(notation, -1), 1);
}

TEST_F(QoSEvaluation, DepthIsUnbounded) {
  std::string values, sums, nested;
  for (int i = 0; i < 1000; ++i) {
    values += "a ";
    sums += "+ ";
    nested += "1(";
  }
  EXPECT_EQ(evaluate("a " + values + sums + "- 1001 == 0"), 0);
  EXPECT_EQ(evaluate(nested + "1" + std::string(1000, ')')), -1);
}

std::optional<long long> applyPlainly(std::string op, long long left, long long right) {
  const auto wide = [](long long value) { return static_cast<std::uint64_t>(value); };
  if (op.rfind("&lt;", 0) == 0) op.replace(0, 4, "<");
  if (op.rfind("&gt;", 0) == 0) op.replace(0, 4, ">");
  if (op == "+") return static_cast<long long>(wide(left) + wide(right));
  if (op == "-") return static_cast<long long>(wide(left) - wide(right));
  if (op == "*") return static_cast<long long>(wide(left) * wide(right));
  if (op == "/" && (right == 0 || (left == kLeast && right == -1))) return {};
  if (op == "/") return left / right;
  if (op == "<") return left < right;
  if (op == ">") return left > right;
  if (op == "<=") return left <= right;
  if (op == ">=") return left >= right;
  if (op == "==") return left == right;
  return left != 0 && right != 0;
}

// A formula evaluated plainly: the strongest operators first, each level from the left.
std::optional<long long> evaluatePlainly(std::vector<long long> values, std::vector<std::string> ops) {
  const std::set<std::string> levels[] = {
      {"*", "/"}, {"+", "-"}, {"<", ">", "<=", ">=", "==", "&lt;", "&gt;", "&lt;=", "&gt;="}, {"&&"}};
  for (const std::set<std::string>& level : levels) {
    for (std::size_t i = 0; i < ops.size();) {
      const auto at = static_cast<std::ptrdiff_t>(i);
      if (level.count(ops[i]) == 0) {
        ++i;
      } else if (const auto result = applyPlainly(ops[i], values[i], values[i + 1])) {
        values[i] = *result;
        values.erase(values.begin() + at + 1);
        ops.erase(ops.begin() + at);
      } else {
        return {};
      }
    }
  }
  return values[0];
}

TEST_F(QoSEvaluation, AgreesWithPlainEvaluation) {
  std::mt19937_64 random(3);
  const std::vector<std::string> operators = {
      "+", "-", "*", "/", "<", ">=", "&&", "==", "<=", ">", "&lt;", "&gt;", "&lt;=", "&gt;=", "*", "-"};
  const long long special[] = {0, 1, -1, 2, kLeast, kMost, 1LL << 32, -(1LL << 31)};
  const auto number = [&] {
    return random() % 2 == 0 ? special[random() % 8] : static_cast<long long>(random());
  };
  int refused = 0;
  for (int i = 0; i < 20000; ++i) {
    for (const char* name : {"a", "b", "c", "d"})
      values_[name] = {number(), number(), {}};
    std::vector<long long> values;
    std::vector<std::string> ops;
    KFAQVParamIDSet used;
    std::string formula;
    for (std::size_t left = 1 + random() % 12; left > 0; --left) {
      const int id = static_cast<int>(random() % 4);
      const std::string name(1, static_cast<char>('a' + id));
      const bool hard = random() % 2 == 0;
      if (random() % 4 == 0) {
        values.push_back(static_cast<long long>(random() % 1000));
        formula += std::to_string(values.back());
      } else {
        values.push_back(hard ? values_[name].hard : values_[name].soft);
        formula += name + (hard ? ".hard" : "");
        used.insert(id + 1);
      }
      if (left > 1) formula += " " + ops.emplace_back(operators[random() % operators.size()]) + " ";
    }
    const std::optional<long long> expected = evaluatePlainly(values, ops);
    ASSERT_EQ(evaluate(formula), !expected ? -1 : *expected == 0 ? 1 : 0) << formula;
    if (expected) {
      EXPECT_EQ(used_, used) << formula;
    }
    refused += expected ? 0 : 1;
  }
  EXPECT_GT(refused, 100);
}

TEST(QoSParamIDSet, IsAnOrderedSet) {
  KFAQVParamIDSet set = {99, 3, 64, 63, 3, 0};
  EXPECT_EQ(std::vector<int>(set.begin(), set.end()), std::vector<int>({0, 3, 63, 64, 99}));
  EXPECT_EQ(set.size(), 5U);
  EXPECT_EQ(*set.find(64), 64);
  EXPECT_EQ(*++set.find(3), 63);
  EXPECT_EQ(set.find(4), set.end());
  set.insert(-1);
  set.insert(128);
  EXPECT_EQ(set.erase(63) + set.erase(63), 1U);
  EXPECT_EQ(set, KFAQVParamIDSet({0, 3, 64, 99}));
}

}  // namespace
