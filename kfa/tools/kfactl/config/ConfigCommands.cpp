// SPDX-License-Identifier: Apache-2.0
// kfactl config: the configuration files of environments.
#include <algorithm>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>
#include <boost/make_shared.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/environment/KFAEnv.h>
#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/files/KFAConfigFolder.h>

#include "environments/Environment.h"
#include "environments/FileChange.h"
#include "environments/RecordView.h"
#include "terminal/Cli.h"
#include "terminal/Document.h"
#include "terminal/Hint.h"
#include "terminal/Trouble.h"
#include "terminal/Values.h"

namespace kfactl {

namespace {

using KFA::KFAEnvConfig;
using Parser = KFA::KFAEnvConfigBashParser;

// --- show -------------------------------------------------------------------------------------------------------------

std::string oneLine(const Document& value) {
  if (value.is_string()) return value.get<std::string>();
  if (!value.is_structured()) return value.dump();
  std::string line;
  for (const auto& [name, member] : value.items()) {
    const Document items = member.is_array() ? member : Document::array({member});
    for (const Document& item : items)
      line += (line.empty() ? "" : " ") + name + "=" + oneLine(item);
  }
  return line;
}

void printRecord(Session& session, const Document& record) {
  Table table({"PROPERTY", "VALUE"});
  for (const auto& [name, value] : record.items()) {
    const bool isList = value.is_array();
    for (const Document& item : isList ? value : Document::array({value})) {
      const std::string line = oneLine(item);
      table.add({name, line.empty() ? "\"\"" : line});
    }
    if (isList && value.empty()) table.add({name, {}});
  }
  table.print(session.out());
}

int show(Session& session, const std::string& veid) {
  const Input input = readInput(session.argument(0));
  KFL::KFLMessage message = messageOf(readEnvironment(session, input, veid));
  if (session.format() == Format::Xml) {
    const std::string text = message.toPrettyString();
    if (text.empty()) throwLibraryError(input.name);
    session.out().add(text);
    return kFine;
  }
  const Document record = describeElement(message.getIterator(), &KFA::KFAEnvConfig::elements());
  if (session.format() == Format::Json)
    printDocument(session, record, "venv_config");
  else
    printRecord(session, record);
  return kFine;
}

Action prepareShow(CLI::App& app) {
  const auto veid = std::make_shared<std::string>();
  app.add_option("--veid", *veid, "The environment's number, instead of that in the file's name")
      ->type_name("NUMBER");
  return [veid](Session& session) { return show(session, *veid); };
}

// --- get and set ------------------------------------------------------------------------------------------------------

// Keys that are fixed need no vocabulary.
boost::shared_ptr<const Parser> parserFor(Session& session) {
  const auto& arguments = session.arguments();
  const bool fixed = std::all_of(arguments.begin() + 1, arguments.end(), [](const std::string& key) {
    return Parser::getKeyTable().count(KFL::toLower(key)) != 0;
  });
  return fixed ? boost::make_shared<Parser>() : session.environmentParser();
}

// Refuses words that are no keys of this file, with a hint.
void checkKey(const Parser& parser, const std::string& key, const char* otherwise) {
  if (!key.empty() && parser.isKey(KFL::toLower(key))) return;
  std::vector<std::string> names;
  for (const auto& [name, parse] : Parser::getKeyTable())
    if (!name.empty()) names.push_back(KFL::toUpper(name));
  for (const auto& [name, definition] : parser.getQoSMap())
    names.push_back(definition.upperName);
  const std::string hint = hintFor(key, names);
  throw Trouble("'" + key + "' is no key of an environment file; " + hint + (hint.empty() ? "" : " ") +
                otherwise);
}

int get(Session& session) {
  const auto parser = parserFor(session);
  const auto& arguments = session.arguments();
  for (auto key = arguments.begin() + 1; key != arguments.end(); ++key)
    checkKey(*parser, *key, "'kfactl raw get' reads any key");
  const EnvironmentKeys keys(*parser, readInput(session.argument(0)));
  return printAskedValues(
      session, [&](const std::string& key, std::string& value) { return keys.getOrText(key, value); });
}

Action prepareSet(CLI::App& app) {
  const auto change = std::make_shared<FileChange>();
  change->declare(app);
  return [change](Session& session) {
    const auto parser = session.environmentParser();
    const auto& arguments = session.arguments();
    for (auto word = arguments.begin() + 1; word != arguments.end(); ++word)
      checkKey(*parser, word->substr(0, word->find('=')), "'kfactl raw set' takes any key");
    change->setValues(session, KFA::KFAEnvConfigRules(parser));
    return kFine;
  };
}

// --- diff -------------------------------------------------------------------------------------------------------------

struct Change {
  std::string key;
  std::optional<std::string> value;  // none: only the first file has the key
};

// Without devices NETIF says the same whether it is there or not.
bool hasValue(const EnvironmentKeys& keys, const std::string& key, std::string& value) {
  return keys.get(key, value) && (key != "netif" || !value.empty());
}

std::vector<Change> compare(const Parser& parser, const EnvironmentKeys& before,
                            const EnvironmentKeys& after) {
  std::vector<Change> changes;
  std::vector<Change> gone;
  KFAEnvConfig empty;
  Parser::ParameterParserGet order(empty, parser);
  for (std::string key; order.getNext(key, key) == KFA::kParameterDone;) {
    std::string old;
    std::string value;
    const bool had = hasValue(before, key, old);
    const bool has = hasValue(after, key, value);
    if (has && (!had || old != value))
      changes.push_back({key, value});
    else if (had && !has)
      gone.push_back({key, std::nullopt});
    else if (key == "ip_address" && (value = after.effectiveAddresses()) != before.effectiveAddresses())
      changes.push_back({key, value});
  }
  changes.insert(changes.end(), gone.begin(), gone.end());
  return changes;
}

int diff(Session& session) {
  const auto parser = session.environmentParser();
  const EnvironmentKeys before(*parser, readInput(session.argument(0)));
  const EnvironmentKeys after(*parser, readInput(session.argument(1)));
  const std::vector<Change> changes = compare(*parser, before, after);
  Document document = Document::array();
  for (const auto& [key, value] : changes) {
    if (session.format() != Format::Table)
      document.push_back({{"key", key}, {"value", value ? Document(*value) : Document()}});
    else if (value)
      session.out().addLine(assignment(key, *value));
    else
      session.out().addLine("unset " + KFL::toUpper(key));
  }
  if (session.format() != Format::Table) printDocument(session, document, "changes", "change");
  return changes.empty() ? kFine : kFinding;
}

// --- check ------------------------------------------------------------------------------------------------------------

using Finding = KFA::KFAConfigFinding;

Colour colourOf(Finding::Severity severity) {
  constexpr Colour kColours[] = {Colour::Red, Colour::Magenta, Colour::Cyan};
  return kColours[static_cast<std::size_t>(severity)];
}

void printFinding(Output& out, const std::string& file, const Finding& finding) {
  const std::string place =
      printable(file) + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column);
  out.add(Colour::Bold, place + ": ")
      .add(colourOf(finding.severity), toString(finding.severity) + std::string(": "));
  out.addLine(printable(finding.text)).addLine("  " + printable(finding.lineText));
  const std::string before = printable(std::string_view(finding.lineText).substr(0, finding.column - 1));
  out.add("  " + std::string(displayWidth(before), ' ')).add(Colour::Green, "^").add("\n");
}

int check(Session& session, bool strict) {
  const KFA::KFAEnvConfigRules rules(session.environmentParser());
  Document document = Document::array();
  Troubles troubles;
  int status = kFine;
  for (const std::string& path : session.arguments()) {
    troubles.collect([&] {
      const Input input = readInput(path);
      for (const Finding& finding : checkConfig(rules, input.text)) {
        if (strict || finding.severity != Finding::Severity::Note) status = kFinding;
        if (session.format() == Format::Table)
          printFinding(session.out(), input.name, finding);
        else
          document.push_back({{"file", input.name},
                              {"line", finding.line},
                              {"column", finding.column},
                              {"severity", toString(finding.severity)},
                              {"text", finding.text}});
      }
    });
  }
  if (session.format() != Format::Table) printDocument(session, document, "findings", "finding");
  troubles.finish();
  return status;
}

Action prepareCheck(CLI::App& app) {
  const auto strict = std::make_shared<bool>(false);
  app.add_flag("--strict", *strict, "Status 1 for notes, too");
  return [strict](Session& session) { return check(session, *strict); };
}

// --- list -------------------------------------------------------------------------------------------------------------

struct ListedEnvironment {
  std::size_t sortKey = 0;
  int veid = 0;
  std::string title;
  std::string type;
  std::optional<bool> onBoot;
  std::string osTemplate;
  std::vector<std::string> addresses;
};

// Those of the record, then those of its devices; of a device that asks a server, the word dhcp.
std::vector<std::string> addressesOf(const KFAEnvConfig& config) {
  std::vector<std::string> all;
  const auto add = [&all](const std::string& address) {
    if (std::find(all.begin(), all.end(), address) == all.end()) all.push_back(address);
  };
  KFAEnvConfig::Addresses addresses;
  config.getAddresses(addresses);
  for (const KFL::KFLIPAddress& address : addresses.getValue())
    add(address.toString());
  KFAEnvConfig::NetVEths devices;
  config.getNetVEths(devices);
  for (const KFA::KFANetVEth& device : devices.getValue()) {
    if (device.getDHCP() || device.getDHCPv6()) add("dhcp");
    for (const KFL::KFLIPAddress& address : device.getIPAddresses())
      add(address.toString());
  }
  return all;
}

// What of a file the list tells.
constexpr std::string_view kListedKeys[] = {"name",   "hostname",   "ve_type", "ostemplate",
                                            "onboot", "ip_address", "netif"};

ListedEnvironment describe(const Parser& parser, int veid, const boost::shared_ptr<KFAEnvConfig>& config) {
  const KFA::KFAEnv environment(KFL::KFLEID(), config);
  Parser::ParameterParserGet keys(*config, parser);
  ListedEnvironment listed;
  listed.sortKey = environment.getSortKey();
  listed.veid = veid;
  listed.title = environment.getTitle();
  if (keys.get("ve_type", listed.type) != KFA::kParameterDone) listed.type = "regular";
  keys.get("ostemplate", listed.osTemplate);
  KFAEnvConfig::Flag onBoot;
  config->getOnBoot(onBoot);
  if (onBoot.isSpecified()) listed.onBoot = onBoot.getValue();
  listed.addresses = addressesOf(*config);
  return listed;
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words)
    text += (text.empty() ? "" : " ") + word;
  return text;
}

void printList(Session& session, const std::vector<ListedEnvironment>& environments) {
  if (session.format() == Format::Table) {
    Table table({"VEID", "TITLE", "TYPE", "ONBOOT", "TEMPLATE", "ADDRESSES"});
    for (const ListedEnvironment& listed : environments)
      table.add({std::to_string(listed.veid), listed.title, listed.type,
                 !listed.onBoot   ? ""
                 : *listed.onBoot ? "yes"
                                  : "no",
                 listed.osTemplate, joined(listed.addresses)});
    table.print(session.out());
    return;
  }
  const auto textOrNull = [](const std::string& text) { return text.empty() ? Document() : Document(text); };
  Document document = Document::array();
  for (const ListedEnvironment& listed : environments)
    document.push_back({{"veid", listed.veid},
                        {"title", listed.title},
                        {"type", listed.type},
                        {"on_boot", listed.onBoot ? Document(*listed.onBoot) : Document()},
                        {"template", textOrNull(listed.osTemplate)},
                        {"addresses", listed.addresses}});
  printDocument(session, document, "environments", "environment");
}

int list(Session& session) {
  const auto parser = session.environmentParser();
  KFA::KFAConfigFolder folder(session.argument(0), parser);
  std::vector<int> veids;
  must(folder.list(veids));
  std::vector<ListedEnvironment> environments;
  environments.reserve(veids.size());
  Troubles troubles;
  for (const int veid : veids) {
    troubles.collect([&] {
      const auto config = boost::make_shared<KFAEnvConfig>();
      must(folder.readKeys(veid, kListedKeys, *config));
      environments.push_back(describe(*parser, veid, config));
    });
  }
  std::stable_sort(environments.begin(), environments.end(),
                   [](const auto& a, const auto& b) { return a.sortKey < b.sortKey; });
  printList(session, environments);
  troubles.finish();
  return kFine;
}

constexpr Command kCommands[] = {
    {"show", "FILE", "Print a configuration as a record",
     "Every property that is specified, by element name. JSON: an object of numbers, truth values, texts, "
     "lists and\n"
     "objects. XML: the message.\n\n"
     "Examples:\n"
     "  kfactl config show 101.conf\n"
     "  kfactl --format json config show 101.conf\n"
     "  kfactl config show --veid 101 - < backup.conf",
     prepareShow},
    {"get", "FILE KEY...", "Print the values of keys",
     "A key alone: its value. Several: lines KEY=\"value\". JSON: an object from lower-case key to text. "
     "Values are in\n"
     "the form in which they are written: ARCH=i386 is x86. Status 1 when a key has no value.\n\n"
     "Examples:\n"
     "  kfactl config get 101.conf ONBOOT\n"
     "  kfactl --format json config get 101.conf hostname numproc",
     withoutOptions<get>},
    {"set", "FILE KEY=VALUE...", "Give keys new values, with every other byte kept",
     "Keys that the file lacks are appended in upper case. A value that the key does not take is refused. "
     "The file is\n"
     "replaced as a whole, or not at all.\n\n"
     "Examples:\n"
     "  kfactl config set 101.conf ONBOOT=yes HOSTNAME=web1.example.com\n"
     "  kfactl config set --dry-run 101.conf NUMPROC=200:240\n"
     "  kfactl config set --backup .old 101.conf 'NAMESERVER=192.0.2.53 192.0.2.54'",
     prepareSet},
    {"diff", "BEFORE AFTER", "Print the keys whose values differ",
     "Changed keys with their new values, then, as \"unset KEY\", those that only the first file has. Status "
     "1 when there\n"
     "are any.\n\n"
     "Examples:\n"
     "  kfactl config diff 101.conf 102.conf\n"
     "  kfactl --format json config diff 101.conf.old 101.conf",
     withoutOptions<diff>},
    {"check", "FILE...", "Report what is wrong in files",
     "Malformed lines, values that do not convert, repeated keys, and lines that only look like assignments. "
     "Status 1\n"
     "when there are errors or warnings; a key that is not ours is only noted.\n\n"
     "Examples:\n"
     "  kfactl config check /etc/kfa/conf/*.conf\n"
     "  kfactl --format json config check --strict 101.conf",
     prepareCheck},
    {"list", "DIR", "List the environments of a folder of VEID.conf files",
     "In the order of their numbers: number, title, type, start on boot, template, addresses.\n\n"
     "Examples:\n"
     "  kfactl config list /etc/kfa/conf\n"
     "  kfactl --format json config list /etc/kfa/conf",
     withoutOptions<list>},
};

}  // namespace

extern const Group configGroup;
const Group configGroup{"config", "Configuration files of environments", kCommands,
                        "  kfactl config list /etc/kfa/conf\n"
                        "  kfactl config set 101.conf ONBOOT=yes\n"
                        "  kfactl config check /etc/kfa/conf/*.conf"};

}  // namespace kfactl
