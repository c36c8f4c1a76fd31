// SPDX-License-Identifier: Apache-2.0
// What an environment is for: a kind, and for the kinds that serve another environment that one's number. A
// plain value.
#ifndef KFAFUNCTIONALITY_ENVIRONMENT_KFAVPSTYPE_H
#define KFAFUNCTIONALITY_ENVIRONMENT_KFAVPSTYPE_H

#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAVPSType {
 public:
  // Kinds that have a meaning here; a message may carry any number.
  static constexpr int kRegular = 1;
  static constexpr int kRepair = 4;    // repairs the environment with the sub-type number
  static constexpr int kRepaired = 5;  // is being repaired by it
  static constexpr int kTemporary = 6;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAVPSType>;
  // Fails without a type; a sub-type that is absent stays as it was.
  using Reader = KFLRecordReader<KFAVPSType>;

  KFAVPSType() = default;
  explicit KFAVPSType(int type, int subType = 0) : type_(type), subType_(subType) {}

  int getType() const { return type_; }
  void setType(int type) { type_ = type; }
  int getSubType() const { return subType_; }
  void setSubType(int subType) { subType_ = subType; }

  friend bool operator==(const KFAVPSType&, const KFAVPSType&) = default;

 private:
  int type_ = 0;
  int subType_ = 0;
};

}  // namespace KFA

#endif
