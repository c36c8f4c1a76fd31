// SPDX-License-Identifier: Apache-2.0
// The manager of sample configurations: named configurations that environments are made from, and the check of
// their resource parameters. Results and threads: KFAManagerResult.h.
#ifndef KFAFUNCTIONALITY_ACCESS_KFASAMPLEM_H
#define KFAFUNCTIONALITY_ACCESS_KFASAMPLEM_H

#include <string>
#include <vector>

#include <KFLFunctionalityCore/KFLFunctional.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/access/KFAManagerResult.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>

namespace KFA {

class KFAEnvConfig;

class KFASampleM : public KFLFunctional {
 public:
  // The names of the samples, in their order.
  virtual int list(std::vector<std::string>& names) = 0;
  virtual int get(const std::string& name, KFAEnvConfig& sample) = 0;
  // Makes a sample, or replaces the one of this name. It is not checked: samples are made in steps.
  virtual int set(const std::string& name, const KFAEnvConfig& sample) = 0;
  virtual int remove(const std::string& name) = 0;

  // Checks the resource parameters of a configuration, a sample or not, against the node's formulas: one record
  // for each violated one. Done with an empty list when all hold and when memory is managed as a whole; failed
  // when a formula cannot be evaluated, with the text of validateQoSes.
  virtual int check(const KFAEnvConfig& config, KFAQoSValidationList& violations) = 0;
};

}  // namespace KFA

#endif
