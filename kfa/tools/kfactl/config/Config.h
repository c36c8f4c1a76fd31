// SPDX-License-Identifier: Apache-2.0
// What the commands of `kfactl config` share, and the functions that declare their options.
#ifndef KFACTL_CONFIG_H
#define KFACTL_CONFIG_H

#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>

#include "terminal/Cli.h"

namespace kfactl {

Action prepareShow(CLI::App& app);
Action prepareGet(CLI::App& app);
Action prepareList(CLI::App& app);
Action prepareSet(CLI::App& app);
Action prepareUnset(CLI::App& app);
Action prepareDiff(CLI::App& app);
Action prepareCheck(CLI::App& app);
Action prepareMerge(CLI::App& app);
Action prepareFix(CLI::App& app);
Action prepareExplain(CLI::App& app);
Action prepareKeys(CLI::App& app);

// The words of a command line, `[FILE...] KEY...`.
struct FilesAndKeys {
  std::vector<std::string> files;
  std::vector<std::string> keys;  // as they were written
};

// Tells the words that stand for files from the keys behind them; refuses what is neither. `otherwise` says what else a
// person may have wanted who names a key that is none.
FilesAndKeys splitFilesAndKeys(Session& session, const char* otherwise);

// The parser for these keys: fixed keys need no vocabulary.
boost::shared_ptr<const KFA::KFAEnvConfigBashParser> parserFor(Session& session,
                                                               const std::vector<std::string>& keys);
// Refuses a word that is no key of an environment file, with a hint.
void checkKey(const KFA::KFAEnvConfigBashParser& parser, const std::string& key, const char* otherwise);

}  // namespace kfactl

#endif
