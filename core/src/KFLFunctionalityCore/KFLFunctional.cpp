// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionalityCore/KFLFunctional.h>

namespace KFL {

KFLFunctional::~KFLFunctional() = default;

}  // namespace KFL
