// SPDX-License-Identifier: Apache-2.0
// Environment files: the check finds why one is not read; what is read and written reads back as the same record, into a
// new file and over the old one; and a value that is set leaves each other one as it was. The input is lines KEY=VALUE, a
// line "--", and the file; its bytes also make a file of their own.
#include <map>
#include <string>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

#include "Environments.h"

namespace {

using KFA::KFAEnvConfig;
using kfl_fuzz::environmentParser;
using kfl_fuzz::environmentRules;
using kfl_fuzz::require;

bool read(const std::string& text, KFAEnvConfig& record) {
  KFA::KFAMemoryStream in(text);
  return environmentParser().getConfig(in, record) == 0;
}

void requireFindings(const std::string& text, bool isRead) {
  bool isMalformed = false;
  for (const KFA::KFAConfigFinding& finding : KFA::checkConfig(environmentRules(), text)) {
    require(finding.line > 0 && finding.column > 0 && !finding.text.empty(), "a finding has its place", text);
    require(finding.column <= finding.lineText.size() + 1, "its place lies in its line", finding.text);
    isMalformed |= finding.severity == KFA::KFAConfigFinding::Severity::Error;
  }
  require(isRead || isMalformed, "the check finds why a file is not read", text);
}

// The record of a file that gives cause to no word.
void requireSameAgain(const std::string& text, const KFAEnvConfig& record) {
  for (const std::string& written : {kfl_fuzz::writtenFile(record), kfl_fuzz::mergedFile(record, text)}) {
    KFAEnvConfig again;
    require(read(written, again), "what is written is read", written);
    require(kfl_fuzz::differences(record, again).empty() && kfl_fuzz::differences(again, record).empty(),
            "what is written reads back as the same record",
            text + "--\n" + written + "--\n" + kfl_fuzz::differences(record, again));
  }
  const std::string written = kfl_fuzz::writtenFile(record);
  KFAEnvConfig again;
  read(written, again);
  require(kfl_fuzz::writtenFile(again) == written, "a second writing is the first", written);
}

void check(const std::string& text) {
  KFAEnvConfig record;
  const bool isRead = read(text, record);
  requireFindings(text, isRead);
  if (!isRead) return;
  if (kfl_fuzz::isFaultless(text))
    requireSameAgain(text, record);
  else
    kfl_fuzz::mergedFile(record, text);
}

std::map<std::string, std::string> rawOf(const std::string& text) {
  std::map<std::string, std::string> values;
  KFA::KFAMemoryStream in(text);
  require(KFA::KFARawConfigBashParser::getInstance()->getConfig(in, values) == 0, "a set file is read", text);
  return values;
}

void checkSetting(const std::string& line, const std::string& text) {
  const std::string key = line.substr(0, line.find('='));
  const std::string value = line.substr(std::min(line.size(), key.size() + 1));
  std::string result;
  if (KFA::setConfigValues(environmentRules(), {{key, value}}, {}, text, "f", result) != 0) return;
  auto before = rawOf(text);
  auto after = rawOf(result);
  require(after[KFL::toLower(key)] == value, "the file has the value that was set", result);
  before.erase(KFL::toLower(key));
  after.erase(KFL::toLower(key));
  require(before == after, "each other value stays", result);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kfl_fuzz::LinesAndContent input = kfl_fuzz::splitInput(kfl_fuzz::viewOf(data, size));
  std::erase(input.content, '\0');
  kfl_fuzz::Choices choices(input.content);
  for (const std::string& text : {input.content, kfl_fuzz::environmentFile(choices)}) {
    check(text);
    for (const std::string& line : input.lines)
      checkSetting(line, text);
  }
  return 0;
}
