// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/resources/KFAEnvSampleM.h>

#include <utility>

#include <KFLCommon/KFLCheck.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>

namespace KFA {

namespace {

const KFLRecordRegistration<KFAQoSValidation> recordQoSValidation("KFAQoSValidation");

constexpr const char* kMemoryLimit = "slmmemorylimit";

KFAQoSValidation describe(const KFAQVTune& tune, const KFAQVTuneFailure& failure) {
  std::vector<std::string> names;
  names.reserve(failure.params.size());
  for (const int id : failure.params)
    names.push_back(tune.getByIndex(id));
  KFAQoSValidation record;
  record.setParameters(names);
  record.setIdentifier(failure.formula->identifier);
  record.setExpression(failure.formula->expression);
  record.setComment(failure.formula->comment);
  return record;
}

}  // namespace

const KFLFieldTable& KFAQoSValidation::fields() {
  using R = KFAQoSValidation;
  static constexpr KFLField rows[] = {
      field<R, &R::identifier_>(1007).required(),
      list<R, &R::parameters_>(1479).required().atLeastOne().orEmptyItem(),
      field<R, &R::expression_>(1480).required(),
      field<R, &R::comment_>(1481).required(),
  };
  static constexpr KFLFieldTable table{"KFAQoSValidation", kTypesURI, "", rows};
  return table;
}

KFAQoSMemoryMode judgeMemoryMode(const KFLVEnvConfig& config, const std::set<KFLQoS>& qoses) {
  const KFLMessageIterator it = config.getIterator();
  KFLOptionalProperty<std::string> mode;
  if (KFAEnvConfig(&it, config.getKind()).getSLMMode(mode) != 0 || !mode.isSpecified()) {
    return KFAQoSMemoryMode::Formulas;
  }
  const bool present = qoses.count(KFLQoS(kMemoryLimit)) != 0;
  if (equalsIgnoreCase(mode.getValue(), "slm")) {
    return present ? KFAQoSMemoryMode::Managed : KFAQoSMemoryMode::LimitMissing;
  }
  return present && equalsIgnoreCase(mode.getValue(), "all") ? KFAQoSMemoryMode::Managed
                                                             : KFAQoSMemoryMode::Formulas;
}

KFAQVTuneParameters tuneParameters(const std::set<KFLQoS>& qoses) {
  KFAQVTuneParameters values;
  for (const KFLQoS& qos : qoses) {
    KFAQVParamsValue& value = values[qos.getID()];
    value.hard = qos.getHard();
    value.soft = qos.getSoft().isSpecified() ? qos.getSoft().getValue() : value.hard;
  }
  if (const auto processes = values.find("numproc");
      processes != values.end() && values.count("avnumproc") == 0) {
    const KFAQVParamsValue half{processes->second.soft / 2, processes->second.hard / 2, {}};
    values.emplace("avnumproc", half);
  }
  return values;
}

int validateQoSes(KFAQoSValidationList* result, KFLVocMapSP vocabulary, const KFLVEnvConfig& config) {
  KFLOptionalProperty<std::set<KFLQoS>> qoses;
  if (config.getQoSes(qoses) != 0 || !qoses.isSpecified() || qoses.getValue().empty()) {
    setErrorMessage("invalid vocabulary");
    return kTuneVocabularyFailure;
  }
  KFL_CHECK(result != nullptr, kModule, "KFAEnvSampleM");
  const KFAQoSMemoryMode mode = judgeMemoryMode(config, qoses.getValue());
  if (mode != KFAQoSMemoryMode::Formulas) return mode == KFAQoSMemoryMode::LimitMissing ? 1 : 0;
  KFAQVTune tune(config, std::move(vocabulary));
  KFAQVFailedFormulas failures;
  if (const int code = tune.checkParameters(tuneParameters(qoses.getValue()), failures); code != 0)
    return code;
  for (const KFAQVTuneFailure& failure : failures)
    result->push_back(describe(tune, failure));
  return 0;
}

}  // namespace KFA
