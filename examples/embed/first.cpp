// SPDX-License-Identifier: Apache-2.0
// The shortest use of the library: a file of an environment is read into its record, and asked.
//   first FILE
#include <cstdio>
#include <fstream>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLVocMap.h>

int main(int argc, char** argv) {
  const auto vocabulary = KFL::KFLVocMap::load(KFL::KFLVocMap::defaultPath());
  const auto parser = vocabulary ? KFA::KFAEnvConfigBashParser::getInstance(vocabulary) : nullptr;
  std::ifstream in(argc == 2 ? argv[1] : "101.conf");
  KFA::KFAEnvConfig config;
  if (!parser || parser->getConfig(in, config) != 0) {
    std::fprintf(stderr, "%s\n", KFL::getErrorMessage().c_str());
    return 1;
  }
  KFL::KFLOptionalProperty<bool> onBoot;
  if (config.getOnBoot(onBoot) != 0) return 1;
  std::printf("starts with the node: %s\n", onBoot.isSpecified() && onBoot.getValue() ? "yes" : "no");
  return 0;
}
