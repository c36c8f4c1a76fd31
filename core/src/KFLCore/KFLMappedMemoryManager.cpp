// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLMappedMemoryManager.h>

#include <cstring>

namespace KFL {

void KFLMappedMemoryManager::createFile(std::size_t size) {
  std::vector<std::byte> made(size);
  KFLMappedMemoryManager image(made.data());
  image.create(size, kCacheHeaderSize);
  KFLCacheHeader& words = image.header();
  words.lockWord = header().lockWord;
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

  const std::uint32_t inUse = words.bytesInUse;
  words.bytesInUse = 0;
  std::memcpy(base(), made.data(), size);
  storeWord(header().bytesInUse, inUse);
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
         words.totalSize >= kCacheHeaderSize && words.totalSize <= size && words.totalSize % kHeapUnit == 0 &&
         isFreeListSound();
}

}  // namespace KFL
