// SPDX-License-Identifier: Apache-2.0
// kfactl config diff and merge: what files, or folders of them, say differently, and two changed copies made one.
#include <filesystem>
#include <memory>
#include <set>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/node/KFAConfigMerge.h>
#include <KFAFunctionality/node/KFAEnvironmentDiff.h>

#include "config/Config.h"
#include "environments/ChangeMany.h"
#include "environments/Environments.h"
#include "terminal/Document.h"
#include "terminal/Input.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

// --- diff -------------------------------------------------------------------------------------------------------------

void read(KFA::KFAEnvironmentKeys& keys, const std::string& path) {
  const Input input = readInput(path);
  must(keys.read(input.text, input.name));
}

int diffFiles(Session& session) {
  KFA::KFAEnvironmentKeys before(session.environmentParser());
  KFA::KFAEnvironmentKeys after(session.environmentParser());
  read(before, pathOfOne(session, session.argument(0)));
  read(after, pathOfOne(session, session.argument(1)));
  const KFA::KFAChangeList changes = compareEnvironments(before, after);
  printChanges(session, changes);
  return changes.empty() ? kFine : kFinding;
}

std::set<int> numbersIn(Session& session, const std::string& folder) {
  const Environments environments(session, {folder}, WhenNone::Refuse);
  std::set<int> numbers;
  for (const auto& file : environments.files())
    numbers.insert(file.veid);
  return numbers;
}

// Folder by folder: the changes of each environment that both have, and which only one has.
int diffFolders(Session& session) {
  const std::string& first = session.argument(0);
  const std::string& second = session.argument(1);
  const std::set<int> before = numbersIn(session, first);
  const std::set<int> after = numbersIn(session, second);
  std::set<int> all = before;
  all.insert(after.begin(), after.end());
  KFA::KFAEnvironmentKeys old(session.environmentParser());
  KFA::KFAEnvironmentKeys now(session.environmentParser());
  Document document = Document::array();
  Troubles troubles;
  bool differs = false;
  for (const int veid : all) {
    const std::string name = std::to_string(veid) + ".conf";
    Document one = {{"file", name}, {"veid", veid}};
    if (before.count(veid) == 0 || after.count(veid) == 0) {
      const std::string& where = before.count(veid) == 0 ? second : first;
      session.format() == Format::Table
          ? void(session.out().addLine("# only in " + printable(where) + ": " + name))
          : void();
      one["only_in"] = where;
      document.push_back(std::move(one));
      differs = true;
      continue;
    }
    troubles.collect([&] {
      read(old, (std::filesystem::path(first) / name).string());
      read(now, (std::filesystem::path(second) / name).string());
      const KFA::KFAChangeList changes = compareEnvironments(old, now);
      if (changes.empty()) return;
      differs = true;
      if (session.format() == Format::Table) {
        session.out().addLine("# FILE " + name);
        printChanges(session, changes);
      }
      one["changes"] = describeChanges(changes);
      document.push_back(std::move(one));
    });
  }
  if (session.format() != Format::Table) printDocument(session, document, "files", "file");
  return troubles.status(differs ? kFinding : kFine);
}

int diff(Session& session) {
  std::error_code error;
  const bool first = std::filesystem::is_directory(session.argument(0), error);
  const bool second = std::filesystem::is_directory(session.argument(1), error);
  if (first != second) throw Trouble("a folder and a file cannot be compared; two of one kind are wanted");
  return first ? diffFolders(session) : diffFiles(session);
}

// --- merge ------------------------------------------------------------------------------------------------------------

struct MergeOptions {
  bool inPlace = false;
  KFA::KFAReplaceOptions how;
  std::string name;
};

int merge(Session& session, const MergeOptions& options) {
  KFA::KFAMergeLabels labels;
  if (!options.name.empty()) labels = {"ours:" + options.name, "theirs:" + options.name};
  const std::string path = pathOfOne(session, session.argument(1));
  if (options.inPlace && isStandardStream(path))
    throw Trouble("--in-place writes OURS, and - is standard input; name a file, or leave it out");
  if (options.how.hardLinks && !options.inPlace)
    throw Trouble("--hard-links is about the file that --in-place replaces; leave it out");
  const std::string base = readInput(pathOfOne(session, session.argument(0))).text;
  const std::string ours = readInput(path).text;
  const std::string theirs = readInput(pathOfOne(session, session.argument(2))).text;
  const KFA::KFAConfigMerge merged = mergeConfig(base, ours, theirs, labels);
  if (options.inPlace)
    must(KFA::KFAConfigFile(path).replace(merged.text, options.how));
  else
    session.out().add(merged.text);
  if (merged.conflicts.empty()) return kFine;
  std::string keys;
  for (const std::string& key : merged.conflicts)
    keys += (keys.empty() ? "" : ", ") + (key.empty() ? "a comment" : KFL::toUpper(key));
  printNote((options.name.empty() ? session.argument(1) : options.name) + ": conflicts in " + keys);
  return kFinding;
}

}  // namespace

Action prepareDiff(CLI::App& app) {
  return withoutOptions<diff>(app);
}

Action prepareMerge(CLI::App& app) {
  const auto options = std::make_shared<MergeOptions>();
  app.add_flag("--in-place", options->inPlace, "Write the result to OURS, as git asks a merge driver to");
  app.add_flag("--hard-links", options->how.hardLinks,
               "With --in-place: replace OURS also when it has other hard links, which keep the old content");
  app.add_option("--name", options->name, "The file's name, for conflict marks and messages")
      ->type_name("NAME");
  return [options](Session& session) { return merge(session, *options); };
}

}  // namespace kfactl
