// SPDX-License-Identifier: Apache-2.0
// What the template cache holds about one template: the template as a package, and the environments that use it. A plain
// value.
#ifndef KFAFUNCTIONALITY_TEMPLATES_KFATEMPLATEOBJECT_H
#define KFAFUNCTIONALITY_TEMPLATES_KFATEMPLATEOBJECT_H

#include <set>
#include <string>

#include <KFLFunctionality/KFLEID.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/templates/KFAPackageKFTemplate.h>

namespace KFA {

class KFATemplateObject : public KFAPackageKFTemplate {
 public:
  using Environments = std::set<KFLEID>;

  // The root element of a message that holds one template object.
  static constexpr const char* kElement = "template_object";

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFATemplateObject>;
  // Without a package that can be read there is no template object. The string ID is not read: it follows from the rest.
  using Reader = KFLRecordReader<KFATemplateObject>;

  KFATemplateObject() = default;
  KFATemplateObject(const KFATemplateObject&) = default;
  KFATemplateObject(KFATemplateObject&&) = default;
  KFATemplateObject& operator=(const KFATemplateObject&) = default;
  KFATemplateObject& operator=(KFATemplateObject&&) = default;
  ~KFATemplateObject() override;
  explicit KFATemplateObject(const KFAPackageKFTemplate& package, const Environments& environments = {})
      : KFAPackageKFTemplate(package), environments_(environments) {}

  const Environments& getEnvironments() const { return environments_; }
  void setEnvironments(const Environments& environments) { environments_ = environments; }

  // Tells templates apart, and is their key in the cache: name.kind.architecture.os.version, where an OS template leaves
  // its os out but not the dot behind it, and then a dot and the first environment, if there is one.
  std::string getStringID() const;

 private:
  Environments environments_;
};

}  // namespace KFA

#endif
