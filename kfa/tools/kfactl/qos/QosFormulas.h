// SPDX-License-Identifier: Apache-2.0
// The formulas of a vocabulary, evaluated formulas as documents, and why a formula is refused.
#ifndef KFACTL_QOSFORMULAS_H
#define KFACTL_QOSFORMULAS_H

#include <memory>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include <KFAFunctionality/node/KFAQoSJudgement.h>

namespace kfactl {

class Session;

using Document = nlohmann::ordered_json;

using Evaluation = KFA::KFAFormulaEvaluation;

// The formulas of the vocabulary, compiled; a fault of the vocabulary is thrown, with its place.
std::shared_ptr<const KFA::KFAQVTune> formulasOf(Session& session);

// The parameters that took part by name, each with soft and hard.
Document usedDocument(const Evaluation& evaluation);

// Where and why a formula is refused, for people: "column 7 of 'a <= e': REASON".
std::string refusalText(const std::string& formula, const KFA::KFAQVFormulaError& error);

}  // namespace kfactl

#endif
