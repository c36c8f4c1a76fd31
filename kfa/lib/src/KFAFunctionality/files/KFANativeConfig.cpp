// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFANativeConfig.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static KFLDerivedParserFactoryT<KFANativeConfig, KFLNativeConfig, std::string, KFANativeConfig::Reader,
                                KFANativeConfig::Writer>
    factoryKFANativeConfig;
static const KFLRecordRegistration<KFANativeConfig> recordKFANativeConfig("KFANativeConfig");

KFANativeConfig::~KFANativeConfig() = default;

const KFLFieldTable& KFANativeConfig::fields() {
  using R = KFANativeConfig;
  static constexpr KFLField rows[] = {field<R, &R::text_>(1328).required().mustWrite()};
  static constexpr KFLFieldTable table{"KFANativeConfig", kTypesURI, "kelvarium_configType", rows};
  return table;
}

}  // namespace KFA
