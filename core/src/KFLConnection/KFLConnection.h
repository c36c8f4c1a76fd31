// SPDX-License-Identifier: Apache-2.0
// An agent's connection, as far as routing needs it: which environments are served in this process.
//
// An agent derives its own from it; one whose environments are simply a set uses KFLProcessConnection. Held by
// boost::intrusive_ptr. Every operation may be called from any thread.
#ifndef KFLCONNECTION_KFLCONNECTION_H
#define KFLCONNECTION_KFLCONNECTION_H

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFLCore/KFLRefCounter.h>
#include <KFLFunctionality/KFLEID.h>

namespace KFL {

class KFLConnection : public KFLRefCounter {
 public:
  // Whether the environment is served in this process, so that its managers are reached without another agent.
  virtual bool isServedHere(const KFLEID& eid) const = 0;

 protected:
  ~KFLConnection() override;
};

using KFLConnectionSP = boost::intrusive_ptr<KFLConnection>;

}  // namespace KFL

#endif
