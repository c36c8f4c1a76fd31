// SPDX-License-Identifier: Apache-2.0
// The settings of the update service: its connection, its products, and when it acts. Plain values.
#ifndef KFAFUNCTIONALITY_UPDATES_KFAUPDATECONFIG_H
#define KFAFUNCTIONALITY_UPDATES_KFAUPDATECONFIG_H

#include <vector>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLNumberNames.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/updates/KFAUpdateConnection.h>
#include <KFAFunctionality/updates/KFAUpdateProduct.h>

namespace KFA {

// When the service looks for updates, and what it may do then.
class KFAUpdateServiceSettings {
 public:
  enum Day { NoDay = 0, Sunday = 1, Monday, Tuesday, Wednesday, Thursday, Friday, Saturday = 7 };
  // "sunday" to "saturday"; NoDay has the empty name.
  static const KFLNumberNames dayOfWeekIdToName;

  static const KFLFieldTable& fields();
  // -1 for a day that has no name.
  using Writer = KFLRecordWriter<KFAUpdateServiceSettings>;
  // -1 for an unknown day, and when there is no interval.
  using Reader = KFLRecordReader<KFAUpdateServiceSettings>;

  bool getAutoReboot() const { return autoReboot_; }
  void setAutoReboot(bool autoReboot) { autoReboot_ = autoReboot; }
  // A Day; NoDay is not written, and is what an absent element reads as.
  int getCheckDay() const { return checkDay_; }
  void setCheckDay(int day) { checkDay_ = day; }
  int getCheckInterval() const { return checkInterval_; }
  void setCheckInterval(int interval) { checkInterval_ = interval; }
  bool getAutoInstall() const { return autoInstall_; }
  void setAutoInstall(bool autoInstall) { autoInstall_ = autoInstall; }

 private:
  bool autoReboot_ = false;
  int checkDay_ = NoDay;
  int checkInterval_ = 0;
  bool autoInstall_ = false;
};

class KFAUpdateConfig {
 public:
  using Products = std::vector<KFAUpdateProduct>;

  static const KFLFieldTable& fields();
  // -1 when one of the parts cannot be written.
  using Writer = KFLRecordWriter<KFAUpdateConfig>;
  // -1 for a product that cannot be read. A connection or service settings that cannot be read are left unspecified.
  using Reader = KFLRecordReader<KFAUpdateConfig>;

  const KFLOptionalProperty<KFAUpdateConnection>& getConnection() const { return connection_; }
  void setConnection(const KFLOptionalProperty<KFAUpdateConnection>& connection) { connection_ = connection; }
  const Products& getProducts() const { return products_; }
  void setProducts(const Products& products) { products_ = products; }
  const KFLOptionalProperty<KFAUpdateServiceSettings>& getServiceSettings() const { return serviceSettings_; }
  void setServiceSettings(const KFLOptionalProperty<KFAUpdateServiceSettings>& settings) {
    serviceSettings_ = settings;
  }

 private:
  KFLOptionalProperty<KFAUpdateConnection> connection_;
  Products products_;
  KFLOptionalProperty<KFAUpdateServiceSettings> serviceSettings_;
};

}  // namespace KFA

#endif
