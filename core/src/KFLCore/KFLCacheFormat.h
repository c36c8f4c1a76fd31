// SPDX-License-Identifier: Apache-2.0
// The words of a cache file. What stands here is on disk and shared by processes: it never changes.
//
//     0  sentinel of the free list ------------------+      every word has 32 bits, little-endian
//     8  bytes in use                                |      every block begins at a multiple of 8
//    12  end of the heap                             |
//    16  start of the heap: 56                       |
//    20  snapshot -------------------------------+   |
//    24  lock word: the holder's process id, 0   |   |
//    28  magic, sizes, format, layout            |   |
//    52  valid                                   |   |
//    56  heap                                    |   |
//        +--------------+--------------------+   |   |
//        | next | units | references | size  |   |   |     an item: its message text behind two words
//        |              | message text ...   |<--|-+ |
//        +--------------+--------------------+   | | |
//        | next | units | free ...           |<--|-|-+     circular, in the order of addresses
//        +--------------+--------------------+   | |
//        | next | units | references | count |<--+ |
//        |              | capacity           |     |       the snapshot: records in the order of their keys
//        |              | key (256) | item --|-----+
//        |              | key (256) | item ..|
//        +--------------+--------------------+
//   end of the heap; the file may go on
//
// A pointer is self-relative: the offset of what it means less the offset of the pointer itself; kNull means nothing.
// Pointers to a snapshot or an item mean the data of its block, 8 bytes behind the block's start; those of the free
// list mean the block's start. docs/formats.md has the same in words.
//
// Nothing read from a file is followed before KFLCacheProof has proved the file sound.
#ifndef KFLCORE_KFLCACHEFORMAT_H
#define KFLCORE_KFLCACHEFORMAT_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

static_assert(std::endian::native == std::endian::little, "the words of a cache file are little-endian");

inline constexpr std::uint32_t kCacheMagic = 0xCACEFE03;
inline constexpr std::uint32_t kCacheHeaderSize = 56;
inline constexpr std::uint32_t kCacheKeySize = 256;
inline constexpr std::uint32_t kCacheFormat = 0xFF01;
inline constexpr std::uint32_t kCacheLayout = 12;

// The unit in which blocks are measured, and the alignment of blocks and of their data.
inline constexpr std::uint32_t kHeapUnit = 8;

// The self-relative pointer that means nothing.
inline constexpr std::int32_t kNull = 1;

// What is wrong with a file.
enum KFLCacheCode : int {
  kCacheNotMapped = -2,
  kCacheUnsound = -8,  // the heap or the snapshot does not hold together
  kCacheNotLocked = -9,
  kCacheNotRemapped = -10,  // the file ends before its heap does
  kCacheBadHeaderSize = -11,
  kCacheBadMagic = -12,
  kCacheBadKeySize = -13,
  kCacheInvalid = -14,  // marked so, or never finished
  kCacheBadFormat = -15,
  kCacheBadLayout = -16,
};

// Begins every block of the heap, free or not, and is the sentinel at offset 0.
struct KFLHeapBlock {
  std::int32_t next;    // to the next free block; without meaning in a block that is not free
  std::uint32_t units;  // of kHeapUnit bytes, this head included
};

struct KFLCacheHeader {
  KFLHeapBlock sentinel;      // next means the sentinel itself when no block is free; units is 1
  std::uint32_t bytesInUse;   // the header and every block that is not free
  std::uint32_t totalSize;    // where the heap ends
  std::uint32_t heapStart;    // kCacheHeaderSize
  std::int32_t snapshot;      // to the current KFLSnapshotHead
  std::uint32_t lockWord;     // the process that holds the lock, 0 when none does
  std::uint32_t magic;        // kCacheMagic
  std::uint32_t headerSize;   // kCacheHeaderSize
  std::uint32_t keySize;      // kCacheKeySize
  std::uint32_t format;       // kCacheFormat
  std::uint32_t layout;       // kCacheLayout
  std::uint32_t reservedOne;  // written as 1, never looked at
  std::uint32_t valid;        // 1; 0 when the file must not be used
};

// `count` records follow, with room for `capacity`.
struct KFLSnapshotHead {
  std::int32_t references;  // 1 for being the current one, and 1 for each holder
  std::uint32_t count;
  std::uint32_t capacity;
};

struct KFLCacheRecord {
  char key[kCacheKeySize];  // a limited_length_string: NUL-terminated, the last byte 0
  std::int32_t item;        // to a KFLItemHead
};

// `size` bytes follow: the item in its message form.
struct KFLItemHead {
  std::int32_t references;  // 1 for each snapshot that has it
  std::uint32_t size;
};

static_assert(sizeof(KFLHeapBlock) == kHeapUnit && offsetof(KFLHeapBlock, units) == 4);
static_assert(sizeof(KFLCacheHeader) == kCacheHeaderSize && offsetof(KFLCacheHeader, sentinel) == 0 &&
              offsetof(KFLCacheHeader, bytesInUse) == 8 && offsetof(KFLCacheHeader, totalSize) == 12 &&
              offsetof(KFLCacheHeader, heapStart) == 16 && offsetof(KFLCacheHeader, snapshot) == 20 &&
              offsetof(KFLCacheHeader, lockWord) == 24 && offsetof(KFLCacheHeader, magic) == 28 &&
              offsetof(KFLCacheHeader, headerSize) == 32 && offsetof(KFLCacheHeader, keySize) == 36 &&
              offsetof(KFLCacheHeader, format) == 40 && offsetof(KFLCacheHeader, layout) == 44 &&
              offsetof(KFLCacheHeader, reservedOne) == 48 && offsetof(KFLCacheHeader, valid) == 52);
static_assert(sizeof(KFLSnapshotHead) == 12 && offsetof(KFLSnapshotHead, count) == 4 &&
              offsetof(KFLSnapshotHead, capacity) == 8);
static_assert(sizeof(KFLCacheRecord) == 260 && offsetof(KFLCacheRecord, item) == kCacheKeySize);
static_assert(sizeof(KFLItemHead) == 8 && offsetof(KFLItemHead, size) == 4);

// What a new file takes at least; it has whole pages, and one more than that.
inline constexpr std::size_t kCacheFirstSize = 4616;
constexpr std::size_t firstFileSize(std::size_t page) {
  return (kCacheFirstSize / page + 1) * page;
}

// The bytes of a snapshot with room for so many records, without its block's head.
constexpr std::uint64_t snapshotBytes(std::uint64_t capacity) {
  return sizeof(KFLSnapshotHead) + capacity * sizeof(KFLCacheRecord);
}
// The bytes of an item whose message form has so many, without its block's head.
constexpr std::uint64_t itemBytes(std::uint64_t messageSize) {
  return sizeof(KFLItemHead) + messageSize;
}

// The offset that the self-relative pointer at offset `at` means. It may lie anywhere, even below 0.
constexpr std::int64_t targetOf(std::uint64_t at, std::int32_t pointer) {
  return static_cast<std::int64_t>(at) + pointer;
}
// The self-relative pointer at offset `at` that means `target`; both lie in the first 2 GiB.
constexpr std::int32_t pointerTo(std::uint64_t at, std::uint64_t target) {
  return static_cast<std::int32_t>(static_cast<std::int64_t>(target) - static_cast<std::int64_t>(at));
}

// Whether `size` bytes from the offset on lie within the first `end` bytes.
constexpr bool liesWithin(std::int64_t offset, std::uint64_t size, std::uint64_t end) {
  return offset >= 0 && size <= end && static_cast<std::uint64_t>(offset) <= end - size;
}

// One load of a word of shared memory: nothing that the compiler does reads it again.
template <class Word>
Word loadWord(const Word& word) {
  return __atomic_load_n(&word, __ATOMIC_RELAXED);
}
// Stores one word of shared memory. No store before it, in the program, comes after it.
template <class Word>
void storeWord(Word& word, Word value) {
  __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

// Copies what stands at the offset into `value`: false, and nothing copied, when it does not lie within the bytes.
template <class T>
bool readAt(std::span<const std::byte> bytes, std::int64_t offset, T& value) {
  if (!liesWithin(offset, sizeof(T), bytes.size())) return false;
  std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return true;
}

// What stands at the offset of a mapping, in place; null when it does not lie within it or is not aligned.
template <class T>
T* objectAt(std::span<std::byte> bytes, std::int64_t offset) {
  if (!liesWithin(offset, sizeof(T), bytes.size()) || offset % alignof(T) != 0) return nullptr;
  return reinterpret_cast<T*>(bytes.data() + offset);
}

// The like of what begins the data of a block; null also where none can begin, so that a wrong pointer changes no header.
template <class T>
T* dataAt(std::span<std::byte> bytes, std::int64_t offset) {
  constexpr std::int64_t kFirst = kCacheHeaderSize + sizeof(KFLHeapBlock);
  return offset < kFirst || offset % kHeapUnit != 0 ? nullptr : objectAt<T>(bytes, offset);
}

}  // namespace KFL

#endif
