// SPDX-License-Identifier: Apache-2.0
#include "terminal/Cli.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <sstream>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <KFLCommon/KFLLog.h>

#include "terminal/Hint.h"
#include "terminal/Input.h"
#include "terminal/Libraries.h"
#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

const char* const kProgramHelp =
    "Exit status: 0 fine; 1 a finding (a difference, a fault found by a check); 2 trouble, with one "
    "line on\n"
    "standard error. A FILE of - is standard input.\n\n"
    "Examples:\n"
    "  kfactl config set 101.conf ONBOOT=yes HOSTNAME=web1.example.com\n"
    "  kfactl --format json config show 101.conf\n"
    "  kfactl config --help";

using Words = std::vector<std::string>;

void declareGlobals(CLI::App& app, Session& session) {
  const char* const group = "Global options";
  app.set_help_flag("-h,--help", "Print this and end")->group(group);
  app.set_version_flag("-V,--version", "kfactl " KFACTL_VERSION, "Print the version and end")->group(group);
  app.add_option("--format", session.formatOption(), "table (for people), json or xml (for programs)")
      ->type_name("FORMAT")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->group(group);
  app.add_flag("--json", session.jsonOption(), "The same as --format json")->group(group);
  app.add_option("--node", session.nodeOption(),
                 "The folder of the node's environments; KFA_NODE, or else /etc/kfa/conf")
      ->type_name("DIR")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->group(group);
  app.add_option_function<Words>(
         "--load",
         [&all = session.librariesOption()](const Words& given) {
           all.insert(all.end(), given.begin(), given.end());
         },
         "A shared library with records and types of its own; may be given several times")
      ->type_name("LIBRARY")
      ->allow_extra_args(false)
      ->group(group);
  app.add_option("--at", atOptions().at,
                 "Another node, HOST[:PORT]; behind an @, a file with one on each line")
      ->type_name("NODE")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->group(group);
  AtOptions& identity = atOptions();
  const std::pair<const char*, std::pair<std::string*, const char*>> files[] = {
      {"--certificate", {&identity.certificate, "What other nodes are shown; KFA_CERTIFICATE"}},
      {"--key", {&identity.key, "The key of the certificate; KFA_KEY"}},
      {"--ca", {&identity.authority, "The authority of the other nodes' certificates; KFA_CA"}}};
  for (const auto& [name, bound] : files)
    app.add_option(name, *bound.first, bound.second)
        ->type_name("FILE")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
        ->group(group);
  app.add_option("--vocabulary", session.vocabularyOption(), "The vocabulary of resource parameters")
      ->type_name("FILE")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->group(group);
}

namespace {

// What a command gives that is to run at other nodes, before it has begun.
constexpr int kElsewhere = -1;

// The commands that are about the files of a node's environments and nothing else.
constexpr const char* kNodeCommands[] = {
    "check",      "config check", "config explain", "config fix",          "config get", "config list",
    "config set", "config show",  "config unset",   "message from-config", "qos advise", "qos check"};

void checkElsewhere(Session& session, const std::string& path) {
  const std::string command = path.substr(path.find(' ') + 1);
  if (std::find(std::begin(kNodeCommands), std::end(kNodeCommands), command) == std::end(kNodeCommands))
    throw Trouble(path + " works on this machine alone; leave --at out");
  if (!session.nodeOption().empty())
    throw Trouble("--node: an agent serves the folder that it was started for; leave --node or --at out");
}

constexpr const char* kFormats[] = {"table", "json", "xml", "sarif"};

// One level of the command line: what has been named so far, and what may stand there.
struct Level {
  std::string path;
  const char* summary;
  const char* arguments;
  const char* help;
  std::vector<std::pair<const char*, const char*>> words;  // name and summary of what may follow
};

// Help in the words of the tables: usage, what it is for, what may follow, the options, examples.
class HelpFormatter : public CLI::Formatter {
 public:
  explicit HelpFormatter(const Level& level) : level_(level) { column_width(28); }

  std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode mode) const override {
    std::ostringstream out;
    out << "Usage: " << level_.path << " [OPTION...]" << (*level_.arguments == '\0' ? "" : " ")
        << level_.arguments << "\n\n"
        << level_.summary << ".\n";
    if (!level_.words.empty()) out << "\n" << level_.arguments << "\n";
    for (const auto& [name, summary] : level_.words)
      CLI::detail::format_help(out, std::string("  ") + name, summary, get_column_width());
    out << make_groups(app, mode) << "\n" << level_.help << "\n";
    return out.str();
  }

 private:
  const Level& level_;
};

std::string seeHelp(const Level& level) {
  return "see '" + level.path + " --help'";
}

[[noreturn]] void refuseWord(const Level& level, const char* kind, std::string_view word,
                             const Words& names) {
  const std::string hint = hintFor(word, names);
  throw Trouble("unknown " + std::string(kind) + " '" + std::string(word) + "'; " + hint +
                (hint.empty()         ? ""
                 : hint.back() == '?' ? " "
                                      : "; ") +
                seeHelp(level));
}

bool isOption(const std::string& word) {
  return word.size() > 1 && word.front() == '-' && word[1] != ' ';
}

[[noreturn]] void refuseOption(const Level& level, const CLI::App& app, std::string_view word) {
  Words names;
  for (const CLI::Option* option : app.get_options({}))
    for (const std::string& name : option->get_lnames())
      names.push_back("--" + name);
  word = word.substr(0, word.find('='));
  const std::string hint = nearestTo(word, names);
  throw Trouble("unknown option '" + std::string(word) + "'; " +
                (hint.empty() ? "" : "did you mean '" + hint + "'? ") + seeHelp(level));
}

void printHelp(Session& session, const Level& level, CLI::App& app) {
  app.formatter(std::make_shared<HelpFormatter>(level));
  session.out().add(app.help());
}

// An empty text would count as not given, and the command do what the option was to keep it from.
[[noreturn]] void refuseEmptyValue(const Level& level, const CLI::Option& option) {
  throw Trouble("--" + option.get_lnames().front() + " is empty; " + option.get_type_name() +
                " is wanted, or leave it out; " + seeHelp(level));
}

// `--name=`, whose value would be the next word.
void checkJoined(const Level& level, const CLI::App& app, const Words& words) {
  for (const std::string& word : words) {
    if (word == "--") return;
    if (!word.starts_with("--") || word.find('=') != word.size() - 1) continue;
    const CLI::Option* const option = app.get_option_no_throw(word.substr(0, word.size() - 1));
    if (option != nullptr && !option->get_type_name().empty()) refuseEmptyValue(level, *option);
  }
}

void checkValues(const Level& level, const CLI::App& app) {
  for (const CLI::Option* option : app.get_options({}))
    for (const std::string& value : option->results())
      if (value.empty() && !option->get_type_name().empty()) refuseEmptyValue(level, *option);
}

// Takes the options out of the words: false when help or the version was asked for, and printed.
bool takeOptions(Session& session, const Level& level, CLI::App& app, Words& words) {
  checkJoined(level, app, words);
  std::reverse(words.begin(), words.end());
  try {
    app.parse(std::move(words));
  } catch (const CLI::CallForHelp&) {
    printHelp(session, level, app);
    return false;
  } catch (const CLI::CallForVersion& version) {
    session.out().addLine(version.what());
    return false;
  } catch (const CLI::ParseError& error) {
    throw Trouble(std::string(error.what()) + "; " + seeHelp(level));
  }
  checkValues(level, app);
  words = app.remaining();
  return true;
}

// Takes the options and the next word of a level: the index of the word among level.words, or -1 when the command line
// has been answered.
int takeWord(Session& session, const Level& level, const char* kind, Words& words) {
  CLI::App app;
  app.prefix_command();
  declareGlobals(app, session);
  if (!takeOptions(session, level, app, words)) return -1;
  if (!words.empty() && words.front() == "help") {
    words.erase(words.begin());
    words.emplace_back("--help");
    if (!takeOptions(session, level, app, words)) return -1;
  }
  Words names;
  for (const auto& word : level.words)
    names.emplace_back(word.first);
  if (words.empty())
    throw Trouble(std::string(kind) + " is missing; " + hintFor({}, names) + "; " + seeHelp(level));
  if (isOption(words.front())) refuseOption(level, app, words.front());
  const auto found = std::find(names.begin(), names.end(), words.front());
  if (found == names.end()) refuseWord(level, kind, words.front(), names);
  words.erase(words.begin());
  return static_cast<int>(found - names.begin());
}

std::string expectedForm(const Level& level) {
  return "expected " + level.path + (*level.arguments == '\0' ? "" : " ") + level.arguments + "; " +
         seeHelp(level);
}

// An empty argument is a variable of a shell that was not set, but for what may be any text.
void checkEmptyArguments(const Level& level, const Words& names, const Words& words) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& name = names[std::min(i, names.size() - 1)];
    if (words[i].empty() && name != "TEXT" && name != "WORD")
      throw Trouble(name + " is empty; " + expectedForm(level));
  }
}

// Holds the arguments against the command's form, such as "FILE [KEY...]".
void checkArguments(const Level& level, const Words& words) {
  std::istringstream form(level.arguments);
  bool many = false;
  Words names, required;
  for (std::string word; form >> word;) {
    many = many || word.find("...") != std::string::npos;
    const std::size_t begin = word.front() == '[' ? 1 : 0;
    names.push_back(word.substr(begin, word.find_first_of(".]") - begin));
    if (begin == 0) required.push_back(names.back());
  }
  if (words.size() < required.size())
    throw Trouble(required[words.size()] + " is missing; " + expectedForm(level));
  if (words.size() > names.size() && !many) throw Trouble("too many arguments; " + expectedForm(level));
  checkEmptyArguments(level, names, words);
}

void takeFormat(Session& session, const Level& level, unsigned formats) {
  const std::string name = session.jsonOption() ? "json" : session.formatOption();
  if (name.empty()) return;
  const auto found = std::find(std::begin(kFormats), std::end(kFormats), name);
  if (found == std::end(kFormats)) {
    Words names;
    for (unsigned i = 0; i < std::size(kFormats); ++i)
      if ((formats & (1U << i)) != 0) names.emplace_back(kFormats[i]);
    refuseWord(level, "format", name, names);
  }
  const auto format = static_cast<unsigned>(found - std::begin(kFormats));
  if ((formats & (1U << format)) == 0)
    throw Trouble(level.path + " has no " + name + " form; leave --format out");
  session.setFormat(static_cast<Format>(format));
}

int runCommand(Session& session, const std::string& path, const Command& command, Words words) {
  const Level level{path, command.summary, command.arguments, command.help, {}};
  const auto mark = std::find(words.begin(), words.end(), "--");
  const Words plain(mark == words.end() ? mark : mark + 1, words.end());
  words.erase(mark, words.end());

  CLI::App app;
  app.allow_extras();
  const Action action = command.prepare(app);
  declareGlobals(app, session);
  if (!takeOptions(session, level, app, words)) return kFine;
  const auto option = std::find_if(words.begin(), words.end(), isOption);
  if (option != words.end()) refuseOption(level, app, *option);
  words.insert(words.end(), plain.begin(), plain.end());
  checkArguments(level, words);
  takeFormat(session, level, command.formats);
  session.setArguments(std::move(words));
  loadLibraries(session.librariesOption());
  if (!atOptions().at.empty() && !nodeAgent()) {
    checkElsewhere(session, path);
    return kElsewhere;
  }
  return action(session);
}

int run(Session& session, std::span<const Group* const> groups, Words words) {
  Level top{"kfactl", kProgramSummary, "GROUP ...", kProgramHelp, {}};
  for (const Group* group : groups)
    top.words.emplace_back(group->name, group->summary);
  const int groupIndex = takeWord(session, top, "group", words);
  if (groupIndex < 0) return kFine;
  const Group& group = *groups[static_cast<std::size_t>(groupIndex)];
  const std::string path = top.path + " " + group.name;
  if (group.commands.front().name == nullptr)
    return runCommand(session, path, group.commands.front(), std::move(words));

  const std::string examples =
      *group.examples == '\0' ? "" : "Examples:\n" + std::string(group.examples) + "\n\n";
  const std::string hint = examples + "Each command has examples of its own: " + path + " COMMAND --help";
  Level level{path, group.summary, "COMMAND ...", hint.c_str(), {}};
  for (const Command& command : group.commands)
    level.words.emplace_back(command.name, command.summary);
  const int index = takeWord(session, level, "command", words);
  if (index < 0) return kFine;
  const Command& command = group.commands[static_cast<std::size_t>(index)];
  return runCommand(session, path + " " + command.name, command, std::move(words));
}

// A file that is opened must never take the place of a standard stream that is closed.
void holdStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (::fcntl(stream, F_GETFD) < 0)
      static_cast<void>(::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
}

// The library logs what it also returns as an error text; one line is enough, unless the log was asked for.
void quietLog() {
  if (std::getenv("KFA_LOG_LEVEL") == nullptr) KFL::setLogLevel(KFL::kLogFatal);
}

// Runs the part: its status, or 2 with the reason.
template <class Part>
int guarded(std::string& trouble, Part part) {
  try {
    return part();
  } catch (const std::bad_alloc&) {
    trouble = "out of memory";
  } catch (const std::exception& error) {
    trouble = error.what();
  } catch (...) {
    trouble = "unknown error";
  }
  return kTrouble;
}

}  // namespace

int runProgram(std::span<const Group* const> groups, int argc, char** argv) {
  holdStandardStreams();
  renewStandardInput();
  quietLog();
  Session session;
  std::string trouble;
  const Words words(argv + std::min(argc, 1), argv + argc);
  const auto runAgain = [groups](Session& one, const Words& again) {
    std::string reason;
    const int result = guarded(reason, [&] { return run(one, groups, again); });
    if (!reason.empty()) printError(reason);
    return result;
  };
  int status = guarded(trouble, [&] {
    const int here = run(session, groups, words);
    return here == kElsewhere ? runElsewhere(session, words, runAgain) : here;
  });
  status = std::max(status, guarded(trouble, [&] {
                      session.out().flush();
                      return kFine;
                    }));
  if (!trouble.empty()) printError(trouble);
  return status;
}

}  // namespace kfactl
