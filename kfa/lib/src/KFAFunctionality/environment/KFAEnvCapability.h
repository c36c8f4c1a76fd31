// SPDX-License-Identifier: Apache-2.0
// A kernel capability that an environment is given or denied. A plain value; the name alone is compared and
// ordered, so that a set holds each capability once.
#ifndef KFAFUNCTIONALITY_ENVIRONMENT_KFAENVCAPABILITY_H
#define KFAFUNCTIONALITY_ENVIRONMENT_KFAENVCAPABILITY_H

#include <compare>
#include <string>

#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAEnvCapability {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAEnvCapability>;
  // Fails without a name or a value.
  using Reader = KFLRecordReader<KFAEnvCapability>;

  KFAEnvCapability() = default;
  explicit KFAEnvCapability(const std::string& name, bool value = false) : name_(name), value_(value) {}

  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  bool getValue() const { return value_; }
  void setValue(bool value) { value_ = value; }

  friend bool operator==(const KFAEnvCapability& a, const KFAEnvCapability& b) { return a.name_ == b.name_; }
  friend auto operator<=>(const KFAEnvCapability& a, const KFAEnvCapability& b) {
    return a.name_ <=> b.name_;
  }

 private:
  std::string name_;
  bool value_ = false;
};

}  // namespace KFA

#endif
