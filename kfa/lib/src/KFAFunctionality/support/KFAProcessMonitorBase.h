// SPDX-License-Identifier: Apache-2.0
// What every process monitor can do, whatever it makes of what it sees: the base of the agent's concrete monitors.
// Results and threads: access/KFAManagerResult.h.
#ifndef KFAFUNCTIONALITY_SUPPORT_KFAPROCESSMONITORBASE_H
#define KFAFUNCTIONALITY_SUPPORT_KFAPROCESSMONITORBASE_H

#include <KFLFunctionality/KFLEID.h>
#include <KFLFunctionalityCore/KFLFunctional.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAProcessMonitorBase : public KFLFunctional {
 public:
  // Begins to look at an environment's processes every so many seconds, from 1; one that is watched already is
  // looked at in the new interval.
  virtual int start(const KFLEID& eid, int seconds) = 0;
  virtual int stop(const KFLEID& eid) = 0;
};

}  // namespace KFA

#endif
