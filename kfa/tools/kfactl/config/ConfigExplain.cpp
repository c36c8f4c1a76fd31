// SPDX-License-Identifier: Apache-2.0
// kfactl config explain and keys: what a key means, and what one file makes of it.
#include <algorithm>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAConfigRules.h>
#include <KFAFunctionality/node/KFAChangeList.h>
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>
#include <KFAFunctionality/node/KFAKeyCatalogue.h>

#include "config/Config.h"
#include "environments/Environment.h"
#include "environments/Environments.h"
#include "terminal/Listing.h"
#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

// --- explain ----------------------------------------------------------------------------------------------------------

struct KeyLine {
  std::size_t number = 0;
  std::string text;
  std::string value;
};

std::string valueOf(std::string line) {
  char* name = nullptr;
  char* value = nullptr;
  const int kind = KFL::parseBashStr(line.data(), &name, &value, nullptr, nullptr);
  return kind == KFL::kBashAssignment ? value : "";
}

// The place of the line that counts, of those of a key: the last or the first that gives the record something.
std::size_t countingOf(const std::vector<KeyLine>& lines, const KFA::KFAEnvConfigRules& rules,
                       const std::string& key) {
  if (lines.empty() || rules.firstLineCounts(key)) return 0;
  for (std::size_t i = lines.size(); i > 0; --i)
    if (!rules.passesOver(key, lines[i - 1].value)) return i - 1;
  return lines.size() - 1;
}

std::vector<KeyLine> linesOf(const std::string& text, const std::string& key) {
  std::vector<KeyLine> lines;
  std::size_t number = 0;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string line(rest.substr(0, rest.find('\n')));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    ++number;
    const KFL::KFLBashLine judged = KFL::examineBashLine(line.c_str());
    if (judged.kind == KFL::KFLBashLine::Kind::Assignment && KFL::toLower(std::string(judged.name)) == key)
      lines.push_back({number, line, valueOf(line)});
  }
  return lines;
}

// The elements of a message that holds this key alone.
std::string elementsOf(const KFA::KFAEnvironmentKeys& keys) {
  KFL::KFLMessage message = messageOf(keys.getRecord());
  const std::string text = message.toPrettyString();
  const std::size_t first = text.find("\n  <");
  const std::size_t last = text.rfind("\n</");
  if (first == std::string::npos || last == std::string::npos || last <= first) return {};
  return text.substr(first + 1, last - first - 1);
}

int explain(Session& session) {
  const Environments environments(session, {session.argument(0)}, WhenNone::Refuse);
  if (!environments.isSingle())
    throw Trouble("'" + session.argument(0) + "': one environment is wanted here");
  const auto parser = session.environmentParser();
  const std::string& word = session.argument(1);
  checkKey(*parser, word, "'kfactl raw get' reads any key");
  const std::string key = KFL::toLower(word);
  const Input input = readNodeFile(environments.files().front().path);
  const KFA::KFAEnvConfigRules rules(parser);
  KFA::KFAEnvironmentKeys keys(parser);
  keys.want({key});
  must(keys.read(input.text, input.name));
  const std::vector<KeyLine> lines = linesOf(input.text, key);
  const std::string* const shell = keys.getText(key);
  const std::size_t counting = countingOf(lines, rules, key);
  std::string kept;
  bool isKept = keys.get(key, kept);
  // What gives no value of its own, as TECHNOLOGIES does, has the text of the line.
  if (!isKept && !lines.empty() && !lines[counting].value.empty() &&
      !rules.passesOver(key, lines[counting].value)) {
    kept = lines[counting].value;
    isKept = true;
  }
  const bool isTaken = shell != nullptr && rules.accept(key, *shell) == 0;
  const std::string reason = shell == nullptr || isTaken ? std::string() : KFL::getErrorMessage();
  const std::string elements = elementsOf(keys);
  if (session.format() != Format::Table) {
    Document document = documentOf(environments.files().front());
    document["key"] = key;
    document["lines"] = Document::array();
    for (const KeyLine& line : lines)
      document["lines"].push_back({{"line", line.number}, {"text", line.text}});
    document["shell"] = shell == nullptr ? Document() : Document(*shell);
    document["record"] = isKept ? Document(kept) : Document();
    document["message"] = elements;
    document["fault"] = reason.empty() ? Document() : Document(reason);
    document["takes"] = rules.getAcceptedForm(key);
    printDocument(session, document, "explanation");
    return isTaken || shell == nullptr ? kFine : kFinding;
  }
  Output& out = session.out();
  for (std::size_t i = 0; i < lines.size(); ++i)
    out.addLine(printable("line " + std::to_string(lines[i].number) +
                          (i == counting ? ", which counts:  " : ", idle:  ") + lines[i].text));
  if (lines.empty()) out.addLine("no line has " + KFL::toUpper(key));
  out.addLine("a shell assigns:   " + (shell == nullptr ? "nothing" : KFA::quoteForShell(*shell)));
  out.addLine("the record keeps:  " + (isKept ? KFA::quoteForShell(kept) : "nothing"));
  out.addLine("the message says:" + std::string(elements.empty() ? "  nothing" : ""));
  for (std::string_view rest = elements; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    out.addLine(printable(line));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
  }
  if (!reason.empty()) out.add(Colour::Red, "refused:  " + printable(reason)).add("\n");
  out.addLine("it takes:  " + rules.getAcceptedForm(key));
  return reason.empty() ? kFine : kFinding;
}

// --- keys -------------------------------------------------------------------------------------------------------------

Document describe(const KFA::KFAKeyDescription& key) {
  return {{"key", key.key},
          {"takes", key.form},
          {"unit", key.unit.empty() ? Document() : Document(key.unit)},
          {"default", key.without},
          {"example", key.example},
          {"description", key.description}};
}

void printOne(Session& session, const KFA::KFAKeyDescription& key) {
  Table table({"KEY", key.key});
  table.add({"takes", key.form});
  if (!key.unit.empty()) table.add({"unit", key.unit});
  table.add({"default", key.without});
  table.add({"example", key.key + "=\"" + key.example + "\""});
  table.add({"description", key.description});
  table.print(session.out());
}

int listKeys(Session& session) {
  const auto parser = session.environmentParser();
  const KFA::KFAKeyCatalogue catalogue(parser, session.vocabulary());
  if (!session.arguments().empty()) {
    checkKey(*parser, session.argument(0), "'kfactl config keys' lists them all");
    const KFA::KFAKeyDescription& key = *catalogue.find(KFL::toLower(session.argument(0)));
    if (session.format() == Format::Table)
      printOne(session, key);
    else
      printDocument(session, describe(key), "key");
    return kFine;
  }
  Listing listing({"KEY", "TAKES", "UNIT", "DEFAULT", "EXAMPLE"});
  for (const auto& [name, key] : catalogue.getKeys())
    listing.add({key.key, key.form, key.unit, key.without, key.example}, describe(key));
  listing.print(session, {}, "keys", "key");
  return kFine;
}

}  // namespace

Action prepareExplain(CLI::App& app) {
  return withoutOptions<explain>(app);
}

Action prepareKeys(CLI::App& app) {
  return withoutOptions<listKeys>(app);
}

}  // namespace kfactl
