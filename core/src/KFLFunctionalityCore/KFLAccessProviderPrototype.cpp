// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionalityCore/KFLAccessProviderPrototype.h>

namespace KFL {

KFLAccessProviderPrototype::~KFLAccessProviderPrototype() = default;

bool isReachedLocally(const KFLEID& eid, const KFLAccessProviderSP& ap) {
  if (!ap || !ap->getConnection()) return true;
  // Asked for anew: the connection may have closed meanwhile.
  const KFLConnectionSP connection = ap->getConnection();
  return !connection || connection->isServedHere(eid);
}

}  // namespace KFL
