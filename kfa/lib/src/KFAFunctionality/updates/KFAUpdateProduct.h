// SPDX-License-Identifier: Apache-2.0
// A product that the update service looks after: how its updates are installed, and from where. Plain values.
#ifndef KFAFUNCTIONALITY_UPDATES_KFAUPDATEPRODUCT_H
#define KFAFUNCTIONALITY_UPDATES_KFAUPDATEPRODUCT_H

#include <string>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLNumberNames.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

// Where a product's updates come from.
class KFAUpdateInstallSource {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAUpdateInstallSource>;
  // A source without a value cannot be read.
  using Reader = KFLRecordReader<KFAUpdateInstallSource>;

  const std::string& getValue() const { return value_; }
  void setValue(const std::string& value) { value_ = value; }
  // What is used when nothing else is set.
  const KFLOptionalProperty<std::string>& getStandard() const { return standard_; }
  void setStandard(const KFLOptionalProperty<std::string>& standard) { standard_ = standard; }

 private:
  std::string value_;
  KFLOptionalProperty<std::string> standard_;
};

class KFAUpdateProduct {
 public:
  enum InstallType { Disabled = 0, Automatic = 1, AutoDownload = 2, Manual = 3 };
  // "auto_download", "automatic", "manual", "disabled"; the empty name reads as Disabled, too.
  static const KFLNumberNames productInstallTypes;

  static const KFLFieldTable& fields();
  // -1 for an install type that has no name.
  using Writer = KFLRecordWriter<KFAUpdateProduct>;
  // Identifier, name and install type must be there. An install source that cannot be read is left unspecified.
  using Reader = KFLRecordReader<KFAUpdateProduct>;

  const std::string& getID() const { return id_; }
  void setID(const std::string& id) { id_ = id; }
  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  // An InstallType.
  int getInstallType() const { return installType_; }
  void setInstallType(int type) { installType_ = type; }
  const KFLOptionalProperty<KFAUpdateInstallSource>& getInstallSource() const { return installSource_; }
  void setInstallSource(const KFLOptionalProperty<KFAUpdateInstallSource>& source) {
    installSource_ = source;
  }
  // Where the product stands on the node.
  const KFLOptionalProperty<std::string>& getLocation() const { return location_; }
  void setLocation(const KFLOptionalProperty<std::string>& location) { location_ = location; }

 private:
  std::string id_;
  std::string name_;
  int installType_ = Disabled;
  KFLOptionalProperty<KFAUpdateInstallSource> installSource_;
  KFLOptionalProperty<std::string> location_;
};

}  // namespace KFA

#endif
