// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeSelection.h>

#include <fnmatch.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <tuple>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/node/KFAEnvironmentFilter.h>
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>
#include <KFAFunctionality/node/KFANodeCheck.h>

namespace KFA {

namespace {

int refuse(const std::string& word, const std::string& what) {
  KFL::setErrorMessage("%s: %s", word.c_str(), what.c_str());
  return -1;
}

bool parseVeid(std::string_view word, int& veid) {
  return !word.empty() && KFL::isDigit(word.front()) && KFL::parseInteger(word, veid) == 0;
}

bool parseRange(std::string_view word, int& first, int& last) {
  const std::size_t dash = word.find('-');
  return dash != std::string_view::npos && parseVeid(word.substr(0, dash), first) &&
         parseVeid(word.substr(dash + 1), last);
}

bool hasPattern(std::string_view word) {
  return word.find_first_of("*?[") != std::string_view::npos;
}

std::string join(const std::string& folder, const std::string& name) {
  return folder.empty() || folder.ends_with('/') ? folder + name : folder + '/' + name;
}

std::string nameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

KFAEnvironmentFile fileOf(const std::string& path) {
  KFAEnvironmentFile file{path, -1};
  if (!parseVeidOfName(nameOf(path), file.veid)) file.veid = -1;
  return file;
}

// By number, then those without one by name.
bool comesBefore(const KFAEnvironmentFile& a, const KFAEnvironmentFile& b) {
  return std::make_tuple(a.veid < 0, a.veid, std::string_view(a.path)) <
         std::make_tuple(b.veid < 0, b.veid, std::string_view(b.path));
}

}  // namespace

KFANodeSelection::KFANodeSelection(const std::string& folder, const GetParser& getParser, KFANodeFiles& where)
    : folder_(folder), getParser_(getParser), where_(where) {}

std::string KFANodeSelection::defaultFolder() {
  const char* const named = std::getenv("KFA_NODE");
  return named != nullptr && *named != '\0' ? named : "/etc/kfa/conf";
}

bool KFANodeSelection::isResembling(const std::string& word, KFANodeFiles& where) {
  int first = 0;
  int last = 0;
  return word == "-" || word.find_first_of("/.") != std::string::npos || hasPattern(word) ||
         parseVeid(word, first) || parseRange(word, first, last) ||
         KFAEnvironmentFilter::isResembling(word) || where.exists(word);
}

bool KFANodeSelection::isSingle(const std::string& word, KFANodeFiles& where) {
  int first = 0;
  int last = 0;
  if (word == "-" || parseVeid(word, first)) return true;
  if (parseRange(word, first, last)) return false;
  if (where.exists(word)) return !where.isFolder(word);
  return !hasPattern(word) && !KFAEnvironmentFilter::isResembling(word);
}

// What is listed comes before what is known, which an addition that memory runs out for can then take back.
void KFANodeSelection::addFile(const KFAEnvironmentFile& file) {
  files_.push_back(file);
  if (!known_.insert(file.path).second) files_.pop_back();
}

void KFANodeSelection::addOther(const std::string& path) {
  others_.push_back(path);
  if (!knownOthers_.insert(path).second) others_.pop_back();
}

// Adds all that a word stands for, or, when an exception comes, nothing.
class KFANodeSelection::Addition {
 public:
  explicit Addition(KFANodeSelection& selection)
      : selection_(selection),
        files_(selection.files_.size()),
        others_(selection.others_.size()),
        troubles_(selection.troubles_.size()) {}
  Addition(const Addition&) = delete;
  Addition& operator=(const Addition&) = delete;
  ~Addition() {
    if (isDone_) return;
    for (; selection_.files_.size() > files_; selection_.files_.pop_back())
      selection_.known_.erase(selection_.files_.back().path);
    for (; selection_.others_.size() > others_; selection_.others_.pop_back())
      selection_.knownOthers_.erase(selection_.others_.back());
    selection_.troubles_.resize(std::min(troubles_, selection_.troubles_.size()));
  }
  int done(int result) {
    isDone_ = true;
    return result;
  }

 private:
  KFANodeSelection& selection_;
  const std::size_t files_;
  const std::size_t others_;
  const std::size_t troubles_;
  bool isDone_ = false;
};

int KFANodeSelection::list(const std::string& folder, const Listing*& listing) {
  const auto known = listings_.find(folder);
  if (known != listings_.end()) {
    listing = &known->second;
    return 0;
  }
  std::vector<KFANodeFiles::Entry> names;
  if (where_.list(folder, names) != 0)
    return refuse(folder, "the folder of the environments cannot be read: " + KFL::getErrorMessage() +
                              "; --node or KFA_NODE names another one");
  Listing made;
  for (const KFANodeFiles::Entry& name : names) {
    if (name.kind == KFANodeFiles::Kind::Folder || name.name == kForeignKeysFile) continue;
    KFAEnvironmentFile file = fileOf(join(folder, name.name));
    if (file.veid >= 0)
      made.files.push_back(std::move(file));
    else
      made.others.push_back(file.path);
  }
  std::sort(made.files.begin(), made.files.end(), comesBefore);
  std::sort(made.others.begin(), made.others.end());
  listing = &listings_.emplace(folder, std::move(made)).first->second;
  return 0;
}

int KFANodeSelection::addFolder(const std::string& folder) {
  const Listing* listing = nullptr;
  if (list(folder, listing) != 0) return -1;
  for (const KFAEnvironmentFile& file : listing->files)
    addFile(file);
  for (const std::string& other : listing->others)
    addOther(other);
  return 0;
}

int KFANodeSelection::addAll() {
  Addition addition(*this);
  return addition.done(addFolder(folder_));
}

int KFANodeSelection::addRange(const std::string& word, int first, int last) {
  if (first > last) return refuse(word, "the range is empty; write the smaller number first");
  const Listing* listing = nullptr;
  if (list(folder_, listing) != 0) return -1;
  bool found = false;
  for (const KFAEnvironmentFile& file : listing->files) {
    if (file.veid < first || file.veid > last) continue;
    addFile(file);
    found = true;
  }
  return found ? 0 : refuse(word, "no environment of " + folder_ + " has a number in this range");
}

int KFANodeSelection::addPattern(const std::string& word) {
  const std::string pattern = nameOf(word);
  const std::string folder =
      word.size() == pattern.size() ? folder_ : word.substr(0, word.size() - pattern.size());
  if (hasPattern(folder)) return refuse(word, "a pattern is taken in the last part of a path only");
  const Listing* listing = nullptr;
  if (list(folder, listing) != 0) return -1;
  const auto matches = [&](const KFAEnvironmentFile& file) {
    return fnmatch(pattern.c_str(), nameOf(file.path).c_str(), 0) == 0 ||
           (file.veid >= 0 && fnmatch(pattern.c_str(), std::to_string(file.veid).c_str(), 0) == 0);
  };
  bool found = false;
  for (const KFAEnvironmentFile& file : listing->files) {
    if (!matches(file)) continue;
    addFile(file);
    found = true;
  }
  for (const std::string& other : listing->others)
    if (matches({other, -1})) addOther(other);
  return found ? 0 : refuse(word, "no environment of " + folder + " has such a number or name");
}

void KFANodeSelection::expectAll(const std::vector<KFAEnvironmentFile>& files) const {
  std::vector<std::string> paths;
  for (const KFAEnvironmentFile& file : files)
    paths.push_back(file.path);
  where_.expect(paths);
}

int KFANodeSelection::addMatching(const std::string& word) {
  const auto parser = getParser_();
  KFAEnvironmentFilter filter;
  if (filter.parse(*parser, word) != 0) return -1;
  const Listing* listing = nullptr;
  if (list(folder_, listing) != 0) return -1;
  KFAEnvironmentKeys keys(parser);
  keys.want(filter.getKeys().empty() ? std::set<std::string>{"veid"} : filter.getKeys());
  std::string text;
  bool found = false;
  expectAll(listing->files);
  for (const KFAEnvironmentFile& file : listing->files) {
    if (where_.read(file.path, text) != 0 || keys.read(text, file.path) != 0) {
      troubles_.push_back(KFL::getErrorMessage());
    } else if (filter.matches(keys, file.veid)) {
      addFile(file);
      found = true;
    }
  }
  return found || !troubles_.empty() ? 0 : refuse(word, "no environment of " + folder_ + " fulfils this");
}

int KFANodeSelection::add(const std::string& word) {
  Addition addition(*this);
  return addition.done(addWord(word));
}

int KFANodeSelection::addWord(const std::string& word) {
  int first = 0;
  int last = 0;
  if (parseVeid(word, first)) {
    addFile({join(folder_, std::to_string(first) + ".conf"), first});
    return 0;
  }
  if (parseRange(word, first, last)) return addRange(word, first, last);
  if (where_.isFolder(word)) return addFolder(word);
  if (!where_.exists(word)) {
    if (KFAEnvironmentFilter::isResembling(word)) return addMatching(word);
    if (hasPattern(word)) return addPattern(word);
  }
  addFile(fileOf(word));
  return 0;
}

}  // namespace KFA
