// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeChange.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLSystem.h>

namespace KFA {

using State = KFANodeChange::File::State;

namespace {

// A pipe or a terminal would be read from, or waited for, before the writer refused it.
int refuseOtherKinds(const std::string& path) {
  struct stat status {};
  const bool isOther = KFL::KFLSystem::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) &&
                       !S_ISDIR(status.st_mode);
  if (!isOther) return 0;
  KFL::setErrorMessage(
      "%s: not a regular file, so it cannot be replaced; - stands for standard input and output",
      path.c_str());
  return -1;
}

// Where a name leads; empty where that cannot be told.
std::string targetOf(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> target(realpath(path.c_str(), nullptr), &std::free);
  return target ? std::string(target.get()) : std::string();
}

}  // namespace

const KFANodeChange::File& KFANodeChange::judge(const std::string& path) {
  File& file = files_.emplace_back();
  file.path = path;
  judgeAlone(file);
  if (&where_ == &KFANodeFiles::local() && file.state != State::Refused) judgeBesideOthers(file);
  return file;
}

void KFANodeChange::judgeAlone(File& file) {
  const bool isHere = &where_ == &KFANodeFiles::local();
  if ((isHere && refuseOtherKinds(file.path) != 0) || where_.read(file.path, file.before) != 0 ||
      edit_(file.path, file.before, file.after) != 0) {
    file.state = State::Refused;
    file.error = KFL::getErrorMessage();
  } else if (file.after != file.before) {
    file.state = State::Changed;
  }
}

// A file that was replaced twice, or by a backup in between, would keep neither content in a backup.
void KFANodeChange::judgeBesideOthers(File& file) {
  const std::string target = targetOf(file.path);
  if (target.empty()) return;
  const auto refuse = [&file](const std::string& why) {
    file.state = State::Refused;
    file.error = file.path + ": " + why;
  };
  const auto [known, isNew] = known_.emplace(target, files_.size() - 1);
  if (!isNew) {
    const File& first = files_[known->second];
    if (file.before != first.before || file.after != first.after)
      return refuse("leads to the same file as " + first.path +
                    ", and would give it another content; name one of them");
    repeated_.emplace(files_.size() - 1, known->second);
    return;
  }
  const std::string& suffix = how_.backupSuffix;
  if (suffix.empty()) return;
  const auto backup = known_.find(target + suffix);
  if (backup != known_.end() && file.state == State::Changed)
    return refuse("its backup would take the place of " + files_[backup->second].path +
                  ", which is named too; another suffix is wanted");
  if (!target.ends_with(suffix)) return;
  const auto other = known_.find(target.substr(0, target.size() - suffix.size()));
  if (other != known_.end() && files_[other->second].state == State::Changed)
    refuse("the backup of " + files_[other->second].path + " would take its place; another suffix is wanted");
}

const KFANodeChange::File& KFANodeChange::judgeNew(const std::string& path, const std::string& from) {
  File& file = files_.emplace_back();
  file.path = path;
  file.isNew = true;
  file.state = State::Refused;
  if (where_.exists(path)) {
    file.error = path + ": there is such a file already; leave out what makes a new one to change it";
  } else if (edit_(path, from, file.after) != 0) {
    file.error = KFL::getErrorMessage();
  } else {
    file.state = State::Changed;
  }
  return file;
}

std::size_t KFANodeChange::count(State state) const {
  return static_cast<std::size_t>(
      std::count_if(files_.begin(), files_.end(), [state](const File& file) { return file.state == state; }));
}

int KFANodeChange::apply(bool keepGoing, const Runner& runner) {
  std::vector<File*> changed;
  for (std::size_t i = 0; i < files_.size(); ++i) {
    File& file = files_[i];
    if (repeated_.count(i) != 0) continue;
    if (file.state == State::Changed) changed.push_back(&file);
    if (file.state == State::Unchanged) where_.tidy(file.path, how_);
  }
  const int result = changed.empty() ? 0 : where_.replace(changed, edit_, {how_, keepGoing, runner});
  for (const auto& [further, first] : repeated_) {
    files_[further].state = files_[first].state;
    files_[further].error = files_[first].error;
  }
  return result;
}

}  // namespace KFA
