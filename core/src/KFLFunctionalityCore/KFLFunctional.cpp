#include <KFLFunctionalityCore/KFLFunctional.h>

namespace KFL {

KFLFunctional::~KFLFunctional() = default;

}  // namespace KFL
