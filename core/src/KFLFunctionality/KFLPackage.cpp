// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLPackage.h>

#include <KFLMessage/KFLRecordRegistry.h>

KFL_DERIVED_REGISTRY(KFL::KFLPackage)

namespace KFL {

static KFLDerivedParserFactoryT<KFLPackage, KFLPackage, std::string, KFLPackage::Reader, KFLPackage::Writer>
    factoryKFLPackage;
static const KFLRecordRegistration<KFLPackage> recordKFLPackage("KFLPackage");

KFLPackage::~KFLPackage() = default;

const KFLFieldTable& KFLPackage::fields() {
  using R = KFLPackage;
  static constexpr KFLField rows[] = {
      field<R, &R::name_>(1026).required().mustWrite(),
      field<R, &R::architecture_>("architecture").mustWrite(),
      field<R, &R::version_>(1223).mustWrite(),
      field<R, &R::os_>("os").mustWrite(),
      field<R, &R::kind_>(1007).mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFLPackage", kTypesNamespaceURI, "packageType", rows};
  return table;
}

}  // namespace KFL
