// SPDX-License-Identifier: Apache-2.0
// Which values the keys of the global configuration file take, and the reading of a file of whose services nothing is
// known but what it says itself. Rules have no state; any threads may share them.
#ifndef KFAFUNCTIONALITY_FILES_KFAGLOBALCONFIGRULES_H
#define KFAFUNCTIONALITY_FILES_KFAGLOBALCONFIGRULES_H

#include <string>
#include <string_view>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/files/KFAConfigRules.h>

namespace KFA {

class KFAVtSettings;

// Reads the text of a global file. The offline services that there are become those that it names, in the order in
// which it names them; without a line for them they are not specified. 0, or -1 with an error text that names the
// malformed line as NAME:LINE:COLUMN.
int readGlobalConfig(std::string_view text, const std::string& name, KFAVtSettings& settings);

// Every key that bash takes. LOCKDIR, TEMPLATE and keys that only the map of named values holds take any text,
// OFFLINE_SERVICE names separated by spaces.
class KFAGlobalConfigRules : public KFARawConfigRules {
 public:
  // The last line decides folders and services; of any other key the first does.
  bool firstLineCounts(const std::string& key) const override;
  int accept(const std::string& key, const std::string& value) const override;
  void order(KFAConfigChanges& changes) const override;
  int readsBack(const std::string& text, const KFAConfigChanges& changes) const override;

  // Whether a line of the key, in lower case, with this value changes nothing: OFFLINE_SERVICE without a name.
  bool passesOver(const std::string& key, const std::string& value) const;
};

}  // namespace KFA

#endif
