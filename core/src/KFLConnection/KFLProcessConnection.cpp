// SPDX-License-Identifier: Apache-2.0
#include <KFLConnection/KFLProcessConnection.h>

namespace KFL {

KFLProcessConnection::~KFLProcessConnection() = default;

bool KFLProcessConnection::serve(const KFLEID& eid) {
  const KFLLockGuard guard(lock_);
  return served_.insert(eid).second;
}

bool KFLProcessConnection::withdraw(const KFLEID& eid) {
  const KFLLockGuard guard(lock_);
  return served_.erase(eid) != 0;
}

bool KFLProcessConnection::isServedHere(const KFLEID& eid) const {
  const KFLLockGuard guard(lock_);
  return served_.contains(eid);
}

}  // namespace KFL
