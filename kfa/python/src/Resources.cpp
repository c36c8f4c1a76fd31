// SPDX-License-Identifier: Apache-2.0
// Resource parameters held against the formulas of the vocabulary.
#include <KFAFunctionality/node/KFAQoSAdvice.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>
#include <KFAFunctionality/resources/KFAQoSTune.h>

#include "Changes.h"
#include "Configuration.h"
#include "Convert.h"
#include "Files.h"
#include "Vocabulary.h"

namespace kfapy {

namespace {

using KFA::KFAQVFormula;
using KFA::KFAQVTune;

std::shared_ptr<const KFAQVTune> tuneOf(const Vocabulary& vocabulary) {
  auto tune = KFAQVTune::getShared(vocabulary.map);
  if (!tune) fail({}, KFA::kTuneVocabularyFailure);
  return tune;
}

py::list listFormulas() {
  py::list formulas;
  for (const KFAQVFormula& formula : tuneOf(currentVocabulary())->formulas)
    formulas.append(
        valuesAttribute("Formula")(formula.identifier, toStr(formula.expression), toStr(formula.comment)));
  return formulas;
}

// What became of a formula, with the names of the parameters that took part in its worst evaluation.
struct Outcome {
  int result = 0;  // as KFAQVTune::checkByFormula() gives it
  KFA::KFAQVParamIDSet used;
  std::string reason;
};

void judgeOnce(const KFAQVTune& tune, const KFA::KFAQVTuneArray& values,
               const KFA::KFAQVPolishNotation& formula, int multiple, Outcome& worst) {
  KFA::KFAQVParamIDSet used;
  const int result = tune.checkByFormula(values, formula, used, multiple);
  if (result == 0 || worst.result == 1) return;
  worst = {result, used, result < 0 ? KFL::getErrorMessage() : std::string()};
}

Outcome judge(const KFAQVTune& tune, const KFA::KFAQVTuneArray& values,
              const KFA::KFAQVPolishNotation& formula) {
  Outcome worst;
  if (formula.hasMultiple == 0) {
    judgeOnce(tune, values, formula, -1, worst);
    return worst;
  }
  bool isEvaluated = false;
  for (const int id : *formula.multipleList) {
    if (values[static_cast<std::size_t>(id)] == nullptr) continue;
    judgeOnce(tune, values, formula, id, worst);
    isEvaluated = true;
  }
  if (!isEvaluated) worst = {KFA::kTuneParameterAbsent, {}, "no parameter that QOS stands for has a value"};
  return worst;
}

py::object toObject(const KFAQVTune& tune, const KFA::KFAQVTuneArray& values, const KFAQVFormula& formula) {
  const Outcome outcome = judge(tune, values, formula.notation);
  py::dict parameters;
  for (const int id : outcome.used)
    if (const auto* const value = values[static_cast<std::size_t>(id)];
        value != nullptr && outcome.result == 1)
      parameters[toStr(tune.getByIndex(id))] = py::make_tuple(value->soft, value->hard);
  const char* const state = outcome.result == 0   ? "holds"
                            : outcome.result == 1 ? "violated"
                                                  : "not_checkable";
  return valuesAttribute("FormulaResult")(formula.identifier, toStr(formula.expression),
                                          toStr(formula.comment), state, parameters, toStr(outcome.reason));
}

std::set<KFL::KFLQoS> resourcesOf(const KFA::KFAEnvConfig& config) {
  KFA::KFAEnvConfig::QoSes qoses;
  must(config.getQoSes(qoses));
  return qoses.getValue();
}

py::tuple checkResources(const KFA::KFAEnvConfig& config) {
  constexpr const char* kModes[] = {"formulas", "managed", "limit_missing"};
  const std::set<KFL::KFLQoS> qoses = resourcesOf(config);
  const KFA::KFAQoSMemoryMode mode = judgeMemoryMode(config, qoses);
  py::list results;
  if (mode == KFA::KFAQoSMemoryMode::Formulas) {
    const auto tune = tuneOf(currentVocabulary());
    const KFA::KFAQVTuneParameters values = KFA::tuneParameters(qoses);
    const KFA::KFAQVTuneArray array = tune->arrange(values);
    for (const KFAQVFormula& formula : tune->formulas)
      results.append(toObject(*tune, array, formula));
  }
  return py::make_tuple(kModes[static_cast<std::size_t>(mode)], results);
}

// Numbers by name: an int, or a pair of barrier and limit.
KFA::KFAQVTuneParameters parametersFrom(const py::dict& values) {
  constexpr long long kMost = std::numeric_limits<long long>::max();
  KFA::KFAQVTuneParameters parameters;
  for (const auto& [key, value] : values) {
    const std::string name = textOf(key, {nullptr, "values"});
    if (KFAQVTune::MultipleTuneMap.count(name) != 0) continue;
    const Place place{nullptr, name};
    const bool isPair = PyTuple_Check(value.ptr()) && PyTuple_GET_SIZE(value.ptr()) == 2;
    const py::handle soft = isPair ? py::handle(PyTuple_GET_ITEM(value.ptr(), 0)) : value;
    const py::handle hard = isPair ? py::handle(PyTuple_GET_ITEM(value.ptr(), 1)) : value;
    parameters[name] = {
        integerOf(soft, place, -kMost - 1, kMost), integerOf(hard, place, -kMost - 1, kMost), {}};
  }
  return parameters;
}

// Gives each name its index, and the words that stand for one name after the other all of them.
void addNames(KFAQVTune& tune, const KFA::KFAQVTuneParameters& parameters) {
  KFA::KFAQVParamIDList all;
  for (const auto& [name, value] : parameters) {
    must(tune.getNewIndex(name));
    all.push_back(tune.count);
  }
  for (const auto& [word, fill] : KFAQVTune::MultipleTuneMap) {
    if (word.empty()) continue;
    KFA::KFAQVParamsValue* entry = nullptr;
    must(tune.getNewIndex(word, &entry));
    entry->list = all;
  }
}

bool evaluate(const Text& formula, const py::dict& values) {
  const KFA::KFAQVTuneParameters parameters = parametersFrom(values);
  const KFL::KFLVEnvConfig none;
  KFAQVTune tune(none, nullptr);
  addNames(tune, parameters);
  KFA::KFAQVPolishNotation notation;
  KFA::KFAQVFormulaError error;
  if (tune.formFormula(formula, notation, &error) != 0)
    throw Failure{"formula:1:" + std::to_string(error.offset + 1) + ": " + error.reason, -1, "formula"};
  const Outcome outcome = judge(tune, tune.arrange(parameters), notation);
  if (outcome.result < 0) throw Failure{"formula: " + outcome.reason, outcome.result, "formula"};
  return outcome.result == 0;
}

py::tuple advise(const KFA::KFAEnvConfig& config) {
  const Vocabulary vocabulary = currentVocabulary();
  const std::set<KFL::KFLQoS> qoses = resourcesOf(config);
  const KFL::KFLVEnvConfig none;
  KFAQVTune tune(none, vocabulary.map);
  KFA::KFAQoSAdvice advice;
  if (judgeMemoryMode(config, qoses) == KFA::KFAQoSMemoryMode::Formulas) {
    const Unlocked unlocked;
    must(adviseQoS(tune, *vocabulary.parser, qoses, advice));
  }
  return py::make_tuple(toList(advice.changes), Convert<std::vector<int>>::to(advice.violated),
                        Convert<std::vector<int>>::to(advice.left));
}

}  // namespace

void addResources(py::module_& module) {
  module.def("formulas", &listFormulas, "The formulas of the vocabulary.");
  module.def("check_resources", &checkResources);
  module.def("evaluate", &evaluate, py::arg("formula"), py::arg("values"),
             "Whether a formula holds over values by name: a number, or a pair of barrier and limit.");
  module.def("advise", &advise);
}

}  // namespace kfapy
