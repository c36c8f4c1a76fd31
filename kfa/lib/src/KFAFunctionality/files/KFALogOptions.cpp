// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFALogOptions.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static KFLDerivedParserFactoryT<KFALogOptions, KFLLogOptions, std::string, KFALogOptions::Reader,
                                KFALogOptions::Writer>
    factoryKFALogOptions;
static const KFLRecordRegistration<KFALogOptions> recordKFALogOptions("KFALogOptions");

KFALogOptions::~KFALogOptions() = default;

const KFLFieldTable& KFALogOptions::fields() {
  using R = KFALogOptions;
  static constexpr KFLField rows[] = {
      field<R, &R::kind_>(1007),
      base<R, KFLLogOptions>(),
  };
  static constexpr KFLFieldTable table{"KFALogOptions", kTypesURI, "log_optionsType", rows};
  return table;
}

}  // namespace KFA
