// SPDX-License-Identifier: Apache-2.0
// What a technology logs and where: the base of every technology's log options. A value with a virtual
// destructor.
#ifndef KFLFUNCTIONALITY_KFLLOGOPTIONS_H
#define KFLFUNCTIONALITY_KFLLOGOPTIONS_H

#include <string>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLLogOptions {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLLogOptions, kTypesNamespace, 311>;
  using Reader = KFLRecordReader<KFLLogOptions>;

  KFLLogOptions() = default;
  KFLLogOptions(const KFLLogOptions&) = default;
  KFLLogOptions(KFLLogOptions&&) = default;
  KFLLogOptions& operator=(const KFLLogOptions&) = default;
  KFLLogOptions& operator=(KFLLogOptions&&) = default;
  virtual ~KFLLogOptions();

  // How much is logged; 0 is silent.
  const KFLOptionalProperty<int>& getLevel() const { return level_; }
  void setLevel(const KFLOptionalProperty<int>& level) { level_ = level; }
  // The path of the log file.
  const KFLOptionalProperty<std::string>& getFile() const { return file_; }
  void setFile(const KFLOptionalProperty<std::string>& file) { file_ = file; }

 private:
  KFLOptionalProperty<int> level_;
  KFLOptionalProperty<std::string> file_;
};

}  // namespace KFL

KFL_DECLARE_DERIVED_REGISTRY(KFL::KFLLogOptions)

#endif
