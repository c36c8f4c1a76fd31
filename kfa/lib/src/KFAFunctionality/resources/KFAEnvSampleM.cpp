// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/resources/KFAEnvSampleM.h>

#include <KFLCommon/KFLCheck.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>

namespace KFA {

namespace {

const KFLRecordRegistration<KFAQoSValidation> recordQoSValidation("KFAQoSValidation");

constexpr const char* kMemoryLimit = "slmmemorylimit";

constexpr const char* kProcesses = "numproc";
constexpr const char* kAverageProcesses = "avnumproc";

KFAQVParamsValue valueOf(const KFLQoS& qos) {
  const KFLOptionalProperty<long long>& soft = qos.getSoft();
  return {soft.isSpecified() ? soft.getValue() : qos.getHard(), qos.getHard(), {}};
}

// The average number of processes where it is lacking: half of the number of processes. False where there is none.
bool deriveAverage(const std::set<KFLQoS>& qoses, KFAQVParamsValue& value) {
  const KFLQoS* const processes = findQoS(qoses, kProcesses);
  if (processes == nullptr || findQoS(qoses, kAverageProcesses) != nullptr) return false;
  value = valueOf(*processes);
  value.soft /= 2;
  value.hard /= 2;
  return true;
}

// Resource parameters in the order of a checker's index.
class Arrangement {
 public:
  Arrangement(const KFAQVTune& tune, const std::set<KFLQoS>& qoses)
      : values_(qoses.size() + 1), array_(static_cast<std::size_t>(tune.count), nullptr) {
    auto* value = values_.data();
    for (const KFLQoS& qos : qoses) {
      *value = valueOf(qos);
      tune.place(qos.getID(), *value++, array_);
    }
    if (deriveAverage(qoses, *value)) tune.place(kAverageProcesses, *value, array_);
  }

  const KFAQVTuneArray& array() const { return array_; }

 private:
  std::vector<KFAQVParamsValue> values_;
  KFAQVTuneArray array_;
};

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
  const bool present = findQoS(qoses, kMemoryLimit) != nullptr;
  if (equalsIgnoreCase(mode.getValue(), "slm")) {
    return present ? KFAQoSMemoryMode::Managed : KFAQoSMemoryMode::LimitMissing;
  }
  return present && equalsIgnoreCase(mode.getValue(), "all") ? KFAQoSMemoryMode::Managed
                                                             : KFAQoSMemoryMode::Formulas;
}

KFAQVTuneParameters tuneParameters(const std::set<KFLQoS>& qoses) {
  KFAQVTuneParameters values;
  for (const KFLQoS& qos : qoses)
    values[qos.getID()] = valueOf(qos);
  KFAQVParamsValue average;
  if (deriveAverage(qoses, average)) values.emplace(kAverageProcesses, average);
  return values;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface of agents
int validateQoSes(KFAQoSValidationList* result, KFLVocMapSP vocabulary, const KFLVEnvConfig& config) {
  KFLOptionalProperty<std::set<KFLQoS>> qoses;
  if (config.getQoSes(qoses) != 0 || !qoses.isSpecified() || qoses.getValue().empty()) {
    setErrorMessage("invalid vocabulary");
    return kTuneVocabularyFailure;
  }
  KFL_CHECK(result != nullptr, kModule, "KFAEnvSampleM");
  const KFAQoSMemoryMode mode = judgeMemoryMode(config, qoses.getValue());
  if (mode != KFAQoSMemoryMode::Formulas) return mode == KFAQoSMemoryMode::LimitMissing ? 1 : 0;
  const auto tune = KFAQVTune::getShared(vocabulary);
  if (tune == nullptr) return kTuneVocabularyFailure;
  KFAQVFailedFormulas failures;
  const Arrangement values(*tune, qoses.getValue());
  if (const int code = tune->check(values.array(), failures); code != 0) return code;
  KFAQoSValidationList violations;
  for (const KFAQVTuneFailure& failure : failures)
    violations.push_back(describe(*tune, failure));
  KFL::fields::addAll(*result, std::move(violations));
  return 0;
}

}  // namespace KFA
