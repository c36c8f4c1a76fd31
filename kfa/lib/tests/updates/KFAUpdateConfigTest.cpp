// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/updates/KFAUpdateConfig.h>

#include <gtest/gtest.h>

#include <string>

#include "UpdateMessages.h"

namespace {

using namespace KFA;

TEST(KFAUpdateServiceSettings, DayStandsAsItsName) {
  const char* const days[] = {"sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"};
  const std::string interval = "<check_interval>0</check_interval>";
  for (int day = -1; day <= 9; ++day) {
    KFAUpdateServiceSettings settings;
    settings.setCheckDay(day);
    if (day < 0 || day > 7) {
      EXPECT_EQ(written(settings), "result -1") << day;
      continue;
    }
    const std::string name =
        day == 0 ? "" : std::string("<check_period>") + days[day - 1] + "</check_period>";
    EXPECT_EQ(written(settings), name + interval);
    settings.setCheckDay(5);
    EXPECT_EQ(readFrom(name + interval, settings), 0);
    EXPECT_EQ(settings.getCheckDay(), day);
  }
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
