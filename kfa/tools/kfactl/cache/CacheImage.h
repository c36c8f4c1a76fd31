// SPDX-License-Identifier: Apache-2.0
// A cache file as it stands, copied under its lock and judged, without a change to the file.
#ifndef KFACTL_CACHEIMAGE_H
#define KFACTL_CACHEIMAGE_H

#include <cstddef>
#include <memory>
#include <span>
#include <string>

#include <KFLCore/KFLCacheProof.h>
#include <KFLCore/KFLContainers.h>

namespace kfactl {

class CacheLock;

// Zeroed memory that costs nothing before it is written to.
class ImageBytes {
 public:
  explicit ImageBytes(std::size_t size);
  ~ImageBytes();
  ImageBytes(const ImageBytes&) = delete;
  ImageBytes& operator=(const ImageBytes&) = delete;

  std::span<std::byte> all() const { return {data_, size_}; }

 private:
  std::byte* data_ = nullptr;
  std::size_t size_;
};

class CacheImage {
 public:
  enum class Lock {
    Reading,  // nobody changes the file while it is copied
    Kept,  // nobody else looks at it or changes it while the image is there, which has all that the file has
  };

  // Reads the file and proves it. A Trouble when it cannot be read.
  CacheImage(const std::string& path, const KFL::KFLProofOptions& options, Lock lock = Lock::Reading);
  ~CacheImage();

  // A Trouble when the file is something else, not a cache file with a fault.
  void mustBeCacheFile() const;
  // A Trouble when the file is at fault.
  void mustBeSound() const;

  const std::string& path() const { return path_; }
  // Up to the heap's end, or the file's. The copy is the caller's to change; header and proof are of what was read.
  std::span<const std::byte> bytes() const { return bytes_.all(); }
  std::span<std::byte> memory() { return bytes_.all(); }
  std::uint64_t fileSize() const { return fileSize_; }
  // All zero when the file is shorter than a header.
  const KFL::KFLCacheHeader& header() const { return header_; }
  const KFL::KFLCacheProof& proof() const { return proof_; }

  // The snapshot that the header points to, proved or not: what would lie outside of the file is never touched. Not
  // sound when there is none.
  KFL::KFLSnapshotView snapshot();

 private:
  std::string path_;
  std::unique_ptr<const CacheLock> lock_;
  std::uint64_t fileSize_;
  ImageBytes bytes_;
  KFL::KFLCacheHeader header_{};
  KFL::KFLCacheProof proof_;
};

}  // namespace kfactl

#endif
