// SPDX-License-Identifier: Apache-2.0
// kfactl global: the global configuration file of a node.
#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLMessage.h>

#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/files/KFAGlobalConfigRules.h>
#include <KFAFunctionality/files/KFAKFConfigBashParser.h>

#include "environments/ChangeMany.h"
#include "environments/Findings.h"
#include "terminal/Cli.h"
#include "terminal/Document.h"
#include "terminal/Hint.h"
#include "terminal/Input.h"
#include "terminal/Trouble.h"
#include "terminal/Values.h"

namespace kfactl {

namespace {

using KFA::KFAVtSettings;

// The record of the file, with the services that the file enables and no others: those are what a message carries.
KFAVtSettings readSettings(const Input& input) {
  KFAVtSettings settings;
  must(KFA::readGlobalConfig(input.text, input.name, settings));
  KFAVtSettings::OfflineServices services = settings.getOfflineServices();
  std::erase_if(services.value(), [](const KFA::KFAOfflineService& service) { return !service.enabled; });
  settings.setOfflineServices(services);
  return settings;
}

void printTable(Output& out, const KFAVtSettings& settings) {
  Table table({"PROPERTY", "VALUE"});
  const auto addFolder = [&table](const char* name, const KFAVtSettings::Text& folder) {
    if (folder.isSpecified()) table.add({name, folder.getValue().empty() ? "\"\"" : folder.getValue()});
  };
  addFolder("lock_dir", settings.getLockDir());
  addFolder("template_dir", settings.getTemplateDir());
  for (const auto& [key, value] : settings.getValues())
    table.add({"entry", assignment(key, value)});
  const KFAVtSettings::OfflineServices& services = settings.getOfflineServices();
  for (const KFA::KFAOfflineService& service : services.getValue())
    table.add({"offline_service", service.name});
  if (services.isSpecified() && services.getValue().empty()) table.add({"no_offline_service", {}});
  table.print(out);
}

// By element name; the entries as one object, and none of what no file says.
Document describe(const KFAVtSettings& settings) {
  Document document = Document::object();
  if (settings.getLockDir().isSpecified()) document["lock_dir"] = settings.getLockDir().getValue();
  if (settings.getTemplateDir().isSpecified())
    document["template_dir"] = settings.getTemplateDir().getValue();
  Document::object_t members;
  std::vector<Document::object_t::value_type>& entries = members;
  for (const auto& [key, value] : settings.getValues())
    entries.emplace_back(key, value);
  document["entry"] = std::move(members);
  const KFAVtSettings::OfflineServices& services = settings.getOfflineServices();
  if (!services.isSpecified()) return document;
  Document& names = document["offline_service"] = Document::array();
  for (const KFA::KFAOfflineService& service : services.getValue())
    names.push_back(service.name);
  return document;
}

void printMessage(Session& session, const std::string& file, const KFAVtSettings& settings) {
  KFL::KFLMessage message;
  KFL::KFLMessageIterator it = message.getIterator();
  must(it.putObj(settings));
  const std::string text = message.toPrettyString();
  if (text.empty()) throwLibraryError(file);
  session.out().add(text);
}

int show(Session& session) {
  const Input input = readInput(session.argument(0));
  const KFAVtSettings settings = readSettings(input);
  if (session.format() == Format::Xml)
    printMessage(session, input.name, settings);
  else if (session.format() == Format::Json)
    printDocument(session, describe(settings), "vt_settings");
  else
    printTable(session.out(), settings);
  return kFine;
}

// --- get, diff and check ----------------------------------------------------------------------------------------------

// Every key with the value that it has in the end: folders and services follow the last line, other keys the first.
std::map<std::string, std::string> valuesOf(const std::string& path) {
  const Input input = readInput(path);
  KFAVtSettings settings;
  must(KFA::readGlobalConfig(input.text, input.name, settings));
  std::map<std::string, std::string> values;
  KFA::KFAKFConfigBashParser::ParameterParserGet keys(settings);
  for (const auto& [key, text] : settings.getValues()) {
    std::string value;
    values[key] = keys.get(key, value) == KFA::kParameterDone ? value : text;
  }
  return values;
}

int get(Session& session) {
  return printNamedOrAll(session, valuesOf(session.argument(0)));
}

int diff(Session& session) {
  const auto before = valuesOf(session.argument(0));
  const auto after = valuesOf(session.argument(1));
  KFA::KFAChangeList changes;
  for (const auto& [key, value] : after) {
    const auto old = before.find(key);
    if (old == before.end())
      changes.push_back({key, value, {}, true});
    else if (old->second != value)
      changes.push_back({key, value, old->second, false});
  }
  for (const auto& [key, value] : before)
    if (after.count(key) == 0) changes.push_back({key, {}, value, false});
  printChanges(session, changes);
  return changes.empty() ? kFine : kFinding;
}

// The keys that mean something to us; any other may be a slip of one of them.
const std::vector<std::string>& meaningfulKeys() {
  static const std::vector<std::string> keys = {"LOCKDIR", "TEMPLATE", "OFFLINE_SERVICE"};
  return keys;
}

// The key that a word may have been meant for; empty for one that is right, or far from all.
std::string slipOf(const std::string& word) {
  const std::string nearest = nearestTo(word, meaningfulKeys());
  return nearest == KFL::toUpper(word) ? std::string() : nearest;
}

// Where keys that look like slips stand first.
void addSlips(const Input& input, std::vector<KFA::KFANodeFinding>& findings) {
  std::set<std::string> seen;
  std::size_t number = 0;
  for (std::string_view rest = input.text; !rest.empty();) {
    const std::string text(rest.substr(0, rest.find('\n')));
    rest.remove_prefix(std::min(text.size() + 1, rest.size()));
    ++number;
    const KFL::KFLBashLine line = KFL::examineBashLine(text.c_str());
    const std::string key = KFL::toLower(std::string(line.name));
    if (line.kind != KFL::KFLBashLine::Kind::Assignment || !seen.insert(key).second) continue;
    const std::string nearest = slipOf(key);
    if (nearest.empty()) continue;
    findings.push_back({KFA::KFANodeFinding::Severity::Warning, "foreign-key", input.name, -1, number,
                        static_cast<std::size_t>(line.name.data() - text.c_str()) + 1,
                        KFL::toUpper(key) + " means nothing here; did you mean " + nearest + "?", text});
  }
}

int check(Session& session) {
  const Input input = readInput(session.argument(0));
  std::vector<KFA::KFANodeFinding> findings;
  for (KFA::KFAConfigFinding& finding : checkConfig(KFA::KFAGlobalConfigRules(), input.text))
    findings.push_back({finding.severity, finding.rule, input.name, -1, finding.line, finding.column,
                        finding.text, finding.lineText});
  addSlips(input, findings);
  std::stable_sort(findings.begin(), findings.end(),
                   [](const auto& a, const auto& b) { return a.line < b.line; });
  const bool isFine = std::all_of(findings.begin(), findings.end(), [](const auto& finding) {
    return finding.severity == KFA::KFANodeFinding::Severity::Note;
  });
  Document document = Document::array();
  for (const KFA::KFANodeFinding& finding : findings)
    session.format() == Format::Table ? printFinding(session.out(), finding)
                                      : document.push_back(describeFinding(finding));
  if (session.format() != Format::Table) printDocument(session, document, "findings", "finding");
  return isFine ? kFine : kFinding;
}

Action prepareSet(CLI::App& app) {
  const auto change = std::make_shared<ChangeMany>();
  change->declare(app, false);
  return [change](Session& session) {
    const FilesAndChanges words = splitFileAndChanges(session.arguments());
    for (const KFA::KFAChange& one : words.changes)
      if (const std::string nearest = slipOf(one.key); !nearest.empty())
        printNote(KFL::toUpper(one.key) + " is taken as it stands; did you mean " + nearest + "?");
    return change->applyChanges(session, words, KFA::KFAGlobalConfigRules());
  };
}

constexpr Command kCommands[] = {
    {"show", "FILE", "Print the global settings as a record",
     "The folders, every key with its text, and the offline services that are enabled. Of a key that stands "
     "twice, the\n"
     "first text is shown; the folders and services follow the last. JSON: an object by element name, the "
     "keys "
     "in an\n"
     "object of their own. XML: the message.\n\n"
     "Examples:\n"
     "  kfactl global show /etc/kfa/global.conf\n"
     "  kfactl --format json global show global.conf",
     withoutOptions<show>},
    {"get", "FILE [KEY...]", "Print keys and values, or the values of the keys named",
     "As raw get does, but folders and services follow the last of several lines.\n\n"
     "Examples:\n"
     "  kfactl global get /etc/kfa/global.conf LOCKDIR",
     withoutOptions<get>},
    {"diff", "BEFORE AFTER", "Print the keys whose values differ",
     "As config diff does. Status 1 when there are any.\n\n"
     "Examples:\n"
     "  kfactl global diff global.conf.old global.conf",
     withoutOptions<diff>},
    {"check", "FILE", "Report what is wrong in the file",
     "Malformed lines, values that are not taken, repeated keys, keys that look like slips. Status 1 when "
     "there are "
     "errors or\n"
     "warnings.\n\n"
     "Examples:\n"
     "  kfactl global check /etc/kfa/global.conf",
     withoutOptions<check>},
    {"set", "FILE KEY=VALUE...", "Give keys new values, with every other byte kept",
     "Keys that the file lacks are appended in upper case. OFFLINE_SERVICE takes names separated by spaces, "
     "every other key\n"
     "any text. The file is replaced as a whole, or not at all.\n\n"
     "Examples:\n"
     "  kfactl global set global.conf LOCKDIR=/var/lock/kfa\n"
     "  kfactl global set --dry-run global.conf 'OFFLINE_SERVICE=backup panel'\n"
     "  kfactl global set --backup .old global.conf TEMPLATE=/srv/kfa/template LOG_LEVEL=2",
     prepareSet},
};

}  // namespace

extern const Group globalGroup;
const Group globalGroup{"global", "The global configuration file of a node", kCommands,
                        "  kfactl global show /etc/kfa/global.conf\n"
                        "  kfactl global set --dry-run global.conf LOCKDIR=/var/lock/kfa"};

}  // namespace kfactl
