// SPDX-License-Identifier: Apache-2.0
// What is known of the container technology on a node: its version, and the environment that runs services
// for the others. A value.
#ifndef KFAFUNCTIONALITY_ENVIRONMENT_KFAVTINFO_H
#define KFAFUNCTIONALITY_ENVIRONMENT_KFAVTINFO_H

#include <string>
#include <vector>

#include <KFLFunctionality/KFLEID.h>
#include <KFLFunctionality/KFLVtInfo.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/environment/KFARedirectService.h>

namespace KFA {

class KFAVtInfo : public KFLVtInfo {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAVtInfo>;
  using Reader = KFLRecordReader<KFAVtInfo>;

  KFAVtInfo() = default;
  KFAVtInfo(const KFAVtInfo&) = default;
  KFAVtInfo(KFAVtInfo&&) = default;
  KFAVtInfo& operator=(const KFAVtInfo&) = default;
  KFAVtInfo& operator=(KFAVtInfo&&) = default;
  ~KFAVtInfo() override;

  const std::string& getVersion() const { return version_; }
  void setVersion(const std::string& version) { version_ = version; }
  // Which build of the version it is.
  const std::string& getBuild() const { return build_; }
  void setBuild(const std::string& build) { build_ = build; }
  // The id of the service environment; invalid when there is none.
  const KFLEID& getServiceEID() const { return serviceEID_; }
  void setServiceEID(const KFLEID& eid) { serviceEID_ = eid; }
  const std::vector<KFARedirectService>& getRedirectServices() const { return redirectServices_; }
  void setRedirectServices(const std::vector<KFARedirectService>& services) { redirectServices_ = services; }

 private:
  std::string version_;
  std::string build_;
  KFLEID serviceEID_;
  std::vector<KFARedirectService> redirectServices_;
};

}  // namespace KFA

#endif
