// SPDX-License-Identifier: Apache-2.0
#include <KFLConnection/KFLConnection.h>

namespace KFL {

KFLConnection::~KFLConnection() = default;

}  // namespace KFL
