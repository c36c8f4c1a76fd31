// SPDX-License-Identifier: Apache-2.0
#include "CachePoints.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <vector>

namespace cachefaults {
namespace {

struct Region {
  std::uintptr_t start = 0;
  std::size_t size = 0;
  int protection = 0;  // as the code under test wants it
};

std::array<Region, 64> regions;
Plan plan;
void (*waitHere)() = nullptr;
std::uint32_t moments = 0;
bool isWatching = false;                             // whether stores and calls are counted now
[[maybe_unused]] const void* accessedNow = nullptr;  // what the access that is waited before is of

[[maybe_unused]] void reach() {
  if (++moments != plan.at) return;
  if (plan.event == Event::Die) kill(getpid(), SIGKILL);
  if (plan.event != Event::Wait || waitHere == nullptr) return;
  isWatching = false;
  waitHere();
}

}  // namespace

// Whether the allocation that is asked for is the one to fail.
static bool isRefused() {
  return plan.event == Event::NoMemory && ++moments == plan.at;
}

#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__)

// Makes a call that the filter lets through: it knows the address behind the instruction.
extern "C" long kfaTestCall(long number, long a, long b, long c, long d, long e, long f);
extern "C" const char kfaTestCallEnd[];
asm(R"(
  .text
  .globl kfaTestCall
  .type kfaTestCall, @function
kfaTestCall:
  mov %rdi, %rax
  mov %rsi, %rdi
  mov %rdx, %rsi
  mov %rcx, %rdx
  mov %r8, %r10
  mov %r9, %r8
  mov 8(%rsp), %r9
  syscall
  .globl kfaTestCallEnd
kfaTestCallEnd:
  ret
  .size kfaTestCall, .-kfaTestCall
)");

namespace {

void protect(const Region& region, int protection) {
  kfaTestCall(SYS_mprotect, static_cast<long>(region.start), static_cast<long>(region.size), protection, 0, 0,
              0);
}
// What a region is protected with while moments are looked for.
int guarded(const Region& region) {
  return plan.countsLoads ? PROT_NONE : region.protection & ~PROT_WRITE;
}
void protectAll(bool isGuarded) {
  for (const Region& region : regions)
    if (region.size > 0 && guarded(region) != region.protection)
      protect(region, isGuarded ? guarded(region) : region.protection);
}
Region* regionOf(std::uintptr_t address) {
  const auto found = std::find_if(regions.begin(), regions.end(), [&](const Region& region) {
    return region.size > 0 && address - region.start < region.size;
  });
  return found == regions.end() ? nullptr : &*found;
}

// A store into a protected file, or a load: counted, then done with the file unprotected for one instruction.
void onAccess(int, siginfo_t* info, void* context) {
  const Region* region = regionOf(reinterpret_cast<std::uintptr_t>(info->si_addr));
  auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const int wanted = (registers[REG_ERR] & 2) != 0 ? PROT_WRITE : PROT_READ;
  if (!isWatching || region == nullptr || (region->protection & wanted) == 0) {
    signal(SIGSEGV, SIG_DFL);
    return;
  }
  accessedNow = info->si_addr;
  reach();
  accessedNow = nullptr;
  protectAll(false);
  registers[REG_EFL] |= 0x100;
}
void onStep(int, siginfo_t*, void* context) {
  if (isWatching) protectAll(true);
  static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL] &= ~0x100LL;
}

void noteMapping(long start, long size, long protection) {
  const auto room =
      std::find_if(regions.begin(), regions.end(), [](const Region& region) { return region.size == 0; });
  if (room == regions.end()) abort();
  *room = {static_cast<std::uintptr_t>(start), static_cast<std::size_t>(size), static_cast<int>(protection)};
  if (isWatching) protect(*room, guarded(*room));
}
void noteCall(long number, const std::array<long, 6>& a, long result) {
  if (result < 0 && result > -4096) return;
  Region* known = regionOf(static_cast<std::uintptr_t>(a[0]));
  const int protection = known == nullptr ? PROT_READ | PROT_WRITE : known->protection;
  if (known != nullptr && (number == SYS_munmap || number == SYS_mremap)) known->size = 0;
  if (number == SYS_mmap) noteMapping(result, a[1], a[2]);
  if (number == SYS_mremap) noteMapping(result, a[2], protection);
  if (number == SYS_mprotect && known != nullptr) {
    known->protection = static_cast<int>(a[2]);
    if (isWatching) protect(*known, guarded(*known));
  }
}
void onCall(int, siginfo_t*, void* context) {
  auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const std::array<long, 6> a{static_cast<long>(registers[REG_RDI]), static_cast<long>(registers[REG_RSI]),
                              static_cast<long>(registers[REG_RDX]), static_cast<long>(registers[REG_R10]),
                              static_cast<long>(registers[REG_R8]),  static_cast<long>(registers[REG_R9])};
  const auto number = static_cast<long>(registers[REG_RAX]);
  if (isWatching) reach();
  if (!isWatching) protectAll(false);
  registers[REG_RAX] = kfaTestCall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
  noteCall(number, a, static_cast<long>(registers[REG_RAX]));
}

void handle(int number, void (*handler)(int, siginfo_t*, void*)) {
  struct sigaction action {};
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  action.sa_sigaction = handler;
  sigaction(number, &action, nullptr);
}

sock_filter load(std::size_t offset) {
  return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
}
// Skips the next instruction unless the loaded word is the value.
sock_filter unlessEqual(std::uint32_t value, std::uint8_t skipped) {
  return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, skipped);
}

std::vector<sock_filter> makeFilter() {
  const auto let = reinterpret_cast<std::uint64_t>(kfaTestCallEnd);
  const sock_filter allow = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
  const sock_filter trap = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP);
  std::vector<sock_filter> filter{load(offsetof(seccomp_data, instruction_pointer)),
                                  unlessEqual(static_cast<std::uint32_t>(let), 3),
                                  load(offsetof(seccomp_data, instruction_pointer) + 4),
                                  unlessEqual(static_cast<std::uint32_t>(let >> 32), 1),
                                  allow,
                                  load(offsetof(seccomp_data, nr))};
  static constexpr int kCalls[] = {SYS_fcntl,  SYS_openat,   SYS_close,     SYS_ftruncate,  SYS_fallocate,
                                   SYS_munmap, SYS_mremap,   SYS_msync,     SYS_fsync,      SYS_fdatasync,
                                   SYS_rename, SYS_renameat, SYS_renameat2, SYS_unlink,     SYS_unlinkat,
                                   SYS_link,   SYS_linkat,   SYS_mprotect,  SYS_fchmod,     SYS_newfstatat,
                                   SYS_fstat,  SYS_pread64,  SYS_pwrite64,  SYS_sched_yield};
  for (const int call : kCalls) {
    filter.push_back(unlessEqual(static_cast<std::uint32_t>(call), 1));
    filter.push_back(trap);
  }
  // Mappings only when they are shared.
  filter.push_back(unlessEqual(SYS_mmap, 3));
  filter.push_back(load(offsetof(seccomp_data, args) + 3 * 8));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, MAP_SHARED, 0, 1));
  filter.push_back(trap);
  filter.push_back(allow);
  return filter;
}

}  // namespace

void watchMoments() {
  handle(SIGSEGV, onAccess);
  handle(SIGTRAP, onStep);
  handle(SIGSYS, onCall);
  std::vector<sock_filter> filter = makeFilter();
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
    _exit(99);
}

void begin(const Plan& wanted, void (*wait)()) {
  plan = wanted;
  waitHere = wait;
  moments = 0;
  isWatching = wanted.event == Event::Die || wanted.event == Event::Wait;
  if (isWatching) protectAll(true);
}

std::uint32_t end() {
  if (isWatching) protectAll(false);
  isWatching = false;
  plan = {};
  return moments;
}

std::int64_t offsetInFile(const void* address) {
  const auto at = reinterpret_cast<std::uintptr_t>(address);
  const Region* region = regionOf(at);
  return region == nullptr ? -1 : static_cast<std::int64_t>(at - region->start);
}

std::int64_t accessed() {
  return accessedNow == nullptr ? -1 : offsetInFile(accessedNow);
}

#else

void watchMoments() {}
void begin(const Plan& wanted, void (*)()) {
  plan = wanted;
  moments = 0;
}
std::uint32_t end() {
  plan = {};
  return moments;
}
std::int64_t offsetInFile(const void*) {
  return -1;
}
std::int64_t accessed() {
  return -1;
}

#endif

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
