// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLVEnvConfig.h>

#include <KFAFunctionality/resources/KFAQoSTune.h>

#include "Vocabularies.h"

namespace {

using namespace KFA;

class QoSTune : public testing::Test {
 protected:
  QoSTune() { setErrorMessage("none"); }

  // The result of a check, and "IDENTIFIER: PARAMETER PARAMETER" for each failure.
  int check(KFAQVTune& tune, const KFAQVTuneParameters& values) {
    KFAQVFailedFormulas failures;
    const int result = tune.checkParameters(values, failures);
    failures_.clear();
    for (const KFAQVTuneFailure& failure : failures) {
      std::string& text = failures_.emplace_back(std::to_string(failure.formula->identifier) + ":");
      for (const int id : failure.params)
        text += " " + tune.getByIndex(id);
    }
    return result;
  }

  // The error text with which a vocabulary is refused.
  std::string refusal(const KFLVocMapSP& vocabulary) {
    KFAQVTune tune(config_, vocabulary);
    EXPECT_EQ(check(tune, {}), -2);
    return getErrorMessage();
  }

  KFLVEnvConfig config_;
  std::vector<std::string> failures_;
};

TEST_F(QoSTune, IndexFollowsTheVocabulary) {
  KFAQVTune tune(config_, vocabularyOf({{"b", 1}, {"a", 2}, {"c", 0}}, {"a <= b"}));
  EXPECT_EQ(tune.names, std::vector<std::string>(20));
  EXPECT_EQ(tune.count, 0);
  ASSERT_EQ(tune.init(), 0);
  EXPECT_EQ(tune.init(), 0);
  EXPECT_EQ(tune.initialised, 1);
  EXPECT_EQ(tune.count, 4);
  EXPECT_EQ(tune.names.size(), 20U);
  EXPECT_EQ(tune.getByIndex(1) + tune.getByIndex(2) + tune.getByIndex(3), "bac");
  EXPECT_EQ(tune.names[4], "QOS");
  // A missing kind counts as 1; kind 2 is left out.
  EXPECT_EQ(tune.index.find("QOS")->second.list, KFAQVParamIDList({1, 3}));
  EXPECT_DEATH(tune.getByIndex(4), "KFAFunctionality.*KFAQoSTune");
  EXPECT_DEATH(tune.getByIndex(-1), "KFAFunctionality.*KFAQoSTune");
}

TEST_F(QoSTune, RefusedVocabularies) {
  const std::string tooMany = " in formulas initialization: formulas can tell 98 parameters apart";
  EXPECT_EQ(refusal(nullptr), "invalid vocabulary");
  EXPECT_EQ(refusal(vocabularyOf({}, {"1"})), "can not read QOS from vocabulary");
  EXPECT_EQ(refusal(vocabularyOf({{"QOS", 1}}, {"1"})), "double index 'QOS' in formulas initialization");
  EXPECT_EQ(refusal(vocabularyOf(manyParameters(200), {"1"})), "no index for 'p99'" + tooMany);
  EXPECT_EQ(refusal(vocabularyOf(manyParameters(99), {"1"})), "no index for 'QOS'" + tooMany);
  KFAQVTune most(config_, vocabularyOf(manyParameters(98), {"QOS.hard >= p97.hard"}));
  EXPECT_EQ(most.init(), 0) << getErrorMessage();

  KFAQVTune none(config_, nullptr);
  KFAQVParamIDList list;
  EXPECT_EQ(none.addQOStoIndex(list), -2);
}

TEST_F(QoSTune, IsSharedByAllWhoAskForAVocabulary) {
  const auto vocabulary = vocabularyOf({{"b", 1}, {"A", 2}}, {"A <= b"});
  const auto shared = KFAQVTune::getShared(vocabulary);
  ASSERT_NE(shared, nullptr);
  EXPECT_EQ(KFAQVTune::getShared(vocabulary), shared);
  EXPECT_NE(KFAQVTune::getShared(vocabularyOf({{"b", 1}, {"A", 2}}, {"A <= b"})), shared);
  EXPECT_EQ(vocabulary.use_count(), 1);
  EXPECT_EQ(KFAQVTune::getShared(nullptr), nullptr);
  EXPECT_EQ(getErrorMessage(), "invalid vocabulary");
  EXPECT_EQ(KFAQVTune::getShared(vocabularyOf({{"a", 1}}, {"a +"})), nullptr);
  EXPECT_EQ(getErrorMessage(), "can not parse formula: a +");
}

// A value is found in any case of letters, but one that is spelled as in the vocabulary goes before it.
TEST_F(QoSTune, ValuesAreFoundInAnyCase) {
  KFAQVTune tune(config_,
                 vocabularyOf({{"NumProc", 1}, {"x", 1}, {"X", 1}}, {"NumProc == 1", "x == 2", "X == 3"}));
  const KFAQVTuneParameters values = {
      {"NUMPROC", {9, 9, {}}}, {"NumProc", {1, 1, {}}}, {"x", {2, 2, {}}}, {"X", {3, 3, {}}}};
  EXPECT_EQ(check(tune, values), 0);
  EXPECT_TRUE(failures_.empty());
}

TEST_F(QoSTune, FailedInitialisationIsFinal) {
  KFAQVTune tune(config_, vocabularyOf({{"a", 1}}, {"a", "a <"}));
  EXPECT_EQ(tune.init(), -2);
  EXPECT_EQ(tune.formulas.size(), 1U);
  EXPECT_EQ(tune.initialised, 0);
  EXPECT_EQ(tune.init(), -2);
  EXPECT_EQ(getErrorMessage(), "double index 'a' in formulas initialization");
}

TEST_F(QoSTune, IncompleteFormulasAreSkipped) {
  KFAQVTune tune(config_,
                 KFLVocMap::loadFromText(
                     "<vocabulary version='1'><category words='kelvarium qos'><parameter id='a'/></category>"
                     "<category words='kelvarium tune'>"
                     "<parameter number='1'><expression>(</expression></parameter>"
                     "<parameter><expression>)</expression><comment>c</comment></parameter>"
                     "<parameter number='3'><comment>c</comment></parameter>"
                     "<parameter number='-4'><expression>a</expression><comment>c</comment></parameter>"
                     "</category></vocabulary>",
                     "test"));
  ASSERT_EQ(tune.init(), 0) << getErrorMessage();
  ASSERT_EQ(tune.formulas.size(), 1U);
  EXPECT_EQ(tune.formulas[0].identifier, -4);
  EXPECT_EQ(tune.formulas[0].expression, "a");
  EXPECT_EQ(tune.formulas[0].comment, "c");
}

TEST_F(QoSTune, FirstNegativeResultEndsTheCheck) {
  KFAQVTune tune(config_, vocabularyOf({{"a", 2}, {"b", 2}}, {"a < 0", "a / b > 1", "0"}));
  EXPECT_EQ(check(tune, {{"a", {1, 1, {}}}}), -3);
  EXPECT_EQ(getErrorMessage(), "parameter 'b' is absent");
  EXPECT_EQ(failures_, std::vector<std::string>({"1: a"}));
  EXPECT_EQ(check(tune, {{"a", {1, 1, {}}}, {"b", {0, 0, {}}}}), -1);
  EXPECT_EQ(getErrorMessage(),
            "can not evaluate formula: a / b > 1: division by zero; another divisor would be right");
  EXPECT_EQ(check(tune, {{"a", {2, 1, {}}}, {"b", {1, 0, {}}}}), 0);
  EXPECT_EQ(failures_, std::vector<std::string>({"1: a", "3:"}));
}

}  // namespace
