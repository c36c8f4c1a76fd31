// SPDX-License-Identifier: Apache-2.0
// An agent's connection, as far as routing needs it: which environments are served in this process. It answers that
// question and no other: nothing is sent over it. How another agent is reached is the agent factory's own business.
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
  // Whether the environment is served in this process, so that its managers are reached without another agent. No id
  // stands for the node itself: an invalid one, KFLEID(), is asked for like any other, and a connection that lets it mean
  // this node answers true.
  virtual bool isServedHere(const KFLEID& eid) const = 0;

 protected:
  ~KFLConnection() override;
};

using KFLConnectionSP = boost::intrusive_ptr<KFLConnection>;

}  // namespace KFL

#endif
