#include <KFLFunctionalityCore/KFLAccessProviderPrototype.h>

namespace KFL {

KFLAccessProviderPrototype::~KFLAccessProviderPrototype() = default;

bool isReachedLocally(const KFLEID& eid, const KFLAccessProviderSP& ap) {
  // Held while it is asked, so that a connection that closes meanwhile is still there to answer.
  const KFLConnectionSP connection = ap ? ap->getConnection() : KFLConnectionSP();
  return !connection || connection->isServedHere(eid);
}

}  // namespace KFL
