// SPDX-License-Identifier: Apache-2.0
// kfactl config show, get and list: what environments say.
#include <algorithm>
#include <memory>
#include <optional>
#include <set>

#include <CLI/CLI.hpp>
#include <boost/make_shared.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/environment/KFAEnv.h>
#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>
#include <KFAFunctionality/node/KFAEnvironmentSummary.h>
#include <KFAFunctionality/node/KFAKeyCatalogue.h>

#include "config/Config.h"
#include "environments/Environment.h"
#include "environments/Environments.h"
#include "environments/RecordView.h"
#include "terminal/Listing.h"
#include "terminal/Trouble.h"
#include "terminal/Values.h"

namespace kfactl {

namespace {

using KFA::KFAEnvConfig;
using KFA::KFAEnvironmentKeys;
using KFA::KFAEnvironmentSummary;

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

// A resource parameter with its unit.
std::string resourceLine(const KFA::KFAKeyCatalogue& catalogue, const Document& item) {
  const std::string id = item.value("id", std::string());
  std::optional<long long> barrier;
  if (item.contains("soft")) barrier = item.value("soft", 0LL);
  return id + " " + catalogue.showHeld(KFL::toLower(id), barrier, item.value("hard", 0LL));
}

void printRecord(Session& session, const Document& record, bool raw) {
  const KFA::KFAKeyCatalogue catalogue(session.environmentParser(), session.vocabulary());
  Table table({"PROPERTY", "VALUE"});
  for (const auto& [name, value] : record.items()) {
    const bool isList = value.is_array();
    for (const Document& item : isList ? value : Document::array({value})) {
      const std::string line = name == "qos" && !raw ? resourceLine(catalogue, item) : oneLine(item);
      table.add({name, line.empty() ? "\"\"" : line});
    }
    if (isList && value.empty()) table.add({name, {}});
  }
  table.print(session.out());
}

// A record does not show what it could not take from its file.
void noteErrors(Session& session, const Input& input) {
  const auto findings = checkConfig(KFA::KFAEnvConfigRules(session.environmentParser()), input.text);
  const auto errors = std::count_if(findings.begin(), findings.end(), [](const auto& finding) {
    return finding.severity == KFA::KFAConfigFinding::Severity::Error;
  });
  if (errors == 0) return;
  printNote(input.name + " has " + std::to_string(errors) + (errors == 1 ? " error" : " errors") +
            "; 'kfactl config check " + input.name + "' shows " + (errors == 1 ? "it" : "them"));
}

int show(Session& session, const std::string& veid, bool raw) {
  Environments environments(session, session.arguments(), WhenNone::All);
  const bool isSingle = environments.isSingle();
  if (!isSingle && !veid.empty()) throw Trouble("--veid is for one environment; name one FILE");
  if (!isSingle && session.format() == Format::Xml)
    throw Trouble("the XML form is a message of one environment; name one FILE");
  Document all = Document::array();
  environments.each(
      [&](const auto& file, const Input& input) {
        KFL::KFLMessage message = messageOf(readEnvironment(session, input, veid));
        if (session.format() == Format::Xml) {
          const std::string text = message.toPrettyString();
          if (text.empty()) throwLibraryError(input.name);
          session.out().add(text);
        } else {
          const Document record = describeElement(message.getIterator(), &KFAEnvConfig::elements());
          if (session.format() == Format::Json) {
            all.push_back(isSingle ? record : documentOf(file, record));
          } else {
            if (!isSingle) session.out().add(Colour::Bold, printable(input.name) + ":").add("\n");
            printRecord(session, record, raw);
          }
        }
        noteErrors(session, input);
      },
      [&](const auto& file, const std::string& why) { all.push_back(failureOf(file, why)); });
  if (session.format() == Format::Json) printDocument(session, isSingle ? all.front() : all, "venv_config");
  return environments.status(kFine);
}

// --- get --------------------------------------------------------------------------------------------------------------

struct GetOptions {
  bool columns = false;
  bool raw = false;
  Listing::Options listing;
};

// Of these keys: one whose text is not taken shows as something that nobody wrote. What shows as it was written needs no
// judgement; of lists, addresses show without their networks and devices in part.
std::vector<std::string> refusedKeys(const KFA::KFAConfigRules& rules, const KFAEnvironmentKeys& keys,
                                     const std::set<std::string>& shownKeys) {
  std::vector<std::string> reasons;
  std::string shown;
  for (const std::string& key : shownKeys) {
    const std::string* const text = keys.getText(key);
    if (text == nullptr) continue;
    const bool isList = key == "ip_address" || key == "netif";
    if (!isList && keys.get(key, shown) && shown == *text) continue;
    if (rules.accept(key, *text) != 0) reasons.push_back(KFL::getErrorMessage());
  }
  return reasons;
}

std::set<std::string> lowerOf(const std::vector<std::string>& keys) {
  std::set<std::string> lower;
  for (const std::string& key : keys)
    lower.insert(KFL::toLower(key));
  return lower;
}

// Each key once, in upper case.
std::vector<std::string> upperOf(const std::vector<std::string>& keys) {
  std::vector<std::string> upper;
  for (const std::string& key : keys) {
    std::string name = KFL::toUpper(key);
    if (std::find(upper.begin(), upper.end(), name) == upper.end()) upper.push_back(std::move(name));
  }
  return upper;
}

// The keys of several files, as grep shows lines of several.
class ManyValues {
 public:
  // catalogue: null for numbers without units.
  ManyValues(Session& session, const std::vector<std::string>& keys, bool columns,
             const KFA::KFAKeyCatalogue* catalogue)
      : session_(session),
        keys_(upperOf(keys)),
        isPlain_(!columns),
        catalogue_(catalogue),
        listing_(headingsOf(keys_)) {}

  void add(const KFA::KFAEnvironmentFile& file, const Input& input, const KFAEnvironmentKeys& values) {
    std::vector<std::string> cells = {file.veid >= 0 ? std::to_string(file.veid) : input.name};
    Document data = Document::object();
    for (const std::string& key : keys_) {
      std::string value;
      const bool has = values.getOrText(KFL::toLower(key), value);
      found_ = found_ || has;
      if (!has) {
        cells.emplace_back();
        continue;
      }
      if (isPlain_ && session_.format() == Format::Table)
        session_.out().addLine(printable(input.name) + ": " + assignment(key, value));
      else if (session_.format() == Format::Table)
        cells.push_back(value.empty()           ? "\"\""
                        : catalogue_ == nullptr ? value
                                                : catalogue_->showValue(KFL::toLower(key), value));
      else
        data[KFL::toLower(key)] = std::move(value);
    }
    if (session_.format() != Format::Table)
      listing_.add(std::move(cells), documentOf(file, std::move(data)));
    else if (!isPlain_)
      listing_.add(std::move(cells), {});
  }
  void fail(const KFA::KFAEnvironmentFile& file, const std::string& why) {
    listing_.add(failureOf(file, why));
  }

  // Status 1 when no file has any of the keys.
  int print(const Listing::Options& options) {
    if (session_.format() != Format::Table || !isPlain_)
      listing_.print(session_, options, "environments", "environment");
    return found_ ? kFine : kFinding;
  }

 private:
  static std::vector<std::string> headingsOf(const std::vector<std::string>& keys) {
    std::vector<std::string> headings = {"VEID"};
    headings.insert(headings.end(), keys.begin(), keys.end());
    return headings;
  }

  Session& session_;
  std::vector<std::string> keys_;
  bool isPlain_;
  const KFA::KFAKeyCatalogue* catalogue_;
  bool found_ = false;
  Listing listing_;
};

int get(Session& session, const GetOptions& options) {
  const FilesAndKeys words = splitFilesAndKeys(session, "'kfactl raw get' reads any key");
  if (words.keys.empty()) throw Trouble("KEY is missing; 'kfactl config keys' lists them all");
  const bool isTable = options.columns || !options.listing.sort.empty() || options.listing.noHeader;
  Environments environments(session, words.files, WhenNone::All);
  const auto parser = parserFor(session, words.keys);
  const KFA::KFAEnvConfigRules rules(parser);
  const std::set<std::string> wanted = lowerOf(words.keys);
  KFAEnvironmentKeys values(parser);
  values.want(wanted);
  const auto read = [&](const Input& input) {
    must(values.read(input.text, input.name));
    for (const std::string& reason : refusedKeys(rules, values, wanted))
      printNote(input.name + ": " + reason);
  };
  int status = kFine;
  if (environments.isSingle() && !isTable) {
    environments.each([&](const auto&, const Input& input) {
      read(input);
      status = printAskedValues(
          session, input.name, words.keys,
          [&](const std::string& key, std::string& value) { return values.getOrText(key, value); });
    });
    return status;
  }
  std::optional<KFA::KFAKeyCatalogue> catalogue;
  if (isTable && !options.raw && session.format() == Format::Table)
    catalogue.emplace(session.environmentParser(), session.vocabulary());
  ManyValues many(session, words.keys, isTable, catalogue ? &*catalogue : nullptr);
  environments.each(
      [&](const auto& file, const Input& input) {
        read(input);
        many.add(file, input, values);
      },
      [&](const auto& file, const std::string& why) { many.fail(file, why); });
  status = many.print(options.listing);
  return environments.status(status);
}

// --- list -------------------------------------------------------------------------------------------------------------

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words)
    text += (text.empty() ? "" : " ") + word;
  return text;
}

Document describe(const KFA::KFAEnvironmentFile& file, const KFAEnvironmentSummary& listed) {
  const auto textOrNull = [](const std::string& text) { return text.empty() ? Document() : Document(text); };
  Document document = documentOf(file);
  document.update({{"title", listed.title},
                   {"type", listed.type},
                   {"on_boot", listed.onBoot ? Document(*listed.onBoot) : Document()},
                   {"template", textOrNull(listed.osTemplate)},
                   {"addresses", listed.addresses}});
  return document;
}

// Documents of thousands of files take longer than reading these, so a table has none.
void addRow(Session& session, Listing& listing, const KFA::KFAEnvironmentFile& file,
            const KFAEnvironmentSummary& listed) {
  listing.add({file.veid >= 0 ? std::to_string(file.veid) : file.path, listed.title, listed.type,
               listed.onBootText(), listed.osTemplate, joined(listed.addresses)},
              session.format() == Format::Table ? Document() : describe(file, listed));
}

// For Environments::eachAtOnce(): a row for each file.
std::function<Environments::Make()> listing(Session& session, Listing& rows) {
  return [&session, &rows, parser = boost::make_shared<KFA::KFAEnvConfigBashParser>()] {
    const auto keys = std::make_shared<KFAEnvironmentKeys>(parser);
    keys->want(KFAEnvironmentSummary::keys());
    const auto rules = std::make_shared<KFA::KFAEnvConfigRules>(parser);
    return [&session, &rows, keys, rules](const Environments::File& file, const Input& input) {
      must(keys->read(input.text, input.name));
      const KFAEnvironmentSummary summary(*keys, file.veid);
      return [&session, &rows, &file, summary, name = input.name,
              reasons = refusedKeys(*rules, *keys, KFAEnvironmentSummary::keys())] {
        addRow(session, rows, file, summary);
        for (const std::string& reason : reasons)
          printNote(name + ": " + reason);
      };
    };
  };
}

int list(Session& session, const Listing::Options& options) {
  Environments environments(session, session.arguments(), WhenNone::All);
  Listing rows({"VEID", "TITLE", "TYPE", "ONBOOT", "TEMPLATE", "ADDRESSES"});
  environments.eachAtOnce(listing(session, rows),
                          [&](const auto& file, const std::string& why) { rows.add(failureOf(file, why)); });
  rows.print(session, options, "environments", "environment");
  return environments.status(kFine);
}

}  // namespace

Action prepareShow(CLI::App& app) {
  const auto veid = std::make_shared<std::string>();
  app.add_option("--veid", *veid, "The environment's number, instead of that in the file's name")
      ->type_name("NUMBER");
  const auto raw = std::make_shared<bool>(false);
  app.add_flag("--raw", *raw, "Print stored numbers, without units");
  return [veid, raw](Session& session) { return show(session, *veid, *raw); };
}

Action prepareGet(CLI::App& app) {
  const auto options = std::make_shared<GetOptions>();
  app.add_flag("--columns", options->columns, "A table with a column for each key");
  app.add_flag("--raw", options->raw, "In a table, print numbers without units");
  options->listing.declare(app);
  return [options](Session& session) { return get(session, *options); };
}

Action prepareList(CLI::App& app) {
  const auto options = std::make_shared<Listing::Options>();
  options->declare(app);
  return [options](Session& session) { return list(session, *options); };
}

}  // namespace kfactl
