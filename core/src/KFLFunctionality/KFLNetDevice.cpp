#include <KFLFunctionality/KFLNetDevice.h>

KFL_DERIVED_REGISTRY(KFL::KFLNetDevice)
