// SPDX-License-Identifier: Apache-2.0
// A list of changes to the keys of a file: values that are set, keys that are unset. It has a text form, which is what
// `kfactl config diff` prints and `kfactl config set` takes:
//
//   ONBOOT="no"  # was: "yes"          a value in the place of another
//   SLMMODE="all"  # was: unset        a value where there was none
//   unset NUMPROC  # was: "200:240"    no value any more
//
// Lines are read as a shell reads them. What stands behind "was:" is for people, and for reading a list backwards.
// Nothing is shared; any thread.
#ifndef KFAFUNCTIONALITY_NODE_KFACHANGELIST_H
#define KFAFUNCTIONALITY_NODE_KFACHANGELIST_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/files/KFAConfigFile.h>

namespace KFA {

struct KFAChange {
  std::string key;                    // in lower case
  std::optional<std::string> value;   // none: the key is unset
  std::optional<std::string> before;  // what it was, where that is known
  bool wasUnset = false;              // it is known that there was no value

  // The line of the text form, without its newline.
  std::string toString() const;
  // Back again. False when it is not known what was before.
  bool reverse();
};

using KFAChangeList = std::vector<KFAChange>;

// A text between quotes that a shell reads back as it is.
std::string quoteForShell(const std::string& text);

// Reads the text form; blank lines and comments are skipped. 0, or -1 with an error text that names the line.
int parseChangeList(std::string_view text, const std::string& name, KFAChangeList& changes);

// Makes the changes in the text of a file: lines of keys that are unset go, everything else as setConfigValues does. With
// options.force a line in which something is left open stays as it is, and so may the result be. 0, or -1 with an error text
// when a change is refused.
int applyChanges(const KFAConfigRules& rules, const KFAChangeList& changes, const KFASetOptions& options,
                 const std::string& text, const std::string& name, std::string& result);

}  // namespace KFA

#endif
