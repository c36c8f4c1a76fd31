// SPDX-License-Identifier: Apache-2.0
// Completes an environment's network devices from an allocation of a pool of IP addresses. No state; any threads may
// call it, each with devices of its own.
#ifndef KFAFUNCTIONALITY_NETWORK_KFAIPAUTOALLOCATION_H
#define KFAFUNCTIONALITY_NETWORK_KFAIPAUTOALLOCATION_H

#include <vector>

#include <KFLFunctionality/KFLIPPoolAllocation.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/network/KFANetVEth.h>

namespace KFA::IPAutoAllocation {

struct Builder {
  // Gives the device the allocation's gateway, where the device has none of that kind: an address that carries an IPv4
  // address is the IPv4 gateway, any other one the IPv6 gateway, the any-address none. The allocation's name servers
  // are added to the device's, also those that it has already. A host-routed device needs neither and stays as it is.
  static void set(const KFLIPPoolAllocation& allocation, std::vector<KFANetVEth>::iterator device);
};

}  // namespace KFA::IPAutoAllocation

#endif
