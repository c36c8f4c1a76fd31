// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeChange.h>

#include <algorithm>

#include <KFLCommon/KFLError.h>

namespace KFA {

using State = KFANodeChange::File::State;

const KFANodeChange::File& KFANodeChange::judge(const std::string& path) {
  File& file = files_.emplace_back();
  file.path = path;
  if (where_.read(path, file.before) != 0 || edit_(path, file.before, file.after) != 0) {
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
