// SPDX-License-Identifier: Apache-2.0
#include "at/Identity.h"

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

#include "terminal/Input.h"
#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

namespace fs = std::filesystem;

std::string valueOf(const char* variable) {
  const char* const value = std::getenv(variable);
  return value == nullptr ? "" : value;
}

// The user's file; empty when there is no place for it.
std::string userFile() {
  const std::string folder = valueOf("XDG_CONFIG_HOME");
  const std::string home = valueOf("HOME");
  if (folder.empty() && home.empty()) return {};
  return (folder.empty() ? home + "/.config" : folder) + "/kfa/agent";
}

std::map<std::string, std::string> readUserFile(const std::string& path) {
  std::error_code error;
  std::map<std::string, std::string> values;
  if (path.empty() || !fs::exists(path, error)) return values;
  const Input input = readInput(path);
  const auto parser = KFA::KFARawConfigBashParser::getInstance();
  must(KFA::readConfigText(input.text, input.name,
                           [&](std::istream& in) { return parser->getConfig(in, values); }));
  for (auto& [key, value] : values)
    if (!value.empty() && value.front() != '/') value = fs::path(path).parent_path() / value;
  return values;
}

}  // namespace

KFA::KFARemoteIdentity findIdentity() {
  const AtOptions& given = atOptions();
  const std::string path = userFile();
  const std::map<std::string, std::string> values = readUserFile(path);
  KFA::KFARemoteIdentity identity;
  struct Row {
    const char* name;
    const std::string& option;
    std::string& file;
  };
  for (const Row& row :
       {Row{"certificate", given.certificate, identity.certificate}, Row{"key", given.key, identity.key},
        Row{"ca", given.authority, identity.authority}}) {
    const std::string variable = std::string("KFA_") + row.name;
    const auto found = values.find(row.name);
    row.file = !row.option.empty() ? row.option : valueOf(KFL::toUpper(variable).c_str());
    if (row.file.empty() && found != values.end()) row.file = found->second;
    if (row.file.empty())
      throw Trouble(std::string("--at: no ") + row.name + " is known; --certificate, --key and --ca, or " +
                    (path.empty() ? "a user's configuration" : path) + " name the files");
  }
  must(identity.check());
  return identity;
}

}  // namespace kfactl
