// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeFiles.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLSystem.h>

#include <KFAFunctionality/files/KFAConfigFile.h>

namespace KFA {

KFANodeResources KFANodeResources::ofMachine(const std::string& folder) {
  KFANodeResources machine;
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long pageSize = sysconf(_SC_PAGESIZE);
  if (pages > 0 && pageSize > 0) machine.memory = static_cast<long long>(pages) * pageSize;
  const long processors = sysconf(_SC_NPROCESSORS_ONLN);
  if (processors > 0) machine.cpu = processors * 10000LL;
  struct statvfs system {};
  if (statvfs(folder.c_str(), &system) == 0)
    machine.disk = static_cast<long long>(system.f_blocks) * static_cast<long long>(system.f_frsize);
  return machine;
}

KFANodeFiles::~KFANodeFiles() = default;

void KFANodeFiles::expect(const std::vector<std::string>&) {}
void KFANodeFiles::tidy(const std::string&, const KFAReplaceOptions&) {}

namespace {

using State = KFANodeFile::State;
using System = KFL::KFLSystem;

// Whether a run that was killed can have left something beside a file. Behind a link, or a name so long that it is cut,
// that is seen by whoever takes the file.
bool mayHaveLeavings(const std::string& path) {
  constexpr std::size_t kLongest = 200;
  const std::size_t name = path.rfind('/') + 1;
  const std::string hidden = path.substr(0, name) + '.' + path.substr(name);
  struct stat status {};
  const auto exists = [&status](const std::string& one) { return System::lstat(one.c_str(), &status) == 0; };
  return (exists(path) && S_ISLNK(status.st_mode)) || path.size() - name > kLongest ||
         exists(hidden + ".kfa-new") || exists(hidden + ".kfa-backup");
}

void runHere(std::size_t count, const KFANodeFiles::Work& work) {
  for (std::size_t i = 0; i < count; ++i)
    work(i);
}

int refuse(const KFANodeFile& file, const std::string& what) {
  KFL::setErrorMessage("%s: %s", file.path.c_str(), what.c_str());
  return -1;
}

int makeNew(const KFANodeFile& file, const KFAReplaceOptions& how) {
  KFAFileReplacement replacement;
  if (replacement.lock(file.path, how, true) != 0) return -1;
  if (replacement.exists()) return refuse(file, "somebody else has made it meanwhile, and it stays");
  return replacement.commit(file.after);
}

// Under its lock, and only as it was made.
int removeNew(const KFANodeFile& file, const KFAReplaceOptions& how) {
  KFAFileReplacement replacement;
  if (replacement.lock(file.path, how, false) != 0 || replacement.read() != 0) return -1;
  if (replacement.getContent() != file.after) return refuse(file, "another process has changed it meanwhile");
  if (System::unlink(file.path.c_str()) == 0) return 0;
  return refuse(file, "cannot be removed: " + std::generic_category().message(errno));
}

// What was judged is kept up with when another writer was quicker.
void replaceOne(KFANodeFile& file, const KFANodeFiles::Edit& edit, const KFAReplaceOptions& how) {
  const KFAConfigFile target(file.path);
  const auto editNow = [&](const std::string& now, std::string& after) {
    if (now != file.before) {
      if (edit(file.path, now, file.after) != 0) return -1;
      file.before = now;
    }
    after = file.after;
    return 0;
  };
  const int result = file.isNew ? makeNew(file, how) : target.update(editNow, how);
  file.state = result == 0 ? State::Replaced : State::Failed;
  if (result != 0) file.error = KFL::getErrorMessage();
}

// Only what this change has written is taken back.
void restoreOne(KFANodeFile& file, const KFAReplaceOptions& options) {
  KFAReplaceOptions how = options;
  how.backupSuffix.clear();
  const auto edit = [&file](const std::string& now, std::string& after) {
    if (now != file.after) return refuse(file, "another process has changed it meanwhile");
    after = file.before;
    return 0;
  };
  const int result = file.isNew ? removeNew(file, how) : KFAConfigFile(file.path).update(edit, how);
  file.state = result == 0 ? State::Restored : State::NotRestored;
  if (result != 0) file.error = KFL::getErrorMessage();
}

class LocalFiles : public KFANodeFiles {
 public:
  Kind look(const std::string& path) override {
    struct stat status {};
    if (System::lstat(path.c_str(), &status) != 0) return Kind::None;
    if (S_ISLNK(status.st_mode) && stat(path.c_str(), &status) != 0) return Kind::LostLink;
    return S_ISDIR(status.st_mode) ? Kind::Folder : Kind::File;
  }

  int list(const std::string& folder, std::vector<Entry>& entries) override {
    std::vector<Entry> found;
    if (const int error = readFolder(folder, found); error != 0) {
      KFL::setErrorMessage("%s", std::generic_category().message(error).c_str());
      return -1;
    }
    entries = std::move(found);
    return 0;
  }

  int read(const std::string& path, std::string& text) override { return KFAConfigFile(path).read(text); }
  int replace(const std::vector<KFANodeFile*>& files, const Edit& edit, const ReplaceHow& how) override;

  // A file that somebody else has at the moment is in good hands.
  void tidy(const std::string& path, const KFAReplaceOptions& options) override {
    if (!mayHaveLeavings(path)) return;
    KFAReplaceOptions how = options;
    how.lockTimeout = 0;
    const auto keep = [](const std::string& before, std::string& after) {
      after = before;
      return 0;
    };
    static_cast<void>(KFAConfigFile(path).update(keep, how));
  }

  int getResources(const std::string& folder, KFANodeResources& resources) override {
    resources = KFANodeResources::ofMachine(folder);
    return 0;
  }

 private:
  // 0, or an errno: half a listing is none.
  int readFolder(const std::string& folder, std::vector<Entry>& entries) {
    const int opened = System::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    if (opened == -1) return errno;
    const std::unique_ptr<DIR, int (*)(DIR*)> names(System::fdopendir(opened), &System::closedir);
    if (!names) {
      const int error = errno;
      System::close(opened);
      return error;
    }
    for (;;) {
      errno = 0;
      const dirent* const entry = System::readdir(names.get());
      if (entry == nullptr) return errno;
      if (entry->d_name[0] != '.') entries.push_back({entry->d_name, kindOf(folder, *entry)});
    }
  }

  Kind kindOf(const std::string& folder, const dirent& entry) {
    if (entry.d_type == DT_DIR) return Kind::Folder;
    if (entry.d_type == DT_REG) return Kind::File;
    return look(folder + "/" + entry.d_name);
  }
};

int LocalFiles::replace(const std::vector<KFANodeFile*>& files, const Edit& edit, const ReplaceHow& how) {
  const Runner run = how.runner ? how.runner : Runner(&runHere);
  std::atomic<bool> failed = false;
  run(files.size(), [&](std::size_t index) {
    if (failed && !how.keepGoing) return;
    replaceOne(*files[index], edit, how.options);
    if (files[index]->state == State::Failed) failed = true;
  });
  const auto failure = std::find_if(files.begin(), files.end(),
                                    [](const KFANodeFile* file) { return file->state == State::Failed; });
  if (failure == files.end()) return 0;
  const std::string reason = (*failure)->error;
  if (!how.keepGoing) {
    std::vector<KFANodeFile*> replaced = files;
    std::erase_if(replaced, [](const KFANodeFile* file) { return file->state != State::Replaced; });
    run(replaced.size(), [&](std::size_t index) { restoreOne(*replaced[index], how.options); });
  }
  KFL::setErrorMessage("%s", reason.c_str());
  return -1;
}

}  // namespace

KFANodeFiles& KFANodeFiles::local() {
  static LocalFiles files;
  return files;
}

}  // namespace KFA
