// SPDX-License-Identifier: Apache-2.0
// kfactl message: records as XML messages.
#include <filesystem>
#include <map>
#include <memory>
#include <system_error>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLElementLines.h>

#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/node/KFAChangeList.h>
#include <KFAFunctionality/node/KFAEnvironmentText.h>

#include "environments/Environment.h"
#include "environments/Environments.h"
#include "environments/FileChange.h"
#include "environments/RecordView.h"
#include "message/MessageCheck.h"
#include "message/MessageStream.h"
#include "terminal/Cli.h"
#include "terminal/Document.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using KFA::KFAEnvConfig;
using Parser = KFA::KFAEnvConfigBashParser;

// Calls visit(number, line) for each line, without its newline.
template <class Visit>
void eachLine(std::string_view text, Visit visit) {
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    visit(number, text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

// --- from-config ------------------------------------------------------------------------------------------------------

// Names the first line whose value cannot stand in a message, where there is one.
[[noreturn]] void refuseValues(const Parser& parser, const Input& input) {
  const std::string reason = KFL::getErrorMessage();
  eachLine(input.text, [&](std::size_t number, std::string_view view) {
    const std::string text(view);
    const KFL::KFLBashLine line = KFL::examineBashLine(text.c_str());
    std::size_t bad = 0;
    if (line.kind != KFL::KFLBashLine::Kind::Assignment || KFL::isUtf8(text, &bad) ||
        !parser.isKey(KFL::toLower(std::string(line.name))) || text.c_str() + bad < line.value.data() ||
        text.c_str() + bad >= line.value.data() + line.value.size())
      return;
    throw Trouble(input.name + ":" + std::to_string(number) + ":" + std::to_string(bad + 1) +
                  ": the value of " + std::string(line.name) +
                  " is not UTF-8, so it cannot stand in a message");
  });
  throw Trouble(input.name + ": " + reason);
}

// Says which resource values the record, and so the message, holds as another number or not at all.
void warnOfLosses(const boost::shared_ptr<const Parser>& parser, const Input& input) {
  for (const auto& finding : checkConfig(KFA::KFAEnvConfigRules(parser), input.text)) {
    const KFL::KFLBashLine line = KFL::examineBashLine(finding.lineText.c_str());
    if (finding.severity == KFA::KFAConfigFinding::Severity::Error &&
        parser->getQoSMap().count(KFL::toLower(std::string(line.name))) != 0)
      printError(input.name + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) +
                 ": warning: " + finding.text);
  }
}

std::string messageTextOf(Session& session, const Input& input, const std::string& veid) {
  std::string text = messageOf(readEnvironment(session, input, veid)).toPrettyString();
  if (text.empty()) refuseValues(*session.environmentParser(), input);
  int number = 0;
  if (veid.empty() && KFA::getVeidOfPath(input.name, number) != 0)
    printNote(input.name + ": the name holds no VEID, so the message has none; --veid NUMBER gives one");
  warnOfLosses(session.environmentParser(), input);
  return text;
}

// Of several environments the messages follow one another.
int fromConfig(Session& session, const std::string& veid, const FileChange& change) {
  Environments environments(session, session.arguments(), WhenNone::Refuse);
  if (!environments.isSingle() && !veid.empty())
    throw Trouble("--veid is for one environment; name one FILE");
  std::string text;
  environments.each([&](const auto&, const Input& input) { text += messageTextOf(session, input, veid); });
  static_cast<void>(change.create(session, text));
  return environments.status(kFine);
}

Action prepareFromConfig(CLI::App& app) {
  struct Options {
    std::string veid;
    FileChange change;
  };
  const auto options = std::make_shared<Options>();
  app.add_option("--veid", options->veid, "The environment's number, instead of that in the file's name")
      ->type_name("NUMBER");
  options->change.declareOutput(app);
  return [options](Session& session) { return fromConfig(session, options->veid, options->change); };
}

// --- to-config --------------------------------------------------------------------------------------------------------

KFAEnvConfig readConfiguration(const Input& input) {
  KFL::KFLMessage message;
  parseMessage(input, message);
  const KFL::KFLMessageIterator root = message.getIterator();
  const KFL::KFLFieldTable& fields = KFAEnvConfig::elements();
  const bool isTagged =
      root.getTypeTag() == fields.typeTag() && root.getTypeNamespace() == fields.namespaceUri();
  const bool isNamed = root.getTypeTag().empty() && root.getName() == "venv_config";
  if (!isTagged && !isNamed) {
    const std::string tag = root.getTypeTag().empty() ? "" : " of the type " + std::string(root.getTypeTag());
    throw Trouble(elementText(
        input.name, KFL::KFLElementLines(input.text)[0], root.getPath(),
        "no configuration" + tag + "; an element with the type tag " + fields.typeTag() + " is wanted"));
  }
  const KFL::KFLMessageFindings faults = KFL::findFaults(root, &fields, KFL::KFLFaultScope::Any);
  if (!faults.empty()) refuseElement(input, faults.front());
  KFAEnvConfig config;
  if (KFAEnvConfig::Reader()(root, config) != 0) throw Trouble(input.name + ": the message cannot be read");
  return config;
}

std::string writeConfiguration(const Parser& parser, const KFAEnvConfig& config, const FileChange& change,
                               const std::string* existing, const std::string& name) {
  std::string text;
  must(KFA::writeEnvironment(parser, config, change.options(), existing, name, text));
  return text;
}

// A file that holds what the record does not say is rarely meant to be lost.
void noteReplaced(const FileChange& change) {
  const std::string& path = change.output();
  std::error_code error;
  if (path.empty() || isStandardStream(path) || !std::filesystem::exists(path, error)) return;
  printNote(path + (change.isDryRun() ? ": would be replaced whole" : ": is replaced whole") + "; --merge " +
            KFA::quoteForShell(path) + " keeps its comments and the keys of others");
}

int toConfig(Session& session, const std::string& mergePath, const FileChange& change) {
  const Input input = readInput(session.argument(0));
  const auto parser = session.environmentParser();
  const KFAEnvConfig config = KFA::withoutCompletion(*parser, readConfiguration(input));
  must(KFA::checkWritable(*parser, config, change.options(), input.name));
  if (mergePath.empty()) {
    noteReplaced(change);
    return change.create(session, writeConfiguration(*parser, config, change, nullptr, {}));
  }
  return change.merge(session, pathOfOne(session, mergePath),
                      [&](const std::string& name, const std::string& before) {
                        return writeConfiguration(*parser, config, change, &before, name);
                      });
}

Action prepareToConfig(CLI::App& app) {
  struct Options {
    std::string merge;
    FileChange change;
  };
  const auto options = std::make_shared<Options>();
  app.add_option("--merge", options->merge,
                 "Keep the lines of this file, with new values for the record's keys")
      ->type_name("FILE");
  options->change.declare(app);
  return [options](Session& session) { return toConfig(session, options->merge, options->change); };
}

// --- check ------------------------------------------------------------------------------------------------------------

struct CheckOptions {
  std::string record;
  bool print = false;
};

void printWritten(Session& session, const Input& input, const KFL::KFLMessage& written) {
  const std::string text = written.toPrettyString();
  if (text.empty()) throwLibraryError(input.name);
  session.out().add(text);
}

int check(Session& session, const CheckOptions& options) {
  if (options.print && session.format() == Format::Json)
    throw Trouble("--print: a message has no json form; leave --format out");
  Document document = Document::array();
  Troubles troubles;
  int status = kFine;
  const auto checkOne = [&](const Input& input) {
    const MessageCheck checked = checkMessage(input, options.record);
    if (!checked.findings.empty()) status = kFinding;
    if (options.print) return printWritten(session, input, checked.written);
    for (const auto& [line, element, text] : checked.findings) {
      if (session.format() == Format::Table)
        session.out().addLine(printable(elementText(input.name, line, element, text)));
      else
        document.push_back({{"file", input.name}, {"line", line}, {"element", element}, {"text", text}});
    }
  };
  for (const std::string& path : session.arguments()) {
    troubles.collect([&] {
      eachMessage(readInput(path), [&](const Input& message, const std::string&) {
        troubles.collect([&] { checkOne(message); });
      });
    });
  }
  if (session.format() != Format::Table && !options.print)
    printDocument(session, document, "findings", "finding");
  return troubles.status(status);
}

Action prepareCheck(CLI::App& app) {
  const auto options = std::make_shared<CheckOptions>();
  app.add_option("--record", options->record,
                 "The class name of the record, instead of the type tag of the root")
      ->type_name("NAME");
  app.add_flag("--print", options->print, "Print the message that the record writes, instead of findings");
  return [options](Session& session) { return check(session, *options); };
}

constexpr Command kCommands[] = {
    {"from-config", "FILE...",
     "Print environments' configuration files as XML messages, one behind the other",
     "The number of the environment is that in the file's name (101.conf), unless --veid says otherwise.\n\n"
     "Examples:\n"
     "  kfactl message from-config 101.conf > 101.xml\n"
     "  kfactl message from-config onboot=yes | kfactl message check -\n"
     "  kfactl message from-config --veid 101 - < backup.conf",
     prepareFromConfig, kTableOnly | 1U << static_cast<unsigned>(Format::Xml)},
    {"to-config", "XML", "Print an XML message as an environment's configuration file",
     "The whole record is written. With --merge the result is the file named there with the record's values; "
     "it goes to\n"
     "standard output unless --output says otherwise.\n\n"
     "Examples:\n"
     "  kfactl message to-config 101.xml\n"
     "  kfactl message to-config 101.xml --merge 101.conf --output 101.conf\n"
     "  kfactl message to-config 101.xml --merge 101.conf --dry-run",
     prepareToConfig, kTableOnly},
    {"check", "XML...", "Report what a record does not read, or does not keep, of a message",
     "The record is found by the type tag of the root element, or, where it has none, by its name. It is "
     "read and "
     "written again;\n"
     "what differs is reported with status 1, a message that cannot be read with status 2. A file may hold "
     "several.\n\n"
     "Examples:\n"
     "  kfactl message check 101.xml\n"
     "  kfactl message check --record KFATemplate template.xml\n"
     "  kfactl message check --print 101.xml",
     prepareCheck},
};

}  // namespace

extern const Group messageGroup;
const Group messageGroup{"message", "Records as XML messages", kCommands,
                         "  kfactl message from-config 101.conf > 101.xml\n"
                         "  kfactl message check 101.xml\n"
                         "  kfactl message to-config 101.xml --merge 101.conf --output 101.conf"};

}  // namespace kfactl
