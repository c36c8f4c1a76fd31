// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAKFConfigBashParser.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>

#include <boost/make_shared.hpp>

#include <KFLBash/KFLBashStr.h>

#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFABashConfig.h>

#include "KFABashLines.h"

namespace KFA {

namespace {

// The keys whose values are fields of the record, in their order in a file.
struct Folder {
  std::string_view key;
  const KFAVtSettings::Text& (KFAVtSettings::*get)() const;
  void (KFAVtSettings::*set)(const KFAVtSettings::Text&);
};
constexpr Folder kFolders[] = {
    {"lockdir", &KFAVtSettings::getLockDir, &KFAVtSettings::setLockDir},
    {"template", &KFAVtSettings::getTemplateDir, &KFAVtSettings::setTemplateDir},
};
constexpr std::string_view kOfflineService = "offline_service";

const Folder* findFolder(std::string_view key) {
  const auto* const found =
      std::find_if(std::begin(kFolders), std::end(kFolders), [key](const Folder& f) { return f.key == key; });
  return found == std::end(kFolders) ? nullptr : found;
}

std::string joinEnabled(const std::vector<KFAOfflineService>& services) {
  std::string names;
  bool isFirst = true;
  for (const KFAOfflineService& service : services) {
    if (!service.enabled) continue;
    if (!isFirst) names += ' ';
    names += service.name;
    isFirst = false;
  }
  return names;
}

}  // namespace

boost::shared_ptr<KFAKFConfigBashParser> KFAKFConfigBashParser::getInstance() {
  static const boost::shared_ptr<KFAKFConfigBashParser> instance =
      boost::make_shared<KFAKFConfigBashParser>();
  return instance;
}

int KFAKFConfigBashParser::getConfig(std::istream& in, KFAVtSettings& settings) const {
  static_assert(std::is_nothrow_move_assignable_v<KFAVtSettings>,
                "what was read must be taken without failing");
  KFAVtSettings read(settings);
  ParameterParserPut parser(read);
  const int result = parseBashLikeConfig(parser, in);
  settings = std::move(read);
  return result;
}

int KFAKFConfigBashParser::putConfig(const KFAVtSettings& settings, std::ostream& out, std::istream* existing,
                                     bool merge) const {
  ParameterParserGet parser(settings);
  return serializeBashLikeConfig(parser, out, existing, merge);
}

std::vector<std::string> KFAKFConfigBashParser::getServiceNames(const std::string& value) {
  std::vector<std::string> names;
  std::size_t at = 0;
  for (std::size_t space = 0; (space = value.find(' ', at)) != std::string::npos; at = space + 1)
    names.push_back(value.substr(at, space - at));
  names.push_back(value.substr(at));
  return names;
}

int KFAKFConfigBashParser::ParameterParserPut::put(const std::string& key, const char* value) {
  const std::string text(value);
  settings_.addValue(key, text);
  if (const Folder* const folder = findFolder(key)) {
    (settings_.*folder->set)(text);
  } else if (key == kOfflineService && !text.empty()) {
    const std::vector<std::string> names = getServiceNames(text);
    settings_.enableOfflineServices({names.begin(), names.end()});
  }
  return kParameterDone;
}

KFAKFConfigBashParser::ParameterParserGet::ParameterParserGet(const KFAVtSettings& settings)
    : settings_(settings), nextNamed_(settings.getValues().begin()) {}

int KFAKFConfigBashParser::ParameterParserGet::get(const std::string& key, std::string& value) {
  if (const Folder* const folder = findFolder(key)) {
    const KFAVtSettings::Text& text = (settings_.*folder->get)();
    if (!text.isSpecified()) return kParameterWithoutValue;
    value = text.getValue();
  } else if (key == kOfflineService) {
    const KFAVtSettings::OfflineServices& services = settings_.getOfflineServices();
    if (!services.isSpecified()) return kParameterWithoutValue;
    value = joinEnabled(services.getValue());
  } else {
    const auto found = settings_.getValues().find(key);
    if (found == settings_.getValues().end()) return kParameterUnknown;
    // No line can have such a key.
    if (!KFL::isBashName(key)) return kParameterWithoutValue;
    value = found->second;
  }
  return kParameterDone;
}

// The next key of the map that is no folder's and can stand in a file.
bool KFAKFConfigBashParser::ParameterParserGet::getNextNamed(std::string& next) {
  const auto end = settings_.getValues().end();
  while (nextNamed_ != end &&
         (findFolder(nextNamed_->first) != nullptr || !isAssignableKey(nextNamed_->first)))
    ++nextNamed_;
  if (nextNamed_ == end) return false;
  next = nextNamed_->first;
  ++nextNamed_;
  return true;
}

int KFAKFConfigBashParser::ParameterParserGet::getNext(const std::string&, std::string& next) {
  if (!hasBegun_) {
    hasBegun_ = true;
    if (getNextNamed(next)) return kParameterDone;
  }
  if (nextFolder_ < std::size(kFolders)) {
    next = kFolders[nextFolder_++].key;
    return kParameterDone;
  }
  return getNextNamed(next) ? kParameterDone : kParameterFailed;
}

}  // namespace KFA
