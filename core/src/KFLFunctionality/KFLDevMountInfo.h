// SPDX-License-Identifier: Apache-2.0
// How a device is mounted. A plain value.
#ifndef KFLFUNCTIONALITY_KFLDEVMOUNTINFO_H
#define KFLFUNCTIONALITY_KFLDEVMOUNTINFO_H

#include <string>

#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLDevMountInfo {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLDevMountInfo>;
  using Reader = KFLRecordReader<KFLDevMountInfo>;

  KFLDevMountInfo() = default;
  KFLDevMountInfo(const std::string& device, const std::string& mountPoint, const std::string& fileSystem,
                  bool readOnly, bool automatic, long long size)
      : device_(device),
        mountPoint_(mountPoint),
        fileSystem_(fileSystem),
        readOnly_(readOnly),
        automatic_(automatic),
        size_(size) {}

  // The device or image file.
  const std::string& getDevice() const { return device_; }
  void setDevice(const std::string& device) { device_ = device; }
  const std::string& getMountPoint() const { return mountPoint_; }
  void setMountPoint(const std::string& mountPoint) { mountPoint_ = mountPoint; }
  // "auto" leaves the choice to the mount.
  const std::string& getFileSystem() const { return fileSystem_; }
  void setFileSystem(const std::string& fileSystem) { fileSystem_ = fileSystem; }
  bool getReadOnly() const { return readOnly_; }
  void setReadOnly(bool readOnly) { readOnly_ = readOnly; }
  // Whether it is mounted when the environment starts.
  bool getAutomatic() const { return automatic_; }
  void setAutomatic(bool automatic) { automatic_ = automatic; }
  // In bytes.
  long long getSize() const { return size_; }
  void setSize(long long size) { size_ = size; }

 private:
  std::string device_;
  std::string mountPoint_;
  std::string fileSystem_ = "auto";
  bool readOnly_ = false;
  bool automatic_ = false;
  long long size_ = 0;
};

}  // namespace KFL

#endif
