#include <KFLConnection/KFLConnection.h>

namespace KFL {

KFLConnection::~KFLConnection() = default;

}  // namespace KFL
