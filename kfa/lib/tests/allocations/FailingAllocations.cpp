// SPDX-License-Identifier: Apache-2.0
// The program's own malloc family goes before that of the C library, or of the sanitizers, and hands on to it.
#include "FailingAllocations.h"

#include <cerrno>
#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define BELOW(name) __interceptor_##name
#else
#define BELOW(name) __libc_##name
#endif

extern "C" {
void* BELOW(malloc)(std::size_t size);
void* BELOW(calloc)(std::size_t count, std::size_t size);
void* BELOW(realloc)(void* block, std::size_t size);
void* BELOW(memalign)(std::size_t alignment, std::size_t size);
void BELOW(free)(void* block);
}

namespace failing {

namespace {

constinit thread_local std::size_t left = 0;  // allocations until one fails; 0: none does
constinit thread_local Mode mode = Mode::Once;
constinit thread_local bool hasFailed = false;
constinit thread_local long live = 0;

// Whether the allocation that is asked for now fails.
bool fails() noexcept {
  if (left == 0 || --left != 0) return false;
  if (mode == Mode::FromThenOn) left = 1;
  hasFailed = true;
  errno = ENOMEM;
  return true;
}

void* counted(void* block) noexcept {
  if (block != nullptr) ++live;
  return block;
}

void* allocate(std::size_t size) noexcept {
  return fails() ? nullptr : counted(BELOW(malloc)(size));
}

void* allocateAligned(std::size_t alignment, std::size_t size) noexcept {
  return fails() ? nullptr : counted(BELOW(memalign)(alignment, size));
}

void release(void* block) noexcept {
  if (block != nullptr) --live;
  BELOW(free)(block);
}

void* orThrow(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

void arm(std::size_t number, Mode how) noexcept {
  mode = how;
  hasFailed = false;
  left = number;
}

bool disarm() noexcept {
  left = 0;
  return hasFailed;
}

long liveBlocks() noexcept {
  return live;
}

}  // namespace failing

using namespace failing;

extern "C" {

#define KFA_EXPORTED __attribute__((visibility("default")))

KFA_EXPORTED void* malloc(std::size_t size) noexcept {
  return allocate(size);
}
KFA_EXPORTED void* calloc(std::size_t count, std::size_t size) noexcept {
  return fails() ? nullptr : counted(BELOW(calloc)(count, size));
}
KFA_EXPORTED void* realloc(void* block, std::size_t size) noexcept {
  if (fails()) return nullptr;
  void* const grown = BELOW(realloc)(block, size);
  return block == nullptr ? counted(grown) : grown;
}
KFA_EXPORTED void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return allocateAligned(alignment, size);
}
KFA_EXPORTED void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return allocateAligned(alignment, size);
}
KFA_EXPORTED int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
  void* const made = allocateAligned(alignment, size);
  if (made == nullptr) return ENOMEM;
  *block = made;
  return 0;
}
KFA_EXPORTED void free(void* block) noexcept {
  release(block);
}

}  // extern "C"

// The sanitizers bring an operator new that does not call malloc.
#define KFA_TAKES(name)                                                         \
  void* operator name(std::size_t size) {                                       \
    return orThrow(allocate(size));                                             \
  }                                                                             \
  void* operator name(std::size_t size, const std::nothrow_t&) noexcept {       \
    return allocate(size);                                                      \
  }                                                                             \
  void* operator name(std::size_t size, std::align_val_t alignment) {           \
    return orThrow(allocateAligned(static_cast<std::size_t>(alignment), size)); \
  }
KFA_TAKES(new)
KFA_TAKES(new[])

#define KFA_RELEASES(...)                                    \
  void operator delete(void* block __VA_ARGS__) noexcept {   \
    release(block);                                          \
  }                                                          \
  void operator delete[](void* block __VA_ARGS__) noexcept { \
    release(block);                                          \
  }
KFA_RELEASES()
KFA_RELEASES(, std::size_t)
KFA_RELEASES(, std::align_val_t)
KFA_RELEASES(, std::size_t, std::align_val_t)
KFA_RELEASES(, const std::nothrow_t&)
