// SPDX-License-Identifier: Apache-2.0
#include "cache/CacheRepair.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFLCore/KFLFileLock.h>

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

// The names of the files in which new ones are made: .NAME.kfa-repair.XXXXXX
std::string scratchPrefix(const std::string& path) {
  const std::size_t name = path.rfind('/') + 1;
  return path.substr(0, name) + "." + path.substr(name) + ".kfa-repair.";
}

// An empty file of a name that nobody had, gone with the object. It has a place among the file's users, by which others
// see that it is not what a killed repair has left.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& prefix) {
    for (int tries = 0; tries < kTries; ++tries) {
      path_ = prefix + "XXXXXX";
      const int file = ::mkostemp(path_.data(), O_CLOEXEC);
      if (file < 0) throw Trouble(path_ + ": no new file can be made: " + std::strerror(errno));
      ::close(file);
      if (takePlace()) return;
      ::unlink(path_.c_str());
    }
    throw Trouble(path_ + ": no new file can be made: others remove it");
  }
  ~ScratchFile() { ::unlink(path_.c_str()); }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  static constexpr int kTries = 16;
  static constexpr std::chrono::seconds kTimeout{10};

  // Under the lock word, as removeScratch() looks and removes.
  bool takePlace() {
    place_ = new KFL::KFLFileLock;
    if (place_->open(path_) != 0 || place_->lock(kTimeout, nullptr) != 0) return false;
    struct stat file {};
    struct stat there {};
    const bool isThere = ::fstat(place_->getDescriptor(), &file) == 0 &&
                         ::lstat(path_.c_str(), &there) == 0 && file.st_dev == there.st_dev &&
                         file.st_ino == there.st_ino;
    const bool isTaken = isThere && place_->takePlace() == 0;
    place_->unlock(nullptr);
    return isTaken;
  }

  std::string path_;
  boost::intrusive_ptr<KFL::KFLFileLock> place_;
};

// What killed repairs have left: the kernel takes a dead one's place back.
void removeScratch(const std::string& prefix) {
  const std::filesystem::path pattern(prefix);
  const std::filesystem::path folder = pattern.has_parent_path() ? pattern.parent_path() : ".";
  const std::string start = pattern.filename().string();
  std::error_code error;
  std::filesystem::directory_iterator entry(folder, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (!name.starts_with(start) || name.size() != start.size() + std::strlen("XXXXXX")) continue;
    const boost::intrusive_ptr<KFL::KFLFileLock> lock(new KFL::KFLFileLock);
    if (lock->open(entry->path().string()) != 0 || lock->tryLock() != 0) continue;
    if (lock->isOnlyUser()) ::unlink(entry->path().c_str());
  }
}

// The bytes of a new cache file with these items.
std::string bytesWith(const KFL::KFLCacheChanges& items, const std::string& path) {
  const ScratchFile scratch(scratchPrefix(path));
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
    removeScratch(scratchPrefix(path));
    const Salvage items = salvage(image);
    if (!image.proof().faults().empty() || items.lost > 0) return rebuild(session, path, items);
  }
  return giveBack(session, path);
}

}  // namespace kfactl
