// SPDX-License-Identifier: Apache-2.0
// Not installed: memory for the many short texts of one tree.
//
// Texts of up to kSmall bytes stand in chunks, by size classes of eight bytes with a free list each, so that what was
// given back is used again. Longer ones have blocks of their own. Everything is freed with the arena. One thread.
#ifndef KFLMESSAGE_KFLTEXTARENA_H
#define KFLMESSAGE_KFLTEXTARENA_H

#include <array>
#include <cstddef>

namespace KFL {

class KFLTextArena {
 public:
  static constexpr std::size_t kSmall = 256;

  KFLTextArena() = default;
  KFLTextArena(const KFLTextArena&) = delete;
  KFLTextArena& operator=(const KFLTextArena&) = delete;
  ~KFLTextArena();

  // Room for `size` bytes, at least one.
  char* take(std::size_t size) {
    if (size > kSmall) return takeBlock(size);
    const std::size_t sizeClass = classOf(size);
    if (FreeText* text = free_[sizeClass]; text != nullptr) {
      free_[sizeClass] = text->next;
      return reinterpret_cast<char*>(text);
    }
    const std::size_t bytes = (sizeClass + 1) * kStep;
    if (static_cast<std::size_t>(end_ - at_) < bytes) addChunk();
    char* const text = at_;
    at_ += bytes;
    return text;
  }

  // Gives room back; `size` is what was asked for.
  void give(char* text, std::size_t size) {
    if (size > kSmall) return giveBlock(text);
    FreeText*& head = free_[classOf(size)];
    auto* const freed = reinterpret_cast<FreeText*>(text);
    freed->next = head;
    head = freed;
  }

  // How much fits into room that was asked for with `size`.
  static std::size_t capacityOf(const char* text, std::size_t size) {
    return size > kSmall ? blockOf(text)->capacity : (classOf(size) + 1) * kStep;
  }
  // A number kept with room of more than kSmall bytes, for the size of the text in it.
  static std::size_t& sizeOf(char* text) { return blockOf(text)->size; }
  static std::size_t sizeOf(const char* text) { return blockOf(text)->size; }

  std::size_t memoryUsed() const { return memoryUsed_; }

 private:
  struct FreeText {
    FreeText* next;
  };
  struct Chunk {
    Chunk* next;
  };
  struct Block {
    Block* next;
    Block* prev;
    std::size_t capacity;
    std::size_t size;
  };
  static constexpr std::size_t kStep = 8;
  static constexpr std::size_t kFirstChunk = 512;
  static constexpr std::size_t kLargestChunk = std::size_t{64} * 1024;

  static std::size_t classOf(std::size_t size) { return (size - 1) / kStep; }
  static Block* blockOf(char* text) { return reinterpret_cast<Block*>(text) - 1; }
  static const Block* blockOf(const char* text) { return reinterpret_cast<const Block*>(text) - 1; }
  void addChunk();
  char* takeBlock(std::size_t size);
  void giveBlock(char* text);

  char* at_ = nullptr;
  char* end_ = nullptr;
  Chunk* chunks_ = nullptr;
  Block* blocks_ = nullptr;
  std::size_t nextChunk_ = kFirstChunk;
  std::size_t memoryUsed_ = 0;
  std::array<FreeText*, kSmall / kStep> free_{};
};

}  // namespace KFL

#endif
