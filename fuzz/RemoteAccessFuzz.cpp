// SPDX-License-Identifier: Apache-2.0
// Access files: one that is refused names its line and leaves the rights as they were; one that is read gives nothing to
// a name that stands nowhere in it. One that the input's bytes make is refused at its first bad line, or gives everybody
// what a plain reading of its lines says.
#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include <KFARemote/KFARemoteAccess.h>
#include <KFLCommon/KFLError.h>

#include "Fuzzing.h"

namespace {

using KFA::KFARemoteRights;
using kfl_fuzz::Choices;
using kfl_fuzz::require;
using Words = std::vector<std::string>;

constexpr const char* kFirst = "11111111-0000-4000-8000-000000000001";
constexpr const char* kSecond = "11111111-0000-4000-8000-000000000002";
constexpr const char* kPlaces =
    "node|11111111-0000-4000-8000-000000000001|11111111-0000-4000-8000-000000000002";

// A line as it was meant: what it gives, and whether it can be read at all.
struct Line {
  std::string name, right, managers, environments;
  bool isGood = true;
};

// Of the words, those behind the bar are no good.
std::string take(Choices& choices, const char* good, const char* bad, bool& isGood) {
  if (!choices.oneIn(24)) return choices.wordOf(good);
  isGood = false;
  return choices.wordOf(bad);
}

// The word for everything stands alone.
std::string listOf(Choices& choices, const char* good, bool& isGood) {
  if (choices.oneIn(3)) return "*";
  std::string list = take(choices, good, "x|1|nodes|file", isGood);
  for (std::size_t more = choices.below(3); more > 0; --more)
    list += "," + take(choices, good, "x|*|", isGood);
  return list;
}

Line lineFrom(Choices& choices, std::string& text) {
  Line line;
  line.name = take(choices, "a|A.b|b.c|*.b.c|x.b.c|*.B|*.c|.b|c", "*|a*|*.*|b.*.c|*a|**.b", line.isGood);
  line.right = take(choices, "read|change|all", "Read|write|none|reads|*", line.isGood);
  const std::size_t lists = choices.below(3);
  line.managers = lists < 1 ? "*" : listOf(choices, "environments|processes|files|samples", line.isGood);
  line.environments = lists < 2 ? "*" : listOf(choices, kPlaces, line.isGood);
  const char* const blank = choices.oneOf({" ", "\t", "   ", " \r"});
  text += choices.oneOf({"", " ", "\t"}) + line.name + blank + line.right;
  if (lists > 0) text += blank + line.managers;
  if (lists > 1) text += blank + line.environments;
  if (choices.oneIn(32)) {
    line.isGood = line.isGood && lists < 2;
    text += lists < 2 ? "" : " more";
  }
  text += choices.oneOf({"", " ", "\r", "#", " # all", "#a all"});
  return line;
}

// A pattern behind a point that begins with one stands for what ends so.
bool isFor(const std::string& pattern, std::string name) {
  std::string wanted = pattern;
  for (std::string* const text : {&wanted, &name})
    std::transform(text->begin(), text->end(), text->begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (wanted.substr(0, 2) != "*.") return wanted == name;
  return name.size() >= wanted.size() && name.substr(name.size() - wanted.size() + 1) == wanted.substr(1);
}

bool isIn(const std::string& list, const std::string& word) {
  return list == "*" || ("," + list + ",").find("," + word + ",") != std::string::npos;
}

bool gives(const Line& line, const Words& callers, const KFA::KFAManagerOperation& operation,
           const std::string& where) {
  const std::string kinds[] = {"read change all", "change all", "all"};
  return kinds[static_cast<std::size_t>(operation.kind)].find(line.right) != std::string::npos &&
         isIn(line.managers, operation.manager) && isIn(line.environments, where) &&
         std::any_of(callers.begin(), callers.end(),
                     [&](const std::string& caller) { return isFor(line.name, caller); });
}

std::string aboutCall(std::string text, const Words& caller, const char* name, const std::string& where) {
  return text.append("\n")
      .append(caller.empty() ? "nobody" : caller.back())
      .append(" ")
      .append(name)
      .append(" ")
      .append(where);
}

void requireRights(const KFARemoteRights& rights, const std::vector<Line>& lines, const std::string& text) {
  const Words callers[] = {{"a"},  {"a.B"},  {"b.c"},    {"X.b.C"}, {"y.x.b.c"},
                           {".b"}, {"xb.c"}, {"d", "A"}, {},        {"", "c"}};
  const std::pair<const char*, const char*> operations[] = {
      {"environments", "list"},  {"environments", "start"}, {"environments", "remove"},
      {"processes", "execute"},  {"files", "read"},         {"files", "change"},
      {"files", "changeFreely"}, {"samples", "set"}};
  for (const auto& [manager, name] : operations) {
    const KFA::KFAManagerOperation* const operation = KFA::findManagerOperation(manager, name);
    require(operation != nullptr, "an operation is found by its names", name);
    for (const Words& caller : callers) {
      for (const std::string where : {"node", kFirst, kSecond}) {
        const KFL::KFLEID environment = where == "node" ? KFL::KFLEID() : KFL::KFLEID(where);
        const bool isGiven = std::any_of(lines.begin(), lines.end(), [&](const Line& line) {
          return gives(line, caller, *operation, where);
        });
        require(rights.allow(caller, *operation, environment) == isGiven, "everybody has what the lines give",
                aboutCall(text, caller, name, where));
      }
    }
  }
}

void checkModel(Choices choices) {
  std::string text;
  std::vector<Line> lines;
  std::size_t bad = 0;
  for (std::size_t row = 1; !choices.isAtEnd() && row < 8; ++row) {
    if (row > 1) text += "\n";
    if (choices.oneIn(8)) {
      text += choices.oneOf({"", " ", "# a all", "\t#"});
      continue;
    }
    lines.push_back(lineFrom(choices, text));
    if (!lines.back().isGood && bad == 0) bad = row;
  }
  text += choices.oneOf({"", "\n"});
  KFARemoteRights rights;
  require(rights.parse("a all\nc change *\n", "former") == 0, "plain lines are read");
  const int result = rights.parse(text, "access");
  require((result == 0) == (bad == 0), "a file is read when each line is good", text);
  if (result == 0) return requireRights(rights, lines, text);
  require(KFL::getErrorMessage().starts_with("access:" + std::to_string(bad) + ": "),
          "a refusal names the first bad line", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(kfl_fuzz::viewOf(data, size));
  const KFA::KFAManagerOperation& list = *KFA::findManagerOperation("environments", "list");
  KFARemoteRights rights;
  require(rights.parse("known all\n", "access") == 0, "a plain line is read");
  const int result = rights.parse(text, "access");
  require(result == 0 || KFL::getErrorMessage().starts_with("access:"), "a refusal names the line");
  require(result == 0 || rights.allow({"known"}, list, KFL::KFLEID()), "a refused text changes nothing");
  const std::string stranger = text.find("stranger") == std::string::npos ? "stranger" : "";
  require(stranger.empty() || !rights.allow({stranger}, list, KFL::KFLEID()), "who is not named is denied");
  checkModel(Choices(text));
  return 0;
}
