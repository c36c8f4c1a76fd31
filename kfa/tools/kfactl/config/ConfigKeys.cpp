// SPDX-License-Identifier: Apache-2.0
// Keys on the command line.
#include <algorithm>

#include <boost/make_shared.hpp>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/node/KFANodeSelection.h>

#include "config/Config.h"
#include "terminal/Hint.h"
#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using Parser = KFA::KFAEnvConfigBashParser;

bool isFixedKey(const std::string& word) {
  return !word.empty() && Parser::getKeyTable().count(KFL::toLower(word)) != 0;
}

}  // namespace

void checkKey(const Parser& parser, const std::string& key, const char* otherwise) {
  if (!key.empty() && parser.isKey(KFL::toLower(key))) return;
  std::vector<std::string> names;
  for (const auto& [name, parse] : Parser::getKeyTable())
    if (!name.empty()) names.push_back(KFL::toUpper(name));
  for (const auto& [name, definition] : parser.getQoSMap())
    names.push_back(definition.upperName);
  const std::string hint = hintFor(key, names);
  // What no shell takes for a name, no other command takes either.
  const char* const advice = KFL::isBashName(key) ? otherwise : "'kfactl config keys' lists them all";
  throw Trouble("'" + key + "' is no key of an environment file; " + hint + (hint.empty() ? "" : " ") +
                advice);
}

boost::shared_ptr<const Parser> parserFor(Session& session, const std::vector<std::string>& keys) {
  const bool fixed = std::all_of(keys.begin(), keys.end(), isFixedKey);
  return fixed ? boost::make_shared<Parser>() : session.environmentParser();
}

FilesAndKeys splitFilesAndKeys(Session& session, const char* otherwise) {
  const auto& words = session.arguments();
  FilesAndKeys split;
  for (const std::string& word : words) {
    const bool isFile = !isFixedKey(word) && KFA::KFANodeSelection::isResembling(word, nodeFiles());
    const bool isKey =
        !isFile && (isFixedKey(word) || session.environmentParser()->isKey(KFL::toLower(word)));
    if (split.keys.empty() && !isKey && (isFile || (split.files.empty() && words.size() > 1))) {
      split.files.push_back(word);
    } else {
      checkKey(isFixedKey(word) ? Parser() : *session.environmentParser(), word, otherwise);
      split.keys.push_back(word);
    }
  }
  return split;
}

}  // namespace kfactl
