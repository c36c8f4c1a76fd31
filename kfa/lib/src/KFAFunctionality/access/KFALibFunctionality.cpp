// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/access/KFALibFunctionality.h>

namespace KFA {

KFALibFunctionality::KFALibFunctionality() = default;
KFALibFunctionality::~KFALibFunctionality() = default;

// The three access points of one manager only forward to its multiplexer. The provider comes by value: a call holds it
// while a factory works, whatever becomes of the caller's pointer.
// NOLINTBEGIN(performance-unnecessary-value-param)
#define KFA_ACCESS_POINTS(Manager, getX)                                                                    \
  boost::shared_ptr<Manager> KFALibFunctionality::getX(const KFLEID& eid, AccessProviderSP ap,              \
                                                       const std::string& name) const {                     \
    return multiplexer<Manager>().get(eid, ap, name);                                                       \
  }                                                                                                         \
  boost::shared_ptr<Manager> KFALibFunctionality::getX##Agent(const KFLEID& eid, AccessProviderSP ap,       \
                                                              const std::string& name) const {              \
    return multiplexer<Manager>().getAgent(eid, ap, name);                                                  \
  }                                                                                                         \
  boost::shared_ptr<Manager> KFALibFunctionality::getX##Local(AccessProviderSP ap, const std::string& name) \
      const {                                                                                               \
    return multiplexer<Manager>().getLocal(ap, name);                                                       \
  }

KFA_ACCESS_POINTS(KFASampleM, getKFASampleM)
KFA_ACCESS_POINTS(KFASupport, getKFASupport)
KFA_ACCESS_POINTS(KFAUp2date, getKFAUp2date)
KFA_ACCESS_POINTS(KFAProcessM, getKFAProcessM)
KFA_ACCESS_POINTS(KFAProcessMonitor, getKFAProcessMonitor)
KFA_ACCESS_POINTS(KFANetworkM, getKFANetworkM)
KFA_ACCESS_POINTS(KFAPkgM, getKFAPkgM)
KFA_ACCESS_POINTS(KFAEnvM, getKFAEnvM)
KFA_ACCESS_POINTS(KFATEM, getTEM)

// NOLINTEND(performance-unnecessary-value-param)
#undef KFA_ACCESS_POINTS

}  // namespace KFA
