// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/storage/KFAHardDisk.h>

#include <KFLMessage/KFLRecordRegistry.h>

KFL_DERIVED_REGISTRY(KFA::HardDisk::List::Base)

namespace KFA::HardDisk {

namespace List {

template <class Class>
using Factory =
    KFLDerivedParserFactoryT<Class, Base, std::string, typename Class::Reader, typename Class::Writer>;

static Factory<KfFS> factoryKfFS;
static Factory<Images<Zloop>> factoryZloop;
static Factory<Images<Loopback>> factoryLoopback;

// Lists before disks: a list shares its type tag with its disks, and a message of that type is a list.
static const KFLRecordRegistration<KfFS> recordKfFS("HardDisk::List::KfFS");
static const KFLRecordRegistration<Images<Zloop>> recordZloops("HardDisk::List::Images<Zloop>");
static const KFLRecordRegistration<Images<Loopback>> recordLoopbacks("HardDisk::List::Images<Loopback>");

}  // namespace List

static const KFLRecordRegistration<KfFS> recordKfFS("HardDisk::KfFS");
static const KFLRecordRegistration<Zloop> recordZloop("HardDisk::Zloop");
static const KFLRecordRegistration<Loopback> recordLoopback("HardDisk::Loopback");

const KFLFieldTable& Zloop::fields() {
  using R = Zloop;
  static constexpr KFLField rows[] = {
      field<R, &R::guid_>(1010).whenNotEmpty(),
      field<R, &R::name_>(1156).whenNotEmpty(),
      field<R, &R::size_>(1024).mustWrite(),
      presence<R, &R::expanded_>("expanded"),
  };
  static constexpr KFLFieldTable table{"HardDisk::Zloop", kTypesURI, s_COMPLEX_TYPE, rows};
  return table;
}

const KFLFieldTable& Loopback::fields() {
  using R = Loopback;
  static constexpr KFLField rows[] = {
      field<R, &R::guid_>(1010).whenNotEmpty(),
      inlined<R, &R::mount_>(),
  };
  static constexpr KFLFieldTable table{"HardDisk::Loopback", kTypesURI, s_COMPLEX_TYPE, rows};
  return table;
}

const KFLFieldTable& KfFS::fields() {
  using R = KfFS;
  static constexpr KFLField rows[] = {
      field<R, &R::name_>(1156).whenNotEmpty(),
      field<R, &R::firstQuota_>(1811).mustWrite(),
      field<R, &R::secondQuota_>(1301).mustWrite(),
  };
  static constexpr KFLFieldTable table{"HardDisk::KfFS", kTypesURI, s_COMPLEX_TYPE, rows};
  return table;
}

namespace List {

namespace {

constexpr int kDiskElement = 1275;

template <class Image>
constexpr const char* kImagesName = nullptr;
template <>
constexpr const char* kImagesName<Zloop> = "HardDisk::List::Images<Zloop>";
template <>
constexpr const char* kImagesName<Loopback> = "HardDisk::List::Images<Loopback>";

}  // namespace

Visitor::~Visitor() = default;
Base::~Base() = default;

const KFLFieldTable& Base::elements() {
  static constexpr KFLFieldTable table{"HardDisk::List::Base", kTypesURI, "", {}};
  return table;
}

const KFLFieldTable& KfFS::fields() {
  using R = KfFS;
  static constexpr KFLField rows[] = {field<R, &R::disk_>(kDiskElement).required().mustWrite()};
  static constexpr KFLFieldTable table{"HardDisk::List::KfFS", kTypesURI, s_COMPLEX_TYPE, rows};
  return table;
}

int KfFS::accept(Visitor& visitor) const {
  return visitor.visit(*this);
}

template <class Image>
const KFLFieldTable& Images<Image>::fields() {
  static constexpr KFLField rows[] = {list<Images, &Images::images_>(kDiskElement).required().mustWrite()};
  static constexpr KFLFieldTable table{kImagesName<Image>, kTypesURI, s_COMPLEX_TYPE, rows};
  return table;
}

template <class Image>
int Images<Image>::accept(Visitor& visitor) const {
  return visitor.visit(*this);
}

template class Images<Zloop>;
template class Images<Loopback>;

}  // namespace List

}  // namespace KFA::HardDisk
