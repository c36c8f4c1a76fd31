// SPDX-License-Identifier: Apache-2.0
#include "manual/Pages.h"

#include <CLI/CLI.hpp>

#include <KFLCore/KFLFolders.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include <KFAFunctionality/node/KFAKeyCatalogue.h>
#include <KFAFunctionality/resources/KFAQoSTune.h>

#include "manual/Markdown.h"
#include "manual/Roff.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

constexpr const char* kProgram = "kfactl";

void addOptions(Roff& page, const CLI::App& app) {
  for (const CLI::Option* option : app.get_options()) {
    std::string names = option->get_name(false, true);
    for (std::size_t at = 0; (at = names.find(',', at)) != std::string::npos; at += 2)
      names.replace(at, 1, ", ");
    const std::string argument = option->get_type_name();
    const bool isFlag = option->get_type_size_max() == 0;
    if (!isFlag && !argument.empty()) names.append(" ").append(argument);
    page.item(names, option->get_description() + ".");
  }
}

void addCommand(Roff& page, const std::string& path, const Command& command) {
  const std::string form = *command.arguments == '\0' ? "" : std::string(" ") + command.arguments;
  page.subsection(path + form).paragraph(std::string(command.summary) + ".");
  CLI::App app;
  app.set_help_flag();
  const Action action = command.prepare(app);
  addOptions(page, app);
  page.help(command.help);
}

std::string printGroup(const Group& group) {
  const std::string path = std::string(kProgram) + " " + group.name;
  Roff page(std::string(kProgram) + "-" + group.name, 1, group.summary);
  page.section("COMMANDS");
  for (const Command& command : group.commands)
    addCommand(page, command.name == nullptr ? path : path + " " + command.name, command);
  if (*group.examples != '\0') page.section("EXAMPLES").help(group.examples);
  page.section("SEE ALSO").paragraph("kfactl(1) for global options and exit statuses.");
  return page.text();
}

std::string printProgram(Session&) {
  Roff page(kProgram, 1, kProgramSummary);
  page.section("SYNOPSIS").paragraph("kfactl [OPTION...] GROUP [COMMAND] [OPTION...] [ARGUMENT...]");
  page.section("GROUPS").paragraph("Each has a page of its own, kfactl-GROUP(1).");
  for (const Group* group : listGroups())
    page.item(group->name, std::string(group->summary) + ".");
  page.section("OPTIONS").paragraph("These may stand anywhere on the command line.");
  Session unused;
  CLI::App app;
  app.set_help_flag();
  declareGlobals(app, unused);
  addOptions(page, app);
  page.section("EXIT STATUS AND EXAMPLES").help(kProgramHelp);
  page.section("ENVIRONMENT")
      .item("KFA_NODE", "The folder of the node's environments, where --node names none.")
      .item("KFA_VOCABULARY", "The vocabulary, where --vocabulary names none.")
      .item("KFA_UPLOADS_DIR", "The folder of the template cache.")
      .item("KFA_LOG_LEVEL", "What the library logs to standard error.")
      .item("NO_COLOR", "Set to anything: no colours on a terminal.");
  page.section("FILES")
      .item("/etc/kfa/conf", "The folder of the node's environments; see kfa-environment(5).")
      .item(KFACTL_DATA_DIR "/vocabulary.xml", "The vocabulary; see kfa-vocabulary(5).")
      .item(KFACTL_DATA_DIR "/schema", "XML schemas of messages; see kfa-messages(7).");
  page.section("SEE ALSO")
      .paragraph(
          "kfa-environment(5), kfa-global(5), kfa-vocabulary(5), kfa-cache(5), kfa-formulas(7), "
          "kfa-messages(7)");
  return page.text();
}

// --- Formats ---------------------------------------------------------------------------------------------------------

// A page of a format: what the documents say of it, and what the program knows.
Roff beginFormat(const char* name, int section, const char* summary, const char* heading) {
  Roff page(name, section, summary);
  page.section("DESCRIPTION");
  addMarkdown(page, sectionOf(formatsDocument(), heading));
  return page;
}

void addKeyValueLines(Roff& page) {
  page.section("LINES");
  addMarkdown(page, sectionOf(formatsDocument(), "## 1. `KEY=\"value\"` files"));
}

std::string sentence(std::string text) {
  return text.empty() || text.back() == '.' ? text : text + ".";
}

std::string printEnvironment(Session& session) {
  Roff page("kfa-environment", 5, "configuration files of environments");
  page.section("DESCRIPTION")
      .paragraph(
          "An environment is configured by a file VEID.conf of lines KEY=\"value\", which a shell can "
          "source. Keys are read in any case. Lines that are no assignment are left as they are.");
  page.section("KEYS");
  const KFA::KFAKeyCatalogue catalogue(session.environmentParser(), session.vocabulary());
  for (const auto& [name, key] : catalogue.getKeys()) {
    std::string text = sentence(key.description);
    text += " Takes " + key.form + (key.unit.empty() ? "" : ", in " + key.unit) + ".";
    if (!key.without.empty()) text += " Without it: " + key.without + ".";
    page.item(key.key, text).paragraph("Example: " + key.key + "=\"" + key.example + "\"");
  }
  page.section("NETIF");
  addMarkdown(page, sectionOf(formatsDocument(), "## 3. NETIF"));
  addKeyValueLines(page);
  page.section("SEE ALSO")
      .paragraph("kfactl-config(1), whose command keys prints this list; kfa-vocabulary(5), kfa-global(5)");
  return page.text();
}

std::string printGlobal(Session&) {
  Roff page = beginFormat("kfa-global", 5, "configuration file of a node", "### The global file");
  addKeyValueLines(page);
  page.section("SEE ALSO").paragraph("kfactl-global(1), kfa-environment(5)");
  return page.text();
}

std::string printVocabulary(Session& session) {
  Roff page = beginFormat("kfa-vocabulary", 5, "resource parameters and formulas", "## 5. The vocabulary");
  page.section("PARAMETERS").paragraph("Those of the vocabulary that this page was made with:");
  const KFA::KFAKeyCatalogue catalogue(session.environmentParser(), session.vocabulary());
  for (const auto& [name, key] : catalogue.getKeys())
    if (key.isResource)
      page.item(name, sentence(key.description) + (key.unit.empty() ? "" : " In " + key.unit + "."));
  page.section("SEE ALSO").paragraph("kfa-formulas(7), kfa-environment(5), kfactl-qos(1)");
  return page.text();
}

std::string printFormulas(Session& session) {
  Roff page = beginFormat("kfa-formulas", 7, "formulas over resource parameters", "## 6. Formulas");
  page.section("THE FORMULAS").paragraph("Those of the vocabulary that this page was made with:");
  const auto tune = KFA::KFAQVTune::getShared(session.vocabulary());
  if (!tune) throwLibraryError();
  for (const KFA::KFAQVFormula& formula : tune->formulas)
    page.item(std::to_string(formula.identifier) + ": " + formula.expression, sentence(formula.comment));
  page.section("SEE ALSO").paragraph("kfa-vocabulary(5), kfactl-qos(1)");
  return page.text();
}

std::string printCache(Session&) {
  Roff page = beginFormat("kfa-cache", 5, "file of the template cache", "## 7. The template cache");
  page.section("FILES").item(std::string(KFL::kDefaultUploadsFolder) + "/template.cache",
                             "Unless KFA_UPLOADS_DIR names another folder.");
  page.section("SEE ALSO").paragraph("kfactl-cache(1), kfa-messages(7)");
  return page.text();
}

std::string printMessages(Session&) {
  Roff page = beginFormat("kfa-messages", 7, "records as XML messages", "## 4. Messages");
  page.section("RECORDS").paragraph(
      "By the name of the class, with the root element, the type tag and the namespace:");
  for (const KFL::KFLRecordType* record : KFL::listRecordTypes()) {
    const std::string tag = record->typeTag();
    const std::string uri = record->namespaceUri();
    page.item(record->name(), "<" + record->rootName() + ">" +
                                  (tag.empty() ? ", without a type tag" : ", " + tag) +
                                  (uri.empty() ? "" : ", in " + uri) + ".");
  }
  page.section("SEE ALSO").paragraph("kfactl-message(1), kfactl-types(1)");
  return page.text();
}

}  // namespace

std::vector<Page> listPages() {
  std::vector<Page> pages{{kProgram, 1, printProgram}};
  for (const Group* group : listGroups())
    pages.push_back(
        {std::string(kProgram) + "-" + group->name, 1, [group](Session&) { return printGroup(*group); }});
  pages.insert(pages.end(), {{"kfa-environment", 5, printEnvironment},
                             {"kfa-global", 5, printGlobal},
                             {"kfa-vocabulary", 5, printVocabulary},
                             {"kfa-cache", 5, printCache},
                             {"kfa-formulas", 7, printFormulas},
                             {"kfa-messages", 7, printMessages}});
  return pages;
}

}  // namespace kfactl
