// SPDX-License-Identifier: Apache-2.0
// A package with its version and the packages nested in it. A plain value.
//
// Nested packages are held under keys that do not travel: a package that is read stands under its own text
// form, `name` or `name/version`. Reading follows the nesting of the message, which is bounded by the
// message's own depth.
#ifndef KFAFUNCTIONALITY_TEMPLATES_KFAPACKAGE_H
#define KFAFUNCTIONALITY_TEMPLATES_KFAPACKAGE_H

#include <map>
#include <string>

#include <KFAFunctionality/templates/KFATemplate.h>

namespace KFA {

class KFAPackage : public KFATemplate {
 public:
  using Packages = std::map<std::string, KFAPackage>;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAPackage>;
  using Reader = KFLRecordReader<KFAPackage>;

  using KFATemplate::KFATemplate;

  const Packages& getPackages() const { return packages_; }
  void setPackages(const Packages& packages) { packages_ = packages; }
  bool getInstalled() const { return installed_; }
  void setInstalled(bool installed) { installed_ = installed; }

 private:
  bool installed_ = false;
  Packages packages_;
};

}  // namespace KFA

#endif
