// SPDX-License-Identifier: Apache-2.0
// The manager of packages in an environment, whatever package manager its distribution has. Results and threads:
// KFAManagerResult.h.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAPKGM_H
#define KFAFUNCTIONALITY_ACCESS_KFAPKGM_H

#include <vector>

#include <KFLFunctionality/KFLEID.h>
#include <KFLFunctionalityCore/KFLFunctional.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/access/KFAManagerResult.h>

namespace KFA {

class KFAPackageInfo;
class KFAPackageVersion;

class KFAPkgM : public KFLFunctional {
 public:
  // What is installed in an environment.
  virtual int list(const KFLEID& eid, std::vector<KFAPackageInfo>& packages) = 0;
  // What its repositories have of a package: every version with the packages that it needs.
  virtual int get(const KFLEID& eid, const KFAPackageInfo& package,
                  std::vector<KFAPackageVersion>& versions) = 0;
  // The packages of which there is a newer version, in that version.
  virtual int check(const KFLEID& eid, std::vector<KFAPackageInfo>& newer) = 0;

  // Each does all of the packages or, when it fails, none; a version that is not given is the newest. `changed`
  // has what was installed, brought up to date or removed, dependencies included.
  virtual int install(const KFLEID& eid, const std::vector<KFAPackageInfo>& packages,
                      std::vector<KFAPackageInfo>& changed) = 0;
  virtual int update(const KFLEID& eid, const std::vector<KFAPackageInfo>& packages,
                     std::vector<KFAPackageInfo>& changed) = 0;
  virtual int remove(const KFLEID& eid, const std::vector<KFAPackageInfo>& packages,
                     std::vector<KFAPackageInfo>& changed) = 0;
};

}  // namespace KFA

#endif
