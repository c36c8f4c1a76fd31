// SPDX-License-Identifier: Apache-2.0
#include <KFARemote/KFARemoteAccess.h>

#include <algorithm>
#include <utility>

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <KFAFunctionality/access/KFAFilesM.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCommon/KFLText.h>

#include <KFARemote/KFARemoteTypes.h>

namespace KFA {

namespace {

std::vector<std::string> wordsOf(std::string_view line) {
  const std::string text(line.substr(0, line.find('#')));
  std::vector<std::string> words;
  KFL::getToken tokens(text.c_str(), " \t\r");
  while (const char* const word = tokens.get(nullptr))
    words.emplace_back(word);
  return words;
}

std::vector<std::string> itemsOf(const std::string& list) {
  std::vector<std::string> items;
  boost::split(items, list, boost::is_any_of(","));
  return items;
}

bool isManager(const std::string& name) {
  return name == kFilesManager ||
         std::ranges::any_of(listManagerOperations(), [&](const auto& of) { return name == of.manager; });
}

std::string managerNames() {
  std::string names = kFilesManager;
  for (const KFAManagerOperation& operation : listManagerOperations()) {
    if (!names.ends_with(operation.manager)) names += ", " + std::string(operation.manager);
  }
  return names;
}

// Whether a name is what the pattern says, without regard to case; "*.domain" is any name below the domain.
bool matches(const std::string& pattern, const std::string& name) {
  if (!pattern.starts_with("*.")) return KFL::equalsIgnoreCase(pattern, name);
  const std::string_view tail = std::string_view(pattern).substr(1);
  return name.size() > tail.size() &&
         KFL::equalsIgnoreCase(std::string_view(name).substr(name.size() - tail.size()), tail);
}

template <class Range, class Value>
bool contains(const Range& range, const Value& value) {
  return std::ranges::find(range, value) != range.end();
}

int parseRight(const std::string& word, KFAOperationKind& right) {
  const std::pair<const char*, KFAOperationKind> rights[] = {
      {"read", KFAOperationKind::Read}, {"change", KFAOperationKind::Change}, {"all", KFAOperationKind::All}};
  for (const auto& [name, kind] : rights) {
    if (word != name) continue;
    right = kind;
    return 0;
  }
  setErrorMessage("'%s' is no right; read, change or all would be right", word.c_str());
  return -1;
}

int parseManagers(const std::string& word, std::vector<std::string>& managers) {
  if (word == "*") return 0;
  managers = itemsOf(word);
  for (const std::string& name : managers) {
    if (isManager(name)) continue;
    setErrorMessage("'%s' is no manager; * or some of %s would be right", name.c_str(),
                    managerNames().c_str());
    return -1;
  }
  return 0;
}

int parseEnvironments(const std::string& word, std::vector<KFLEID>& environments) {
  for (const std::string& name : itemsOf(word)) {
    KFLEID eid;
    if (name != "node" && (eid.fromString(name) != 0 || !eid.isValid())) {
      setErrorMessage("'%s' is no id of an environment; *, node or ids such as %s would be right",
                      name.c_str(), "11111111-0000-4000-8000-000000000001");
      return -1;
    }
    environments.push_back(eid);
  }
  return 0;
}

}  // namespace

int KFARemoteRights::parseLine(const std::vector<std::string>& words, Line& line) const {
  if (words.size() < 2 || words.size() > 4) {
    setErrorMessage("there are %zu words; NAME RIGHT [MANAGERS [ENVIRONMENTS]] would be right", words.size());
    return -1;
  }
  line.name = words[0];
  if (line.name.substr(line.name.starts_with("*.") ? 2 : 0).find('*') != std::string::npos) {
    setErrorMessage("'%s' is no name; a whole name or *.DOMAIN would be right", line.name.c_str());
    return -1;
  }
  if (parseRight(words[1], line.right) != 0) return -1;
  if (words.size() > 2 && parseManagers(words[2], line.managers) != 0) return -1;
  line.everywhere = words.size() < 4 || words[3] == "*";
  return line.everywhere ? 0 : parseEnvironments(words[3], line.environments);
}

int KFARemoteRights::parse(std::string_view text, const std::string& name) {
  std::vector<Line> lines;
  std::vector<std::string> rows;
  boost::split(rows, text, boost::is_any_of("\n"));
  for (std::size_t row = 0; row < rows.size(); ++row) {
    const std::vector<std::string> words = wordsOf(rows[row]);
    if (words.empty() || parseLine(words, lines.emplace_back()) == 0) continue;
    const std::string reason = getErrorMessage();
    setErrorMessage("%s:%zu: %s", name.c_str(), row + 1, reason.c_str());
    return -1;
  }
  lines_.swap(lines);
  return 0;
}

bool KFARemoteRights::allow(const std::vector<std::string>& callers, const KFAManagerOperation& operation,
                            const KFLEID& environment) const {
  return std::ranges::any_of(lines_, [&](const Line& line) {
    return line.right >= operation.kind &&
           (line.managers.empty() || contains(line.managers, operation.manager)) &&
           (line.everywhere || contains(line.environments, environment)) &&
           std::ranges::any_of(callers, [&](const auto& caller) { return matches(line.name, caller); });
  });
}

int KFARemoteAccess::read(KFARemoteRights& rights) const {
  std::string text;
  return KFAConfigFile(path_).read(text) == 0 ? rights.parse(text, path_) : -1;
}

int KFARemoteAccess::load() {
  const KFLLockGuard guard(lock_);
  lookedAt_ = Clock::now();
  status_ = {};
  stat(path_.c_str(), &status_);
  KFARemoteRights rights;
  const int result = read(rights);
  rights_ = rights;
  return result;
}

void KFARemoteAccess::reload() {
  if (Clock::now() - lookedAt_ < std::chrono::seconds(1)) return;
  lookedAt_ = Clock::now();
  struct stat now {};
  stat(path_.c_str(), &now);
  const auto same = [&](auto member) { return now.*member == status_.*member; };
  if (same(&stat::st_ino) && same(&stat::st_dev) && same(&stat::st_size) &&
      now.st_mtim.tv_sec == status_.st_mtim.tv_sec && now.st_mtim.tv_nsec == status_.st_mtim.tv_nsec)
    return;
  status_ = now;
  KFARemoteRights rights;
  const bool isRead = read(rights) == 0;
  rights_ = isRead ? rights : KFARemoteRights();
  if (isRead)
    KFL_LOG(kRemoteModule, kLogInfo, "[%s] %s was read again", __func__, path_.c_str());
  else
    KFL_LOG(kRemoteModule, kLogError, "[%s] everything is denied until this is mended: %s", __func__,
            getErrorMessage().c_str());
}

bool KFARemoteAccess::allow(const std::vector<std::string>& callers, const KFAManagerOperation& operation,
                            const KFLEID& environment) {
  const KFLLockGuard guard(lock_);
  reload();
  return rights_.allow(callers, operation, environment);
}

}  // namespace KFA
