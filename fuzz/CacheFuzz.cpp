// SPDX-License-Identifier: Apache-2.0
// Cache files of any bytes: the proof ends and tells blocks apart without gaps; what it calls sound can be read, and when
// such a file is opened and changed it is sound afterwards; every other file is refused, by the opening or by the first
// change, and marked invalid by that.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include <boost/intrusive_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLCacheFile.h>
#include <KFLCore/KFLCacheProof.h>
#include <KFLCore/KFLCacheSnapshot.h>

namespace {

using Bytes = std::vector<std::byte>;

void require(bool holds, const char* law) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", law, KFL::getErrorMessage().c_str());
  std::abort();
}

void requireBlocks(const KFL::KFLCacheProof& proof) {
  std::uint64_t end = KFL::kCacheHeaderSize;
  proof.forEachBlock([&](const KFL::KFLProvedBlock& block) {
    require(block.offset == end && block.bytes != 0, "blocks follow one another");
    end += block.bytes;
  });
  require(proof.provedEnd() == 0 || end == proof.provedEnd(), "the last block ends where the heap does");
}

void requireReadable(Bytes bytes, const KFL::KFLCacheProof& proof) {
  const KFL::KFLSnapshotView snapshot(bytes, static_cast<std::int64_t>(proof.snapshot()));
  require(snapshot.isSound() && snapshot.size() == proof.recordCount(), "a proved snapshot is sound");
  for (std::uint32_t i = 0; i < snapshot.size(); ++i) {
    require(snapshot.getItem(i) != nullptr, "a proved item lies within the file");
    bool found = false;
    require(snapshot.lowerBound(snapshot.getKey(i), found) == i && found, "a proved key is found");
  }
}

// The file in which the bytes are looked at as a process would.
const std::string& filePath() {
  static const struct Folder {
    Folder() {
      std::string name = std::filesystem::temp_directory_path() / "cache-fuzz-XXXXXX";
      require(::mkdtemp(name.data()) != nullptr, "a folder for the file");
      folder = name;
      file = name + "/cache";
    }
    ~Folder() {
      std::error_code ignored;
      std::filesystem::remove_all(folder, ignored);
    }
    std::string folder, file;
  } made;
  return made.file;
}

void writeFile(std::span<const std::byte> bytes) {
  ::unlink(filePath().c_str());
  const int file = ::open(filePath().c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  require(::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "writing");
  ::close(file);
}

Bytes readFile() {
  const int file = ::open(filePath().c_str(), O_RDONLY | O_CLOEXEC);
  Bytes bytes(std::filesystem::file_size(filePath()));
  require(::read(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "reading");
  ::close(file);
  return bytes;
}

void requireSoundFile() {
  const Bytes bytes = readFile();
  KFL::KFLCacheProof proof;
  const int code = proof.check(bytes);
  require(code == 0, code == 0 ? "" : proof.faults().front().text.c_str());
}

void useFile(std::span<const std::byte> bytes) {
  writeFile(bytes);
  const boost::intrusive_ptr<KFL::KFLCacheFile> cache(new KFL::KFLCacheFile(filePath()));
  if (cache->initialize(true, false) != 0) return;
  {
    KFL::KFLCacheSnapshot snapshot;
    require(cache->hold(snapshot) == 0, "a file that opens has a snapshot");
    KFL::KFLCacheChanges changes;
    if (snapshot.size() > 0) changes.remove(std::string(snapshot.getKey(0)));
    changes.put("new", std::string(100, 'x'));
    if (cache->apply(changes) != 0) {
      KFL::KFLCacheHeader header{};
      require(KFL::readAt(std::span<const std::byte>(readFile()), 0, header) && header.valid == 0,
              "a file that opens can be changed, or is marked invalid");
      return;
    }
    for (std::uint32_t i = 0; i < snapshot.size(); ++i)
      require(snapshot.find(snapshot.getKey(i)) == i, "a held snapshot stays as it was");
  }
  requireSoundFile();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  KFL::setLogLevel(KFL::kLogFatal);
  const auto bytes = std::as_bytes(std::span(data, size));
  KFL::KFLCacheProof whole;
  const bool isSound = whole.check(bytes) == 0;
  requireBlocks(whole);
  KFL::KFLCacheProof kept;
  const bool isKept = kept.check(bytes, {KFL::KFLProofScope::Kept, 100}) == 0;
  requireBlocks(kept);
  require(isKept || !isSound, "the parts of a sound file are sound");
  if (isKept) requireReadable({bytes.begin(), bytes.end()}, kept);
  useFile(bytes);
  return 0;
}
