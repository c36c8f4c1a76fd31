// SPDX-License-Identifier: Apache-2.0
// KEY="value" files of any kind: a rewrite gives exactly the text that a plain model gives, and reads back as the former
// values with the new ones among them; and a plain line means to the grammar what it means without. The input is lines KEY=VALUE, a line "--", and the file.
#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

#include "BashReading.h"
#include "Fuzzing.h"

namespace {

using kfl_fuzz::require;
using Values = std::map<std::string, std::string>;

int read(const std::string& text, Values& values) {
  KFA::KFAMemoryStream in(text);
  return KFA::KFARawConfigBashParser::getInstance()->getConfig(in, values);
}

std::string rewrite(const std::string& text, const Values& values) {
  KFA::KFAMemoryStream existing(text);
  std::ostringstream out;
  require(KFA::KFARawConfigBashParser::getInstance()->putConfig(values, out, &existing, true) == 0,
          "a file is written");
  return out.str();
}

// Names that bash keeps for itself; a key is in lower case, and then only "_" is one of them.
const std::set<std::string> kOfBash = {
    "BASHOPTS",    "BASHPID",       "BASH_ARGC",     "BASH_ARGV", "BASH_COMMAND",  "BASH_LINENO",
    "BASH_SOURCE", "BASH_SUBSHELL", "BASH_VERSINFO", "DIRSTACK",  "EPOCHREALTIME", "EPOCHSECONDS",
    "EUID",        "FUNCNAME",      "GROUPS",        "HISTCMD",   "LINENO",        "PIPESTATUS",
    "PPID",        "RANDOM",        "SHELLOPTS",     "SRANDOM",   "UID",           "_"};

Values changesOf(const std::vector<std::string>& lines) {
  Values changes;
  for (const std::string& line : lines) {
    const std::string key = KFL::toLower(line.substr(0, line.find('=')));
    const std::string value = line.substr(std::min(line.size(), key.size() + 1));
    if (KFL::isBashName(key) && key != "_" && KFL::isBashSafe(value, nullptr) &&
        value.find('\0') == std::string::npos)
      changes[key] = value;
  }
  if (changes.empty()) changes["fuzz_key"] = "$VEID 'x' # y";
  return changes;
}

// What a file must be once the keys have these values; lines from the first malformed one on are copied too.
std::string model(const std::string& text, Values values) {
  std::string result;
  Values left = values;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const kfl_fuzz::Reading reading = kfl_fuzz::readLine(line);
    const auto change = values.find(KFL::toLower(reading.name));
    if (reading.result == KFL::kBashAssignment && change != values.end()) {
      left.erase(change->first);
      line = replaceValue(line, reading, change->second);
    }
    result += line + "\n";
  }
  for (const auto& [key, value] : left)
    result += (kOfBash.count(KFL::toUpper(key)) != 0 ? key : KFL::toUpper(key)) + "=\"" + value + "\"\n";
  return result;
}

// What the lines assign, up to the first malformed one; of a key that stands twice the first counts.
int readPlainly(const std::string& text, Values& values) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const kfl_fuzz::Reading reading = kfl_fuzz::readLine(line);
    if (reading.result == KFL::kBashMalformed) return -1;
    if (reading.result == KFL::kBashAssignment) values.emplace(KFL::toLower(reading.name), reading.value);
  }
  return 0;
}

void check(const std::string& text, const Values& changes) {
  Values plain, held;
  const int wanted = readPlainly(text, plain);
  require(read(text, held) == wanted && held == plain, "a file holds what its lines assign", text);
  require(rewrite(text, {}) == model(text, {}), "a rewrite without values copies every byte");
  const std::string result = rewrite(text, changes);
  require(result == model(text, changes), "a rewritten file is what the model says", result);
  require(rewrite(result, changes) == result, "rewriting again changes nothing");
  Values before;
  Values after;
  if (read(text, before) != 0) return;
  require(read(result, after) == 0, "a file that is rewritten can be read");
  for (const auto& [key, value] : changes)
    before[key] = value;
  require(before == after, "what is read is what was, and what was set", result);
}

void checkSetting(const std::string& text, const Values& changes) {
  std::string result;
  const KFA::KFAConfigChanges wanted(changes.begin(), changes.end());
  Values ignored;
  if (KFA::setConfigValues(KFA::KFARawConfigRules(), wanted, {}, text, "f", result) != 0) return;
  require(read(text, ignored) == 0, "a file that cannot be read is not changed");
  require(result == model(text, changes), "what sets values does what the model says", result);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kfl_fuzz::LinesAndContent input = kfl_fuzz::splitInput(kfl_fuzz::viewOf(data, size));
  std::erase(input.content, '\0');
  const Values changes = changesOf(input.lines);
  const std::string_view text = input.content;
  for (std::size_t at = 0; at < text.size(); at = std::min(text.find('\n', at), text.size()) + 1) {
    const std::string broken = kfl_fuzz::checkPlain(text.substr(at));
    require(broken.empty(), broken.c_str(), text);
  }
  check(input.content, changes);
  checkSetting(input.content, changes);
  return 0;
}
