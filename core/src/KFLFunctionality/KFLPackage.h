// SPDX-License-Identifier: Apache-2.0
// A package that a package manager of the node handles: the base of every technology's package records.
//
// A value with a virtual destructor. Its registry maps type tags to derived classes; the class itself is
// registered as well, so that a list may hold plain packages.
#ifndef KFLFUNCTIONALITY_KFLPACKAGE_H
#define KFLFUNCTIONALITY_KFLPACKAGE_H

#include <string>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLPackage {
 public:
  using Text = KFLOptionalProperty<std::string>;

  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLPackage, kTypesNamespace, 155>;
  // A package without a name cannot be read.
  using Reader = KFLRecordReader<KFLPackage>;

  KFLPackage() = default;
  KFLPackage(const KFLPackage&) = default;
  KFLPackage(KFLPackage&&) = default;
  KFLPackage& operator=(const KFLPackage&) = default;
  KFLPackage& operator=(KFLPackage&&) = default;
  virtual ~KFLPackage();

  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  const std::string& getArchitecture() const { return architecture_; }
  void setArchitecture(const std::string& architecture) { architecture_ = architecture; }
  const Text& getVersion() const { return version_; }
  void setVersion(const Text& version) { version_ = version; }
  // The operating system that the package is made for.
  const Text& getOS() const { return os_; }
  void setOS(const Text& os) { os_ = os; }
  // What kind of package it is, in its package manager's words.
  const std::string& getKind() const { return kind_; }
  void setKind(const std::string& kind) { kind_ = kind; }

 private:
  // Identifiers of cached packages are built from these in their order here.
  std::string name_;
  std::string architecture_;
  Text version_;
  Text os_;
  std::string kind_;
};

}  // namespace KFL

KFL_DECLARE_DERIVED_REGISTRY(KFL::KFLPackage)

#endif
