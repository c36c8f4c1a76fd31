// SPDX-License-Identifier: Apache-2.0
// What can be installed on the node, or has been: updates of the system, of the agent, and of templates.
//
//   KFAUpdate
//     KFASystemUpdate
//       KFAWindowsSystemUpdate
//     KFATQAUpdate
//     KFAAppTemplateUpdate
//     KFATemplateUpdate
//       KFAOsTemplateUpdate
//       KFAEzTemplateUpdate
//
// Values with a virtual destructor. Every class is registered under its type tag with the registry of KFAUpdate, which
// is its default, so that a KFAUpdateList holds any mix of them. A text or number is specified when its element was
// read and written when it is specified.
#ifndef KFAFUNCTIONALITY_UPDATES_KFAUPDATE_H
#define KFAFUNCTIONALITY_UPDATES_KFAUPDATE_H

#include <string>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLNumberNames.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/updates/KFAUpdateList.h>

namespace KFA {

// What every update tells. Nothing in it is mandatory: reading and writing always succeed.
class KFAUpdate {
 public:
  using Text = KFLOptionalProperty<std::string>;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAUpdate>;
  using Reader = KFLRecordReader<KFAUpdate>;

  KFAUpdate() = default;
  KFAUpdate(const KFAUpdate&) = default;
  KFAUpdate(KFAUpdate&&) = default;
  KFAUpdate& operator=(const KFAUpdate&) = default;
  KFAUpdate& operator=(KFAUpdate&&) = default;
  virtual ~KFAUpdate();

  const Text& getID() const { return id_; }
  void setID(const Text& id) { id_ = id; }
  const Text& getName() const { return name_; }
  void setName(const Text& name) { name_ = name; }
  const Text& getDescription() const { return description_; }
  void setDescription(const Text& description) { description_ = description; }
  // Of what is downloaded, in bytes.
  const KFLOptionalProperty<long long>& getSize() const { return size_; }
  void setSize(const KFLOptionalProperty<long long>& size) { size_ = size; }
  bool getInstalled() const { return installed_; }
  void setInstalled(bool installed) { installed_ = installed; }
  const Text& getVersion() const { return version_; }
  void setVersion(const Text& version) { version_ = version; }
  // The version that the update would replace.
  const Text& getInstalledVersion() const { return installedVersion_; }
  void setInstalledVersion(const Text& version) { installedVersion_ = version; }
  const KFLOptionalProperty<int>& getRelease() const { return release_; }
  void setRelease(const KFLOptionalProperty<int>& release) { release_ = release; }

 private:
  Text id_;
  Text name_;
  Text description_;
  KFLOptionalProperty<long long> size_;
  bool installed_ = false;
  Text version_;
  Text installedVersion_;
  KFLOptionalProperty<int> release_;
};

// An update of the node's operating system. One with an unknown name of a type cannot be read, one with a type that
// has no name cannot be written.
class KFASystemUpdate : public KFAUpdate {
 public:
  enum UpdateType { NoType = 0, Hotfix = 1, ServicePack = 2, Version = 3 };
  // "hotfix", "servicepack", "version"; NoType has the empty name.
  static const KFLNumberNames updateTypeIdToName;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFASystemUpdate>;
  using Reader = KFLRecordReader<KFASystemUpdate>;

  KFASystemUpdate() = default;
  KFASystemUpdate(const KFASystemUpdate&) = default;
  KFASystemUpdate(KFASystemUpdate&&) = default;
  KFASystemUpdate& operator=(const KFASystemUpdate&) = default;
  KFASystemUpdate& operator=(KFASystemUpdate&&) = default;
  ~KFASystemUpdate() override;

  // An UpdateType; NoType is not written, and is what an absent element reads as.
  int getType() const { return type_; }
  void setType(int type) { type_ = type; }
  const Text& getSummary() const { return summary_; }
  void setSummary(const Text& summary) { summary_ = summary; }
  const Text& getDetails() const { return details_; }
  void setDetails(const Text& details) { details_ = details; }

 protected:
  void setSummarySpecified(bool specified) { summary_.setSpecified(specified); }

 private:
  int type_ = NoType;
  Text summary_;
  Text details_;
};

// An update of a Windows system.
//
// The trap: reading marks the summary, not the product, as specified exactly when there is a product. So a product
// that was read has its value, is not specified, and is not written again unless the caller sets it.
class KFAWindowsSystemUpdate : public KFASystemUpdate {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAWindowsSystemUpdate>;
  using Reader = KFLRecordReader<KFAWindowsSystemUpdate>;

  KFAWindowsSystemUpdate() = default;
  KFAWindowsSystemUpdate(const KFAWindowsSystemUpdate&) = default;
  KFAWindowsSystemUpdate(KFAWindowsSystemUpdate&&) = default;
  KFAWindowsSystemUpdate& operator=(const KFAWindowsSystemUpdate&) = default;
  KFAWindowsSystemUpdate& operator=(KFAWindowsSystemUpdate&&) = default;
  ~KFAWindowsSystemUpdate() override;

  // What is updated.
  const Text& getProduct() const { return product_; }
  void setProduct(const Text& product) { product_ = product; }

 private:
  static int writeProduct(KFLMessageIterator& it, const KFAWindowsSystemUpdate& update, const KFLField& row);
  static int readProduct(const KFLMessageIterator& it, KFAWindowsSystemUpdate& update, const KFLField& row);

  Text product_;
};

// An update of the agent itself.
class KFATQAUpdate : public KFAUpdate {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFATQAUpdate>;
  using Reader = KFLRecordReader<KFATQAUpdate>;

  KFATQAUpdate() = default;
  KFATQAUpdate(const KFATQAUpdate&) = default;
  KFATQAUpdate(KFATQAUpdate&&) = default;
  KFATQAUpdate& operator=(const KFATQAUpdate&) = default;
  KFATQAUpdate& operator=(KFATQAUpdate&&) = default;
  ~KFATQAUpdate() override;

  const Text& getSummary() const { return summary_; }
  void setSummary(const Text& summary) { summary_ = summary; }

 private:
  Text summary_;
};

// An update of an application template.
class KFAAppTemplateUpdate : public KFAUpdate {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAAppTemplateUpdate>;
  using Reader = KFLRecordReader<KFAAppTemplateUpdate>;

  KFAAppTemplateUpdate() = default;
  KFAAppTemplateUpdate(const KFAAppTemplateUpdate&) = default;
  KFAAppTemplateUpdate(KFAAppTemplateUpdate&&) = default;
  KFAAppTemplateUpdate& operator=(const KFAAppTemplateUpdate&) = default;
  KFAAppTemplateUpdate& operator=(KFAAppTemplateUpdate&&) = default;
  ~KFAAppTemplateUpdate() override;
};

// An update of a template, with the updates of the application templates that belong to it. One of those that
// cannot be read or written makes this one fail.
class KFATemplateUpdate : public KFAUpdate {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFATemplateUpdate>;
  using Reader = KFLRecordReader<KFATemplateUpdate>;

  KFATemplateUpdate() = default;
  KFATemplateUpdate(const KFATemplateUpdate&) = default;
  KFATemplateUpdate(KFATemplateUpdate&&) = default;
  KFATemplateUpdate& operator=(const KFATemplateUpdate&) = default;
  KFATemplateUpdate& operator=(KFATemplateUpdate&&) = default;
  ~KFATemplateUpdate() override;

  const KFAUpdateList& getAppTemplates() const { return appTemplates_; }
  void setAppTemplates(const KFAUpdateList& updates) { appTemplates_ = updates; }

 private:
  KFAUpdateList appTemplates_;
};

// An update of an OS template.
class KFAOsTemplateUpdate : public KFATemplateUpdate {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAOsTemplateUpdate>;
  using Reader = KFLRecordReader<KFAOsTemplateUpdate>;

  KFAOsTemplateUpdate() = default;
  KFAOsTemplateUpdate(const KFAOsTemplateUpdate&) = default;
  KFAOsTemplateUpdate(KFAOsTemplateUpdate&&) = default;
  KFAOsTemplateUpdate& operator=(const KFAOsTemplateUpdate&) = default;
  KFAOsTemplateUpdate& operator=(KFAOsTemplateUpdate&&) = default;
  ~KFAOsTemplateUpdate() override;
};

// An update of an EZ template.
class KFAEzTemplateUpdate : public KFATemplateUpdate {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAEzTemplateUpdate>;
  using Reader = KFLRecordReader<KFAEzTemplateUpdate>;

  KFAEzTemplateUpdate() = default;
  KFAEzTemplateUpdate(const KFAEzTemplateUpdate&) = default;
  KFAEzTemplateUpdate(KFAEzTemplateUpdate&&) = default;
  KFAEzTemplateUpdate& operator=(const KFAEzTemplateUpdate&) = default;
  KFAEzTemplateUpdate& operator=(KFAEzTemplateUpdate&&) = default;
  ~KFAEzTemplateUpdate() override;
};

}  // namespace KFA

KFL_DECLARE_DERIVED_REGISTRY(KFA::KFAUpdate)

#endif
