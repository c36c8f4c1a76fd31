// SPDX-License-Identifier: Apache-2.0
// The manager that watches processes: it looks at those of chosen environments at intervals and keeps the last
// look, so that many callers cost one. The base class says
// what is watched. Results and threads: KFAManagerResult.h.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAPROCESSMONITOR_H
#define KFAFUNCTIONALITY_ACCESS_KFAPROCESSMONITOR_H

#include <vector>

#include <KFLFunctionality/KFLEID.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/access/KFAManagerResult.h>
#include <KFAFunctionality/support/KFAProcessMonitorBase.h>

namespace KFA {

struct KFAProcess;

class KFAProcessMonitor : public KFAProcessMonitorBase {
 public:
  // The environments that are watched.
  virtual int list(std::vector<KFLEID>& eids) = 0;
  // The processes of the last look, by pid; not found for an environment that is not watched.
  virtual int get(const KFLEID& eid, std::vector<KFAProcess>& processes) = 0;
};

}  // namespace KFA

#endif
