#include <KFLFunctionality/KFLEID.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLEID> recordKFLEID("KFLEID");

}  // namespace KFL
