// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/templates/KFATemplateCache.h>

#include <new>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLFolders.h>

namespace KFA {

namespace {

constexpr KFLCacheLimits kLimits{
    .growth = 0x1000000, .openings = 16, .spareRecords = 0, .maxSize = 0x40000000};

// Two tries: a file that is at fault is removed after the first one.
bool openOrReplace(KFATemplateCachePrototype& cache) {
  const int code = cache.initialize(true, true);
  if (code == 0) return true;
  KFL_LOG(kModule, kLogWarning, "[%s] %s (%d)", __func__, getErrorMessage().c_str(), code);
  removeLockedCacheFile(cache.getPath(), code);
  return cache.initialize(true, false) == 0;
}

}  // namespace

KFATemplateCachePrototype::KFATemplateCachePrototype(const std::string& path)
    : KFLCacheLogic(path, kLimits) {}

boost::intrusive_ptr<KFATemplateCachePrototype> KFATemplateCachePrototype::createInstance() {
  static KFLForkableLock lock;
  static boost::intrusive_ptr<KFATemplateCachePrototype> instance;
  const KFLForkableGuard guard(lock);
  try {
    if (!instance || !instance->isAccessible()) {
      instance.reset();
      const boost::intrusive_ptr<KFATemplateCachePrototype> made(
          new KFATemplateCachePrototype(getUploadsFolder() + "/template.cache"));
      if (openOrReplace(*made)) instance = made;
    }
  } catch (const std::bad_alloc&) {
    setErrorMessage("there is not enough memory for the template cache");
  }
  return instance;
}

int KFATemplateCachePrototype::putTemplate(const KFATemplateObject& object) {
  const std::string id = object.getStringID();
  KFLCacheChanges changes;
  std::string text;
  if (const int result = KFLObjectItem<KFATemplateObject>::write(object, text); result != 0) return result;
  changes.put(id, text);
  return apply(changes);
}

}  // namespace KFA
