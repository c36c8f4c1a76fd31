// SPDX-License-Identifier: Apache-2.0
// Which disk list a message becomes.
#include <string>

#include <KFAFunctionality/storage/KFAHardDisk.h>

#include <gtest/gtest.h>

#include <KFLMessage/KFLMessage.h>

namespace {

namespace HardDisk = KFA::HardDisk;
using HardDisk::List::Images;

static_assert(std::string_view(KFA::HardDisk::List::KfFS::s_COMPLEX_TYPE) == "ct_kffs");
static_assert(std::string_view(KFA::HardDisk::List::Images<KFA::HardDisk::Zloop>::s_COMPLEX_TYPE) ==
              "ct_zloop_disk");

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
