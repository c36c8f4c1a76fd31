// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLLogOptions.h>

#include <KFLMessage/KFLRecordRegistry.h>

KFL_DERIVED_REGISTRY(KFL::KFLLogOptions)

namespace KFL {

static const KFLRecordRegistration<KFLLogOptions> recordKFLLogOptions("KFLLogOptions");

KFLLogOptions::~KFLLogOptions() = default;

const KFLFieldTable& KFLLogOptions::fields() {
  using R = KFLLogOptions;
  static constexpr KFLField rows[] = {
      field<R, &R::level_>("log_level"),
      field<R, &R::file_>("log_file"),
  };
  static constexpr KFLFieldTable table{"KFLLogOptions", kTypesNamespaceURI, "log_optionsType", rows};
  return table;
}

}  // namespace KFL
