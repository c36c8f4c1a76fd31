// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLMigratorCloneOptions.h>

#include <KFLMessage/KFLRecordRegistry.h>

KFL_DERIVED_REGISTRY(KFL::KFLMigratorCloneOptions)

namespace KFL {

static KFLDerivedParserFactoryT<KFLMigratorCloneOptions, KFLMigratorCloneOptions, std::string,
                                KFLMigratorCloneOptions::Reader, KFLMigratorCloneOptions::Writer>
    factoryKFLMigratorCloneOptions;
static const KFLRecordRegistration<KFLMigratorCloneOptions> recordKFLMigratorCloneOptions(
    "KFLMigratorCloneOptions");

KFLMigratorCloneOptions::~KFLMigratorCloneOptions() = default;

const KFLFieldTable& KFLMigratorCloneOptions::fields() {
  using R = KFLMigratorCloneOptions;
  static constexpr KFLField rows[] = {
      field<R, &R::name_>(1026),
      list<R, &R::eids_>(1899).required().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFLMigratorCloneOptions", kRelocatorNamespaceURI, "clone_optionsType",
                                       rows};
  return table;
}

}  // namespace KFL
