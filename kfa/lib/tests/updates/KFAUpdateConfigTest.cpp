// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/updates/KFAUpdateConfig.h>

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "UpdateMessages.h"

namespace {

using namespace KFA;

const std::string kProduct = "<id>i</id><name>n</name><install_type>manual</install_type>";

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

// What each reader makes of a message: the record that is written again, or its refusal.
template <class Record>
std::string readAndWritten(const std::string& content) {
  Record record;
  const int result = readFrom(content, record);
  return result == 0 ? written(record) : "refused";
}

TEST(KFAUpdateConfig, ReadersTakeAndRefuse) {
  using Service = KFAUpdateServiceSettings;
  using Proxy = KFAUpdateProxySettings;
  using Product = KFAUpdateProduct;
  using Source = KFAUpdateInstallSource;
  const std::string url = "<url>u</url>";
  const std::string service = "<check_interval>1</check_interval>";
  const std::string typed = "<id>i</id><name>n</name>";
  const std::string disabled = typed + "<install_type>disabled</install_type>";
  const std::tuple<std::string (*)(const std::string&), std::string, std::string> rows[] = {
      {readAndWritten<Service>, "", "refused"},
      {readAndWritten<Service>, "<check_interval>often</check_interval>", "refused"},
      {readAndWritten<Service>, "<check_period>Sunday</check_period>" + service, "refused"},
      {readAndWritten<Service>, "<check_period/>" + service, service},

      {readAndWritten<Proxy>, "<kind>direct</kind>" + url, "refused"},
      {readAndWritten<Proxy>, "<kind/>" + url, "refused"},
      {readAndWritten<Proxy>, "<kind>custom</kind>" + url, "<kind>custom</kind>" + url + url},
      {readAndWritten<Proxy>, "<kind>explorer</kind>", "<kind>explorer</kind><url/>"},
      {readAndWritten<Proxy>, "", "<kind>no_proxy</kind><url/>"},

      {readAndWritten<KFAUpdateConnection>, "", "<url/>"},
      {readAndWritten<KFAUpdateConnection>, "<proxy><kind>direct</kind></proxy><repository>r</repository>",
       "<url/><repository>r</repository>"},

      {readAndWritten<Source>, "<standard>s</standard>", "refused"},
      {readAndWritten<Source>, "<value/>", "<value/>"},

      {readAndWritten<Product>, "<name>n</name><install_type>manual</install_type>", "refused"},
      {readAndWritten<Product>, "<id>i</id><install_type>manual</install_type>", "refused"},
      {readAndWritten<Product>, typed, "refused"},
      {readAndWritten<Product>, typed + "<install_type>never</install_type>", "refused"},
      {readAndWritten<Product>, typed + "<install_type/>", disabled},
      {readAndWritten<Product>, disabled + "<install_source><standard/></install_source>", disabled},

      {readAndWritten<KFAUpdateConfig>, "", ""},
      {readAndWritten<KFAUpdateConfig>, "<product>" + typed + "</product>", "refused"},
      {readAndWritten<KFAUpdateConfig>, "<service_settings/><product>" + kProduct + "</product>",
       "<product>" + kProduct + "</product>"},
  };
  for (const auto& [read, content, expected] : rows)
    EXPECT_EQ(read(content), expected) << content;
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
  // The first element counts, as it stands.
  EXPECT_EQ(readFrom("<url/><url>second</url>", settings), 0);
  EXPECT_EQ(settings.getUrl(), KFAUpdateConnectionSettings::Text(""));
  EXPECT_EQ(readFrom("", settings), 0);
  EXPECT_FALSE(settings.getUrl().isSpecified());
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
