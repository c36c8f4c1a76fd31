// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/updates/KFAUpdate.h>

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFLCommon/KFLError.h>

#include "UpdateMessages.h"

namespace {

using namespace KFA;

TEST(KFAUpdate, WritesOnlyWhatIsSpecified) {
  KFAUpdate update;
  EXPECT_EQ(written(update), "");
  update.setSize(9223372036854775807);
  update.setInstalled(true);
  update.setName(std::string());
  EXPECT_EQ(written(update), "<name/><size>9223372036854775807</size><is_installed/>");
}

TEST(KFASystemUpdate, TypeStandsAsItsName) {
  const char* const contents[] = {"", "<kind>hotfix</kind>", "<kind>servicepack</kind>",
                                  "<kind>version</kind>", "result -1"};
  for (int type = 0; type <= 4; ++type) {
    KFASystemUpdate update;
    update.setType(type);
    EXPECT_EQ(written(update), contents[type]);
    update.setType(7);
    if (type == 4) break;
    EXPECT_EQ(readFrom(contents[type], update), 0);
    EXPECT_EQ(update.getType(), type);
  }
}

TEST(KFASystemUpdate, UnknownTypeFailsWithWhatIsAccepted) {
  KFAWindowsSystemUpdate update;
  EXPECT_EQ(readFrom("<kind>Hotfix</kind><product>p</product>", update), -1);
  EXPECT_EQ(getErrorMessage(),
            "/r/kind: 'Hotfix' is no known name; hotfix, servicepack or version is wanted");
  EXPECT_EQ(update.getProduct().getValue(), "");
}

// Whether there is a product is told by the mark of the summary.
TEST(KFAWindowsSystemUpdate, ProductMarksTheSummary) {
  const struct {
    const char *content, *summary, *product, *again;
  } rows[] = {
      {"", "", "former", ""},
      {"<product>p</product>", "", "p", "<summary/>"},
      {"<summary>s</summary>", "s", "former", ""},
      {"<summary>s</summary><product>p</product>", "s", "p", "<summary>s</summary>"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.content);
    KFAWindowsSystemUpdate update;
    KFAUpdate::Text former("former");
    former.setSpecified(false);
    update.setProduct(former);
    EXPECT_EQ(readFrom(row.content, update), 0);
    EXPECT_EQ(update.getSummary().getValue(), row.summary);
    EXPECT_EQ(update.getProduct().getValue(), row.product);
    EXPECT_EQ(written(update), row.again);
    update.setProduct(std::string("set"));
    EXPECT_EQ(readFrom(row.content, update), 0);
    EXPECT_TRUE(update.getProduct().isSpecified());
  }
}

TEST(KFATemplateUpdate, ElementsKeepTheirClass) {
  KFATemplateUpdate update;
  update.setAppTemplates({boost::make_shared<KFAOsTemplateUpdate>(),
                          boost::make_shared<KFAEzTemplateUpdate>(), boost::make_shared<KFAUpdate>()});
  const std::string content =
      "<app_template xsi:type=\"os_template_updateType\"/><app_template xsi:type=\"ez_template_updateType\"/>"
      "<app_template xsi:type=\"updateType\"/>";
  EXPECT_EQ(written(update), content);
  KFAOsTemplateUpdate again;
  ASSERT_EQ(readFrom(content, again), 0);
  EXPECT_EQ(written(again), content);
  EXPECT_EQ(readFrom("", again), 0);
  EXPECT_TRUE(again.getAppTemplates().empty());
}

TEST(KFATemplateUpdate, ListThatFailsFailsTheRecord) {
  KFAEzTemplateUpdate update;
  update.setAppTemplates({nullptr});
  EXPECT_EQ(written(update), "result -1");
  const auto bad = boost::make_shared<KFASystemUpdate>();
  bad->setType(9);
  update.setAppTemplates({boost::make_shared<KFAUpdate>(), bad});
  EXPECT_EQ(written(update), "result -1");
  EXPECT_EQ(readFrom("<app_template xsi:type='system_updateType'><kind>none</kind></app_template>", update),
            -1);
}

// The updates of a newer agent are listed with what all updates have.
TEST(KFAUpdateList, UnknownTypeIsReadAsTheBase) {
  for (const char* type : {"xsi:type='cloud_updateType'", ""}) {
    KFAUpdateList list{boost::make_shared<KFAUpdate>()};
    ASSERT_EQ(readFrom("<update " + std::string(type) + "><name>n</name><region>r</region></update>", list),
              0);
    ASSERT_EQ(list.size(), 1U);
    EXPECT_TRUE(typeid(*list.front()) == typeid(KFAUpdate));
    EXPECT_EQ(written(list), "<update xsi:type=\"updateType\"><name>n</name></update>");
  }
}

}  // namespace
