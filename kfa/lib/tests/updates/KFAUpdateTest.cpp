// SPDX-License-Identifier: Apache-2.0
// Records of updates that cannot be written, and the names under which their numbers stand. What they read and write is
// in RecordRowsTest.cpp.
#include <KFAFunctionality/updates/KFAUpdate.h>
#include <KFAFunctionality/updates/KFAUpdateConfig.h>

#include <boost/smart_ptr/make_shared.hpp>

#include "KFLMessage/Records.h"

namespace {

using namespace KFA;

// The text of the element in which a number stands, "" for none; "refused" where there is no name for it.
template <class Record>
std::string nameOf(int number, void (Record::*set)(int), int (Record::*get)() const, const char* element) {
  Record record, read;
  KFLMessage message("r");
  KFLMessageIterator it = message.getIterator();
  (record.*set)(number);
  (read.*set)(1);
  if (it.putObj(record) != 0) return "refused";
  EXPECT_EQ(it.getObj(read), 0);
  EXPECT_EQ((read.*get)(), number);
  std::string text;
  return it.getValue(text, element) == 0 ? text : "";
}

TEST(KFAUpdate, NumbersStandAsNames) {
  using Service = KFAUpdateServiceSettings;
  const std::vector<std::string> days = {"refused",   "",         "sunday", "monday",   "tuesday",
                                         "wednesday", "thursday", "friday", "saturday", "refused"};
  const std::vector<std::string> kinds = {"refused", "", "hotfix", "servicepack", "version", "refused"};
  for (int i = 0; i < static_cast<int>(days.size()); ++i)
    EXPECT_EQ(nameOf(i - 1, &Service::setCheckDay, &Service::getCheckDay, "check_period"),
              days[static_cast<std::size_t>(i)]);
  for (int i = 0; i < static_cast<int>(kinds.size()); ++i)
    EXPECT_EQ(nameOf(i - 1, &KFASystemUpdate::setType, &KFASystemUpdate::getType, "kind"),
              kinds[static_cast<std::size_t>(i)]);
}

TEST(KFAUpdate, APartThatCannotBeWrittenFailsTheRecord) {
  const auto written = [](const auto& record) { return KFLMessage().getIterator().putObj(record); };
  KFAUpdateProduct product;
  product.setInstallType(4);
  KFAUpdateConfig config;
  config.setProducts({KFAUpdateProduct(), product});
  EXPECT_EQ(written(config), -1);
  KFAEzTemplateUpdate update;
  update.setAppTemplates({nullptr});
  EXPECT_EQ(written(update), -1);
  const auto bad = boost::make_shared<KFASystemUpdate>();
  bad->setType(9);
  update.setAppTemplates({boost::make_shared<KFAUpdate>(), bad});
  EXPECT_EQ(written(update), -1);
  // But for a proxy, which a connection can do without.
  KFAUpdateProxySettings proxy;
  proxy.setType(0);
  EXPECT_EQ(written(proxy), -1);
  KFAUpdateConnection connection;
  connection.setProxy(proxy);
  connection.setRepository(std::string("r"));
  EXPECT_EQ(elementsOf(connection), (Names{"url", "proxy", "repository"}));
}

}  // namespace
