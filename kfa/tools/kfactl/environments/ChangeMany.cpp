// SPDX-License-Identifier: Apache-2.0
#include "environments/ChangeMany.h"

#include <algorithm>
#include <csignal>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLCommon/KFLThreads.h>

#include <KFAFunctionality/node/KFAEnvironmentFilter.h>
#include <KFAFunctionality/node/KFANodeChange.h>

#include "environments/Environments.h"
#include "terminal/Diff.h"
#include "terminal/Input.h"
#include "terminal/Node.h"
#include "terminal/Session.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using KFA::KFANodeChange;
using State = KFANodeChange::File::State;

// Files brought to disk at the same time share the waiting.
void runInThreads(std::size_t count, const KFANodeChange::Work& work) {
  KFL::runInThreads(count, 16, work);
}

// A key pressed in the midst of a change of many files ends the program when the change is done.
class SignalsHeld {
 public:
  SignalsHeld() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
      sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, &before_);
  }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;
  ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

std::string countText(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

void printFailures(const KFANodeChange& change, State state) {
  for (const KFANodeChange::File& file : change.getFiles())
    if (file.state == state) printError(file.error);
}

// Nothing was replaced.
[[noreturn]] void refuse(const KFANodeChange& change, bool isSingle) {
  const auto& files = change.getFiles();
  const auto refused =
      std::find_if(files.begin(), files.end(), [](const auto& file) { return file.state == State::Refused; });
  if (isSingle || files.size() == 1) throw Trouble(refused->error);
  printFailures(change, State::Refused);
  const std::size_t count = change.count(State::Refused);
  throw Trouble(std::to_string(count) + " of " + countText(files.size(), "file", "files") +
                " cannot be changed so, and none is; --keep-going changes the others");
}

Document describe(const KFANodeChange::File& file, int veid) {
  Document document = documentOf(KFA::KFAEnvironmentFile{file.path, veid});
  if (file.state == State::Refused || file.state == State::Failed || file.state == State::NotRestored)
    document["error"] = file.error;
  document["changed"] = file.state == State::Changed || file.state == State::Replaced;
  document["diff"] = unifiedDiff(file.path, file.before, file.after);
  return document;
}

void printDocuments(Session& session, const KFANodeChange& change, const ChangeMany::Files& files) {
  Document all = Document::array();
  for (std::size_t i = 0; i < files.size(); ++i)
    all.push_back(describe(change.getFiles()[i], files[i].veid));
  printDocument(session, all, "files", "file");
}

int showChange(Session& session, const KFANodeChange& change, const ChangeMany::Files& files) {
  if (session.format() != Format::Table) {
    printDocuments(session, change, files);
  } else {
    for (const KFANodeChange::File& file : change.getFiles())
      if (file.state == State::Changed) printUnifiedDiff(session.out(), file.path, file.before, file.after);
  }
  return change.count(State::Changed) == 0 ? kFine : kFinding;
}

int makeChange(KFANodeChange& change, bool keepGoing, bool isSingle) {
  const SignalsHeld held;
  const std::size_t wanted = change.count(State::Changed);
  if (change.apply(keepGoing, &runInThreads) == 0) return kFine;
  if (isSingle) throwLibraryError();
  printFailures(change, State::Failed);
  printFailures(change, State::NotRestored);
  const std::size_t lost = change.count(State::NotRestored);
  const std::string failed = std::to_string(change.count(State::Failed)) + " of " +
                             countText(wanted, "file", "files") + " could not be replaced";
  if (keepGoing)
    printError(failed);
  else if (lost > 0)
    printError(failed + "; " + countText(lost, "file keeps its new content", "files keep their new content"));
  else
    printError(failed + "; the others are as they were");
  return kTrouble;
}

}  // namespace

void ChangeMany::declare(CLI::App& app, bool ofMany) {
  single_.declare(app);
  if (!ofMany) return;
  app.add_flag("--keep-going", keepGoing_, "Change what can be changed, and report the rest");
}

void ChangeMany::refuseForNew(const Files& files) const {
  if (!single_.output().empty())
    throw Trouble("--create makes the file that is named; name " + single_.output() +
                  " in its place, or leave --output out");
  if (!single_.how().backupSuffix.empty())
    throw Trouble("--backup has nothing to keep: --create makes a file where there is none; leave it out");
  for (const auto& file : files)
    if (isStandardStream(file.path))
      throw Trouble("--create makes a file, and - is standard input; name a FILE or VEID");
}

int ChangeMany::apply(Session& session, const Files& files, bool isSingle, const Edit& edit,
                      const std::string* from) const {
  const bool isElsewhere =
      !single_.output().empty() || (files.size() == 1 && isStandardStream(files.front().path));
  if (isElsewhere && from == nullptr) {
    if (files.size() != 1) throw Trouble("--output takes the result of one file; leave it out");
    if (session.format() != Format::Table)
      throw Trouble("a configuration file has no json or xml form; leave --format out");
    return single_.apply(session, files.front().path, edit);
  }
  if (isDryRun() && !single_.how().backupSuffix.empty())
    throw Trouble("--backup has nothing to keep: --dry-run changes no file; leave it out");
  if (from == nullptr) expectFiles(files);
  KFANodeChange change(FileChange::forLibrary(edit), single_.how(), nodeFiles());
  for (const auto& file : files)
    from == nullptr ? change.judge(file.path) : change.judgeNew(file.path, *from);
  if (!change.isSound() && !keepGoing_) refuse(change, isSingle);
  printFailures(change, State::Refused);
  const int refused = change.isSound() ? kFine : kTrouble;
  if (isDryRun()) return std::max(refused, showChange(session, change, files));
  const int status = std::max(refused, makeChange(change, keepGoing_, isSingle));
  if (isSingle) return status;
  if (session.format() != Format::Table)
    printDocuments(session, change, files);
  else if (status == kFine || keepGoing_)
    session.out().addLine("changed " + std::to_string(change.count(State::Replaced)) + " of " +
                          countText(files.size(), "file", "files"));
  return status;
}

int ChangeMany::applyChanges(Session& session, const FilesAndChanges& words,
                             const KFA::KFAConfigRules& rules) const {
  if (words.files.size() != 1) throw Trouble("'" + words.files[1] + "': one FILE is wanted here");
  return apply(session, {{words.files.front(), -1}}, true,
               [&](const std::string& name, const std::string& before) {
                 std::string after;
                 must(KFA::applyChanges(rules, words.changes, options(), before, name, after));
                 return after;
               });
}

KFA::KFAChange changeOf(const std::string& word, const std::string& next) {
  const std::size_t equals = word.find('=');
  if (equals == std::string::npos && next.starts_with('='))
    throw Trouble("'" + word + "' is followed by a blank; write " + word +
                  (next.size() > 1 ? next : "=VALUE") + " as one word");
  if (equals == std::string::npos || equals == 0)
    throw Trouble("'" + word + "' is no KEY=VALUE; write for example ONBOOT=yes");
  return {KFL::toLower(word.substr(0, equals)), word.substr(equals + 1), {}, false};
}

// What follows; an = alone with the word behind it.
static std::string wordBehind(const std::vector<std::string>& words, std::size_t at) {
  if (at + 1 >= words.size()) return {};
  const std::string& next = words[at + 1];
  return next == "=" && at + 2 < words.size() ? next + words[at + 2] : next;
}

// Whether a word behind the first FILE is one, too. One with a sign of equality is a condition by its head alone, since the
// value of a change may hold anything.
static bool isFurtherFile(const std::string& word) {
  const std::size_t equals = word.find('=');
  const bool isCondition = KFA::KFAEnvironmentFilter::isResembling(word) && word.find_first_of("!=") < equals;
  if (equals == std::string::npos || isCondition)
    return KFA::KFANodeSelection::isResembling(word, nodeFiles());
  return word.find('/') < equals;
}

static FilesAndChanges split(const std::vector<std::string>& words, bool (*isFile)(const std::string& word)) {
  FilesAndChanges split;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i == 0 || (split.changes.empty() && isFile(words[i])))
      split.files.push_back(words[i]);
    else
      split.changes.push_back(changeOf(words[i], wordBehind(words, i)));
  }
  return split;
}

FilesAndChanges splitFilesAndChanges(const std::vector<std::string>& words) {
  return split(words, &isFurtherFile);
}

FilesAndChanges splitFileAndChanges(const std::vector<std::string>& words) {
  return split(words, [](const std::string& word) {
    return word.find('=') == std::string::npos && KFA::KFANodeSelection::isResembling(word, nodeFiles());
  });
}

void refuseCapitalConditions(const std::vector<std::string>& files) {
  for (const std::string& word : files)
    if (KFA::KFAEnvironmentFilter::isResembling(word) && KFA::KFAEnvironmentFilter::hasCapitalKey(word))
      throw Trouble(
          "'" + word +
          "': a condition is written in small letters here, such as onboot!=no; a file of that name "
          "is named with its folder, as ./FILE");
}

Document describeChanges(const KFA::KFAChangeList& changes) {
  const auto textOrNull = [](const auto& text) { return text ? Document(*text) : Document(); };
  Document document = Document::array();
  for (const KFA::KFAChange& change : changes)
    document.push_back(
        {{"key", change.key}, {"value", textOrNull(change.value)}, {"before", textOrNull(change.before)}});
  return document;
}

void printChanges(Session& session, const KFA::KFAChangeList& changes) {
  if (session.format() != Format::Table)
    return printDocument(session, describeChanges(changes), "changes", "change");
  for (const KFA::KFAChange& change : changes)
    session.out().addLine(session.out().isTerminal() ? printable(change.toString()) : change.toString());
}

}  // namespace kfactl
