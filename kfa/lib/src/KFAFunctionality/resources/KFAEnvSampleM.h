// SPDX-License-Identifier: Apache-2.0
// The validation of an environment's or a sample's resource parameters against the formulas of the
// vocabulary.
#ifndef KFAFUNCTIONALITY_RESOURCES_KFAENVSAMPLEM_H
#define KFAFUNCTIONALITY_RESOURCES_KFAENVSAMPLEM_H

#include <set>
#include <string>
#include <vector>

#include <KFLFunctionality/KFLQoS.h>
#include <KFLFunctionality/KFLVEnvConfig.h>
#include <KFLFunctionality/KFLVocMap.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/resources/KFAQoSTune.h>

namespace KFA {

// One violated formula, as it is sent to clients. A plain value.
class KFAQoSValidation {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAQoSValidation>;
  using Reader = KFLRecordReader<KFAQoSValidation>;

  // The names of the parameters that took part, in the order of the vocabulary. None where a formula names none; the
  // message then has one empty element for them.
  const std::vector<std::string>& getParameters() const { return parameters_; }
  void setParameters(const std::vector<std::string>& parameters) { parameters_ = parameters; }
  int getIdentifier() const { return identifier_; }
  void setIdentifier(int identifier) { identifier_ = identifier; }
  const std::string& getExpression() const { return expression_; }
  void setExpression(const std::string& expression) { expression_ = expression; }
  const std::string& getComment() const { return comment_; }
  void setComment(const std::string& comment) { comment_ = comment; }

 private:
  std::vector<std::string> parameters_;
  int identifier_ = 0;
  std::string expression_;
  std::string comment_;
};

using KFAQoSValidationList = std::vector<KFAQoSValidation>;

// What the memory mode of a configuration makes of a check.
enum class KFAQoSMemoryMode {
  Formulas,      // the formulas count
  Managed,       // memory is managed by "slmmemorylimit" alone: fine without the formulas
  LimitMissing,  // the mode "slm" without that parameter
};
KFAQoSMemoryMode judgeMemoryMode(const KFLVEnvConfig& config, const std::set<KFLQoS>& qoses);

// The values that the formulas are evaluated over, from a set of resource parameters: a soft value that is
// not specified is the hard one, and "avnumproc", where it is lacking, is half of "numproc". The ids stay as they are
// spelled; these two are found in any case of letters.
KFAQVTuneParameters tuneParameters(const std::set<KFLQoS>& qoses);

// Checks the resource parameters of a configuration and appends one record for each violated formula. 0 when
// the check ran or was not needed (memory is managed by "slmmemorylimit" alone); 1 when the memory mode "slm"
// lacks that parameter; -2 (vocabulary, or no resource parameters), -3 (a formula's parameter has no value)
// or -1 (a formula that cannot be evaluated) with an error text, and `result` as it was. It is all or nothing: the first
// formula that cannot be evaluated ends the check, and what was violated before it is not told; `kfactl qos check` goes
// on and lists such a formula as not checkable. A null `result` is a programming error. The vocabulary's formulas are
// compiled for its first check. Any thread, with a configuration that no other uses meanwhile.
int validateQoSes(KFAQoSValidationList* result, KFLVocMapSP vocabulary, const KFLVEnvConfig& config);

}  // namespace KFA

#endif
