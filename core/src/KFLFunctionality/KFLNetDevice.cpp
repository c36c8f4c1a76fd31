// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLNetDevice.h>

KFL_DERIVED_REGISTRY(KFL::KFLNetDevice)

namespace KFL {

KFLNetDevice::~KFLNetDevice() = default;

}  // namespace KFL
