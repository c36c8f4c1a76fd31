// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeChange.h>

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLSystem.h>

#include <KFAFunctionality/files/KFAConfigFile.h>

namespace KFA {

using State = KFANodeChange::File::State;
using System = KFL::KFLSystem;

namespace {

void runHere(std::size_t count, const KFANodeChange::Work& work) {
  for (std::size_t i = 0; i < count; ++i)
    work(i);
}

bool exists(const std::string& path, struct stat& status) {
  return System::lstat(path.c_str(), &status) == 0;
}

// Whether a run that was killed can have left something beside a file. Behind a link, or a name so long that it is cut,
// that is seen by whoever takes the file.
bool mayHaveLeavings(const std::string& path) {
  constexpr std::size_t kLongest = 200;
  const std::size_t name = path.rfind('/') + 1;
  const std::string hidden = path.substr(0, name) + '.' + path.substr(name);
  struct stat status {};
  return (exists(path, status) && S_ISLNK(status.st_mode)) || path.size() - name > kLongest ||
         exists(hidden + ".kfa-new", status) || exists(hidden + ".kfa-backup", status);
}

// A file that somebody else has at the moment is in good hands.
void removeLeavings(const std::string& path, KFAReplaceOptions how) {
  how.lockTimeout = 0;
  const auto keep = [](const std::string& before, std::string& after) {
    after = before;
    return 0;
  };
  static_cast<void>(KFAConfigFile(path).update(keep, how));
}

}  // namespace

const KFANodeChange::File& KFANodeChange::judge(const std::string& path) {
  File& file = files_.emplace_back();
  file.path = path;
  if (KFAConfigFile(path).read(file.before) != 0 || edit_(path, file.before, file.after) != 0) {
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
  struct stat status {};
  if (exists(path, status)) {
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

// What was judged is kept up with when another writer was quicker.
void KFANodeChange::replace(File& file) const {
  const KFAConfigFile target(file.path);
  const auto edit = [&](const std::string& now, std::string& after) {
    if (now != file.before) {
      if (edit_(file.path, now, file.after) != 0) return -1;
      file.before = now;
    }
    after = file.after;
    return 0;
  };
  const int result = file.isNew ? target.replace(file.after, how_) : target.update(edit, how_);
  file.state = result == 0 ? State::Replaced : State::Failed;
  if (result != 0) file.error = KFL::getErrorMessage();
}

// Only what this change has written is taken back.
void KFANodeChange::restore(File& file) const {
  KFAReplaceOptions how = how_;
  how.backupSuffix.clear();
  const auto edit = [&file](const std::string& now, std::string& after) {
    if (now == file.after) {
      after = file.before;
      return 0;
    }
    KFL::setErrorMessage("%s: another process has changed it meanwhile", file.path.c_str());
    return -1;
  };
  int result = 0;
  if (file.isNew) {
    result = System::unlink(file.path.c_str());
    if (result != 0)
      KFL::setErrorMessage("%s: cannot be removed: %s", file.path.c_str(),
                           std::generic_category().message(errno).c_str());
  } else {
    result = KFAConfigFile(file.path).update(edit, how);
  }
  file.state = result == 0 ? State::Restored : State::NotRestored;
  if (result != 0) file.error = KFL::getErrorMessage();
}

int KFANodeChange::apply(bool keepGoing, const Runner& runner) {
  const Runner run = runner ? runner : Runner(&runHere);
  std::vector<File*> changed;
  for (File& file : files_) {
    if (file.state == State::Changed) changed.push_back(&file);
    if (file.state == State::Unchanged && mayHaveLeavings(file.path)) removeLeavings(file.path, how_);
  }
  std::atomic<bool> failed = false;
  run(changed.size(), [&](std::size_t index) {
    if (failed && !keepGoing) return;
    replace(*changed[index]);
    if (changed[index]->state == State::Failed) failed = true;
  });
  const auto failure = std::find_if(changed.begin(), changed.end(),
                                    [](const File* file) { return file->state == State::Failed; });
  if (failure == changed.end()) return 0;
  const std::string reason = (*failure)->error;
  if (!keepGoing) {
    std::erase_if(changed, [](const File* file) { return file->state != State::Replaced; });
    run(changed.size(), [&](std::size_t index) { restore(*changed[index]); });
  }
  KFL::setErrorMessage("%s", reason.c_str());
  return -1;
}

}  // namespace KFA
