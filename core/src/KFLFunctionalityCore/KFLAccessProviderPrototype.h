// SPDX-License-Identifier: Apache-2.0
// On whose behalf a manager is asked for, and whose connection says what is served in this process. An agent derives
// its own and puts what it must know of the caller into it; factories see it when they make a manager.
//
// Held by boost::intrusive_ptr. Its operations may be called from any thread.
#ifndef KFLFUNCTIONALITYCORE_KFLACCESSPROVIDERPROTOTYPE_H
#define KFLFUNCTIONALITYCORE_KFLACCESSPROVIDERPROTOTYPE_H

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFLConnection/KFLConnection.h>
#include <KFLCore/KFLRefCounter.h>
#include <KFLFunctionality/KFLEID.h>

namespace KFL {

class KFLAccessProviderPrototype : public KFLRefCounter {
 public:
  // The connection that tells the environments of this process from those of others; empty when there is none, and all
  // is local then.
  virtual KFLConnectionSP getConnection() const = 0;

 protected:
  ~KFLAccessProviderPrototype() override;
};

using KFLAccessProviderSP = boost::intrusive_ptr<KFLAccessProviderPrototype>;

// Whether the managers of an environment are reached in this process: without a provider, without a connection,
// and when the connection serves the environment here. With a connection that does not serve it, KFLEID() is reached
// through an agent too.
bool isReachedLocally(const KFLEID& eid, const KFLAccessProviderSP& ap);

}  // namespace KFL

#endif
