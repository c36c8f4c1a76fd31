// SPDX-License-Identifier: Apache-2.0
// kfactl global: the global configuration file of a node.
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLMessage/KFLMessage.h>

#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFAGlobalConfigRules.h>

#include "environments/FileChange.h"
#include "terminal/Cli.h"
#include "terminal/Document.h"
#include "terminal/Input.h"
#include "terminal/Trouble.h"

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

Action prepareSet(CLI::App& app) {
  const auto change = std::make_shared<FileChange>();
  change->declare(app);
  return [change](Session& session) {
    change->setValues(session, KFA::KFAGlobalConfigRules());
    return kFine;
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
