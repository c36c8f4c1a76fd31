// SPDX-License-Identifier: Apache-2.0
// The settings of a virtualization technology: the base of every technology's settings record.
#ifndef KFLFUNCTIONALITY_KFLVTSETTINGS_H
#define KFLFUNCTIONALITY_KFLVTSETTINGS_H

#include <string>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLVtSettings {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLVtSettings, kTypesNamespace, 152>;
  using Reader = KFLRecordReader<KFLVtSettings>;

  KFLVtSettings() = default;
  KFLVtSettings(const KFLVtSettings&) = default;
  KFLVtSettings(KFLVtSettings&&) = default;
  KFLVtSettings& operator=(const KFLVtSettings&) = default;
  KFLVtSettings& operator=(KFLVtSettings&&) = default;
  virtual ~KFLVtSettings();

  // The name of the technology.
  const KFLOptionalProperty<std::string>& getTechnology() const { return technology_; }
  void setTechnology(const KFLOptionalProperty<std::string>& technology) { technology_ = technology; }
  // Whether environments of the technology may be started.
  const KFLOptionalProperty<bool>& getEnabled() const { return enabled_; }
  void setEnabled(const KFLOptionalProperty<bool>& enabled) { enabled_ = enabled; }

 private:
  KFLOptionalProperty<std::string> technology_;
  KFLOptionalProperty<bool> enabled_;
};

}  // namespace KFL

KFL_DECLARE_DERIVED_REGISTRY(KFL::KFLVtSettings)

#endif
