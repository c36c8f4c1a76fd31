// SPDX-License-Identifier: Apache-2.0
// What is known of an operating system. A plain value; whatever is not known is not specified.
#ifndef KFLFUNCTIONALITY_KFLOS_H
#define KFLFUNCTIONALITY_KFLOS_H

#include <string>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLOS {
 public:
  using Text = KFLOptionalProperty<std::string>;

  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLOS>;
  using Reader = KFLRecordReader<KFLOS>;

  const Text& getName() const { return name_; }
  void setName(const Text& name) { name_ = name; }
  const Text& getVersion() const { return version_; }
  void setVersion(const Text& version) { version_ = version; }
  // The kind of system: "linux", for example.
  const Text& getPlatform() const { return platform_; }
  void setPlatform(const Text& platform) { platform_ = platform; }
  // The version of the kernel.
  const Text& getKernel() const { return kernel_; }
  void setKernel(const Text& kernel) { kernel_ = kernel; }

  friend bool operator==(const KFLOS&, const KFLOS&) = default;

 private:
  Text name_;
  Text version_;
  Text platform_;
  Text kernel_;
};

}  // namespace KFL

#endif
