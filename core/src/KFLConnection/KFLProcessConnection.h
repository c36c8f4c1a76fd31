// SPDX-License-Identifier: Apache-2.0
// The connection of a process that knows its own environments: those served here are a set that changes as
// environments come and go. KFLEID() is served elsewhere unless it was put in. Any thread may change it and ask it.
#ifndef KFLCONNECTION_KFLPROCESSCONNECTION_H
#define KFLCONNECTION_KFLPROCESSCONNECTION_H

#include <unordered_set>

#include <KFLCommon/KFLLock.h>
#include <KFLConnection/KFLConnection.h>

namespace KFL {

class KFLProcessConnection : public KFLConnection {
 public:
  // From now on the environment is served here. False when it was already.
  bool serve(const KFLEID& eid) KFL_EXCLUDES(lock_);
  // From now on it is served elsewhere. False when it was already.
  bool withdraw(const KFLEID& eid) KFL_EXCLUDES(lock_);

  bool isServedHere(const KFLEID& eid) const override KFL_EXCLUDES(lock_);

 protected:
  ~KFLProcessConnection() override;

 private:
  mutable KFLLock lock_;
  std::unordered_set<KFLEID> served_ KFL_GUARDED_BY(lock_);
};

}  // namespace KFL

#endif
