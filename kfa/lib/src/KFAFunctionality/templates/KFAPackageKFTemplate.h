// SPDX-License-Identifier: Apache-2.0
// A template of this technology as a package, registered as a derived type of KFLPackage. A plain value.
#ifndef KFAFUNCTIONALITY_TEMPLATES_KFAPACKAGEKFTEMPLATE_H
#define KFAFUNCTIONALITY_TEMPLATES_KFAPACKAGEKFTEMPLATE_H

#include <string>
#include <vector>

#include <KFLFunctionality/KFLPackage.h>
#include <KFLFunctionality/KFLPackageList.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAPackageKFTemplate : public KFLPackage {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAPackageKFTemplate>;
  using Reader = KFLRecordReader<KFAPackageKFTemplate>;

  KFAPackageKFTemplate() = default;
  KFAPackageKFTemplate(const KFAPackageKFTemplate&) = default;
  KFAPackageKFTemplate(KFAPackageKFTemplate&&) = default;
  KFAPackageKFTemplate& operator=(const KFAPackageKFTemplate&) = default;
  KFAPackageKFTemplate& operator=(KFAPackageKFTemplate&&) = default;
  ~KFAPackageKFTemplate() override;

  // Whether it is an OS template; otherwise it is made for one.
  bool getOsTemplate() const { return osTemplate_; }
  void setOsTemplate(bool osTemplate) { osTemplate_ = osTemplate; }
  bool getCached() const { return cached_; }
  void setCached(bool cached) { cached_ = cached; }
  // Where the template lies; an empty path is not written.
  const std::string& getPath() const { return path_; }
  void setPath(const std::string& path) { path_ = path; }
  bool getUpToDate() const { return upToDate_; }
  void setUpToDate(bool upToDate) { upToDate_ = upToDate; }
  // The packages that it consists of; they do not travel.
  const KFLPackageList& getPackages() const { return packages_; }
  void setPackages(const KFLPackageList& packages) { packages_ = packages; }
  // The technologies that it applies to.
  const std::vector<std::string>& getTechnologyList() const { return technologies_; }
  void setTechnologyList(const std::vector<std::string>& technologies) { technologies_ = technologies; }

 private:
  bool osTemplate_ = false;
  bool cached_ = false;
  std::string path_;
  bool upToDate_ = false;
  KFLPackageList packages_;
  std::vector<std::string> technologies_;
};

}  // namespace KFA

#endif
