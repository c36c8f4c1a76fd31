// SPDX-License-Identifier: Apache-2.0
// Environment files for the targets that read them: a small vocabulary, its parser and rules, and random files.
#ifndef KFA_FUZZ_ENVIRONMENTS_H
#define KFA_FUZZ_ENVIRONMENTS_H

#include <string>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFAConfigRules.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>

#include "Fuzzing.h"

namespace kfl_fuzz {

const KFA::KFAEnvConfigBashParser& environmentParser();
const KFA::KFAEnvConfigRules& environmentRules();

// A key of environments, or a foreign one, with a value in its form or near it.
struct KeyAndValue {
  std::string key, value;
};
KeyAndValue keyAndValue(Choices& choices);

// Lines of a file with the keys of environments and values in their forms, some of them spoilt.
std::string environmentFile(Choices& choices);

// The text of a new file with the record, and one in the place of another.
std::string writtenFile(const KFA::KFAEnvConfig& record);
std::string mergedFile(const KFA::KFAEnvConfig& record, const std::string& existing);

// The keys in which two records differ, with their values in the second.
std::string differences(const KFA::KFAEnvConfig& before, const KFA::KFAEnvConfig& after);

// Whether the check finds neither an error nor a warning in a file.
bool isFaultless(const std::string& text);

}  // namespace kfl_fuzz

#endif
