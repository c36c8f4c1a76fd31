// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/templates/KFADistribution.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFADistribution> recordKFADistribution("KFADistribution");

std::string KFADistribution::toString() const {
  return KFA::toString<'-'>(*this);
}

void KFADistribution::fromString(const std::string& text) {
  KFA::fromString<'-'>(*this, text);
}

}  // namespace KFA
