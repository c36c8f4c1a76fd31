// SPDX-License-Identifier: Apache-2.0
// Disks and disk lists: what is written, what reading needs, which list a message becomes.
#include <string>

#include <KFAFunctionality/storage/KFAHardDisk.h>

#include "../Records.h"

namespace {

namespace HardDisk = KFA::HardDisk;
using HardDisk::List::Images;

constexpr const char* kGUID = "2f1c9a4e-7b30-4c58-9d7e-0a4b6c1d2e3f";

static_assert(std::string_view(KFA::HardDisk::List::KfFS::s_COMPLEX_TYPE) == "ct_kffs");
static_assert(std::string_view(KFA::HardDisk::List::Images<KFA::HardDisk::Zloop>::s_COMPLEX_TYPE) ==
              "ct_zloop_disk");

TEST(HardDisk, WhatIsWritten) {
  EXPECT_EQ(elementsOf(HardDisk::Zloop(1, false)), (Names{"size"}));
  HardDisk::Zloop image;
  EXPECT_EQ(elementsOf(image), (Names{"size", "expanded"}));
  image.setName("root");
  image.setGUID(KFL::KFLGUID(kGUID));
  EXPECT_EQ(elementsOf(image), (Names{"id", "path", "size", "expanded"}));
  EXPECT_EQ(elementsOf(HardDisk::KfFS()), (Names{"disk_quota", "inodes"}));
  EXPECT_EQ(elementsOf(HardDisk::Loopback()).front(), "device");
}

TEST(HardDisk, WhatReadingNeeds) {
  HardDisk::Zloop image;
  EXPECT_EQ(readFrom("<id>no guid</id><size>x</size>", image), 0);
  EXPECT_FALSE(image.getExpanded());
  EXPECT_FALSE(image.getGUID().isValid());
  HardDisk::KfFS area;
  EXPECT_EQ(readFrom("", area), 0);
  HardDisk::Loopback loopback;
  EXPECT_EQ(readFrom("<id>" + std::string(kGUID) + "</id>", loopback), -1);
  EXPECT_EQ(readFrom("<device>d</device><mount_point>p</mount_point>", loopback), 0);
  HardDisk::List::KfFS list;
  EXPECT_EQ(readFrom("", list), -1);
  Images<HardDisk::Loopback> images;
  EXPECT_EQ(readFrom("", images), 0);
  EXPECT_EQ(readFrom("<disk/>", images), -1);
}

struct Naming : HardDisk::List::Visitor {
  int visit(const HardDisk::List::KfFS&) override { return 1; }
  int visit(const Images<HardDisk::Zloop>&) override { return 2; }
  int visit(const Images<HardDisk::Loopback>&) override { return 3; }
};

TEST(HardDiskList, TagChoosesTheClass) {
  const struct {
    const char* tag;
    const char* content;
    int kind;
  } rows[] = {
      {"ct_kffs", "<disk/>", 1},   {"ct_zloop_disk", "<disk/>", 2},   {"ct_zloop_disk", "", 2},
      {"ct_loopback_disk", "", 3}, {"ct_unknown_disk", "<disk/>", 0}, {"ct_kffs", "", 0},
  };
  const std::string head = std::string("<l xmlns='") + KFA::kTypesURI +
                           "' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' xsi:type='";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.tag);
    KFL::KFLMessage message;
    ASSERT_EQ(message.parse(head + row.tag + "'>" + row.content + "</l>"), 0);
    boost::shared_ptr<HardDisk::List::Base> list;
    const KFL::KFLReaderDerived<HardDisk::List::Base> reader(true);
    EXPECT_EQ(message.getIterator().getObject(list, reader), row.kind == 0 ? -1 : 0);
    ASSERT_EQ(list != nullptr, row.kind != 0);
    Naming naming;
    if (list) {
      EXPECT_EQ(list->accept(naming), row.kind);
    }
  }
}

}  // namespace
