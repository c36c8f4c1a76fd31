// SPDX-License-Identifier: Apache-2.0
// A condition on environments, as in `onboot=no,ostemplate=debian-11*`: KEY=PATTERN or KEY!=PATTERN, several joined by
// commas, all of which must hold.
//
// KEY is a key of the environment file or a property: `veid`, `title`, `address`, `network`, `mac`. A pattern is a shell
// pattern, case aside, that is held against the value as a record gives it back and against each of its words; an
// address is held against a network such as 192.0.2.0/24, too. A key without a value is an empty text; VE_TYPE is
// regular then. A backslash before a comma makes it part of the pattern. Immutable once parsed.
#ifndef KFAFUNCTIONALITY_NODE_KFAENVIRONMENTFILTER_H
#define KFAFUNCTIONALITY_NODE_KFAENVIRONMENTFILTER_H

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>

namespace KFA {

class KFAEnvironmentFilter {
 public:
  // Whether a word has the form of a condition, whatever its key.
  static bool isResembling(std::string_view word);
  // Whether one of the keys of such a word is not written in small letters, as those of changes are.
  static bool hasCapitalKey(std::string_view word);

  // 0, or -1 with an error text for a key that does not exist or a word of another form.
  int parse(const KFAEnvConfigBashParser& parser, const std::string& text);

  // The keys that a file must be read for, in lower case.
  const std::set<std::string>& getKeys() const { return keys_; }
  // Whether all conditions hold. veid: negative for none.
  bool matches(const KFAEnvironmentKeys& keys, int veid) const;

 private:
  struct Condition {
    std::string key;
    std::string pattern;
    bool isNegated = false;
  };

  static bool holds(const Condition& condition, const KFAEnvironmentKeys& keys, int veid);

  std::vector<Condition> conditions_;
  std::set<std::string> keys_;
};

// Whether an address, with or without a network part, lies in a network such as 192.0.2.0/24. False where either is none.
bool isInNetwork(const std::string& address, const std::string& network);

}  // namespace KFA

#endif
