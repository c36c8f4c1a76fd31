// SPDX-License-Identifier: Apache-2.0
// The manager of support: collects what is needed to look into a problem and sends it. Results and threads:
// KFAManagerResult.h.
#ifndef KFAFUNCTIONALITY_ACCESS_KFASUPPORT_H
#define KFAFUNCTIONALITY_ACCESS_KFASUPPORT_H

#include <string>
#include <vector>

#include <KFLFunctionalityCore/KFLFunctional.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/access/KFAManagerResult.h>

namespace KFA {

class KFAProblemReportData;

class KFASupport : public KFLFunctional {
 public:
  // Collects a report of the node with what the user says of the problem, and sends it; `id` is the report's
  // name with the support service.
  virtual int send(const KFAProblemReportData& data, std::string& id) = 0;
  // Collects the same without sending it; `path` is the archive on the node, for the caller to remove.
  virtual int collect(const KFAProblemReportData& data, std::string& path) = 0;
  // The reports that were sent from this node, the latest first.
  virtual int list(std::vector<std::string>& ids) = 0;
  // What the user said in one of them.
  virtual int get(const std::string& id, KFAProblemReportData& data) = 0;
};

}  // namespace KFA

#endif
