// SPDX-License-Identifier: Apache-2.0
// A node that exists in memory alone, with all nine managers: for the tests of agents and of transports.
//
// It keeps the promises of the managers' headers, so what works with it works with an agent that keeps them too. Names
// and ids that are not there are KFAManagerNotFound, each with a text. Any thread.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAMEMORYNODE_H
#define KFAFUNCTIONALITY_ACCESS_KFAMEMORYNODE_H

#include <map>
#include <string>
#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFAFunctionality/access/KFALibFunctionality.h>
#include <KFAFunctionality/access/KFANetworkM.h>
#include <KFAFunctionality/access/KFAProcessM.h>
#include <KFAFunctionality/access/KFATEM.h>
#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/environment/KFAVtInfo.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/network/KFANetworkShaping.h>
#include <KFAFunctionality/support/KFAProblemReportData.h>
#include <KFAFunctionality/templates/KFAPackageInfo.h>
#include <KFAFunctionality/templates/KFATemplateConfigInfo.h>
#include <KFAFunctionality/updates/KFAUpdateConfig.h>
#include <KFAFunctionality/updates/KFAUpdateList.h>

namespace KFA {

class KFAMemoryNode {
 public:
  struct Environment {
    KFAEnvConfig config;
    bool isRunning = false;
    std::vector<KFAPackageInfo> packages = {};
    std::vector<KFATemplate> templates = {};
    std::map<int, KFAProcess> processes = {};
    int watchSeconds = 0;  // 0: its processes are not watched
  };
  // What the node has.
  struct Content {
    std::map<KFLEID, Environment> environments;
    std::map<std::string, KFAEnvConfig> samples;
    std::vector<KFATEM::PackageSP> templates;
    std::map<std::string, KFATemplateConfigInfo> templateInfos;  // by the template's name
    std::vector<KFAPackageInfo> repository;                      // the newest of each package
    std::vector<KFANetworkM::DeviceSP> devices;
    KFANetConfiguration shaping;
    KFAVtInfo info;
    KFAVtSettings settings;
    KFAUpdateList updates;
    KFAUpdateList installedUpdates;
    KFAUpdateConfig updateConfig;
    std::map<std::string, KFAProblemReportData> reports;
    KFLEID nextEID;  // what the next environment gets; a random id when it is not valid
  };

  struct Shared;

  explicit KFAMemoryNode(Content content);
  KFAMemoryNode(const KFAMemoryNode&) = delete;
  KFAMemoryNode& operator=(const KFAMemoryNode&) = delete;
  ~KFAMemoryNode();

  // Puts local factories of all managers under this name: 0, or -1 with an error text when one is taken. The managers
  // that they make keep what the node has alive.
  int registerManagers(KFALibFunctionality& managers, const std::string& implementation) const;

 private:
  boost::shared_ptr<Shared> shared_;
};

}  // namespace KFA

#endif
