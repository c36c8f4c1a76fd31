// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/updates/KFAUpdateConfig.h>

#include <KFLMessage/KFLRecordNamedFields.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAUpdateServiceSettings> recordKFAUpdateServiceSettings(
    "KFAUpdateServiceSettings");
static const KFLRecordRegistration<KFAUpdateConfig> recordKFAUpdateConfig("KFAUpdateConfig");

static constexpr KFLNumberName kDays[] = {
    {KFAUpdateServiceSettings::Monday, "monday"},       {KFAUpdateServiceSettings::Tuesday, "tuesday"},
    {KFAUpdateServiceSettings::Wednesday, "wednesday"}, {KFAUpdateServiceSettings::Thursday, "thursday"},
    {KFAUpdateServiceSettings::Friday, "friday"},       {KFAUpdateServiceSettings::Saturday, "saturday"},
    {KFAUpdateServiceSettings::Sunday, "sunday"},       {KFAUpdateServiceSettings::NoDay, ""},
};
constinit const KFLNumberNames KFAUpdateServiceSettings::dayOfWeekIdToName{kDays};

const KFLFieldTable& KFAUpdateServiceSettings::fields() {
  using R = KFAUpdateServiceSettings;
  static constexpr KFLField rows[] = {
      presence<R, &R::autoReboot_>("autoreboot"),
      named<R, &R::checkDay_>("check_period", dayOfWeekIdToName).whenNotEmpty().wellFormed(),
      field<R, &R::checkInterval_>(1992).required(),
      presence<R, &R::autoInstall_>(1705),
  };
  static constexpr KFLFieldTable table{"KFAUpdateServiceSettings", kUp2dateURI, "", rows};
  return table;
}

const KFLFieldTable& KFAUpdateConfig::fields() {
  using R = KFAUpdateConfig;
  static constexpr KFLField rows[] = {
      field<R, &R::connection_>("connection").mustWrite(),
      list<R, &R::products_>("product").required().mustWrite(),
      field<R, &R::serviceSettings_>(1100).mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFAUpdateConfig", kUp2dateURI, "", rows};
  return table;
}

}  // namespace KFA
