// SPDX-License-Identifier: Apache-2.0
// One resource parameter of an environment: its id, an optional soft value (barrier) and a hard value
// (limit).
//
// A plain value. The id alone is compared and ordered, so that a set holds each parameter once.
#ifndef KFLFUNCTIONALITY_KFLQOS_H
#define KFLFUNCTIONALITY_KFLQOS_H

#include <compare>
#include <string>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLQoS {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLQoS>;
  using Reader = KFLRecordReader<KFLQoS>;

  explicit KFLQoS(const std::string& id = std::string()) : id_(id) {}

  const std::string& getID() const { return id_; }
  void setID(const std::string& id) { id_ = id; }
  const KFLOptionalProperty<long long>& getSoft() const { return soft_; }
  void setSoft(const KFLOptionalProperty<long long>& soft) { soft_ = soft; }
  long long getHard() const { return hard_; }
  void setHard(long long hard) { hard_ = hard; }

  friend bool operator==(const KFLQoS& a, const KFLQoS& b) { return a.id_ == b.id_; }
  friend auto operator<=>(const KFLQoS& a, const KFLQoS& b) { return a.id_ <=> b.id_; }

 private:
  std::string id_;
  KFLOptionalProperty<long long> soft_;
  long long hard_ = 0;
};

}  // namespace KFL

#endif
