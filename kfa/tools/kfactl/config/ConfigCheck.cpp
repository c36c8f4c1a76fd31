// SPDX-License-Identifier: Apache-2.0
// kfactl config check: what is wrong in files, and between them.
#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLText.h>
#include <KFLCore/KFLFolders.h>

#include <KFAFunctionality/access/KFAAgentFiles.h>
#include <KFAFunctionality/node/KFANodeCheck.h>

#include "cache/CacheImage.h"
#include "cache/CacheTemplate.h"
#include "config/Config.h"
#include "config/Sarif.h"
#include "environments/Environments.h"
#include "environments/Findings.h"
#include "terminal/Document.h"
#include "terminal/Hint.h"
#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using KFA::KFANodeFinding;
using Severity = KFANodeFinding::Severity;

struct CheckOptions {
  bool strict = false;
  std::string level = "note";
  std::string foreign;
  std::string cache;
  std::string memory;
  std::string disk;
  std::string cpus;
};

// --- What is known of the node ----------------------------------------------------------------------------------------

bool exists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

std::set<std::string> foreignKeys(Session& session, const std::string& given) {
  const std::string known = session.node() + "/" + KFA::kForeignKeysFile;
  if (!given.empty()) return KFA::parseForeignKeys(readInput(given).text);
  return nodeFiles().exists(known) ? KFA::parseForeignKeys(readNodeFile(known).text)
                                   : std::set<std::string>();
}

// Those that another node knows.
std::optional<std::set<std::string>> templatesOf(KFA::KFAAgentFiles& agent) {
  KFA::KFANodeHoldings holdings;
  must(agent.getHoldings(holdings));
  if (!holdings.knowsTemplates) return std::nullopt;
  return std::set<std::string>(holdings.templates.begin(), holdings.templates.end());
}

// The templates of a cache file as NAME and NAME/VERSION.
std::optional<std::set<std::string>> templates(const std::string& given) {
  if (given.empty() && nodeAgent()) return templatesOf(*nodeAgent());
  const std::string path = given.empty() ? KFL::getUploadsFolder() + "/template.cache" : given;
  if (given.empty() && !exists(path)) return std::nullopt;
  CacheImage image(path, {KFL::KFLProofScope::Kept});
  image.mustBeSound();
  const KFL::KFLSnapshotView snapshot = image.snapshot();
  std::set<std::string> names;
  for (std::uint32_t index = 0; index < snapshot.size(); ++index) {
    const KFA::KFATemplateObject object = readTemplate(
        {path + ": item " + std::string(snapshot.getKey(index)), std::string(snapshot.getText(index))});
    names.insert(object.getName());
    if (!object.getVersion().getValue().empty())
      names.insert(object.getName() + "/" + object.getVersion().getValue());
  }
  return names;
}

// A number with K, M, G or T for powers of 1024.
long long parseSize(const std::string& option, const std::string& text) {
  constexpr std::string_view kUnits = "KMGT";
  const std::size_t unit = text.empty() ? std::string_view::npos : kUnits.find(KFL::toUpper(text.back()));
  const bool hasUnit = unit != std::string_view::npos;
  long long number = 0;
  if (KFL::parseInteger(std::string_view(text).substr(0, text.size() - (hasUnit ? 1 : 0)), number) != 0 ||
      number < 0 || number > (1LL << 22))
    if (hasUnit || KFL::parseInteger(text, number) != 0 || number < 0)
      throw Trouble(option + ": '" + text + "' is no size; write for example 64G");
  return hasUnit ? number << (10 * (unit + 1)) : number;
}

KFA::KFANodeResources resources(Session& session, const CheckOptions& options) {
  KFA::KFANodeResources node;
  must(nodeFiles().getResources(session.node(), node));
  if (!options.memory.empty()) node.memory = parseSize("--memory", options.memory);
  if (!options.disk.empty()) node.disk = parseSize("--disk", options.disk);
  long long processors = 0;
  if (!options.cpus.empty() &&
      (KFL::parseInteger(options.cpus, processors) != 0 || processors < 0 || processors > 1000000))
    throw Trouble("--cpus: '" + options.cpus + "' is no number of processors; write for example 16");
  if (!options.cpus.empty()) node.cpu = processors * 10000;
  return node;
}

// --- The command ------------------------------------------------------------------------------------------------------

Severity levelOf(const std::string& name) {
  for (const Severity severity : {Severity::Error, Severity::Warning, Severity::Note})
    if (name == toString(severity)) return severity;
  throw Trouble("--level: unknown level '" + name + "'; " + hintFor(name, {"error", "warning", "note"}));
}

void print(Session& session, const std::vector<KFANodeFinding>& findings, const Environments& environments,
           Document failures) {
  if (session.format() == Format::Sarif) return printSarif(session, findings);
  if (session.format() != Format::Table) {
    Document all = Document::array();
    for (const KFANodeFinding& finding : findings)
      all.push_back(describeFinding(finding));
    for (Document& failure : failures)
      all.push_back(std::move(failure));
    return printDocument(session, all, "findings", "finding");
  }
  for (const KFANodeFinding& finding : findings)
    printFinding(session.out(), finding);
  if (!environments.isSingle())
    session.out().add(Colour::Bold, summaryOf(findings, environments.files().size())).add("\n");
}

int check(Session& session, const CheckOptions& options) {
  const Severity level = levelOf(options.level);
  Environments environments(session, session.arguments(), WhenNone::All);
  KFA::KFANodeCheck node(
      session.environmentParser(),
      {foreignKeys(session, options.foreign), templates(options.cache), resources(session, options)},
      nodeFiles());
  Document failures = Document::array();
  environments.each(
      [&](const auto& file, const Input& input) {
        node.add({input.name, file.veid}, input.text);
      },
      [&](const auto& file, const std::string& why) { failures.push_back(failureOf(file, why)); });
  std::vector<KFANodeFinding> findings = node.finish();
  std::erase_if(findings, [level](const KFANodeFinding& finding) { return finding.severity > level; });
  if (!environments.isSingle()) sortBySeverity(findings);
  const bool isFound = std::any_of(findings.begin(), findings.end(), [&](const KFANodeFinding& finding) {
    return options.strict || finding.severity != Severity::Note;
  });
  print(session, findings, environments, std::move(failures));
  return environments.status(isFound ? kFinding : kFine);
}

}  // namespace

Action prepareCheck(CLI::App& app) {
  const auto options = std::make_shared<CheckOptions>();
  app.add_flag("--strict", options->strict, "Status 1 for notes, too");
  app.add_option("--level", options->level, "Show error, warning or note, and what is worse")
      ->type_name("LEVEL");
  app.add_option("--foreign", options->foreign,
                 "A list of keys of other tools; the node's file foreign-keys when left out")
      ->type_name("FILE");
  app.add_option("--cache", options->cache, "The template cache that tells which templates there are")
      ->type_name("FILE");
  app.add_option("--memory", options->memory, "The node's memory, such as 64G; this machine's when left out")
      ->type_name("SIZE");
  app.add_option("--disk", options->disk, "The node's disk space; that of the node's folder when left out")
      ->type_name("SIZE");
  app.add_option("--cpus", options->cpus, "The node's processors; this machine's when left out")
      ->type_name("COUNT");
  return [options](Session& session) { return check(session, *options); };
}

}  // namespace kfactl
