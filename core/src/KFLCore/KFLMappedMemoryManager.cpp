// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLMappedMemoryManager.h>

#include <algorithm>
#include <cstring>

namespace KFL {

// The bytes of a new file.
static std::vector<std::byte> makeImage(std::size_t size) {
  std::vector<std::byte> made(size);
  KFLMappedMemoryManager image(made);
  image.create(size, kCacheHeaderSize);
  auto& words = *reinterpret_cast<KFLCacheHeader*>(made.data());
  words.magic = kCacheMagic;
  words.headerSize = kCacheHeaderSize;
  words.keySize = kCacheKeySize;
  words.format = kCacheFormat;
  words.layout = kCacheLayout;
  words.reservedOne = 1;
  words.valid = 1;
  auto* const snapshot = static_cast<KFLSnapshotHead*>(image.allocate(snapshotBytes(1)));
  *snapshot = {1, 0, 1};
  image.publishSnapshot(image.offsetOf(snapshot));
  return made;
}

void KFLMappedMemoryManager::createFile(std::size_t size) {
  std::vector<std::byte> made = makeImage(size);
  auto& words = *reinterpret_cast<KFLCacheHeader*>(made.data());
  const std::uint32_t inUse = words.bytesInUse;
  words.lockWord = header().lockWord;
  words.bytesInUse = 0;
  std::memcpy(base(), made.data(), size);
  storeWord(header().bytesInUse, inUse);
}

bool KFLMappedMemoryManager::isUnmade(std::size_t fileSize, std::size_t size) const {
  const auto isZero = [](std::byte byte) { return byte == std::byte{0}; };
  if (fileSize < size) return std::all_of(base(), base() + fileSize, isZero);
  if (isInitialized()) return false;
  const std::vector<std::byte> made = makeImage(size);
  for (std::size_t i = 0; i < size; ++i) {
    const bool isLockWord =
        i / sizeof(std::uint32_t) == offsetof(KFLCacheHeader, lockWord) / sizeof(std::uint32_t);
    if (!isZero(base()[i]) && base()[i] != made[i] && !isLockWord) return false;
  }
  return true;
}

int KFLMappedMemoryManager::validateHeader() const {
  const KFLCacheHeader& words = header();
  if (!isValid()) return kCacheInvalid;
  if (words.headerSize != kCacheHeaderSize) return kCacheBadHeaderSize;
  if (words.keySize != kCacheKeySize) return kCacheBadKeySize;
  if (words.magic != kCacheMagic) return kCacheBadMagic;
  if (words.format != kCacheFormat) return kCacheBadFormat;
  if (words.layout != kCacheLayout) return kCacheBadLayout;
  return 0;
}

bool KFLMappedMemoryManager::isUsable(std::size_t size) const {
  const KFLCacheHeader& words = header();
  return size >= kCacheHeaderSize && validateHeader() == 0 && words.heapStart == kCacheHeaderSize &&
         words.totalSize >= kCacheHeaderSize && words.totalSize <= size && words.totalSize % kHeapUnit == 0;
}

}  // namespace KFL
