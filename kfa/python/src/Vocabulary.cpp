// SPDX-License-Identifier: Apache-2.0
#include "Vocabulary.h"

namespace kfapy {

namespace {

// Never destroyed: threads may use it while the interpreter ends.
Vocabulary& current() {
  static auto* const vocabulary = new Vocabulary();
  return *vocabulary;
}

Vocabulary load(const std::string& path) {
  const Unlocked unlocked;
  Vocabulary loaded;
  loaded.map = KFL::KFLVocMap::load(path);
  if (loaded.map) loaded.parser = KFA::KFAEnvConfigBashParser::getInstance(loaded.map);
  if (!loaded.parser) fail(path);
  return loaded;
}

}  // namespace

Vocabulary currentVocabulary() {
  if (!current().parser) useVocabulary({});
  return current();
}

void useVocabulary(const Path& path) {
  Vocabulary loaded = load(path.empty() ? KFL::KFLVocMap::defaultPath() : std::string(path));
  std::swap(current(), loaded);
}

}  // namespace kfapy
