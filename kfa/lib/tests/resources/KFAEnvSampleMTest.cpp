// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <set>
#include <tuple>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLThreads.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>

#include "Vocabularies.h"

namespace {

using namespace KFA;

KFLQoS qosOf(const std::string& id, std::optional<long long> soft, long long hard) {
  KFLQoS qos(id);
  if (soft) qos.setSoft(KFLOptionalProperty<long long>(*soft));
  qos.setHard(hard);
  return qos;
}

KFAEnvConfig configOf(const std::set<KFLQoS>& qoses, const std::string& mode = "") {
  KFAEnvConfig config;
  config.setQoSes(KFLOptionalProperty<std::set<KFLQoS>>(qoses));
  if (!mode.empty()) config.setSLMMode(KFLOptionalProperty<std::string>(mode));
  return config;
}

const TestParameters kParameters = {{"numproc", 2}, {"avnumproc", 2}, {"slmmemorylimit", 1}, {"weight", 1}};

// The result, and "IDENTIFIER EXPRESSION COMMENT: PARAMETER..." for each record.
std::string validate(const KFAEnvConfig& config, const std::vector<std::string>& formulas) {
  KFAQoSValidationList list(1);
  const int result = validateQoSes(&list, vocabularyOf(kParameters, formulas), config);
  std::string text = std::to_string(result);
  for (std::size_t i = 1; i < list.size(); ++i) {
    text += "; " + std::to_string(list[i].getIdentifier()) + " " + list[i].getExpression() + " " +
            list[i].getComment() + ":";
    for (const std::string& name : list[i].getParameters())
      text += " " + name;
  }
  return text;
}

TEST(ValidateQoSes, ConfigurationWithoutParametersIsRefused) {
  for (const KFAEnvConfig& config : {KFAEnvConfig(), configOf({}), configOf({}, "slm")}) {
    setErrorMessage("none");
    EXPECT_EQ(validate(config, {"1"}), "-2");
    EXPECT_EQ(getErrorMessage(), "invalid vocabulary");
  }
  EXPECT_DEATH(validateQoSes(nullptr, nullptr, configOf({qosOf("numproc", 1, 1)})),
               "KFAFunctionality.*KFAEnvSampleM");
}

TEST(ValidateQoSes, MemoryMode) {
  const char* const evaluated = "0; 1 0 comment 1:";
  const std::tuple<const char*, bool, const char*> rows[] = {
      {"", true, evaluated},    {"", false, evaluated},     {"slm", true, "0"}, {"SLM", true, "0"},
      {"Slm", false, "1"},      {"all", true, "0"},         {"All", true, "0"}, {"ALL", false, evaluated},
      {"ubc", true, evaluated}, {"slm ", false, evaluated},
  };
  for (const auto& [mode, hasLimit, expected] : rows) {
    const KFLQoS qos = qosOf(hasLimit ? "slmmemorylimit" : "weight", {}, 5);
    EXPECT_EQ(validate(configOf({qos}, mode), {"0"}), expected) << mode << " " << hasLimit;
  }
}

TEST(ValidateQoSes, ValuesOfTheParameters) {
  // Half of numproc, rounded towards zero, unless there is a value.
  const KFAEnvConfig half = configOf({qosOf("numproc", 100, 201)});
  EXPECT_EQ(validate(half, {"avnumproc.soft == 50 && avnumproc.hard == 100"}), "0");
  const KFAEnvConfig negative = configOf({qosOf("numproc", -101, -1)});
  EXPECT_EQ(validate(negative, {"avnumproc.soft + 50 == 0", "avnumproc.hard == 0"}), "0");
  const KFAEnvConfig given = configOf({qosOf("numproc", 100, 201), qosOf("avnumproc", {}, 7)});
  EXPECT_EQ(validate(given, {"avnumproc.soft == 7 && avnumproc.hard == 7"}), "0");
}

TEST(ValidateQoSes, KnownParametersInAnyCase) {
  const KFAEnvConfig config = configOf({qosOf("NUMPROC", 100, 201), qosOf("Weight", 5, 5)});
  EXPECT_EQ(validate(config, {"avnumproc.soft == 50 && numproc.hard == 201", "weight == 5"}), "0");
  EXPECT_EQ(validate(configOf({qosOf("SLMMemoryLimit", {}, 5)}, "slm"), {"0"}), "0");
}

// Threads check environments of their own over one vocabulary, each against a checker that is its own.
TEST(ValidateQoSes, AnyThreadsOverOneVocabulary) {
  const auto vocabulary = vocabularyOf(
      kParameters,
      {"numproc <= numproc.hard", "avnumproc * 2 >= numproc - 1", "QOS <= QOS.hard", "weight < 9"});
  KFL::runInThreads(4, 4, [&vocabulary](std::size_t seed) {
    std::mt19937 random(static_cast<unsigned>(seed));
    const auto number = [&random] { return static_cast<long long>(random() % 16); };
    for (int i = 0; i < 200; ++i) {
      const std::set<KFLQoS> qoses = {qosOf("numproc", number(), number()),
                                      qosOf("WEIGHT", number(), number()),
                                      qosOf("slmmemorylimit", number(), number())};
      const KFAEnvConfig config = configOf(qoses);
      KFAQoSValidationList shared;
      KFAQVTune own(config, vocabulary);
      KFAQVFailedFormulas failures;
      EXPECT_EQ(validateQoSes(&shared, vocabulary, config),
                own.checkParameters(tuneParameters(qoses), failures));
      const auto isSame = [](const KFAQoSValidation& record, const KFAQVTuneFailure& failure) {
        return record.getIdentifier() == failure.formula->identifier &&
               record.getParameters().size() == failure.params.size();
      };
      EXPECT_TRUE(std::equal(shared.begin(), shared.end(), failures.begin(), failures.end(), isSame));
    }
  });
}

TEST(ValidateQoSes, RecordsOfViolatedFormulas) {
  const KFAEnvConfig config =
      configOf({qosOf("numproc", 300, 201), qosOf("slmmemorylimit", 9, 8), qosOf("weight", 2, 1)});
  EXPECT_EQ(validate(config, {"numproc > 5", "avnumproc.hard < 3 && numproc.soft <= numproc.hard",
                              "QOS <= QOS.hard"}),
            "0; 2 avnumproc.hard < 3 && numproc.soft <= numproc.hard comment 2: numproc avnumproc; "
            "3 QOS <= QOS.hard comment 3: slmmemorylimit; 3 QOS <= QOS.hard comment 3: weight");
  // Whatever ends the check, the list stays as it was.
  EXPECT_EQ(validate(configOf({qosOf("weight", 2, 1)}), {"0", "numproc"}), "-3");
  EXPECT_EQ(validate(config, {"0", "1 / 0"}), "-1");
  EXPECT_EQ(validate(config, {"0", "("}), "-2");
}

}  // namespace
