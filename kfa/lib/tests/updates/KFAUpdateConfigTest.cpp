// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/updates/KFAUpdate.h>
#include <KFAFunctionality/updates/KFAUpdateConfig.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "UpdateMessages.h"

namespace {

using namespace KFA;

// From -1 on: the names under which numbers stand, "" for none at all, and what is behind them is refused.
template <class Record>
void expectNames(const std::string& element, const std::vector<std::string>& names,
                 int (Record::*get)() const, void (Record::*set)(int), const std::string& rest = {}) {
  const int count = static_cast<int>(names.size());
  for (int number = -1; number <= count + 2; ++number) {
    Record record;
    (record.*set)(number);
    if (number < 0 || number >= count) {
      EXPECT_EQ(written(record), "result -1") << number;
      continue;
    }
    const std::string& name = names[static_cast<std::size_t>(number)];
    const std::string text = (name.empty() ? "" : "<" + element + ">" + name + "</" + element + ">") + rest;
    EXPECT_EQ(written(record), text);
    (record.*set)(1);
    EXPECT_EQ(readFrom(text, record), 0);
    EXPECT_EQ((record.*get)(), number);
  }
}

TEST(KFAUpdateConfig, NumbersStandAsNames) {
  using Service = KFAUpdateServiceSettings;
  expectNames("check_period",
              {"", "sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"},
              &Service::getCheckDay, &Service::setCheckDay, "<check_interval>0</check_interval>");
  expectNames("kind", {"", "hotfix", "servicepack", "version"}, &KFASystemUpdate::getType,
              &KFASystemUpdate::setType);
}

TEST(KFAUpdateConnectionSettings, AddressIsWrittenOnceMore) {
  KFAUpdateConnectionSettings settings;
  EXPECT_EQ(written(settings), "<url/>");
  settings.setUrl(std::string("u"));
  EXPECT_EQ(written(settings), "<url>u</url><url>u</url>");
  KFAUpdateConnectionSettings::Text kept = settings.getUrl();
  kept.setSpecified(false);
  settings.setUrl(kept);
  EXPECT_EQ(written(settings), "<url>u</url>");
}

TEST(KFAUpdateConfig, PartThatCannotBeWritten) {
  KFAUpdateProduct product;
  product.setInstallType(4);
  EXPECT_EQ(written(product), "result -1");
  KFAUpdateConfig config;
  config.setProducts({KFAUpdateProduct(), product});
  EXPECT_EQ(written(config), "result -1");

  KFAUpdateProxySettings proxy;
  proxy.setType(0);
  EXPECT_EQ(written(proxy), "result -1");
  KFAUpdateConnection connection;
  connection.setProxy(proxy);
  connection.setRepository(std::string("r"));
  EXPECT_EQ(written(connection), "<url/><proxy/><repository>r</repository>");
}

}  // namespace
