// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLTextArena.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

namespace KFL {

namespace {

void* allocate(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

KFLTextArena::~KFLTextArena() {
  while (chunks_ != nullptr)
    std::free(std::exchange(chunks_, chunks_->next));
  while (blocks_ != nullptr)
    std::free(std::exchange(blocks_, blocks_->next));
}

void KFLTextArena::addChunk() {
  if (const auto rest = static_cast<std::size_t>(end_ - at_); rest != 0) give(at_, rest);
  at_ = end_ = nullptr;
  auto* const chunk = static_cast<Chunk*>(allocate(nextChunk_));
  chunk->next = chunks_;
  chunks_ = chunk;
  memoryUsed_ += nextChunk_;
  at_ = reinterpret_cast<char*>(chunk + 1);
  end_ = reinterpret_cast<char*>(chunk) + nextChunk_;
  nextChunk_ = std::min(2 * nextChunk_, kLargestChunk);
}

char* KFLTextArena::takeBlock(std::size_t size) {
  if (size > static_cast<std::size_t>(-1) / 2) throw std::bad_alloc();
  auto* const block = static_cast<Block*>(allocate(sizeof(Block) + size));
  *block = {blocks_, nullptr, size, size};
  if (blocks_ != nullptr) blocks_->prev = block;
  blocks_ = block;
  memoryUsed_ += sizeof(Block) + size;
  return reinterpret_cast<char*>(block + 1);
}

void KFLTextArena::giveBlock(char* text) {
  Block* const block = blockOf(text);
  (block->prev != nullptr ? block->prev->next : blocks_) = block->next;
  if (block->next != nullptr) block->next->prev = block->prev;
  memoryUsed_ -= sizeof(Block) + block->capacity;
  std::free(block);
}

}  // namespace KFL
