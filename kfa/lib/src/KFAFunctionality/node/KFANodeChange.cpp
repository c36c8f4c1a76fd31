// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeChange.h>

#include <sys/stat.h>

#include <algorithm>

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

}  // namespace

const KFANodeChange::File& KFANodeChange::judge(const std::string& path) {
  File& file = files_.emplace_back();
  file.path = path;
  const bool isHere = &where_ == &KFANodeFiles::local();
  if ((isHere && refuseOtherKinds(path) != 0) || where_.read(path, file.before) != 0 ||
      edit_(path, file.before, file.after) != 0) {
    file.state = State::Refused;
    file.error = KFL::getErrorMessage();
  } else if (file.after != file.before) {
    file.state = State::Changed;
  }
  return file;
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
  for (File& file : files_) {
    if (file.state == State::Changed) changed.push_back(&file);
    if (file.state == State::Unchanged) where_.tidy(file.path, how_);
  }
  return changed.empty() ? 0 : where_.replace(changed, edit_, {how_, keepGoing, runner});
}

}  // namespace KFA
