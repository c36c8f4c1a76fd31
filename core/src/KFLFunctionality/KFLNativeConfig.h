// SPDX-License-Identifier: Apache-2.0
// The global configuration of a virtualization technology in the technology's own form: the base that the
// agent passes on without knowing what is in it. A value with a virtual destructor, and no fields: the
// records of the technologies are found by their type tags.
#ifndef KFLFUNCTIONALITY_KFLNATIVECONFIG_H
#define KFLFUNCTIONALITY_KFLNATIVECONFIG_H

#include <KFLMessage/KFLDerivedParsers.h>

namespace KFL {

class KFLNativeConfig {
 public:
  KFLNativeConfig() = default;
  KFLNativeConfig(const KFLNativeConfig&) = default;
  KFLNativeConfig(KFLNativeConfig&&) = default;
  KFLNativeConfig& operator=(const KFLNativeConfig&) = default;
  KFLNativeConfig& operator=(KFLNativeConfig&&) = default;
  virtual ~KFLNativeConfig();
};

}  // namespace KFL

KFL_DECLARE_DERIVED_REGISTRY(KFL::KFLNativeConfig)

#endif
