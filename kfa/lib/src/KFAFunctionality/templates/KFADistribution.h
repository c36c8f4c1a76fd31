// SPDX-License-Identifier: Apache-2.0
// The identity of a Linux distribution: a template whose text form is `name-version`. A plain value.
//
// The trap: `foo-bar` reads as `foo`, since a version begins with a digit. In messages it is a KFATemplate.
#ifndef KFAFUNCTIONALITY_TEMPLATES_KFADISTRIBUTION_H
#define KFAFUNCTIONALITY_TEMPLATES_KFADISTRIBUTION_H

#include <string>

#include <KFAFunctionality/templates/KFATemplate.h>

namespace KFA {

class KFADistribution : public KFATemplate {
 public:
  using KFATemplate::KFATemplate;

  void fromString(const std::string& text);
  std::string toString() const;
};

}  // namespace KFA

#endif
