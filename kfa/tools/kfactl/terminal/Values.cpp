// SPDX-License-Identifier: Apache-2.0
#include "terminal/Values.h"

#include <set>

#include <nlohmann/json.hpp>

#include <KFLCommon/KFLText.h>

#include "terminal/Document.h"
#include "terminal/Session.h"

namespace kfactl {

void printValues(Session& session, const Values& values) {
  if (session.format() == Format::Table) {
    for (const auto& [key, value] : values)
      session.out().addLine(assignment(key, value));
    return;
  }
  // Straight into the list of members: the keys differ, and a million of them must not be searched one by one.
  Document::object_t members;
  std::vector<Document::object_t::value_type>& list = members;
  for (const auto& [key, value] : values)
    list.emplace_back(key, value);
  const Document document(std::move(members));
  printDocument(session, document, "values");
}

int printAskedValues(Session& session, const std::string& file, const std::vector<std::string>& keys,
                     const std::function<bool(const std::string& key, std::string& value)>& find) {
  Values found;
  std::set<std::string> asked;
  std::string missing;
  for (const std::string& word : keys) {
    const std::string key = KFL::toLower(word);
    if (!asked.insert(key).second) continue;
    std::string value;
    if (find(key, value))
      found.emplace_back(key, std::move(value));
    else
      missing += (missing.empty() ? "" : ", ") + KFL::toUpper(key);
  }
  if (keys.size() == 1 && session.format() == Format::Table) {
    if (!found.empty()) {
      const std::string& value = found.front().second;
      session.out().addLine(session.out().isTerminal() ? printable(value) : value);
    }
  } else {
    printValues(session, found);
  }
  if (missing.empty()) return kFine;
  printError(file + ": no value for " + missing);
  return kFinding;
}

int printNamedOrAll(Session& session, const std::map<std::string, std::string>& values) {
  const auto& words = session.arguments();
  if (words.size() == 1) {
    printValues(session, Values(values.begin(), values.end()));
    return kFine;
  }
  return printAskedValues(session, words.front(), {words.begin() + 1, words.end()},
                          [&](const std::string& key, std::string& value) {
                            const auto found = values.find(key);
                            if (found == values.end()) return false;
                            value = found->second;
                            return true;
                          });
}

}  // namespace kfactl
