// SPDX-License-Identifier: Apache-2.0
// Command lines of the program. For each: the status is a documented one, and what stands on standard error goes with it;
// what is asked for as JSON or XML is that; no file changes but those that the line names, and none by a command that
// looks or tries. Lines made of the program's own tables of commands also answer the same when they are spelled in
// another way, a change is the difference that --dry-run shows, and what one command prints another one takes.
//
// The input is command lines, words separated by tabulators, a line "--", and the content of the file `given`; its bytes
// also choose a line of the tables or a row of commands that belong together, and, where there is no "--", the content.
#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLMessage.h>

#include "Environments.h"
#include "KfactlRun.h"
#include "terminal/Cli.h"

namespace {

using kfl_fuzz::Choices;
using kfl_fuzz::Files;
using kfl_fuzz::KfactlRun;
using kfl_fuzz::Outcome;
using kfl_fuzz::require;
using kfl_fuzz::Words;
using Json = nlohmann::json;

KfactlRun& runs() {
  return KfactlRun::get();
}

bool has(const Words& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

std::string all(const Words& words, const Outcome& outcome) {
  return kfl_fuzz::lineOf(words) + "\nstatus " + std::to_string(outcome.status) + "\n" + outcome.out +
         "--\n" + outcome.errors;
}

// --- What holds for every command line --------------------------------------------------------------------------------

bool isLineOfErrors(const std::string& line) {
  return line.starts_with("kfactl: ") && line.size() > 8 &&
         std::none_of(line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; });
}

// What is asked for and not there gives status 1, and so does a value that is not understood.
bool isFinding(const Words& words, const std::string& line) {
  return line.find(": no value for ") != std::string::npos || line.find(": no item ") != std::string::npos ||
         has(words, "netif");
}

// With status 0 nothing is told but notes and warnings.
bool isRemark(const std::string& line) {
  return line.starts_with("kfactl: note: ") || line.find(": warning: ") != std::string::npos;
}

void requireErrors(const Words& words, const Outcome& outcome) {
  const std::vector<std::string> lines = linesOf(outcome.errors);
  require(outcome.status >= 0 && outcome.status <= 2, "the status is one of three", all(words, outcome));
  require(outcome.errors.empty() || outcome.errors.back() == '\n', "an error ends its line",
          all(words, outcome));
  require(std::all_of(lines.begin(), lines.end(), isLineOfErrors), "errors are lines of the program's own",
          all(words, outcome));
  const bool isTrouble = std::any_of(lines.begin(), lines.end(), std::not_fn(isRemark));
  require(outcome.status != 2 || isTrouble, "trouble is told", all(words, outcome));
  require(outcome.status != 0 || !isTrouble, "what is no trouble is a note", all(words, outcome));
  for (const std::string& line : lines)
    require(outcome.status != 1 || isRemark(line) || isFinding(words, line), "a finding is no trouble",
            all(words, outcome));
}

bool isAboutItself(const Outcome& outcome) {
  return outcome.out.starts_with("Usage: kfactl") || outcome.out.starts_with("kfactl ");
}

// The format that the words in front of "--" ask for, the last one; --json goes before all.
std::string formatOf(const Words& words) {
  std::string format;
  const auto end = std::find(words.begin(), words.end(), "--");
  for (auto word = words.begin(); word != end; ++word) {
    if (*word == "--json") return "json";
    if (word->starts_with("--format=")) format = word->substr(9);
    if (*word == "--format" && word + 1 != end) format = *++word;
  }
  return format;
}

bool isXml(const std::string& text) {
  std::string inner;
  for (const std::string& line : linesOf(text))
    inner += line.starts_with("<?xml ") ? "\n" : line + "\n";
  KFL::KFLMessage message;
  return message.parse("<all>" + inner + "</all>") == 0;
}

// A check's status tells whether something is found.
void requireStatus(const Words& words, const Outcome& outcome, const Json& document) {
  const auto isBad = [](const Json& finding) {
    return finding.is_object() && finding.contains("severity") && finding["severity"] != "note";
  };
  const bool isFound = document.is_array() && std::any_of(document.begin(), document.end(), isBad);
  require(!isFound || outcome.status != 0, "findings give a status", all(words, outcome));
  if (outcome.status == 2 || !document.is_object() || !document.contains("holds")) return;
  require((outcome.status == 0) == document["holds"], "a formula that does not hold gives a status",
          all(words, outcome));
}

// Among the members of an object each name stands once.
Json::parser_callback_t requireNewName(const Words& words, const Outcome& outcome) {
  const auto names = std::make_shared<std::vector<std::set<std::string>>>(1);
  return [names, &words, &outcome](int, Json::parse_event_t event, Json& parsed) {
    if (event == Json::parse_event_t::object_start) names->emplace_back();
    if (event == Json::parse_event_t::object_end) names->pop_back();
    if (event == Json::parse_event_t::key)
      require(names->back().insert(parsed.get<std::string>()).second, "each name stands once in an object",
              all(words, outcome));
    return true;
  };
}

void requireFormat(const Words& words, const Outcome& outcome) {
  const std::string format = formatOf(words);
  if (outcome.out.empty() || isAboutItself(outcome) || (format != "json" && format != "xml")) return;
  if (format == "xml")
    return require(isXml(outcome.out), "what is asked for as XML is XML", all(words, outcome));
  if (has(words, "watch")) {
    for (const std::string& line : linesOf(outcome.out))
      require(Json::accept(line), "each event is a line of JSON", all(words, outcome));
    return;
  }
  require(Json::accept(outcome.out), "what is asked for as JSON is JSON", all(words, outcome));
  requireStatus(words, outcome, Json::parse(outcome.out, requireNewName(words, outcome)));
}

bool isWriting(const std::string& word) {
  static const std::set<std::string> kWriters = {"set",    "unset", "--apply", "--in-place",
                                                 "create", "put",   "remove",  "repair"};
  return kWriters.count(word) != 0 || word.starts_with("--write") || word.starts_with("--output") ||
         (word.starts_with("-") && !word.starts_with("--") && word.find('o') != std::string::npos);
}

bool onlyLooks(const Words& words) {
  return has(words, "--dry-run") || has(words, "-n") || std::none_of(words.begin(), words.end(), isWriting);
}

// What a word may name: itself, and what stands behind the name of its option.
std::set<std::string> namesIn(const Words& words) {
  std::set<std::string> names;
  for (const std::string& word : words) {
    for (const std::string& name :
         {word, word.substr(word.find('=') + 1), word.substr(std::min<std::size_t>(2, word.size()))}) {
      std::string normal = std::filesystem::path(kfl_fuzz::within(name)).lexically_normal().string();
      if (normal.ends_with('/')) normal.pop_back();
      names.insert(std::move(normal));
    }
  }
  return names;
}

bool isChangeOfKey(const std::string& word) {
  const std::string key = word.substr(0, word.find('='));
  return key.size() < word.size() && std::all_of(key.begin(), key.end(), [](char c) {
           return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
         });
}

// Whether the word of a change may stand for the environment at the path in a way that only the program knows: as a list
// on standard input, a pattern, a range, a condition; or by its number. A change of a key stands for none.
bool mayStandFor(const std::string& word, const std::string& path) {
  if (word == "-") return true;
  if (word.starts_with('-') || isChangeOfKey(word)) return false;
  int number = 0;
  if (KFL::parseInteger(word, number) == 0)
    return ("/" + path).ends_with("/" + std::to_string(number) + ".conf");
  return word.find_first_of("*?[=") != std::string::npos ||
         (word.find('-') != std::string::npos && KFL::isDigit(word.front()));
}

// Whether the words name a file that they change, its backup, or the folder of it.
bool isNamed(const std::string& path, const Words& words) {
  const std::set<std::string> names = namesIn(words);
  const bool isFix = has(words, "config") && has(words, "fix");
  const bool isEnvironment = has(words, "config") && (has(words, "set") || has(words, "unset"));
  const auto isOurs = [&](const std::string& file) {
    if (names.count(file) != 0 || (isFix && file.ends_with(".conf"))) return true;
    return isEnvironment && file.ends_with(".conf") &&
           std::any_of(words.begin(), words.end(),
                       [&](const std::string& word) { return mayStandFor(word, file); });
  };
  if (isOurs(path)) return true;
  return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
    const bool isBackup =
        !name.empty() && path.ends_with(name) && isOurs(path.substr(0, path.size() - name.size()));
    return isBackup || name == "." || path.starts_with(name + "/") || path.starts_with(name + ".damaged");
  });
}

std::set<std::string> changedBetween(const Files& before, const Files& after) {
  std::set<std::string> changed;
  for (const auto& [path, content] : after)
    if (before.count(path) == 0 || before.at(path) != content) changed.insert(path);
  for (const auto& [path, content] : before)
    if (after.count(path) == 0) changed.insert(path);
  return changed;
}

// Whether status 2 says that nothing was done.
bool isAllOrNothing(const Words& words) {
  return (has(words, "set") || has(words, "unset") || has(words, "to-config") || has(words, "merge")) &&
         !has(words, "--keep-going") && !has(words, "cache");
}

void requireFiles(const Words& words, const Outcome& outcome, const Files& before, const Files& after) {
  const std::set<std::string> changed = changedBetween(before, after);
  require(changed.empty() || !onlyLooks(words), "a command that looks or tries changes no file",
          all(words, outcome));
  require(changed.empty() || outcome.status != 2 || !isAllOrNothing(words), "what is refused changes no file",
          all(words, outcome));
  for (const std::string& path : changed) {
    require(after.count(path) != 0, "no file is lost", path + "\n" + all(words, outcome));
    require(isNamed(path, words), "only files that are named change", path + "\n" + all(words, outcome));
  }
}

Outcome check(const Words& words, std::string_view standardInput, Files* result = nullptr) {
  const Files before = runs().files();
  Outcome outcome = runs().run(words, standardInput);
  const Files after = runs().files();
  requireErrors(words, outcome);
  requireFormat(words, outcome);
  requireFiles(words, outcome, before, after);
  if (result != nullptr) *result = after;
  return outcome;
}

// --- Lines of the program's tables ------------------------------------------------------------------------------------

struct Option {
  std::string name, shortName, type;  // no type: a flag
};

std::vector<Option> optionsOf(CLI::App& app) {
  std::vector<Option> options;
  for (const CLI::Option* const option : app.get_options()) {
    if (option->get_lnames().empty()) continue;
    const auto& shorts = option->get_snames();
    options.push_back({"--" + option->get_lnames().front(), shorts.empty() ? "" : "-" + shorts.front(),
                       option->get_items_expected_max() == 0 ? "" : option->get_type_name()});
  }
  return options;
}

const std::vector<Option>& globalOptions() {
  static const std::vector<Option> options = [] {
    CLI::App app;
    app.set_help_flag();
    kfactl::Session session;
    kfactl::declareGlobals(app, session);
    std::vector<Option> all = optionsOf(app);
    std::erase_if(all,
                  [](const Option& option) { return option.name == "--help" || option.name == "--version"; });
    return all;
  }();
  return options;
}

const std::vector<Option>& optionsOf(const kfactl::Command& command) {
  static std::map<const kfactl::Command*, std::vector<Option>> known;
  const auto found = known.find(&command);
  if (found != known.end()) return found->second;
  CLI::App app;
  app.set_help_flag();
  const kfactl::Action action = command.prepare(app);
  return known[&command] = optionsOf(app);
}

// What a value holds may look like a condition.
kfl_fuzz::KeyAndValue changeFrom(Choices& choices) {
  auto change = kfl_fuzz::keyAndValue(choices);
  if (choices.oneIn(4)) change.value += choices.oneOf({"!=x", ",HOSTNAME!=x", ",ONBOOT=no", "a!=b,c", ","});
  return change;
}

// The words that may stand for what a form names, such as FILE; a form that is not known here ends the run, so that none
// is left out.
std::string wordFor(const std::string& form, bool isOfCache, Choices& choices) {
  static const std::map<std::string, const char*> kWords = {
      {"FILE",
       "conf/101.conf|given|101|conf/102.conf|102|conf/103.conf|conf/"
       "105.conf|105|101-103|101-105|999|conf|*|10?|"
       "onboot=yes|ostemplate=*|name!=web,onboot=no|-|global.conf|conf/"
       "104.conf|104|missing.conf|new|empty|conf/samples|"
       "conf/notes|ve|101-|5-1||x y|conf/101.conf/"},
      {"CACHE", "cache|cache|cache|damaged.cache|cut.cache|given|new.cache|empty|conf|-|missing/cache"},
      {"XML", "object.xml|object.xml|config.xml|several.xml|given|-|missing.xml|empty|conf"},
      {"KEY",
       "ONBOOT|hostname|NUMPROC|IP_ADDRESS|NETIF|CPULIMIT|LOCKDIR|OFFLINE_SERVICE|NAME|DESCRIPTION|FOREIGN_"
       "KEY|KMEMSIZE|"
       "ONBOT||A B|nginx*|*|[a"},
      {"PAGE", "kfactl|kfactl-config|kfactl-qos|kfactl-cache|kfa.conf|none"},
      {"WORD", "config|set|--|101|ON|ONBOOT=|raw|get|-|--f|cache|qos|e||message|check|x"},
      {"FORMULA",
       "a<=b|a.soft <= b.hard && c<2mb|QOS.soft<QOS.hard|a/0|a)|-1|1==1|a*b-c>=7||(a+b)*c<1kb|a b|a<b<c"},
      {"NAME=VALUE", "a=1|a=1:2|b=5|c=100|numproc=200:240|a=|=1|a=x|QOS=1|b=9223372036854775807|c=-1:0|a"},
      {"FORMAT", "json|xml|table|sarif|jsn|"},
      {"DIR", "conf|made|given|.|conf/samples"},
      {"NODE", "node1|node1:7443|@given|"},
      {"LIBRARY", "given|missing.so|conf"},
      {"SUFFIX", ".old|~|.damaged|.conf"},
      {"NUMBER", "7|101|0|-1|x|99999999999|"},
      {"NAME", "KFAEnvConfig|KFATemplate|KFATemplateObject|None|kfatypes|kfaup2date|VEID|ONBOOT|a b|"},
      {"LEVEL", "error|warning|note|all"},
      {"SIZE", "64G|0|1K|512|4194304T|-1|9G9|"},
      {"COLUMN", "VEID|veid|TITLE|ONBOOT|HOSTNAME|X|"},
      {"COUNT", "16|0|1000000|-1|x|"},
      {"SAMPLE", "basic|conf/samples/basic.conf|none|given.|.."},
  };
  if (form == "KEY=VALUE") {
    const auto [key, value] = changeFrom(choices);
    return choices.oneIn(16) ? key : key + choices.oneOf({"=", "=", "=", "!="}) + value;
  }
  if (form == "TEXT") return kfl_fuzz::keyAndValue(choices).value;
  const bool isFile = form == "FILE" || form == "BEFORE" || form == "AFTER" || form == "BASE" ||
                      form == "OURS" || form == "THEIRS";
  const auto found = kWords.find(isFile ? (isOfCache ? "CACHE" : "FILE") : form);
  require(found != kWords.end(), "each form of words is known here", form);
  return choices.wordOf(found->second);
}

struct Line {
  const kfactl::Group* group;
  const kfactl::Command* command;
  std::vector<std::pair<Option, std::string>> globals, options;
  Words arguments;

  std::string name() const {
    return std::string(group->name) + (command->name == nullptr ? "" : std::string(" ") + command->name);
  }
};

Words argumentsFor(const kfactl::Command& command, bool isOfCache, Choices& choices) {
  Words arguments;
  std::istringstream forms(command.arguments);
  for (std::string form; forms >> form;) {
    const bool mayLack = form.front() == '[';
    const bool isMany = form.find("...") != std::string::npos;
    form = form.substr(mayLack ? 1 : 0, form.find_first_of("].") - (mayLack ? 1 : 0));
    if (choices.oneIn(mayLack ? 3 : 24)) continue;
    for (std::size_t more = isMany ? choices.below(3) + 1 : 1; more > 0; --more)
      arguments.push_back(wordFor(form, isOfCache, choices));
  }
  if (choices.oneIn(24)) arguments.emplace_back("more");
  return arguments;
}

Line lineFrom(Choices& choices) {
  const auto groups = kfactl::listGroups();
  Line line{groups[choices.below(groups.size())], nullptr, {}, {}, {}};
  line.command = &line.group->commands[choices.below(line.group->commands.size())];
  const bool isOfCache = std::string_view(line.group->name) == "cache";
  const auto take = [&](const Option& option, auto& to, std::size_t rare) {
    if (!choices.oneIn(rare)) return;
    const bool isCacheFile = isOfCache || option.name == "--cache";
    to.emplace_back(option, option.type.empty() ? "" : wordFor(option.type, isCacheFile, choices));
  };
  // Most of those that may stand anywhere leave little of a command to be done.
  for (const Option& option : globalOptions())
    take(option, line.globals, option.name == "--format" || option.name == "--json" ? 5 : 40);
  for (const Option& option : optionsOf(*line.command))
    take(option, line.options, 3);
  line.arguments = argumentsFor(*line.command, isOfCache, choices);
  return line;
}

Words wordsOf(const std::pair<Option, std::string>& given, bool isJoined) {
  const auto& [option, value] = given;
  if (option.type.empty()) return {option.name};
  // A value like an option can only stand behind a sign, and an empty one only by itself.
  const bool mustJoin = value.starts_with("-") || option.name == "--schema";
  if (!value.empty() && (isJoined || mustJoin)) return {option.name + "=" + value};
  return {option.name, value};
}

void append(Words& words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
}

// The words of the line: options first, or each where `choices` put it.
Words wordsOf(const Line& line, Choices* choices) {
  const auto oneIn = [&](std::size_t limit) { return choices != nullptr && choices->oneIn(limit); };
  Words front, between, behind, last;
  for (const auto& option : line.globals) {
    const Words words = wordsOf(option, oneIn(2));
    append(oneIn(2) ? front : oneIn(2) ? between : oneIn(2) ? last : behind, words);
  }
  for (const auto& option : line.options) {
    Words words = wordsOf(option, oneIn(2));
    if (words.size() == 1 && option.first.type.empty() && !option.first.shortName.empty() && oneIn(2))
      words = {option.first.shortName};
    append(oneIn(2) ? last : behind, words);
  }
  Words words = front;
  words.emplace_back(line.group->name);
  append(words, between);
  if (line.command->name != nullptr) words.emplace_back(line.command->name);
  append(words, behind);
  const bool isPlain =
      std::none_of(line.arguments.begin(), line.arguments.end(),
                   [](const std::string& word) { return word.starts_with("-") && word.size() > 1; });
  if (isPlain && !oneIn(4)) {
    append(words, line.arguments);
    append(words, last);
  } else {
    append(words, last);
    words.emplace_back("--");
    append(words, line.arguments);
  }
  return words;
}

// What a page says of the time at which it was made.
std::string withoutTime(const Line& line, const std::string& text) {
  if (line.name() != "report") return text;
  const std::size_t at = text.find(" UTC");
  return at == std::string::npos || at < 16 ? text : text.substr(0, at - 16) + text.substr(at);
}

// Bytes of a cache tell who changed it, and when it was repaired.
Files comparable(Files files) {
  for (auto& [path, content] : files)
    if (path.find("cache") != std::string::npos || content.starts_with("KF")) content.clear();
  return files;
}

void checkSpelling(const Line& line, const Outcome& expected, const Files& files, const std::string& given,
                   Choices& choices) {
  runs().renew(given);
  const Words words = wordsOf(line, &choices);
  Files after;
  const Outcome outcome = check(words, given, &after);
  const std::string both = all(wordsOf(line, nullptr), expected) + "----\n" + all(words, outcome);
  require(outcome.status == expected.status, "a line that is spelled otherwise has the same status", both);
  if (line.group->name == std::string_view("cache")) return;
  require(comparable(after) == comparable(files), "a line that is spelled otherwise does the same", both);
  if (outcome.status == 2 && outcome.errors.find("--help") != std::string::npos) return;
  require(
      withoutTime(line, outcome.out) == withoutTime(line, expected.out) && outcome.errors == expected.errors,
      "a line that is spelled otherwise has the same answer", both);
}

void checkHelp(const Line& line, Choices& choices) {
  const kfactl::Command& command = *line.command;
  Words words{line.group->name};
  if (command.name != nullptr) words.emplace_back(command.name);
  switch (choices.below(4)) {
    case 0:
      words.insert(words.begin(), "help");
      break;
    case 1:
      words.insert(words.begin() + 1, command.name == nullptr ? "-h" : "help");
      break;
    case 2:
      append(words, line.arguments);
      std::erase_if(words, [](const std::string& word) { return word.starts_with("-"); });
      [[fallthrough]];
    default:
      words.emplace_back("--help");
  }
  const Outcome outcome = check(words, {});
  std::string usage = "Usage: kfactl " + line.name() + " [OPTION...] " + command.arguments;
  if (*command.arguments == '\0') usage.pop_back();
  usage += "\n\n" + std::string(command.summary) + ".\n";
  require(outcome.status == 0 && outcome.out.starts_with(usage), "help names the command and what it takes",
          all(words, outcome));
  require(outcome.out.ends_with(command.help + std::string("\n")), "help ends with what more there is to say",
          all(words, outcome));
  for (const auto& options : {globalOptions(), optionsOf(command)})
    for (const Option& option : options)
      require(outcome.out.find(option.name) != std::string::npos, "help names each option",
              option.name + all(words, outcome));
}

// --- Changes ----------------------------------------------------------------------------------------------------------

// The lines of a text, each with its newline where it has one.
std::vector<std::string> wholeLinesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    lines.push_back(text.substr(at, end - at));
    at = end;
  }
  return lines;
}

// The files after the unified differences of a text; lines before the first are passed over.
class Patch {
 public:
  explicit Patch(const Files& files) : files_(files) {}

  Files apply(const std::string& text) {
    for (const std::string& line : wholeLinesOf(text)) {
      if (left_ > 0 || right_ > 0 || line.starts_with("\\"))
        takeLine(line);
      else if (line.starts_with("--- "))
        begin(line.substr(4, line.size() - 5));
      else if (line.starts_with("@@ -"))
        beginHunk(line);
    }
    finish();
    return files_;
  }

 private:
  void begin(const std::string& name) {
    finish();
    name_ = name;
    before_ = wholeLinesOf(files_[name]);
    after_.clear();
    at_ = 0;
  }
  void requireMark() const { require(!lacksMark_, "a line that no newline ends is marked", name_); }
  void beginHunk(const std::string& line) {
    requireMark();
    std::size_t first = 0, first2 = 0;
    left_ = right_ = 1;
    std::istringstream in(line.substr(4));
    char sign = 0;
    const auto take = [&](std::size_t& from, std::size_t& count) {
      in >> from;
      if (in.peek() == ',') in >> sign >> count;
    };
    take(first, left_);
    in >> sign;
    take(first2, right_);
    for (; at_ + 1 < first + (left_ == 0 ? 1 : 0); ++at_)
      after_ += before_.at(at_);
  }
  void takeLine(const std::string& line) {
    const std::string content = line.substr(1);
    if (line.front() == '\\') {
      if (last_ != '-' && !after_.empty()) after_.pop_back();
      lacksMark_ = false;
      return;
    }
    requireMark();
    last_ = line.front();
    if (last_ != '+') {
      const std::string held = at_ < before_.size() ? before_[at_] : "(none)";
      require(held == content || held + "\n" == content, "a difference shows the lines that there are",
              line + held);
      lacksMark_ = !held.ends_with('\n');
      ++at_;
      --left_;
    }
    if (last_ != '-') {
      after_ += content;
      --right_;
    }
  }
  void finish() {
    if (name_.empty()) return;
    requireMark();
    for (; at_ < before_.size(); ++at_)
      after_ += before_[at_];
    files_[name_] = after_;
    name_.clear();
  }

  Files files_;
  std::string name_, after_;
  std::vector<std::string> before_;
  std::size_t at_ = 0, left_ = 0, right_ = 0;
  char last_ = ' ';
  bool lacksMark_ = false;  // the line before has no newline, and must be told so
};

bool isChange(const Line& line) {
  static const std::set<std::string> kChanges = {"raw set", "global set", "config set", "config unset",
                                                 "config fix"};
  static const std::set<std::string> kElsewhere = {"--dry-run", "--output", "--backup", "--create",
                                                   "--from",    "--at",     "--apply"};
  return kChanges.count(line.name()) != 0 && !has(line.arguments, "-") &&
         std::none_of(line.options.begin(), line.options.end(),
                      [](const auto& option) { return kElsewhere.count(option.first.name) != 0; }) &&
         std::none_of(line.globals.begin(), line.globals.end(), [](const auto& option) {
           return option.first.name == "--at" || option.first.name == "--format" ||
                  option.first.name == "--json";
         });
}

Line with(Line line, const char* option, const std::string& value = {}) {
  line.options.push_back({{option, "", value.empty() ? "" : "FILE"}, value});
  return line;
}

// What --dry-run shows is what is done, and what --output gets is what the file would have become.
void checkChange(const Line& line, const std::string& given) {
  const bool isFix = line.name() == "config fix";
  runs().renew(given);
  const Files before = runs().files();
  const Words trying = wordsOf(isFix ? line : with(line, "--dry-run"), nullptr);
  const Outcome shown = check(trying, {});
  Files after;
  const Words making = wordsOf(isFix ? with(line, "--apply") : line, nullptr);
  const Outcome made = check(making, {}, &after);
  const std::string both = all(trying, shown) + "----\n" + all(making, made);
  if (isFix && line.arguments.empty()) return;  // all environments are looked at, and none is changed
  require((shown.status == 2) == (made.status == 2), "what can be tried can be done", both);
  require(shown.status == 2 || (shown.status == 1) == (before != after),
          "a try tells whether something changes", both);
  require(Patch(before).apply(shown.out) == after, "what is done is what was shown", both);
  if (line.arguments.empty() || made.status == 2 || isFix) return;
  runs().renew(given);
  Files beside;
  const Outcome elsewhere = check(wordsOf(with(line, "--output", "result"), nullptr), {}, &beside);
  if (elsewhere.status != 0) return;
  const std::set<std::string> changed = changedBetween(before, after);
  const std::string result = beside["result"];
  require(changedBetween(before, beside) == std::set<std::string>{"result"}, "the result alone is written",
          both);
  require(changed.size() <= 1 && (changed.empty() || after[*changed.begin()] == result),
          "the result is what the file would be", both);
}

// --- Commands that belong together ------------------------------------------------------------------------------------

std::string environmentOf(Choices& choices) {
  return choices.oneOf({"conf/105.conf", "conf/101.conf", "conf/102.conf", "conf/103.conf", "given"});
}

bool isFaultless(const std::string& file) {
  return runs().run({"config", "check", "--level", "warning", file}).status == 0;
}

// The differences of two files make one the other, and back.
void checkDifferences(Choices& choices) {
  const std::string file = environmentOf(choices);
  const std::string other = environmentOf(choices);
  const bool isSound = isFaultless(file) && isFaultless(other);
  const Words diff{"config", "diff", file, other};
  const Outcome found = check(diff, {});
  if (found.status == 2) return require(!isSound, "faultless files can be compared", all(diff, found));
  require((found.status == 1) == !found.out.empty(), "differences give a status", all(diff, found));
  if (found.out.empty()) return;
  runs().put("former", runs().content(file));
  const Words set{"config", "set", file, "-"};
  const Outcome taken = check(set, found.out);
  require(!isSound || taken.status == 0, "differences of faultless files are taken",
          found.out + all(set, taken));
  if (taken.status != 0) return;
  const Outcome rest = check(diff, {});
  require(rest.status == 0 && rest.out.empty(), "differences that were taken are gone",
          found.out + all(diff, rest));
  const Outcome back = check({"config", "set", "--reverse", file, "-"}, found.out);
  if (back.status != 0) return;
  const Outcome none = check({"config", "diff", "former", file}, {});
  require(none.status == 0, "differences that were taken back are gone", found.out + all(diff, none));
}

// What is printed as a file holds the same values.
void checkPrinted(Choices& choices) {
  const std::string file = choices.oneOf({"given", "conf/101.conf", "global.conf", "conf/102.conf"});
  const std::string group = choices.oneOf({"raw", "global"});
  const Words words{group, "get", file};
  const Outcome lines = check(words, {});
  const Outcome values = check({group, "get", file, "--json"}, {});
  require(lines.status == values.status, "both formats have one status", all(words, lines));
  if (lines.status != 0) return;
  runs().put("printed", lines.out);
  require(check({"raw", "get", "printed", "--json"}, {}).out == values.out,
          "what is printed reads as the same values", all(words, lines));
  const Json document = Json::parse(values.out);
  for (const auto& [key, value] : document.items()) {
    const Outcome one = check({group, "get", file, key}, {});
    require(!value.is_string() || (one.status == 0 && one.out == value.get<std::string>() + "\n"),
            "a value alone is as it is", key + all(words, one));
  }
}

// How many different lines of `after` are not among those of `before`; a key that stands twice gets its value in both.
// Whether the last one has a newline does not matter.
std::size_t newLines(const std::string& before, const std::string& after) {
  std::vector<std::string> was = linesOf(before), is = linesOf(after), rest;
  std::sort(was.begin(), was.end());
  std::sort(is.begin(), is.end());
  std::set_difference(is.begin(), is.end(), was.begin(), was.end(), std::back_inserter(rest));
  return static_cast<std::size_t>(std::unique(rest.begin(), rest.end()) - rest.begin());
}

// A value that is set is there, in one line, and each other one as it was, as a try has shown; beside the file, too.
void checkSet(Choices& choices) {
  const std::string group = choices.oneOf({"raw", "config", "global"});
  const auto [key, value] = changeFrom(choices);
  const std::string change = key + "=" + value;
  const Words get{"raw", "get", "given", "--json"};
  const Outcome before = check(get, {});
  const Files former = runs().files();
  Files latter;
  const Outcome shown = check({group, "set", "--dry-run", "given", change}, {});
  const Outcome beside = check({group, "set", "--output", "result", "given", change}, {});
  const std::string result = beside.status == 2 ? "" : runs().content("result");
  std::filesystem::remove("result");
  const Words words{group, "set", "given", change};
  const Outcome set = check(words, {}, &latter);
  require(set.status == 2 || Patch(former).apply(shown.out) == latter, "what is set is what was shown",
          all(words, shown));
  require(beside.status == set.status && (set.status == 2 || result == latter["given"]),
          "the result is what the file would be", all(words, set) + all(words, beside));
  require(set.errors.find(" is missing") == std::string::npos &&
              set.errors.find("one FILE is wanted") == std::string::npos,
          "a change is one whatever its value holds", all(words, set));
  if (set.status != 0 || before.status != 0) return;
  require(newLines(former.at("given"), latter["given"]) <= 1, "one line changes",
          latter["given"] + all(words, set));
  const Outcome after = check(get, {});
  require(after.status == 0, "a file that was changed can be read", all(words, after));
  Json was = Json::parse(before.out), is = Json::parse(after.out);
  std::string lower = key;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  require(!is[lower].is_string() || is[lower] == kfl_fuzz::within(change).substr(key.size() + 1),
          "what is set reads back", all(words, after));
  was.erase(lower);
  is.erase(lower);
  require(was == is, "each other value stays", all(words, after));
}

// What is printed for a shell reads as the value, whatever bytes that has.
void checkQuoted(Choices& choices) {
  std::string text, spelled;
  for (std::size_t more = choices.below(12) + 1; more > 0; --more)
    text +=
        choices.oneOf({"a", "'", "\"", "$", "`", "\\", " ", "\t", "\xc3\xa4", "#", "=", "!", "\xff", "\x1b"});
  for (const char c : text) {
    constexpr const char* kDigits = "0123456789abcdef";
    spelled += {'\\', 'x', kDigits[static_cast<unsigned char>(c) >> 4U], kDigits[c & 15]};
  }
  runs().put("given", "DESCRIPTION=$'" + spelled + "'\n");
  const Words get{"raw", "get", "given"}, diff{"config", "diff", "empty", "given"};
  for (const Words& words : {get, diff}) {
    const Outcome outcome = check(words, {});
    if (words == diff && outcome.status == 2) continue;
    runs().put("printed", outcome.out);
    const Outcome read = check({"raw", "get", "printed", "DESCRIPTION", "--json"}, {});
    const Outcome direct = check({"raw", "get", "given", "DESCRIPTION", "--json"}, {});
    require(read.status == 0 && read.out == direct.out, "what is printed for a shell reads as the value",
            all(words, outcome) + all(words, read));
  }
}

// An environment with limits that may lie in the wrong order.
std::string limitsFrom(Choices& choices) {
  std::string text;
  for (const char* const name :
       {"NUMPROC", "AVNUMPROC", "OPENFILES", "TCPSOCKETS", "PHYSMEMORY", "SWAPSPACE"}) {
    if (choices.oneIn(4)) continue;
    const std::string soft = choices.oneOf({"20", "10", "30", "0", "600"});
    text += name + ("=\"" + soft) + ":" + choices.oneOf({"20", "30", "10", "600"}) + "\"\n";
  }
  if (choices.oneIn(8))
    text += choices.oneOf({"SLMMODE=\"slm\"\n", "SLMMODE=\"all\"\nSLMMEMORYLIMIT=\"5\"\n"});
  return text;
}

bool isBroken(const Json& judgement) {
  const auto isViolated = [](const Json& formula) { return formula.at("state") == "violated"; };
  const Json& formulas = judgement.at("formulas");
  return judgement.at("memory_mode") == "limit_missing" ||
         std::any_of(formulas.begin(), formulas.end(), isViolated);
}

// The status tells whether a formula is violated, in each format, of one file as of several.
void checkFormulas(Choices& choices) {
  Words words{"qos", "check"};
  for (const char* const name : {"given", "beside"}) {
    if (words.size() > 2 && choices.oneIn(2)) continue;
    runs().put(name, limitsFrom(choices));
    words.emplace_back(name);
  }
  const int status = check(words, {}).status;
  words.emplace_back("--json");
  const Outcome outcome = check(words, {});
  require(status == outcome.status && status != 2, "each format has the same status", all(words, outcome));
  const Json document = Json::parse(outcome.out);
  const bool broken = document.is_object()
                          ? isBroken(document)
                          : std::any_of(document.begin(), document.end(),
                                        [](const Json& file) { return isBroken(file.at("data")); });
  require((status == 1) == broken, "a formula that is violated gives a status", all(words, outcome));
}

// A faultless file, but for bytes that no message can hold, goes through its message, which says what TECHNOLOGIES makes of
// the architecture.
void checkMessage(Choices& choices) {
  const std::string file = environmentOf(choices);
  if (!isFaultless(file)) return;
  const Words words{"message", "from-config", "--veid", "7", file};
  if (!KFL::isUtf8(runs().content(file))) {
    const Outcome outcome = check(words, {});
    const bool says = outcome.errors.ends_with(" is not UTF-8, so it cannot stand in a message\n");
    if (outcome.status == 2 && outcome.out.empty() && says) return;
  }
  const std::string message = runs().mustPrint(words);
  runs().mustPrint({"message", "check", "-"}, 0, message);
  runs().put("made", runs().mustPrint({"message", "to-config", "-"}, 0, message));
  const Outcome differences = check({"config", "diff", file, "made"}, {});
  const std::vector<std::string> lines = linesOf(differences.out);
  const bool areSame = std::all_of(lines.begin(), lines.end(), [](const std::string& line) {
    return line.starts_with("unset TECHNOLOGIES ") || line.starts_with("ARCH=");
  });
  require(differences.status != 2 && areSame, "a message brings the same values",
          message + differences.out + differences.errors);
}

std::size_t errorsOf(const std::string& file) {
  const Outcome outcome = check({"config", "check", "--level", "error", "--json", file}, {});
  return outcome.out.empty() ? 0 : Json::parse(outcome.out).size();
}

// Several files are fixed as each alone is; a key that stands twice is always mended.
void checkFixOfMany(Choices& choices) {
  const std::string twice = "NAME=\"a\"\nNAME=\"b\"\n";
  const Files files = {{"given", runs().content("given") + "\n" + twice},
                       {"beside", twice + runs().content(environmentOf(choices))}};
  const auto putAll = [&files] {
    for (const auto& [name, content] : files)
      runs().put(name, content);
  };
  const auto fix = [](const Words& names) {
    Words words{"config", "fix", "--apply"};
    append(words, names);
    return check(words, {}).status;
  };
  putAll();
  const int status = fix({"given", "beside"});
  const std::string first = runs().content("given"), second = runs().content("beside");
  putAll();
  require(std::max(fix({"given"}), fix({"beside"})) == status || status == 2,
          "the status is that of the worst", first + "--\n" + second);
  require(status == 2 || (runs().content("given") == first && runs().content("beside") == second),
          "several files are fixed as each alone is", first + "--\n" + second);
}

// What is fixed stays so, and nothing gets worse.
void checkFix() {
  const std::size_t errors = errorsOf("given");
  const Words words{"config", "fix", "--apply", "given"};
  const Outcome fixed = check(words, {});
  if (fixed.status == 2) return;
  const Outcome again = check({"config", "fix", "given"}, {});
  require(again.status == 0 && again.out.empty(), "what is fixed needs no fix", again.out + again.errors);
  require(errorsOf("given") <= errors, "a fix makes no errors", all(words, fixed));
}

// A copy that one alone has changed is the result, its last line whole; and so is what both have changed alike.
void checkMerge(Choices& choices) {
  const std::string base = environmentOf(choices);
  const std::string changed = environmentOf(choices);
  std::string text = runs().content(changed);
  if (!text.empty() && text.back() != '\n') text += '\n';
  const Words ours{"config", "merge", base, changed, base};
  const Outcome outcome = check(ours, {});
  require(outcome.status == 2 || (outcome.status == 0 && outcome.out == text), "a merge keeps what is ours",
          all(ours, outcome));
  const Words both{"config", "merge", base, changed, changed};
  const Outcome alike = check(both, {});
  require(alike.status == 2 || (alike.status == 0 && alike.out == text), "a merge keeps what both have",
          all(both, alike));
}

// What a word can become begins with it.
void checkCompletion(Choices& choices) {
  Words words = wordsOf(lineFrom(choices), nullptr);
  std::erase(words, "--");
  words.resize(std::max<std::size_t>(1, choices.below(words.size() + 1)));
  std::string last = words.back();
  last.resize(std::min(last.size(), choices.below(8)));
  words.back() = last;
  Words line{"complete", "--"};
  append(line, words);
  const Outcome outcome = check(line, {});
  require(outcome.status == 0, "there is always an answer", all(line, outcome));
  for (const std::string& candidate : linesOf(outcome.out))
    require(candidate.starts_with(kfl_fuzz::within(last)), "what a word can become begins with it",
            all(line, outcome));
}

// Templates in a cache, under the keys that it tells.
void checkCache(Choices& choices) {
  std::string xml = runs().content("object.xml");
  const std::string name =
      choices.oneOf({"debian", "*", "[a]", "a b", "\xc3\xa4", "x&amp;y", "a.b", "-", "\\", "n?"});
  xml.replace(xml.find("<core:name>nginx<"), 16, "<core:name>" + name);
  runs().put("new.xml", xml);
  const Words put{"cache", "put", "cache", "new.xml"};
  const Outcome printed = check(put, {});
  require(printed.status == 0 && printed.out.size() > 1, "a template is put", all(put, printed));
  std::string key = printed.out.substr(0, printed.out.size() - 1);
  const Json listed = Json::parse(runs().mustPrint({"cache", "list", "cache", "--json"}));
  require(listed.size() == 2 && (listed[0]["key"] == key || listed[1]["key"] == key), "what is put is listed",
          listed.dump() + key);
  const std::string got = runs().mustPrint({"cache", "get", "cache", "--", key});
  runs().mustPrint({"cache", "create", "other"});
  require(runs().mustPrint({"cache", "put", "other", "-"}, 0, got) == printed.out, "what is got can be put",
          got);
  runs().mustPrint({"cache", "remove", "cache", "--", key});
  require(Json::parse(runs().mustPrint({"cache", "list", "cache", "--json"})).size() == 1,
          "what is removed is gone, and no other", key);
  runs().mustPrint({"cache", "verify", "cache"});
}

constexpr std::size_t kRows = 10;

void checkTogether(std::size_t row, const std::string& given, Choices& choices) {
  runs().renew(given);
  switch (row) {
    case 0:
      return checkDifferences(choices);
    case 1:
      return checkPrinted(choices);
    case 2:
      return checkSet(choices);
    case 3:
      return checkMessage(choices);
    case 4:
      return choices.oneIn(2) ? checkFixOfMany(choices) : checkFix();
    case 5:
      return checkMerge(choices);
    case 6:
      return checkCompletion(choices);
    case 7:
      for (int texts = 0; texts < 8; ++texts)
        checkQuoted(choices);
      return;
    case 8:
      for (int pairs = 0; pairs < 4; ++pairs)
        checkFormulas(choices);
      return;
    default:
      return checkCache(choices);
  }
}

void checkLine(const Line& line, const std::string& given, Choices& choices) {
  runs().renew(given);
  Files files;
  const Words words = wordsOf(line, nullptr);
  const Outcome outcome = check(words, given, &files);
  checkSpelling(line, outcome, files, given, choices);
  if (isChange(line)) checkChange(line, given);
  if (choices.oneIn(8)) checkHelp(line, choices);
}

Words splitWords(const std::string& line) {
  Words words;
  std::istringstream in(line);
  for (std::string word; std::getline(in, word, '\t');)
    words.push_back(word.substr(0, word.find('\0')));  // no argument has more
  return words;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = kfl_fuzz::viewOf(data, size);
  kfl_fuzz::LinesAndContent split = kfl_fuzz::splitInput(input);
  Choices choices(input);
  if (!split.lines.empty()) {
    if (split.content.starts_with("\x7f"
                                  "ELF"))
      split.content.clear();  // no code of others is run
    runs().renew(split.content);
    for (const std::string& line : split.lines)
      check(splitWords(line), split.content);
  } else {
    const std::size_t row = choices.below(2 * kRows);
    const bool isLine = row >= kRows;
    const Line line = isLine ? lineFrom(choices) : Line();
    Choices rest(choices);
    split.content = choices.oneIn(4) ? choices.bytes(300) : kfl_fuzz::environmentFile(choices);
    if (!split.content.empty() && rest.oneIn(4)) split.content.pop_back();
    isLine ? checkLine(line, split.content, rest) : checkTogether(row, split.content, rest);
  }
  return 0;
}
