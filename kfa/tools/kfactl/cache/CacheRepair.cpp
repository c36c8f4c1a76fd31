// SPDX-License-Identifier: Apache-2.0
#include "cache/CacheRepair.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <KFAFunctionality/files/KFAConfigFile.h>

#include "cache/CacheImage.h"
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
  const std::uint32_t had = before.header().bytesInUse;
  const std::uint32_t has = after.header().bytesInUse;
  session.out().addLine("the file is sound; " + std::to_string(had > has ? had - has : 0) +
                        " bytes were given back");
  if (!isAlone)
    session.out().addLine("other processes use the file, so that what they may hold stays as it is");
  return kFine;
}

// The items of a file at fault that still read as what was put. No two of them can have the same bytes, so together they are
// no longer than the file: what goes beyond that is damage too.
struct Salvage {
  KFL::KFLCacheChanges items;
  std::size_t kept = 0;
  std::size_t lost = 0;
};

Salvage salvage(CacheImage& image) {
  Salvage result;
  const KFL::KFLSnapshotView snapshot = image.snapshot();
  std::size_t left = image.bytes().size();
  for (std::uint32_t index = 0; index < snapshot.size(); ++index) {
    const std::string_view bytes = snapshot.getText(index);
    if (bytes.size() > left) {
      ++result.lost;
      continue;
    }
    left -= bytes.size();
    std::string text(bytes);
    if (templateFault({"item", text}).empty()) {
      result.items.put(std::string(snapshot.getKey(index)), std::move(text));
      ++result.kept;
    } else {
      ++result.lost;
    }
  }
  return result;
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

// Agents that have the old file open find at their next look that its name means another one. Its lock is held, and it is the
// one that the path names, so none of them has put another there.
int rebuild(Session& session, const std::string& path, const Salvage& items) {
  const std::string bytes = bytesWith(items.items, path);
  KFA::KFAReplaceOptions how;
  how.backupSuffix = freeSuffix(path);
  must(KFA::KFAConfigFile(path).replace(bytes, how));
  session.out().addLine("the file was at fault; items kept: " + std::to_string(items.kept) +
                        ", unreadable: " + std::to_string(items.lost));
  session.out().addLine("the old file is " + printable(path + how.backupSuffix));
  return kFine;
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
