// SPDX-License-Identifier: Apache-2.0
#include "manual/Completion.h"

#include <algorithm>
#include <string_view>

#include <CLI/CLI.hpp>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/node/KFAKeyCatalogue.h>
#include <KFAFunctionality/node/KFANodeSelection.h>

namespace kfactl {

namespace {

using Words = std::vector<std::string>;

// The words before the last that are no options. A value that belongs to an option may be among them: the names of
// groups and commands come first, so it does no harm.
Words plainWords(const Words& words) {
  Words plain;
  std::copy_if(words.begin(), words.end() - 1, std::back_inserter(plain),
               [](const std::string& word) { return word.empty() || word.front() != '-'; });
  return plain;
}

class Collector {
 public:
  explicit Collector(std::string_view begun) : begun_(begun) {}

  void add(std::string word, std::string_view summary) {
    if (word.compare(0, begun_.size(), begun_) == 0)
      found_.push_back({std::move(word), std::string(summary)});
  }
  std::vector<Candidate> take() { return std::move(found_); }

 private:
  std::string begun_;
  std::vector<Candidate> found_;
};

void addOptions(Collector& to, const Command* command) {
  CLI::App app;
  app.set_help_flag();
  Session unused;
  const Action action = command == nullptr ? Action() : command->prepare(app);
  declareGlobals(app, unused);
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames())
      to.add("--" + name, option->get_description());
  }
}

void addEnvironments(Collector& to, Session& session) {
  KFA::KFANodeSelection selection(session.node(), [&] { return session.environmentParser(); });
  if (selection.addAll() != 0) return;
  for (const KFA::KFAEnvironmentFile& file : selection.getFiles())
    if (file.veid >= 0) to.add(std::to_string(file.veid), file.path);
}

// Keys in the case in which they are being typed; with values, those of a key that has a few.
void addKeys(Collector& to, Session& session, const std::string& begun, bool withValues) {
  const KFA::KFAKeyCatalogue catalogue(session.environmentParser(), session.vocabulary());
  const std::size_t equals = begun.find('=');
  if (withValues && equals != std::string::npos) {
    const KFA::KFAKeyDescription* const key = catalogue.find(KFL::toLower(begun.substr(0, equals)));
    if (key == nullptr || key->form != "yes or no") return;
    for (const char* const value : {"yes", "no"})
      to.add(begun.substr(0, equals + 1) + value, key->description);
    return;
  }
  const bool isLower = !begun.empty() && KFL::toLower(begun) == begun;
  for (const auto& [name, key] : catalogue.getKeys())
    to.add((isLower ? name : key.key) + (withValues ? "=" : ""), key.description);
}

bool holds(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

void addArguments(Collector& to, Session& session, const Command& command, const std::string& begun,
                  std::size_t before) {
  const std::string_view form = command.arguments;
  if (holds(form, "FILE") && !holds(form, "XML")) addEnvironments(to, session);
  const bool isBehindFile = before > 0 || form.substr(0, 1) == "[";
  if (holds(form, "KEY") && isBehindFile) addKeys(to, session, begun, holds(form, "KEY=VALUE"));
}

}  // namespace

std::vector<Candidate> completionsOf(Session& session, const Words& words) {
  const std::string begun = words.empty() ? "" : words.back();
  Collector found(begun);
  const Words plain = words.empty() ? Words() : plainWords(words);
  const auto groups = listGroups();
  const auto group =
      plain.empty() ? groups.end() : std::find_if(groups.begin(), groups.end(), [&](const Group* one) {
        return plain.front() == one->name;
      });
  const bool wantsOption = !begun.empty() && begun.front() == '-';
  if (group == groups.end()) {
    if (wantsOption) addOptions(found, nullptr);
    for (const Group* one : groups)
      if (plain.empty()) found.add(one->name, one->summary);
    return found.take();
  }
  const auto& commands = (*group)->commands;
  const bool isAlone = commands.front().name == nullptr;
  const auto command = std::find_if(commands.begin(), commands.end(), [&](const Command& one) {
    return isAlone || (plain.size() > 1 && plain[1] == one.name);
  });
  if (command == commands.end()) {
    if (wantsOption) addOptions(found, nullptr);
    for (const Command& one : commands)
      if (plain.size() == 1) found.add(one.name, one.summary);
    return found.take();
  }
  if (wantsOption)
    addOptions(found, &*command);
  else
    addArguments(found, session, *command, begun, plain.size() - (isAlone ? 1 : 2));
  return found.take();
}

}  // namespace kfactl
