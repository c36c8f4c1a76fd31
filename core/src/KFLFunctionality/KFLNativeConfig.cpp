// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLNativeConfig.h>

KFL_DERIVED_REGISTRY(KFL::KFLNativeConfig)

namespace KFL {

KFLNativeConfig::~KFLNativeConfig() = default;

}  // namespace KFL
