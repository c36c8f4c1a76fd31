// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAGlobalConfigRules.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAKFConfigBashParser.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>

#include "KFABashLines.h"

namespace KFA {

namespace {

using Parser = KFAKFConfigBashParser;

constexpr const char* kOfflineService = "offline_service";

std::set<std::string> nameSet(const std::string& value) {
  const std::vector<std::string> names = Parser::getServiceNames(value);
  std::set<std::string> set(names.begin(), names.end());
  set.erase(std::string());
  return set;
}

// Puts keys into settings that list no services yet, and gathers the names of services meanwhile: the list would be
// searched through for every line that names some.
class GatheringPut {
 public:
  explicit GatheringPut(KFAVtSettings& settings) : put_(settings) {}

  int put(const std::string& key, const char* value) {
    if (key == kOfflineService) gather(value);
    return put_.put(key, value);
  }
  const KFAVtSettings::OfflineServices& getServices() const { return services_; }
  // Those of the last line that names any.
  const std::set<std::string>& getEnabled() const { return enabled_; }

 private:
  void gather(const std::string& value) {
    services_.setSpecified(true);
    if (value.empty()) return;
    enabled_ = nameSet(value);
    for (const std::string& name : Parser::getServiceNames(value)) {
      if (!name.empty() && known_.insert(name).second) services_.value().push_back({name, false});
    }
  }

  Parser::ParameterParserPut put_;
  std::set<std::string> known_;
  std::set<std::string> enabled_;
  KFAVtSettings::OfflineServices services_;
};

int refuse(const std::string& key, const std::string& what) {
  KFL::setErrorMessage("%s: %s", KFL::toUpper(key).c_str(), what.c_str());
  return -1;
}

// Of services, order and repetition do not matter.
bool saysTheSame(const std::string& key, const std::string& asked, const std::string& given) {
  return key == kOfflineService ? nameSet(asked) == nameSet(given) : asked == given;
}

bool isOtherBlank(char c) {
  return c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

int readSettings(std::string_view text, KFAVtSettings& settings) {
  settings.setOfflineServices({});
  KFAMemoryStream stream(text);
  GatheringPut parser(settings);
  if (parseBashLikeConfig(parser, stream) != 0) return -1;
  settings.setOfflineServices(parser.getServices());
  settings.enableOfflineServices(parser.getEnabled());
  return 0;
}

}  // namespace

int readGlobalConfig(std::string_view text, const std::string& name, KFAVtSettings& settings) {
  return readSettings(text, settings) == 0 ? 0 : nameMalformedLine(text, name);
}

bool KFAGlobalConfigRules::firstLineCounts(const std::string& key) const {
  return key != kOfflineService && key != "lockdir" && key != "template";
}

bool KFAGlobalConfigRules::passesOver(const std::string& key, const std::string& value) const {
  return key == kOfflineService && value.empty();
}

int KFAGlobalConfigRules::accept(const std::string& key, const std::string& value) const {
  if (KFARawConfigRules::accept(key, value) != 0) return -1;
  if (key != kOfflineService || std::none_of(value.begin(), value.end(), isOtherBlank)) return 0;
  return refuse(key, quoteText(value) + " is not taken; names of services separated by spaces are wanted");
}

// As the parser hands its keys out.
void KFAGlobalConfigRules::order(KFAConfigChanges& changes) const {
  KFAVtSettings settings;
  settings.setValues({changes.begin(), changes.end()});
  std::map<std::string, std::string> left(changes.begin(), changes.end());
  changes.clear();
  Parser::ParameterParserGet keys(settings);
  for (std::string key; keys.getNext(std::string(), key) == kParameterDone;) {
    if (auto change = left.extract(key))
      changes.emplace_back(std::move(change.key()), std::move(change.mapped()));
  }
  changes.insert(changes.end(), left.begin(), left.end());
}

int KFAGlobalConfigRules::readsBack(const std::string& text, const KFAConfigChanges& changes) const {
  KFAVtSettings settings;
  if (readSettings(text, settings) != 0) return -1;
  Parser::ParameterParserGet reader(settings);
  for (const auto& [key, value] : changes) {
    std::string given;
    if (reader.get(key, given) != kParameterDone) return refuse(key, "would not be read back");
    if (!saysTheSame(key, value, given))
      return refuse(key, quoteText(value) + " would be read as " + quoteText(given));
  }
  return 0;
}

}  // namespace KFA
