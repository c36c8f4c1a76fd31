// SPDX-License-Identifier: Apache-2.0
// KEY="value" files: a rewrite that changes nothing copies every byte, one that changes a key changes its lines alone and
// reads back, the check finds an error wherever reading stops, and a plain line means to the grammar what it means without.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <KFLBash/KFLBashJudge.h>
#include <KFLBash/KFLBashPieces.h>
#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/files/KFAGlobalConfigRules.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

namespace {

using Values = std::map<std::string, std::string>;

constexpr const char* kVocabulary =
    "<vocabulary version='1'><category words='qos'><parameter id='numproc'/>"
    "<parameter id='cpuweight' kind='1'/><parameter id='cpulimit' kind='1' "
    "value_type='0'/></category></vocabulary>";

void require(bool holds, const char* law) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", law, KFL::getErrorMessage().c_str());
  std::abort();
}

boost::shared_ptr<KFA::KFAEnvConfigBashParser> envParser() {
  static const auto parser =
      KFA::KFAEnvConfigBashParser::getInstance(KFL::KFLVocMap::loadFromText(kVocabulary, "vocabulary"));
  return parser;
}

std::string rewrite(const std::string& text, const Values& values) {
  KFA::KFAMemoryStream existing(text);
  std::ostringstream out;
  require(KFA::KFARawConfigBashParser::getInstance()->putConfig(values, out, &existing, true) == 0,
          "a file is written");
  return out.str();
}

int readRaw(const std::string& text, Values& values) {
  KFA::KFAMemoryStream in(text);
  return KFA::KFARawConfigBashParser::getInstance()->getConfig(in, values);
}

// The first line of the text, as long as it is plain, both ways.
void checkPlain(std::string_view text) {
  KFL::KFLBashPlainLine plain;
  if (!KFL::readPlainBashLine(text, plain)) return;
  std::vector<char> line(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(plain.length));
  const KFL::KFLBashJudgement judged = KFL::judgeBashLine({line.data(), line.size()});
  require(judged.line.name == plain.name && judged.line.reason == KFL::KFLBashLine::Reason::None,
          "a plain line is one to the grammar too");
  if (plain.name.empty()) return;
  require(judged.pieces.begin() == plain.first && judged.pieces.end() == plain.end, "its value stands there");
  const std::size_t end = KFL::unquoteBashValue(line, judged.pieces);
  require(std::string_view(line.data() + plain.first, end - plain.first) == plain.value, "and is the same");
}

void checkRaw(const std::string& text) {
  const std::string whole = text.empty() || text.back() == '\n' ? text : text + '\n';
  require(rewrite(text, {}) == whole, "a rewrite without values copies every byte");
  Values values;
  const bool isRead = readRaw(text, values) == 0;
  std::string result;
  const KFA::KFARawConfigRules rules;
  if (KFA::setConfigValues(rules, {{"fuzz_key", "$VEID 'x' # y"}}, {}, text, "f", result) == 0) {
    require(isRead, "a file that cannot be read is not changed");
    Values after;
    require(readRaw(result, after) == 0 && after["fuzz_key"] == "$VEID 'x' # y", "what is set reads back");
    values.erase("fuzz_key");
    after.erase("fuzz_key");
    require(values == after, "other values stay");
    require(rewrite(result, {{"fuzz_key", "$VEID 'x' # y"}}) == result, "setting again changes nothing");
  }
}

void checkEnv(const std::string& text) {
  KFA::KFAEnvConfig record;
  KFA::KFAMemoryStream in(text);
  const bool isRead = envParser()->getConfig(in, record) == 0;
  const KFA::KFAEnvConfigRules rules(envParser());
  bool isMalformed = false;
  for (const KFA::KFAConfigFinding& finding : KFA::checkConfig(rules, text)) {
    require(finding.line > 0 && finding.column > 0 && !finding.text.empty(), "a finding has its place");
    isMalformed |= finding.severity == KFA::KFAConfigFinding::Severity::Error;
  }
  require(isRead || isMalformed, "the check finds why a file is not read");
  if (!isRead) return;
  KFA::KFAMemoryStream existing(text);
  std::ostringstream out;
  require(envParser()->putConfig(record, out, &existing, true) == 0, "a record is written");
}

void checkGlobal(const std::string& text) {
  KFA::KFAVtSettings settings;
  Values values;
  const bool isRead = KFA::readGlobalConfig(text, "f", settings) == 0;
  require(isRead == (readRaw(text, values) == 0), "the global parser reads what the raw one reads");
  require(!isRead || settings.getValues() == values, "every key stands in the map");
  std::string result;
  const KFA::KFAGlobalConfigRules rules;
  if (KFA::setConfigValues(rules, {{"offline_service", "b a"}, {"lockdir", "/l"}}, {}, text, "f", result) !=
      0)
    return;
  require(KFA::readGlobalConfig(result, "f", settings) == 0 && settings.getLockDir().getValue() == "/l",
          "what is set reads back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (std::size_t at = 0; at < size; at = std::min(text.find('\n', at), size) + 1)
    checkPlain(std::string_view(text).substr(at));
  checkRaw(text);
  checkEnv(text);
  checkGlobal(text);
  return 0;
}
