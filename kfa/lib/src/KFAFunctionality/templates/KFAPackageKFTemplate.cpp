// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/templates/KFAPackageKFTemplate.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static KFLDerivedParserFactoryT<KFAPackageKFTemplate, KFLPackage, std::string, KFAPackageKFTemplate::Reader,
                                KFAPackageKFTemplate::Writer>
    factoryKFAPackageKFTemplate;
static const KFLRecordRegistration<KFAPackageKFTemplate> recordKFAPackageKFTemplate("KFAPackageKFTemplate");

KFAPackageKFTemplate::~KFAPackageKFTemplate() = default;

const KFLFieldTable& KFAPackageKFTemplate::fields() {
  using R = KFAPackageKFTemplate;
  static constexpr KFLField rows[] = {
      base<R, KFLPackage>(),
      field<R, &R::osTemplate_>(1733),
      field<R, &R::cached_>(1499),
      field<R, &R::upToDate_>("uptodate"),
      field<R, &R::path_>(1156).whenNotEmpty(),
      list<R, &R::technologies_>("technology"),
  };
  static constexpr KFLFieldTable table{"KFAPackageKFTemplate", kTypesURI, "package_kftemplateType", rows};
  return table;
}

}  // namespace KFA
