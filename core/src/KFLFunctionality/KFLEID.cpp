// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLEID.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLEID> recordKFLEID("KFLEID");

}  // namespace KFL
