// SPDX-License-Identifier: Apache-2.0
// What is told about one package. A plain value.
#ifndef KFAFUNCTIONALITY_TEMPLATES_KFAPACKAGEINFO_H
#define KFAFUNCTIONALITY_TEMPLATES_KFAPACKAGEINFO_H

#include <string>

#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/templates/KFAPackageVersion.h>

namespace KFA {

class KFAPackageInfo {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAPackageInfo>;
  // Name, description, kind and version must all be there.
  using Reader = KFLRecordReader<KFAPackageInfo>;

  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  const std::string& getDescription() const { return description_; }
  void setDescription(const std::string& description) { description_ = description; }
  const std::string& getKind() const { return kind_; }
  void setKind(const std::string& kind) { kind_ = kind; }
  const KFAPackageVersion& getVersion() const { return version_; }
  void setVersion(const KFAPackageVersion& version) { version_ = version; }

 private:
  std::string name_;
  std::string description_;
  std::string kind_;
  KFAPackageVersion version_;
};

}  // namespace KFA

#endif
