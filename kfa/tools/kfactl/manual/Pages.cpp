// SPDX-License-Identifier: Apache-2.0
#include "manual/Pages.h"

#include <CLI/CLI.hpp>

#include <KFAFunctionality/node/KFAKeyCatalogue.h>

#include "manual/Roff.h"

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
    page.item(names + (isFlag || argument.empty() ? "" : " " + argument), option->get_description() + ".");
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
  page.section("SEE ALSO").paragraph("kfa-environment(5)");
  return page.text();
}

std::string printEnvironment(Session& session) {
  Roff page("kfa-environment", 5, "configuration files of environments");
  page.section("DESCRIPTION")
      .paragraph(
          "An environment is configured by a file VEID.conf of lines KEY=\"value\", which a shell can "
          "source. Keys "
          "are "
          "read in any case. Lines that are no assignment are left as they are.");
  page.section("KEYS");
  const KFA::KFAKeyCatalogue catalogue(session.environmentParser(), session.vocabulary());
  for (const auto& [name, key] : catalogue.getKeys()) {
    std::string text =
        key.description + (key.description.empty() || key.description.back() == '.' ? "" : ".");
    text += " Takes " + key.form + (key.unit.empty() ? "" : ", in " + key.unit) + ".";
    if (!key.without.empty()) text += " Without it: " + key.without + ".";
    page.item(key.key, text).paragraph("Example: " + key.key + "=\"" + key.example + "\"");
  }
  page.section("SEE ALSO").paragraph("kfactl-config(1), whose command keys prints this list");
  return page.text();
}

}  // namespace

std::vector<Page> listPages() {
  std::vector<Page> pages{{kProgram, 1, kProgramSummary, printProgram}};
  for (const Group* group : listGroups())
    pages.push_back({std::string(kProgram) + "-" + group->name, 1, group->summary,
                     [group](Session&) { return printGroup(*group); }});
  pages.push_back({"kfa-environment", 5, "configuration files of environments", printEnvironment});
  return pages;
}

}  // namespace kfactl
