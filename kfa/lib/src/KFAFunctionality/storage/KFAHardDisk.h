// SPDX-License-Identifier: Apache-2.0
// The disks of an environment: one shared file system area, or images of one of two kinds.
//
//   List::Base                  held by a counted pointer; its class is chosen by the type tag in the message
//     +- List::KfFS             one HardDisk::KfFS
//     +- List::Images<Zloop>    any number of loop-format images
//     +- List::Images<Loopback> any number of loopback-mounted images
//
// Plain values; a list shares its type tag with its disks. Which list a pointer holds is found by a
// List::Visitor.
#ifndef KFAFUNCTIONALITY_STORAGE_KFAHARDDISK_H
#define KFAFUNCTIONALITY_STORAGE_KFAHARDDISK_H

#include <string>
#include <utility>
#include <vector>

#include <KFLCommon/KFLGUID.h>
#include <KFLFunctionality/KFLDevMountInfo.h>
#include <KFLFunctionality/KFLQoS.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA::HardDisk {

// An image file in the loop-image format.
class Zloop {
 public:
  static constexpr const char* s_COMPLEX_TYPE = "ct_zloop_disk";

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<Zloop>;
  // Reads what is there; never fails. An image that does not say it is expanded is not.
  using Reader = KFLRecordReader<Zloop>;

  Zloop() = default;
  Zloop(long long size, bool expanded) : expanded_(expanded), size_(size) {}

  // Whether the whole size is taken on the node.
  bool getExpanded() const { return expanded_; }
  void setExpanded(bool expanded) { expanded_ = expanded; }
  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  // Invalid as long as the disk is not bound to an image.
  const KFLGUID& getGUID() const { return guid_; }
  void setGUID(const KFLGUID& guid) { guid_ = guid; }
  long long getSize() const { return size_; }
  void setSize(long long size) { size_ = size; }

 private:
  bool expanded_ = true;
  std::string name_;
  KFLGUID guid_;
  long long size_ = 0;
};

// An image that is mounted through a loopback device.
class Loopback {
 public:
  static constexpr const char* s_COMPLEX_TYPE = "ct_loopback_disk";

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<Loopback>;
  // Fails when the mount description cannot be read.
  using Reader = KFLRecordReader<Loopback>;

  Loopback() : mount_(std::string(), std::string(), "auto", false, false, 0) {}
  explicit Loopback(const KFLDevMountInfo& mount) : mount_(mount) {}

  // Invalid as long as the disk is not bound to an image.
  const KFLGUID& getGUID() const { return guid_; }
  void setGUID(const KFLGUID& guid) { guid_ = guid; }
  const KFLDevMountInfo& getMount() const { return mount_; }
  void setMount(const KFLDevMountInfo& mount) { mount_ = mount; }

 private:
  KFLGUID guid_;
  KFLDevMountInfo mount_;
};

// An area of a file system that is shared with other environments.
class KfFS {
 public:
  static constexpr const char* s_COMPLEX_TYPE = "ct_kffs";

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KfFS>;
  // Reads what is there; never fails.
  using Reader = KFLRecordReader<KfFS>;

  KfFS() = default;
  KfFS(const KFLQoS& first, const KFLQoS& second) : firstQuota_(first), secondQuota_(second) {}

  // The path of the area; empty as long as the disk is not bound to one.
  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  // The quota of disk space.
  const KFLQoS& getFirstQuota() const { return firstQuota_; }
  void setFirstQuota(const KFLQoS& quota) { firstQuota_ = quota; }
  // The quota of inodes.
  const KFLQoS& getSecondQuota() const { return secondQuota_; }
  void setSecondQuota(const KFLQoS& quota) { secondQuota_ = quota; }

 private:
  std::string name_;
  KFLQoS firstQuota_;
  KFLQoS secondQuota_;
};

namespace List {

class KfFS;
template <class Image>
class Images;

// Is told which class of list it meets; its answer is that of the list's accept().
class Visitor {
 public:
  virtual ~Visitor();
  virtual int visit(const KfFS& list) = 0;
  virtual int visit(const Images<Zloop>& list) = 0;
  virtual int visit(const Images<Loopback>& list) = 0;
};

class Base {
 public:
  Base() = default;
  Base(const Base&) = default;
  Base(Base&&) = default;
  Base& operator=(const Base&) = default;
  Base& operator=(Base&&) = default;
  virtual ~Base();
  // None: an element that holds a list is what its type tag says.
  static const KFLFieldTable& elements();
  virtual int accept(Visitor& visitor) const = 0;
};

// One shared file system area.
class KfFS : public Base {
 public:
  static constexpr const char* s_COMPLEX_TYPE = HardDisk::KfFS::s_COMPLEX_TYPE;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KfFS>;
  // Fails when there is no disk.
  using Reader = KFLRecordReader<KfFS>;

  KfFS() = default;
  explicit KfFS(const HardDisk::KfFS& disk) : disk_(disk) {}

  int accept(Visitor& visitor) const override;

  const HardDisk::KfFS& getDisk() const { return disk_; }
  void setDisk(const HardDisk::KfFS& disk) { disk_ = disk; }

 private:
  HardDisk::KfFS disk_;
};

// Any number of images of one kind, none included.
template <class Image>
class Images : public Base {
 public:
  static constexpr const char* s_COMPLEX_TYPE = Image::s_COMPLEX_TYPE;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<Images>;
  // Fails at the first image that cannot be read.
  using Reader = KFLRecordReader<Images>;

  Images() = default;
  explicit Images(std::vector<Image> images) : images_(std::move(images)) {}

  int accept(Visitor& visitor) const override;

  const std::vector<Image>& getImages() const { return images_; }
  void setImages(std::vector<Image> images) { images_ = std::move(images); }

 private:
  std::vector<Image> images_;
};

extern template class Images<Zloop>;
extern template class Images<Loopback>;

}  // namespace List

}  // namespace KFA::HardDisk

KFL_DECLARE_DERIVED_REGISTRY(KFA::HardDisk::List::Base)

#endif
