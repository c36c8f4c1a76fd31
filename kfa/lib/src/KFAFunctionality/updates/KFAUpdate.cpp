// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/updates/KFAUpdate.h>

#include <KFLMessage/KFLRecordDerivedFields.h>
#include <KFLMessage/KFLRecordNamedFields.h>
#include <KFLMessage/KFLRecordRegistry.h>

KFL_DERIVED_REGISTRY(KFA::KFAUpdate)

namespace KFA {

template <class Class>
using UpdateFactory =
    KFLDerivedParserFactoryT<Class, KFAUpdate, std::string, typename Class::Reader, typename Class::Writer>;

static UpdateFactory<KFAUpdate> factoryKFAUpdate(true);
static UpdateFactory<KFASystemUpdate> factoryKFASystemUpdate;
static UpdateFactory<KFATQAUpdate> factoryKFATQAUpdate;
static UpdateFactory<KFAWindowsSystemUpdate> factoryKFAWindowsSystemUpdate;
static UpdateFactory<KFAAppTemplateUpdate> factoryKFAAppTemplateUpdate;
static UpdateFactory<KFATemplateUpdate> factoryKFATemplateUpdate;
static UpdateFactory<KFAOsTemplateUpdate> factoryKFAOsTemplateUpdate;
static UpdateFactory<KFAEzTemplateUpdate> factoryKFAEzTemplateUpdate;

static const KFLRecordRegistration<KFAUpdate> recordKFAUpdate("KFAUpdate");
static const KFLRecordRegistration<KFASystemUpdate> recordKFASystemUpdate("KFASystemUpdate");
static const KFLRecordRegistration<KFATQAUpdate> recordKFATQAUpdate("KFATQAUpdate");
static const KFLRecordRegistration<KFAWindowsSystemUpdate> recordKFAWindowsSystemUpdate(
    "KFAWindowsSystemUpdate");
static const KFLRecordRegistration<KFAAppTemplateUpdate> recordKFAAppTemplateUpdate("KFAAppTemplateUpdate");
static const KFLRecordRegistration<KFATemplateUpdate> recordKFATemplateUpdate("KFATemplateUpdate");
static const KFLRecordRegistration<KFAOsTemplateUpdate> recordKFAOsTemplateUpdate("KFAOsTemplateUpdate");
static const KFLRecordRegistration<KFAEzTemplateUpdate> recordKFAEzTemplateUpdate("KFAEzTemplateUpdate");

static constexpr KFLNumberName kUpdateTypes[] = {
    {KFASystemUpdate::Hotfix, "hotfix"},
    {KFASystemUpdate::ServicePack, "servicepack"},
    {KFASystemUpdate::Version, "version"},
    {KFASystemUpdate::NoType, ""},
};
constinit const KFLNumberNames KFASystemUpdate::updateTypeIdToName{kUpdateTypes};

KFAUpdate::~KFAUpdate() = default;
KFASystemUpdate::~KFASystemUpdate() = default;
KFAWindowsSystemUpdate::~KFAWindowsSystemUpdate() = default;
KFATQAUpdate::~KFATQAUpdate() = default;
KFAAppTemplateUpdate::~KFAAppTemplateUpdate() = default;
KFATemplateUpdate::~KFATemplateUpdate() = default;
KFAOsTemplateUpdate::~KFAOsTemplateUpdate() = default;
KFAEzTemplateUpdate::~KFAEzTemplateUpdate() = default;

const KFLFieldTable& KFAUpdate::fields() {
  using R = KFAUpdate;
  static constexpr KFLField rows[] = {
      field<R, &R::id_>(1010),
      field<R, &R::name_>(1026),
      field<R, &R::description_>(1496),
      field<R, &R::size_>(1024),
      presence<R, &R::installed_>(1274),
      field<R, &R::version_>(1223),
      field<R, &R::installedVersion_>("installed_version"),
      field<R, &R::release_>(1023),
  };
  static constexpr KFLFieldTable table{"KFAUpdate", kUp2dateURI, "updateType", rows};
  return table;
}

const KFLFieldTable& KFASystemUpdate::fields() {
  using R = KFASystemUpdate;
  static constexpr KFLField rows[] = {
      base<R, KFAUpdate>(),
      named<R, &R::type_>(1007, updateTypeIdToName).whenNotEmpty().wellFormed(),
      field<R, &R::summary_>(1264),
      field<R, &R::details_>(1276),
  };
  static constexpr KFLFieldTable table{"KFASystemUpdate", kUp2dateURI, "system_updateType", rows};
  return table;
}

int KFAWindowsSystemUpdate::writeProduct(KFLMessageIterator& it, const KFAWindowsSystemUpdate& update,
                                         const KFLField& row) {
  return update.product_.isSpecified() ? it.putValue(update.product_.getValue(), row.id) : 0;
}

// Whether there is a product is told by the summary's mark, and the product's own stays as it was. Agents rely on
// this form of the record; it is not to be corrected. The value is that of the message, as every other is.
int KFAWindowsSystemUpdate::readProduct(const KFLMessageIterator& it, KFAWindowsSystemUpdate& update,
                                        const KFLField& row) {
  const bool isThere = it.getValue(update.product_.value(), row.id) == 0;
  if (!isThere) update.product_.value().clear();
  update.setSummarySpecified(isThere);
  return 0;
}

const KFLFieldTable& KFAWindowsSystemUpdate::fields() {
  using R = KFAWindowsSystemUpdate;
  static constexpr KFLField rows[] = {
      base<R, KFASystemUpdate>(),
      special<R, std::string, &R::writeProduct, &R::readProduct>("product"),
  };
  static constexpr KFLFieldTable table{"KFAWindowsSystemUpdate", kUp2dateURI, "windows_system_updateType",
                                       rows};
  return table;
}

const KFLFieldTable& KFATQAUpdate::fields() {
  using R = KFATQAUpdate;
  static constexpr KFLField rows[] = {
      base<R, KFAUpdate>(),
      field<R, &R::summary_>(1264),
  };
  static constexpr KFLFieldTable table{"KFATQAUpdate", kUp2dateURI, "tqa_updateType", rows};
  return table;
}

const KFLFieldTable& KFAAppTemplateUpdate::fields() {
  static constexpr KFLField rows[] = {base<KFAAppTemplateUpdate, KFAUpdate>()};
  static constexpr KFLFieldTable table{"KFAAppTemplateUpdate", kUp2dateURI, "app_template_updateType", rows};
  return table;
}

const KFLFieldTable& KFATemplateUpdate::fields() {
  using R = KFATemplateUpdate;
  static constexpr KFLField rows[] = {
      base<R, KFAUpdate>(),
      derivedList<R, KFAUpdate, &R::appTemplates_>("app_template"),
  };
  static constexpr KFLFieldTable table{"KFATemplateUpdate", kUp2dateURI, "template_updateType", rows};
  return table;
}

const KFLFieldTable& KFAOsTemplateUpdate::fields() {
  static constexpr KFLField rows[] = {base<KFAOsTemplateUpdate, KFATemplateUpdate>()};
  static constexpr KFLFieldTable table{"KFAOsTemplateUpdate", kUp2dateURI, "os_template_updateType", rows};
  return table;
}

const KFLFieldTable& KFAEzTemplateUpdate::fields() {
  static constexpr KFLField rows[] = {base<KFAEzTemplateUpdate, KFATemplateUpdate>()};
  static constexpr KFLFieldTable table{"KFAEzTemplateUpdate", kUp2dateURI, "ez_template_updateType", rows};
  return table;
}

}  // namespace KFA
