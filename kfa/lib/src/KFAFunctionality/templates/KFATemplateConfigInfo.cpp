// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/templates/KFATemplateConfigInfo.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFATemplateConfigInfo> recordKFATemplateConfigInfo(
    "KFATemplateConfigInfo");
static const KFLRecordRegistration<KFATemplateConfigInfo::Option> recordOption(
    "KFATemplateConfigInfo::Option");

namespace {

// An empty version text is left out, and one that is absent is empty.
int putVersion(KFLMessageIterator& it, const void* record, const KFLField&) {
  const KFAPackageVersion& version = *static_cast<const KFATemplateConfigInfo*>(record);
  return it.putObject(version, KFAPackageVersion::Writer(true));
}
int getVersion(const KFLMessageIterator& it, void* record, const KFLField& row) {
  KFAPackageVersion& version = *static_cast<KFATemplateConfigInfo*>(record);
  return row.table().read(it, &version);
}
constexpr KFLField versionPart() {
  KFLField row = base<KFATemplateConfigInfo, KFAPackageVersion>().writtenBy(&putVersion).readBy(&getVersion);
  row.table = &KFAPackageVersion::configFields;
  return row;
}

}  // namespace

const KFLFieldTable& KFATemplateConfigInfo::Option::fields() {
  using R = Option;
  static constexpr KFLField rows[] = {
      field<R, &R::id>(1010).required().mustWrite(),
      field<R, &R::value>(1018).required().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFATemplateConfigInfo::Option", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFATemplateConfigInfo::fields() {
  using R = KFATemplateConfigInfo;
  static constexpr KFLField rows[] = {
      versionPart(),
      field<R, &R::name_>(1026).required().mustWrite(),
      field<R, &R::baseTemplate_>(1501).required().mustWrite(),
      entries<R, &R::options_>(1502, 1017, {}).mustWrite(),
      keyed<R, &R::packages_, &KFAPackageInfo::getName>(1295).required().mustWrite(),
      field<R, &R::description_>(1496).whenNotEmpty().mustWrite(),
      field<R, &R::osVersion_>(1846).whenNotEmpty().mustWrite(),
      field<R, &R::osPlatform_>(2005).whenNotEmpty().mustWrite(),
      list<R, &R::technologies_>("technology").mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFATemplateConfigInfo", kTypesURI, "", rows};
  return table;
}

}  // namespace KFA
