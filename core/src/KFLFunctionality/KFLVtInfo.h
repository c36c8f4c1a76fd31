// SPDX-License-Identifier: Apache-2.0
// What is known of a virtualization technology on a node: the base of every technology's info record.
#ifndef KFLFUNCTIONALITY_KFLVTINFO_H
#define KFLFUNCTIONALITY_KFLVTINFO_H

#include <string>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLVtInfo {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLVtInfo, kTypesNamespace, 151>;
  using Reader = KFLRecordReader<KFLVtInfo>;

  KFLVtInfo() = default;
  KFLVtInfo(const KFLVtInfo&) = default;
  KFLVtInfo(KFLVtInfo&&) = default;
  KFLVtInfo& operator=(const KFLVtInfo&) = default;
  KFLVtInfo& operator=(KFLVtInfo&&) = default;
  virtual ~KFLVtInfo();

  // The name of the technology.
  const KFLOptionalProperty<std::string>& getTechnology() const { return technology_; }
  void setTechnology(const KFLOptionalProperty<std::string>& technology) { technology_ = technology; }
  // What to tell a person about it.
  const KFLOptionalProperty<std::string>& getDescription() const { return description_; }
  void setDescription(const KFLOptionalProperty<std::string>& description) { description_ = description; }

 private:
  KFLOptionalProperty<std::string> technology_;
  KFLOptionalProperty<std::string> description_;
};

}  // namespace KFL

KFL_DECLARE_DERIVED_REGISTRY(KFL::KFLVtInfo)

#endif
