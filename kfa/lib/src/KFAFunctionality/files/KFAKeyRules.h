// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: what each key of the environment file takes, as a table.
#ifndef KFAFUNCTIONALITY_FILES_KFAKEYRULES_H
#define KFAFUNCTIONALITY_FILES_KFAKEYRULES_H

#include <string>
#include <string_view>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAEnvConfig;
class KFAEnvConfigBashParser;

}  // namespace KFA

#pragma GCC visibility push(hidden)

namespace KFA {

struct KeyRule {
  enum class Line { First, Last };

  std::string_view key;
  // What is accepted, in words.
  const char* form;
  // Holds the text that is asked for against the one that the record gives back: empty when they say the same, else what
  // is lost.
  std::string (*compare)(const std::string& asked, const std::string& given);
  // What is wrong with a value, whatever the record makes of it; empty when nothing is.
  std::string (*findFault)(const std::string& value) = nullptr;
  bool emptyIsUnset = false;
  // The key that gives the value back, where it is another one.
  const char* reader = nullptr;
  // Which of several lines with the key counts.
  Line counts = Line::Last;
};

// The rule of the key, in lower case, resource parameters included; null for a key that is not one of the file's.
const KeyRule* findKeyRule(const KFAEnvConfigBashParser& parser, const std::string& key);

// The comparison of texts that say the same only when they are equal.
std::string compareTexts(const std::string& asked, const std::string& given);

// Refuses a record in which a host-routed device gives IP_ADDRESS other addresses, once it is written: 0, or -1 with an
// error text that begins with the key, which is the one that was set.
int refuseOverruling(const std::string& key, const KFAEnvConfig& record);

}  // namespace KFA

#pragma GCC visibility pop

#endif
