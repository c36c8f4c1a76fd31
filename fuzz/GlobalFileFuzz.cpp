// SPDX-License-Identifier: Apache-2.0
// Global files: they hold what a plain map of the same file holds; what is read, written and read again is equal, and so
// is what goes through a message; a value that is set reads back. The input is lines KEY=VALUE, a line "--", and the file.
#include <algorithm>
#include <map>
#include <sstream>
#include <string>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLMessage.h>

#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAGlobalConfigRules.h>
#include <KFAFunctionality/files/KFAKFConfigBashParser.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

#include "Fuzzing.h"

namespace {

using KFA::KFAVtSettings;
using kfl_fuzz::require;
using Values = std::map<std::string, std::string>;

int readRaw(const std::string& text, Values& values) {
  KFA::KFAMemoryStream in(text);
  return KFA::KFARawConfigBashParser::getInstance()->getConfig(in, values);
}

bool isEqual(const KFAVtSettings& a, const KFAVtSettings& b) {
  return a.getValues() == b.getValues() && a.getLockDir() == b.getLockDir() &&
         a.getTemplateDir() == b.getTemplateDir();
}

// A value is written as it stands, so one that is no text between double quotes makes another file.
bool isWritable(const Values& values) {
  return std::all_of(values.begin(), values.end(),
                     [](const auto& entry) { return KFL::isBashSafe(entry.second, nullptr); });
}

void requireSameRewritten(const std::string& text, const KFAVtSettings& settings) {
  KFA::KFAMemoryStream existing(text);
  std::ostringstream merged;
  const auto parser = KFA::KFAKFConfigBashParser::getInstance();
  require(parser->putConfig(settings, merged, &existing, true) == 0, "settings are written over their file",
          text);
  KFAVtSettings again;
  require(KFA::readGlobalConfig(merged.str(), "f", again) == 0, "a file that is written is read",
          merged.str());
}

void requireSameByMessage(const KFAVtSettings& settings) {
  KFL::KFLMessage message;
  auto it = message.getIterator();
  require(it.putObj(settings) == 0, "settings are written into a message");
  std::string xml;
  if (message.print(xml) != 0) return;  // a text that XML cannot hold
  KFL::KFLMessage received;
  KFAVtSettings again;
  require(received.parse(xml) == 0 && received.getIterator().getObj(again) == 0, "the message is read", xml);
  require(isEqual(settings, again), "a message brings the same settings", xml);
}

void checkSetting(const std::string& line, const std::string& text) {
  const std::string key = line.substr(0, line.find('='));
  const std::string value = line.substr(std::min(line.size(), key.size() + 1));
  std::string result;
  if (KFA::setConfigValues(KFA::KFAGlobalConfigRules(), {{key, value}}, {}, text, "f", result) != 0) return;
  Values before;
  Values after;
  require(readRaw(text, before) == 0 && readRaw(result, after) == 0, "a set file is read", result);
  require(after[KFL::toLower(key)] == value, "what is set reads back", result);
  before[KFL::toLower(key)] = value;
  require(before == after, "each other value stays", result);
  KFAVtSettings settings;
  require(KFA::readGlobalConfig(result, "f", settings) == 0, "settings are read after a set", result);
  require(KFL::toLower(key) != "lockdir" || settings.getLockDir().getValue() == value, "the folder is set",
          result);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kfl_fuzz::LinesAndContent input = kfl_fuzz::splitInput(kfl_fuzz::viewOf(data, size));
  std::erase(input.content, '\0');
  input.lines.insert(input.lines.end(), {"OFFLINE_SERVICE=b a", "lockdir=/l"});
  for (const std::string& line : input.lines)
    checkSetting(line, input.content);
  KFAVtSettings settings;
  Values values;
  const bool isRead = KFA::readGlobalConfig(input.content, "f", settings) == 0;
  require(isRead == (readRaw(input.content, values) == 0), "the global parser reads what the raw one reads");
  if (!isRead) return 0;
  require(settings.getValues() == values, "every key stands in the map");
  if (isWritable(values)) requireSameRewritten(input.content, settings);
  requireSameByMessage(settings);
  return 0;
}
