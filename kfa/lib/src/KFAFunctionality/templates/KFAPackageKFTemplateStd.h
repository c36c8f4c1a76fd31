// SPDX-License-Identifier: Apache-2.0
// A standard template as a package, registered as a derived type of KFLPackage. A plain value.
#ifndef KFAFUNCTIONALITY_TEMPLATES_KFAPACKAGEKFTEMPLATESTD_H
#define KFAFUNCTIONALITY_TEMPLATES_KFAPACKAGEKFTEMPLATESTD_H

#include <KFAFunctionality/templates/KFAPackageKFTemplate.h>

namespace KFA {

class KFAPackageKFTemplateStd : public KFAPackageKFTemplate {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAPackageKFTemplateStd>;
  using Reader = KFLRecordReader<KFAPackageKFTemplateStd>;

  KFAPackageKFTemplateStd() = default;
  KFAPackageKFTemplateStd(const KFAPackageKFTemplateStd&) = default;
  KFAPackageKFTemplateStd(KFAPackageKFTemplateStd&&) = default;
  KFAPackageKFTemplateStd& operator=(const KFAPackageKFTemplateStd&) = default;
  KFAPackageKFTemplateStd& operator=(KFAPackageKFTemplateStd&&) = default;
  ~KFAPackageKFTemplateStd() override;

  bool getStandard() const { return standard_; }
  void setStandard(bool standard) { standard_ = standard; }

 private:
  bool standard_ = false;
};

}  // namespace KFA

#endif
