// SPDX-License-Identifier: Apache-2.0
#include "environments/NodeOptions.h"

#include <filesystem>
#include <optional>
#include <set>

#include <CLI/CLI.hpp>

#include <KFLCommon/KFLText.h>
#include <KFLCore/KFLFolders.h>

#include <KFAFunctionality/access/KFAAgentFiles.h>

#include "cache/CacheImage.h"
#include "cache/CacheTemplate.h"
#include "terminal/Input.h"
#include "terminal/Node.h"
#include "terminal/Session.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

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

KFA::KFANodeResources resources(Session& session, const NodeOptions& options) {
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

}  // namespace

void NodeOptions::declare(CLI::App& app) {
  app.add_option("--foreign", foreign,
                 "A list of keys of other tools; the node's file foreign-keys when left out")
      ->type_name("FILE");
  app.add_option("--cache", cache, "The template cache that tells which templates there are")
      ->type_name("FILE");
  app.add_option("--memory", memory,
                 "The node's memory, such as 64G; this machine's when left out, not judged when 0")
      ->type_name("SIZE");
  app.add_option("--disk", disk,
                 "The node's disk space; that of the node's folder when left out, not judged when 0")
      ->type_name("SIZE");
  app.add_option("--cpus", cpus, "The node's processors; this machine's when left out, not judged when 0")
      ->type_name("COUNT");
}

KFA::KFANodeCheckOptions NodeOptions::resolve(Session& session) const {
  return {foreignKeys(session, foreign), templates(cache), resources(session, *this)};
}

std::function<Environments::Make()> judging(Session& session, const KFA::KFANodeCheckOptions& how,
                                            const std::function<void(KFA::KFAJudgedFile judged)>& add) {
  return [parser = session.environmentParser(), keys = how.foreignKeys, add] {
    const auto judge = std::make_shared<KFA::KFAFileJudge>(parser, keys);
    return [judge, add](const Environments::File& file, const Input& input) {
      const auto judged =
          std::make_shared<KFA::KFAJudgedFile>(judge->judge({input.name, file.veid}, input.text));
      return [judged, keys = judged->keys, add] { add(std::move(*judged)); };
    };
  };
}

}  // namespace kfactl
