// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/templates/KFAPackageKFTemplateStd.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static KFLDerivedParserFactoryT<KFAPackageKFTemplateStd, KFLPackage, std::string,
                                KFAPackageKFTemplateStd::Reader, KFAPackageKFTemplateStd::Writer>
    factoryKFAPackageKFTemplateStd;
static const KFLRecordRegistration<KFAPackageKFTemplateStd> recordKFAPackageKFTemplateStd(
    "KFAPackageKFTemplateStd");

KFAPackageKFTemplateStd::~KFAPackageKFTemplateStd() = default;

const KFLFieldTable& KFAPackageKFTemplateStd::fields() {
  using R = KFAPackageKFTemplateStd;
  static constexpr KFLField rows[] = {
      base<R, KFAPackageKFTemplate>(),
      field<R, &R::standard_>(1498),
  };
  static constexpr KFLFieldTable table{"KFAPackageKFTemplateStd", kTypesURI, "package_std_kftemplateType",
                                       rows};
  return table;
}

}  // namespace KFA
