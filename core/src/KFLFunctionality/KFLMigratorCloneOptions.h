// SPDX-License-Identifier: Apache-2.0
// How an environment is to be cloned: the base of every technology's clone options. A value with a virtual
// destructor.
#ifndef KFLFUNCTIONALITY_KFLMIGRATORCLONEOPTIONS_H
#define KFLFUNCTIONALITY_KFLMIGRATORCLONEOPTIONS_H

#include <string>
#include <vector>

#include <KFLCommon/KFLProperty.h>
#include <KFLFunctionality/KFLEID.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLMigratorCloneOptions {
 public:
  using Text = KFLOptionalProperty<std::string>;

  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLMigratorCloneOptions, kRelocatorNamespace, 275>;
  // -1 at an id that is no GUID.
  using Reader = KFLRecordReader<KFLMigratorCloneOptions>;

  KFLMigratorCloneOptions() = default;
  KFLMigratorCloneOptions(const KFLMigratorCloneOptions&) = default;
  KFLMigratorCloneOptions(KFLMigratorCloneOptions&&) = default;
  KFLMigratorCloneOptions& operator=(const KFLMigratorCloneOptions&) = default;
  KFLMigratorCloneOptions& operator=(KFLMigratorCloneOptions&&) = default;
  virtual ~KFLMigratorCloneOptions();

  // The name that the clones get; that of the source when it is not specified.
  const Text& getName() const { return name_; }
  void setName(const Text& name) { name_ = name; }
  // The ids that the clones get, in their order; a clone beyond these gets a new one.
  const std::vector<KFLEID>& getEIDs() const { return eids_; }
  void setEIDs(const std::vector<KFLEID>& eids) { eids_ = eids; }

 private:
  Text name_;
  std::vector<KFLEID> eids_;
};

}  // namespace KFL

KFL_DECLARE_DERIVED_REGISTRY(KFL::KFLMigratorCloneOptions)

#endif
