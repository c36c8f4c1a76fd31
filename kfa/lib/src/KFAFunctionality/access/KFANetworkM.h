// SPDX-License-Identifier: Apache-2.0
// The manager of the node's network: its devices, and the shaping of the traffic that passes them. Results and
// threads: KFAManagerResult.h.
#ifndef KFAFUNCTIONALITY_ACCESS_KFANETWORKM_H
#define KFAFUNCTIONALITY_ACCESS_KFANETWORKM_H

#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLFunctionality/KFLEID.h>
#include <KFLFunctionality/KFLNetDevice.h>
#include <KFLFunctionalityCore/KFLFunctional.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/access/KFAManagerResult.h>

namespace KFA {

class KFANetConfiguration;
class KFANetVEth;

class KFANetworkM : public KFLFunctional {
 public:
  using DeviceSP = boost::shared_ptr<KFLNetDevice>;

  // The network devices of the node, each of its own class.
  virtual int list(std::vector<DeviceSP>& devices) = 0;
  // The devices of an environment as they are now; addresses that it got by itself included.
  virtual int get(const KFLEID& eid, std::vector<KFANetVEth>& devices) = 0;

  // Traffic shaping of the whole node: classes, address ranges and devices, and whether it is switched on.
  virtual int getShaping(KFANetConfiguration& shaping) = 0;
  // Replaces the whole of it; a range or device that names a class which is not there is refused.
  virtual int setShaping(const KFANetConfiguration& shaping) = 0;
};

}  // namespace KFA

#endif
