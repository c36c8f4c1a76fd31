// SPDX-License-Identifier: Apache-2.0
// kfactl config set and unset: changes of one environment or many.
#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/node/KFAChangeList.h>
#include <KFAFunctionality/node/KFAEnvironmentFilter.h>

#include "config/Config.h"
#include "environments/ChangeMany.h"
#include "environments/Environments.h"
#include "terminal/Input.h"
#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

constexpr const char* kRawTakesAny = "'kfactl raw set' takes any key";

struct SetOptions {
  ChangeMany change;
  bool create = false;
  bool reverse = false;
  std::string from;
};

// The changes of each file, by the name under which a list of changes has it; the empty name stands for every file.
using ChangesByFile = std::map<std::string, KFA::KFAChangeList>;

void checkKeys(Session& session, const KFA::KFAChangeList& changes) {
  for (const KFA::KFAChange& change : changes)
    checkKey(*session.environmentParser(), KFL::toUpper(change.key), kRawTakesAny);
}

void reverseAll(KFA::KFAChangeList& changes, const std::string& name) {
  for (KFA::KFAChange& change : changes)
    if (!change.reverse())
      throw Trouble(name + ": " + KFL::toUpper(change.key) +
                    " does not say what it was; a list as 'kfactl config diff' prints it is wanted");
}

// The changes of a part of a list that begins behind so many lines.
KFA::KFAChangeList parsePart(const std::string& part, std::size_t linesBefore, const std::string& name) {
  KFA::KFAChangeList changes;
  // An error names the line of the whole.
  if (KFA::parseChangeList(part, name, changes) != 0)
    must(KFA::parseChangeList(std::string(linesBefore, '\n') + part, name, changes));
  return changes;
}

// The list on standard input. Lines "# FILE name" begin the changes of that file.
ChangesByFile readChanges(bool isReversed) {
  constexpr std::string_view kHeading = "# FILE ";
  const Input input = readInput("-");
  ChangesByFile changes;
  std::string name, part;
  std::size_t number = 0, begin = 0;
  const auto endPart = [&] {
    KFA::KFAChangeList list = parsePart(part, begin, input.name);
    if (isReversed) reverseAll(list, input.name);
    if (list.empty()) return;
    KFA::KFAChangeList& all = changes[name];
    all.insert(all.end(), std::make_move_iterator(list.begin()), std::make_move_iterator(list.end()));
  };
  for (std::string_view rest = input.text; !rest.empty(); ++number) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    if (line.starts_with(kHeading)) {
      endPart();
      name = line.substr(kHeading.size());
      begin = number;
      part.clear();
    }
    part.append(line).append("\n");
  }
  endPart();
  return changes;
}

// The path of the node's environment that a heading names.
std::string pathOf(Session& session, const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  const std::string folder = session.node();
  return folder + (folder.ends_with('/') ? "" : "/") + name;
}

ChangeMany::Edit editOf(const KFA::KFAConfigRules& rules, const KFA::KFASetOptions& options,
                        const ChangesByFile& changes) {
  return [&rules, &options, &changes](const std::string& name, const std::string& before) {
    auto found = changes.find(name);
    if (found == changes.end()) found = changes.find({});
    std::string after;
    must(KFA::applyChanges(rules, found->second, options, before, name, after));
    return after;
  };
}

// A condition and a change look alike, so an environment file that was forgotten must not make one of the other.
void refuseChangeAsFile(const std::vector<std::string>& words) {
  if (words.empty()) return;
  const std::string& word = words.front();
  if (!KFA::KFAEnvironmentFilter::isResembling(word)) return;
  if (KFA::KFAEnvironmentFilter::hasCapitalKey(word) || words.size() == 1)
    throw Trouble("'" + word + "' stands where FILE is wanted; name the environments first, '*' for all" +
                  (words.size() == 1 ? "" : " (a condition is written in small letters, such as onboot=no)"));
}

// The text that a new environment begins with; a sample is a file, or the name of one of the node's.
std::string sampleText(Session& session, const std::string& from, KFA::KFAChangeList& changes) {
  if (from.empty()) return {};
  if (from.find_first_of("/.") != std::string::npos) return readInput(from).text;
  const bool isNamed = std::any_of(changes.begin(), changes.end(), [](const KFA::KFAChange& change) {
    return change.key == "origin_sample";
  });
  if (!isNamed) changes.push_back({"origin_sample", from, {}, false});
  return readNodeFile(pathOf(session, "samples") + "/" + from + ".conf").text;
}

int create(Session& session, const SetOptions& options, FilesAndChanges words) {
  Environments environments(session, words.files, WhenNone::Refuse);
  if (!environments.isSingle()) throw Trouble("--create makes one environment; name one FILE or VEID");
  options.change.refuseForNew(environments.files());
  const std::string text = sampleText(session, options.from, words.changes);
  const KFA::KFAEnvConfigRules rules(session.environmentParser());
  const ChangesByFile changes = {{{}, words.changes}};
  return options.change.apply(session, environments.files(), true,
                              editOf(rules, options.change.options(), changes), &text);
}

// `set -` with a list that has headings.
int setByList(Session& session, const SetOptions& options) {
  ChangesByFile byName = readChanges(options.reverse);
  if (byName.count({}) != 0)
    throw Trouble(
        "standard input: changes without a file; name the environments, or put '# FILE 101.conf' before "
        "them");
  ChangesByFile changes;
  ChangeMany::Files files;
  for (auto& [name, list] : byName) {
    checkKeys(session, list);
    const std::string path = pathOf(session, name);
    int veid = -1;
    files.push_back({path, KFA::getVeidOfPath(path, veid) == 0 ? veid : -1});
    changes.emplace(path, std::move(list));
  }
  const KFA::KFAEnvConfigRules rules(session.environmentParser());
  return options.change.apply(session, files, false, editOf(rules, options.change.options(), changes));
}

int set(Session& session, const SetOptions& options) {
  const auto& arguments = session.arguments();
  refuseChangeAsFile(arguments);
  FilesAndChanges words = splitFilesAndChanges(arguments);
  refuseCapitalConditions(words.files);
  const bool isList = words.changes.empty() && !words.files.empty() && words.files.back() == "-";
  if (options.reverse && !isList)
    throw Trouble("--reverse reads a list of changes backwards; end with - to give one");
  if (!options.create && !options.from.empty()) throw Trouble("--from needs --create");
  if (isList && words.files.size() == 1) return setByList(session, options);
  ChangesByFile changes;
  if (isList) {
    words.files.pop_back();
    changes = readChanges(options.reverse);
    if (changes.size() > 1 || (changes.size() == 1 && changes.count({}) == 0))
      throw Trouble("standard input: the list names files of its own; leave FILE out");
    words.changes = changes[{}];
  } else if (words.changes.empty() && !options.create) {
    throw Trouble("KEY=VALUE is missing; write for example ONBOOT=yes");
  }
  if (words.files.size() > 1 && std::count(words.files.begin(), words.files.end(), "-") != 0)
    throw Trouble(
        "- reads a list in the place of KEY=VALUE, or else one FILE; leave it out, or name it alone");
  checkKeys(session, words.changes);
  if (options.create) return create(session, options, std::move(words));
  changes[{}] = words.changes;
  Environments environments(session, words.files, WhenNone::Refuse);
  const KFA::KFAEnvConfigRules rules(session.environmentParser());
  return environments.status(options.change.apply(session, environments.files(), environments.isSingle(),
                                                  editOf(rules, options.change.options(), changes)));
}

int unset(Session& session, const ChangeMany& change) {
  const FilesAndKeys words = splitFilesAndKeys(session, "'kfactl raw get' reads any key");
  refuseCapitalConditions(words.files);
  Environments environments(session, words.files, WhenNone::Refuse);
  if (words.keys.empty()) throw Trouble("KEY is missing; write for example 'kfactl config unset 101 NAME'");
  ChangesByFile changes;
  for (const std::string& key : words.keys)
    changes[{}].push_back({KFL::toLower(key), {}, {}, false});
  const KFA::KFAEnvConfigRules rules(session.environmentParser());
  return environments.status(change.apply(session, environments.files(), environments.isSingle(),
                                          editOf(rules, change.options(), changes)));
}

}  // namespace

Action prepareSet(CLI::App& app) {
  const auto options = std::make_shared<SetOptions>();
  options->change.declare(app, true);
  app.add_flag("--create", options->create, "Make a new environment file");
  app.add_option("--from", options->from,
                 "What the new file begins with: a file, or the name of one in the node's folder samples")
      ->type_name("SAMPLE");
  app.add_flag("--reverse", options->reverse, "Take a list of changes backwards");
  return [options](Session& session) { return set(session, *options); };
}

Action prepareUnset(CLI::App& app) {
  const auto change = std::make_shared<ChangeMany>();
  change->declare(app, true);
  return [change](Session& session) { return unset(session, *change); };
}

}  // namespace kfactl
