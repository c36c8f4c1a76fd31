#include <KFLFunctionality/KFLNativeConfig.h>

KFL_DERIVED_REGISTRY(KFL::KFLNativeConfig)
