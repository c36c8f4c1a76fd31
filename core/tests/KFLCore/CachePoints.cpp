// SPDX-License-Identifier: Apache-2.0
#include "CachePoints.h"

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <mutex>
#include <new>

#include "../KFLCommon/KFLSystemFaults.h"

namespace cachefaults {
namespace {

using KFL::KFLSystem;

struct Region {
  std::uintptr_t start = 0;
  std::size_t size = 0;
};

std::mutex regionsLock;  // threads map and unmap, though not while moments are looked for
std::array<Region, 64> regions;
thread_local Plan plan;  // others allocate meanwhile
void (*waitHere)() = nullptr;
thread_local std::uint32_t moments = 0;
std::atomic<bool> isWatching = false;  // whether stores and calls are counted now
const void* accessedNow = nullptr;     // what the access that is waited before is of

void protectAll(bool isGuarded) {
  const int guarded = plan.countsLoads ? PROT_NONE : PROT_READ;
  for (const Region& region : regions)
    if (region.size > 0)
      mprotect(reinterpret_cast<void*>(region.start), region.size,
               isGuarded ? guarded : PROT_READ | PROT_WRITE);
}

void reach() {
  if (!isWatching || ++moments != plan.at) return;
  if (plan.event == Event::Die) kill(getpid(), SIGKILL);
  if (plan.event != Event::Wait || waitHere == nullptr) return;
  isWatching = false;
  waitHere();
  protectAll(false);
}

Region* regionOf(const void* address) {
  const auto at = reinterpret_cast<std::uintptr_t>(address);
  const auto found =
      std::find_if(regions.begin(), regions.end(), [&](auto& it) { return at - it.start < it.size; });
  return found == regions.end() ? nullptr : &*found;
}

// Whether the allocation that is asked for is the one to fail.
bool isRefused() {
  return plan.event == Event::NoMemory && ++moments == plan.at;
}

void watchCalls() {
  static const KFLSystemFaults faults({[](const KFLSystemFaults::Point&) { return reach(), 0; }});
  static const auto map = KFLSystem::calls.mmap;
  static const auto unmap = KFLSystem::calls.munmap;
  KFLSystem::calls.mmap = [](void* at, std::size_t size, int rights, int flags, int file, off_t from) {
    void* const memory = map(at, size, rights, flags, file, from);
    if (memory == MAP_FAILED) return memory;
    const std::lock_guard guard(regionsLock);
    const auto room =
        std::find_if(regions.begin(), regions.end(), [](const Region& region) { return region.size == 0; });
    if (room == regions.end()) abort();
    *room = {reinterpret_cast<std::uintptr_t>(memory), size};
    if (isWatching) protectAll(true);
    return memory;
  };
  KFLSystem::calls.munmap = [](void* memory, std::size_t size) {
    const std::lock_guard guard(regionsLock);
    if (Region* const region = regionOf(memory); region != nullptr) region->size = 0;
    return unmap(memory, size);
  };
}

#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__)

// A store into a protected file, or a load: counted, then done with the file unprotected for one instruction.
void onAccess(int, siginfo_t* info, void* context) {
  if (!isWatching || regionOf(info->si_addr) == nullptr) {
    signal(SIGSEGV, SIG_DFL);
    return;
  }
  accessedNow = info->si_addr;
  reach();
  accessedNow = nullptr;
  protectAll(false);
  static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL] |= 0x100;
}
void onStep(int, siginfo_t*, void* context) {
  if (isWatching) protectAll(true);
  static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL] &= ~0x100LL;
}

void watchStores() {
  struct sigaction action {};
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  action.sa_sigaction = onAccess;
  sigaction(SIGSEGV, &action, nullptr);
  action.sa_sigaction = onStep;
  sigaction(SIGTRAP, &action, nullptr);
}
constexpr bool kHasMoments = true;

#else

void watchStores() {}
constexpr bool kHasMoments = false;

#endif

}  // namespace

void watchMoments() {
  watchCalls();
  watchStores();
}

void begin(const Plan& wanted, void (*wait)()) {
  plan = wanted;
  waitHere = wait;
  moments = 0;
  isWatching = kHasMoments && (wanted.event == Event::Die || wanted.event == Event::Wait);
  if (isWatching) protectAll(true);
}

std::uint32_t end() {
  if (isWatching) protectAll(false);
  isWatching = false;
  plan = {};
  return moments;
}

std::int64_t offsetInFile(const void* address) {
  const Region* const region = regionOf(address);
  return region == nullptr
             ? -1
             : static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(address) - region->start);
}

std::int64_t accessed() {
  return accessedNow == nullptr ? -1 : offsetInFile(accessedNow);
}

}  // namespace cachefaults

void* operator new(std::size_t size) {
  void* memory = cachefaults::isRefused() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
// A sanitizer has a form of its own for each that is left.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return cachefaults::isRefused() ? nullptr : std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
