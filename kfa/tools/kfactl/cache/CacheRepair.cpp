// SPDX-License-Identifier: Apache-2.0
#include "cache/CacheRepair.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <KFAFunctionality/files/KFAConfigFile.h>

#include "cache/CacheImage.h"
#include "cache/CacheSalvage.h"
#include "cache/CacheTemplate.h"
#include "terminal/Session.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using KFL::KFLProofScope;

constexpr const char* kDamagedSuffix = ".damaged";
constexpr const char* kNewSuffix = ".repair.XXXXXX";

int giveBack(Session& session, const std::string& path) {
  const CacheImage before(path, {KFLProofScope::Kept});
  const Cache cache = openCache(path);
  bool isAlone = false;
  must(cache->repair(isAlone));
  must(cache->sync());
  const CacheImage after(path, {});
  after.mustBeSound();
  const std::uint32_t had = std::min(before.header().bytesInUse, before.header().totalSize);
  const std::uint32_t has = after.header().bytesInUse;
  session.out().addLine("the file is sound; " + std::to_string(had > has ? had - has : 0) +
                        " bytes were given back");
  if (!isAlone)
    session.out().addLine("other processes use the file, so that what they may hold stays as it is");
  return kFine;
}

// An empty file of a name that nobody had, gone with the object. The name is made of the template.
class ScratchFile {
 public:
  explicit ScratchFile(std::string path) : path_(std::move(path)) {
    const int file = ::mkostemp(path_.data(), O_CLOEXEC);
    if (file < 0) throw Trouble(path_ + ": no new file can be made: " + std::strerror(errno));
    ::close(file);
  }
  ~ScratchFile() { ::unlink(path_.c_str()); }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// The bytes of a new cache file with these items.
std::string bytesWith(const KFL::KFLCacheChanges& items, const std::string& path) {
  const ScratchFile scratch(path + kNewSuffix);
  const Cache cache = openCache(scratch.path());
  must(cache->apply(items));
  const CacheImage image(scratch.path(), {});
  image.mustBeSound();
  return {reinterpret_cast<const char*>(image.bytes().data()), image.bytes().size()};
}

// The first that nothing has, not even a link that leads nowhere: .damaged, .damaged.1, and so on.
std::string freeSuffix(const std::string& path) {
  std::string suffix = kDamagedSuffix;
  struct stat there {};
  for (int number = 1; ::lstat((path + suffix).c_str(), &there) == 0; ++number)
    suffix = std::string(kDamagedSuffix) + "." + std::to_string(number);
  return suffix;
}

std::string outcomeOf(const Salvage& items) {
  if (items.kept == 0 && !items.isCounted) return "nothing could be read of it";
  std::string lost = std::to_string(items.lost);
  if (!items.isCounted) lost = items.lost == 0 ? "not known" : lost + " or more";
  return "items kept: " + std::to_string(items.kept) + ", unreadable: " + lost;
}

// Agents that have the old file open find at their next look that its name means another one. Its lock is held, and it is the
// one that the path names, so none of them has put another there.
int rebuild(Session& session, const std::string& path, const Salvage& items) {
  const std::string bytes = bytesWith(items.items, path);
  KFA::KFAReplaceOptions how;
  how.backupSuffix = freeSuffix(path);
  must(KFA::KFAConfigFile(path).replace(bytes, how));
  session.out().addLine("the file was at fault; " + outcomeOf(items));
  session.out().addLine("the old file is " + printable(path + how.backupSuffix));
  return items.isCounted && items.lost == 0 ? kFine : kFinding;
}

}  // namespace

int repairCache(Session& session) {
  const std::string& path = session.argument(0);
  {
    CacheImage image(path, {KFLProofScope::Kept}, CacheImage::Lock::Kept);
    image.mustBeCacheFile();
    const Salvage items = salvage(image);
    if (!image.proof().faults().empty() || items.lost > 0) return rebuild(session, path, items);
  }
  return giveBack(session, path);
}

}  // namespace kfactl
