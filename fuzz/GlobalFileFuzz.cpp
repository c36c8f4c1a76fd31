// SPDX-License-Identifier: Apache-2.0
// Global files: they hold what a plain reading of the same lines holds; what is read, written and read again is equal, and so
// is what goes through a message; a value that is set reads back. The input is lines KEY=VALUE, a line "--", and the file.
#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLMessage.h>

#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAGlobalConfigRules.h>
#include <KFAFunctionality/files/KFAKFConfigBashParser.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

#include "BashReading.h"
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

// The lines of a file in their order.
std::vector<std::pair<std::string, std::string>> assignmentsOf(const std::string& text) {
  std::vector<std::pair<std::string, std::string>> all;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const kfl_fuzz::Reading reading = kfl_fuzz::readLine(line);
    if (reading.result == KFL::kBashAssignment) all.emplace_back(KFL::toLower(reading.name), reading.value);
  }
  return all;
}

std::vector<std::string> wordsOf(const std::string& value) {
  std::vector<std::string> words(1);
  for (const char c : value)
    c == ' ' ? static_cast<void>(words.emplace_back()) : words.back().push_back(c);
  std::erase(words, "");
  return words;
}

// What the record has beside the map: the last folders, and each service that any line names, those of the last line
// that names some enabled.
struct Plain {
  std::map<std::string, std::string> last;
  std::vector<std::string> services, enabled;
  bool hasServices = false;

  explicit Plain(const std::string& text) {
    for (const auto& [key, value] : assignmentsOf(text)) {
      last[key] = value;
      if (key != "offline_service") continue;
      hasServices = true;
      if (!value.empty()) enabled = wordsOf(value);
      for (const std::string& word : wordsOf(value))
        if (std::find(services.begin(), services.end(), word) == services.end()) services.push_back(word);
    }
  }
};

void requireFolder(const KFAVtSettings::Text& folder, const Plain& plain, const char* key,
                   const std::string& text) {
  const auto found = plain.last.find(key);
  require(folder.isSpecified() == (found != plain.last.end()) &&
              (found == plain.last.end() || folder.getValue() == found->second),
          "a folder is that of the last line", text);
}

void requirePlain(const KFAVtSettings& settings, const Plain& plain, const std::string& text) {
  requireFolder(settings.getLockDir(), plain, "lockdir", text);
  requireFolder(settings.getTemplateDir(), plain, "template", text);
  const auto& services = settings.getOfflineServices();
  require(services.isSpecified() == plain.hasServices, "services are there when a line names them", text);
  const auto isSame = [&](const KFA::KFAOfflineService& service, const std::string& name) {
    const bool isEnabled = std::find(plain.enabled.begin(), plain.enabled.end(), name) != plain.enabled.end();
    return service.name == name && service.enabled == isEnabled;
  };
  require(std::equal(services.getValue().begin(), services.getValue().end(), plain.services.begin(),
                     plain.services.end(), isSame),
          "each service is listed, and enabled by the last line", text);
}

// A new file has each key once, with what the record says of it.
void requireNewFile(const KFAVtSettings& settings, const Plain& plain) {
  std::ostringstream out;
  require(KFA::KFAKFConfigBashParser::getInstance()->putConfig(settings, out, nullptr, false) == 0,
          "settings are written");
  Values wanted = settings.getValues();
  for (const char* const key : {"lockdir", "template"})
    if (plain.last.count(key) != 0) wanted[key] = plain.last.at(key);
  if (plain.hasServices) {
    std::string& names = wanted["offline_service"];
    names.clear();
    for (const KFA::KFAOfflineService& service : settings.getOfflineServices().getValue())
      if (service.enabled) names += (names.empty() ? "" : " ") + service.name;
  }
  Values written;
  require(readRaw(out.str(), written) == 0 && written == wanted, "a new file has each key", out.str());
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
  const auto& sent = settings.getOfflineServices().getValue();
  const auto& got = again.getOfflineServices().getValue();
  require(again.getOfflineServices().isSpecified() == settings.getOfflineServices().isSpecified() &&
              std::equal(sent.begin(), sent.end(), got.begin(), got.end(),
                         [](const auto& a, const auto& b) { return a.name == b.name && b.enabled; }),
          "a message brings the names of all services", xml);
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
  const Plain plain(input.content);
  requirePlain(settings, plain, input.content);
  if (isWritable(values) && isWritable(plain.last)) {
    requireSameRewritten(input.content, settings);
    requireNewFile(settings, plain);
  }
  requireSameByMessage(settings);
  return 0;
}
