// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLFolders.h>

#include <cstdlib>
#include <filesystem>

#include <KFLCommon/KFLLock.h>

namespace KFL {

namespace {

constinit KFLLock settingLock;
const KFLForkWaits<settingLock> forkWaits;

struct Setting {
  std::string path KFL_GUARDED_BY(settingLock);
  std::string named KFL_GUARDED_BY(settingLock);     // by the environment when it was last looked at
  std::string resolved KFL_GUARDED_BY(settingLock);  // what that meant then
};

Setting& setting() {
  static auto* const made = new Setting;  // outlives what uses it while the process ends
  return *made;
}

// Of the folder that is the working one now, and without a slash at its end.
std::string resolve(const std::string& named) {
  if (named.empty()) return named;
  std::error_code error;
  std::string path = std::filesystem::absolute(named, error).string();
  if (error) path = named;
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  return path;
}

}  // namespace

std::string getUploadsFolder() {
  Setting& set = setting();
  const KFLLockGuard guard(settingLock);
  if (!set.path.empty()) return set.path;
  const char* const named = ::secure_getenv("KFA_UPLOADS_DIR");
  if (named == nullptr || *named == '\0') return kDefaultUploadsFolder;
  if (set.named != named) {
    set.resolved = resolve(named);
    set.named = named;
  }
  return set.resolved;
}

void setUploadsFolder(const std::string& path) {
  Setting& set = setting();
  const KFLLockGuard guard(settingLock);
  set.path = resolve(path);
}

}  // namespace KFL
