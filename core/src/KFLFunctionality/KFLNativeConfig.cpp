// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLNativeConfig.h>

KFL_DERIVED_REGISTRY(KFL::KFLNativeConfig)
