// SPDX-License-Identifier: Apache-2.0
// The configuration of a template: its version, what it is based on, its options and its packages. A plain
// value.
#ifndef KFAFUNCTIONALITY_TEMPLATES_KFATEMPLATECONFIGINFO_H
#define KFAFUNCTIONALITY_TEMPLATES_KFATEMPLATECONFIGINFO_H

#include <map>
#include <string>
#include <vector>

#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/templates/KFAPackageInfo.h>
#include <KFAFunctionality/templates/KFAPackageVersion.h>

namespace KFA {

class KFATemplateConfigInfo : public KFAPackageVersion {
 public:
  // What one option is set to.
  struct Option {
    static const KFLFieldTable& fields();
    using Writer = KFLRecordWriter<Option>;
    using Reader = KFLRecordReader<Option>;

    std::string id;
    std::string value;

    friend bool operator==(const Option&, const Option&) = default;
  };
  using Options = std::map<std::string, Option>;
  // Under their names. A package travels under its own name, not under its key.
  using Packages = std::map<std::string, KFAPackageInfo>;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFATemplateConfigInfo>;
  // The flag for standard packages, name, base template and packages must be there and well formed; packages may be
  // none. A version that is absent is empty, as an empty one is not written.
  using Reader = KFLRecordReader<KFATemplateConfigInfo>;

  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  // Here and below, an empty text is not written.
  const std::string& getDescription() const { return description_; }
  void setDescription(const std::string& description) { description_ = description; }
  const std::string& getBaseTemplate() const { return baseTemplate_; }
  void setBaseTemplate(const std::string& baseTemplate) { baseTemplate_ = baseTemplate; }
  const Options& getOptions() const { return options_; }
  void setOptions(const Options& options) { options_ = options; }
  const Packages& getPackages() const { return packages_; }
  void setPackages(const Packages& packages) { packages_ = packages; }
  const std::string& getOSVersion() const { return osVersion_; }
  void setOSVersion(const std::string& version) { osVersion_ = version; }
  const std::string& getOSPlatform() const { return osPlatform_; }
  void setOSPlatform(const std::string& platform) { osPlatform_ = platform; }
  const std::vector<std::string>& getTechnologies() const { return technologies_; }
  void setTechnologies(const std::vector<std::string>& technologies) { technologies_ = technologies; }

 private:
  std::string name_;
  std::string description_;
  std::string baseTemplate_;
  Options options_;
  Packages packages_;
  std::string osVersion_;
  std::string osPlatform_;
  std::vector<std::string> technologies_;
};

}  // namespace KFA

#endif
