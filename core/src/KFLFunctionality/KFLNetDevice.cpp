// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLNetDevice.h>

KFL_DERIVED_REGISTRY(KFL::KFLNetDevice)
