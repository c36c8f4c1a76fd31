// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLFolders.h>

#include <cstdlib>

#include <KFLCommon/KFLLock.h>

namespace KFL {

namespace {

struct Setting {
  KFLLock lock;
  std::string path KFL_GUARDED_BY(lock);
};

Setting& setting() {
  static auto* const made = new Setting;  // outlives what uses it while the process ends
  return *made;
}

std::string withoutSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  return path;
}

}  // namespace

std::string getUploadsFolder() {
  {
    Setting& set = setting();
    const KFLLockGuard guard(set.lock);
    if (!set.path.empty()) return set.path;
  }
  const char* const named = ::secure_getenv("KFA_UPLOADS_DIR");
  return named != nullptr && *named != '\0' ? withoutSlash(named) : kDefaultUploadsFolder;
}

void setUploadsFolder(const std::string& path) {
  Setting& set = setting();
  const KFLLockGuard guard(set.lock);
  set.path = withoutSlash(path);
}

}  // namespace KFL
