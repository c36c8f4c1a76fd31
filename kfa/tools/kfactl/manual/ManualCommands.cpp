// SPDX-License-Identifier: Apache-2.0
// kfactl manual, kfactl complete: the program about itself.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include <CLI/CLI.hpp>

#include "manual/Completion.h"
#include "manual/Pages.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

namespace fs = std::filesystem;

int writePages(Session& session, const fs::path& folder) {
  for (const Page& page : listPages()) {
    const fs::path below = folder / ("man" + std::to_string(page.section));
    std::error_code trouble;
    fs::create_directories(below, trouble);
    const fs::path path = below / (page.name + "." + std::to_string(page.section));
    std::ofstream file(path);
    if (!(file << page.print(session) << std::flush)) throw Trouble(path.string() + ": cannot be written");
  }
  return kFine;
}

Action manual(CLI::App& app) {
  const auto folder = std::make_shared<std::string>();
  app.add_option("--write", *folder, "Write every page below this folder, as man1/NAME.1 and so on")
      ->type_name("DIR");
  return [folder](Session& session) {
    if (!folder->empty()) return writePages(session, *folder);
    const auto pages = listPages();
    const std::string name = session.arguments().empty() ? pages.front().name : session.argument(0);
    const auto found =
        std::find_if(pages.begin(), pages.end(), [&](const Page& page) { return page.name == name; });
    if (found == pages.end()) {
      std::string names;
      for (const Page& page : pages)
        names += " " + page.name;
      throw Trouble("there is no manual page '" + name + "'; one of" + names);
    }
    session.out().add(found->print(session));
    return kFine;
  };
}

int complete(Session& session) {
  for (const Candidate& candidate : completionsOf(session, session.arguments())) {
    session.out().add(candidate.word);
    if (!candidate.summary.empty()) session.out().add("\t" + candidate.summary);
    session.out().add("\n");
  }
  return kFine;
}

constexpr Command kManual[] = {
    {nullptr, "[PAGE]", "Print a manual page",
     "The page is made from the program's own tables. 'kfactl manual PAGE | man -l -' shows "
     "it.\n\n"
     "Examples:\n"
     "  kfactl manual kfactl-config | man -l -\n"
     "  kfactl manual --write /usr/local/share/man",
     manual, kTableOnly}};

constexpr Command kComplete[] = {{nullptr, "[WORD...]", "Print what the last word can become",
                                  "For the completion of shells: a line for each candidate, with a tabulator "
                                  "before what it is. Words that begin "
                                  "with - stand behind --.\n\n"
                                  "Examples:\n"
                                  "  kfactl complete -- config set 101 ON",
                                  withoutOptions<complete>, kTableOnly}};

}  // namespace

extern const Group manualGroup, completeGroup;
const Group manualGroup{"manual", "Manual pages", kManual};
const Group completeGroup{"complete", "Completion of command lines", kComplete};

}  // namespace kfactl
