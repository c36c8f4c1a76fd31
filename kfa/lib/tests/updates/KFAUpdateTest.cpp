// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/updates/KFAUpdate.h>

#include <gtest/gtest.h>

#include <string>

#include <boost/smart_ptr/make_shared.hpp>

#include "UpdateMessages.h"

namespace {

using namespace KFA;

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

TEST(KFATemplateUpdate, ListThatFailsFailsTheRecord) {
  KFAEzTemplateUpdate update;
  update.setAppTemplates({nullptr});
  EXPECT_EQ(written(update), "result -1");
  const auto bad = boost::make_shared<KFASystemUpdate>();
  bad->setType(9);
  update.setAppTemplates({boost::make_shared<KFAUpdate>(), bad});
  EXPECT_EQ(written(update), "result -1");
}

}  // namespace
