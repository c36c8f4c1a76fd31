// SPDX-License-Identifier: Apache-2.0
// The vocabulary of the process, with what is made of it. It is loaded when it is first needed.
#ifndef KFAPYTHON_VOCABULARY_H
#define KFAPYTHON_VOCABULARY_H

#include <boost/shared_ptr.hpp>

#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>

#include "Failure.h"

namespace kfapy {

struct Vocabulary {
  boost::shared_ptr<KFL::KFLVocMap> map;
  boost::shared_ptr<const KFA::KFAEnvConfigBashParser> parser;
};

// With the interpreter's lock; what it gives may be used without.
Vocabulary currentVocabulary();
// Another one for what is asked from now on; the default one for an empty path.
void useVocabulary(const Path& path);

}  // namespace kfapy

#endif
