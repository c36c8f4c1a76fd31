// SPDX-License-Identifier: Apache-2.0
// What the formula tests share: a checker over a few names, without a vocabulary.
#ifndef TESTS_RESOURCES_FORMULANAMES_H
#define TESTS_RESOURCES_FORMULANAMES_H

#include <initializer_list>
#include <string>

#include <KFLFunctionality/KFLVEnvConfig.h>

#include <KFAFunctionality/resources/KFAQoSTune.h>

// The names a, b, c, d, x.y and QOS, with the indices 1 to 6.
struct FormulaNames {
  FormulaNames() : tune(config, nullptr) {
    for (const char* name : {"a", "b", "c", "d", "x.y"})
      tune.getNewIndex(name);
    KFA::KFAQVParamsValue* entry = nullptr;
    tune.getNewIndex("QOS", &entry);
    entry->list = {2, 4};
  }

  // The postfix form, or "-" and the column and reason of a refusal.
  std::string compile(const std::string& formula) const {
    KFA::KFAQVPolishNotation notation;
    KFA::KFAQVFormulaError error;
    if (tune.formFormula(formula, notation, &error) == 0) return tune.toString(notation);
    return "-" + std::to_string(error.offset) + " " + error.reason;
  }

  KFL::KFLVEnvConfig config;
  KFA::KFAQVTune tune;
};

#endif
