// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <limits>
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

// What formulas come to, by their program and by their terms, is held against an evaluator of their trees by the fuzz
// target FormulaFuzz; the parameters that take part are in the records of violated formulas.
class QoSEvaluation : public testing::Test {
 protected:
  QoSEvaluation() { setErrorMessage("none"); }

  int evaluate(const std::string& formula, int multipleIndex = -1) {
    KFAQVPolishNotation notation;
    if (names_.tune.formFormula(formula, notation) != 0) return -100;
    return evaluate(notation, multipleIndex);
  }
  int evaluate(const KFAQVPolishNotation& notation, int multipleIndex = -1) {
    used_.clear();
    return names_.tune.checkByFormula(names_.tune.arrange(values_), notation, used_, multipleIndex);
  }

  FormulaNames names_;
  KFAQVTuneParameters values_ = {{"a", {1, 2, {}}}, {"b", {-5, 5, {}}}, {"x.y", {kLeast, kMost, {}}}};
  KFAQVParamIDSet used_;
};

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

// A notation that was made or changed by hand.
TEST_F(QoSEvaluation, TermsOutOfRangeAreRefused) {
  for (const int value : {1000, 6, -1, kLeastInt, 0})
    EXPECT_EQ(evaluate({{{1, value}}, 0, nullptr}), -3) << value;
  for (const int kind : {0, 5, -1})
    EXPECT_EQ(evaluate({{{kind, 1}}, 0, nullptr}), -1) << kind;
  for (const int row : {17, -1, 0, kMostInt})
    EXPECT_EQ(evaluate({{{3, 1}, {3, 1}, {2, row}}, 0, nullptr}), -1) << row;
  EXPECT_EQ(evaluate({{{3, -7}}, 0, nullptr}), 0);
  EXPECT_DEATH(evaluate({{{3, 1}, {2, 13}}, 0, nullptr}), "KFAFunctionality");
  EXPECT_DEATH(evaluate({{{3, 1}, {3, 1}}, 0, nullptr}), "KFAFunctionality");
  EXPECT_DEATH(evaluate({{}, 0, nullptr}), "KFAFunctionality");
  EXPECT_DEATH(evaluate("QOS"), "KFAFunctionality.*KFAQoSTune");

  KFAQVPolishNotation notation;
  ASSERT_EQ(names_.tune.formFormula("a < 5", notation), 0);
  notation.terms[1].value = -5;
  EXPECT_EQ(evaluate(notation), 1);
}

TEST_F(QoSEvaluation, DepthIsUnbounded) {
  std::string values, sums;
  for (int i = 0; i < 1000; ++i) {
    values += "a ";
    sums += "+ ";
  }
  EXPECT_EQ(evaluate("a " + values + sums + "- 1001 == 0"), 0);
  EXPECT_EQ(evaluate("1(1)"), -1);
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
