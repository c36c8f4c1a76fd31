// SPDX-License-Identifier: Apache-2.0
// kfactl raw: any KEY="value" file as keys and texts.
#include <map>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFARawConfigBashParser.h>

#include "environments/ChangeMany.h"
#include "terminal/Cli.h"
#include "terminal/Input.h"
#include "terminal/Trouble.h"
#include "terminal/Values.h"

namespace kfactl {

namespace {

using RawMap = std::map<std::string, std::string>;

RawMap readMap(const std::string& path) {
  const Input input = readInput(path);
  RawMap values;
  must(KFA::readConfigText(input.text, input.name, [&values](std::istream& in) {
    return KFA::KFARawConfigBashParser::getInstance()->getConfig(in, values);
  }));
  return values;
}

int get(Session& session) {
  return printNamedOrAll(session, readMap(session.argument(0)));
}

Action prepareSet(CLI::App& app) {
  const auto change = std::make_shared<ChangeMany>();
  change->declare(app, false);
  return [change](Session& session) {
    const FilesAndChanges words = splitFileAndChanges(session.arguments());
    return change->applyChanges(session, words, KFA::KFARawConfigRules());
  };
}

constexpr Command kCommands[] = {
    {"get", "FILE [KEY...]", "Print keys and values, or the values of the keys named",
     "Prints lines KEY=\"value\" that a shell reads back as the same values, in the order of the keys. One "
     "key alone:\n"
     "its value as it is. JSON: an object from lower-case key to text. Of a key that stands twice, the first "
     "counts.\n"
     "Status 1 when the file lacks a key that was named.\n\n"
     "Examples:\n"
     "  kfactl raw get global.conf\n"
     "  kfactl raw get global.conf LOCKDIR\n"
     "  kfactl --format json raw get global.conf",
     withoutOptions<get>},
    {"set", "FILE KEY=VALUE...", "Give keys new values, with every other byte kept",
     "Keys that the file lacks are appended in upper case. A value may hold anything, = and != too. The "
     "file\n"
     "is replaced as a whole, or not at all.\n\n"
     "Examples:\n"
     "  kfactl raw set global.conf LOCKDIR=/var/lock/kfa\n"
     "  kfactl raw set --dry-run global.conf LOCKDIR=/var/lock/kfa\n"
     "  kfactl raw set --backup .old global.conf LOGGING=yes LOG_LEVEL=2",
     prepareSet},
};

}  // namespace

extern const Group rawGroup;
const Group rawGroup{"raw", "Any KEY=\"value\" file as keys and texts", kCommands,
                     "  kfactl raw get global.conf LOCKDIR\n"
                     "  kfactl raw set --dry-run global.conf LOCKDIR=/var/lock/kfa"};

}  // namespace kfactl
