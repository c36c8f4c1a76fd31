// SPDX-License-Identifier: Apache-2.0
// The manager of updates: of the node's system, the agent and its templates, and when they are looked for. Results
// and threads: KFAManagerResult.h.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAUP2DATE_H
#define KFAFUNCTIONALITY_ACCESS_KFAUP2DATE_H

#include <KFLFunctionalityCore/KFLFunctional.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/access/KFAManagerResult.h>

namespace KFA {

class KFAUpdateConfig;
class KFAUpdateList;

class KFAUp2date : public KFLFunctional {
 public:
  // The updates that the last look found and that are not installed.
  virtual int list(KFAUpdateList& updates) = 0;
  // The updates that have been installed, the latest first.
  virtual int listInstalled(KFAUpdateList& updates) = 0;
  // Looks now, whatever the day of the configuration, and gives what list would.
  virtual int check(KFAUpdateList& updates) = 0;
  // Installs some of those that list gives; done when all are in. The node may restart when the configuration
  // lets it.
  virtual int install(const KFAUpdateList& updates) = 0;

  // Where updates come from, for which products, and when.
  virtual int getConfig(KFAUpdateConfig& config) = 0;
  virtual int setConfig(const KFAUpdateConfig& config) = 0;
};

}  // namespace KFA

#endif
