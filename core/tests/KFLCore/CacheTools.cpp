// SPDX-License-Identifier: Apache-2.0
#include "CacheTools.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <iterator>

namespace cachefaults {
namespace {

// Calls that the loader does not make.
bool isCounted(std::uint64_t call) {
  static constexpr std::uint64_t kCalls[] = {
      SYS_fcntl,     SYS_ftruncate, SYS_fallocate, SYS_msync,  SYS_fsync, SYS_fdatasync, SYS_rename,
      SYS_renameat2, SYS_unlink,    SYS_unlinkat,  SYS_linkat, SYS_link,  SYS_pwrite64};
  return std::find(std::begin(kCalls), std::end(kCalls), call) != std::end(kCalls);
}

}  // namespace

Tool::Tool(const std::vector<std::string>& arguments, std::uint32_t at) {
  std::vector<char*> words;
  for (const std::string& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = open("/dev/null", O_RDWR);
    dup2(nowhere, 1);
    dup2(nowhere, 2);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    execv(words[0], words.data());
    _exit(127);
  }
  waitpid(process_, &status_, 0);
  isThere_ = WIFSTOPPED(status_);
  if (isThere_) ptrace(PTRACE_SETOPTIONS, process_, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  if (isThere_ && at > 0) runTo(at);
}

void Tool::runTo(std::uint32_t at) {
  while (at > 0) {
    ptrace(PTRACE_SYSCALL, process_, nullptr, nullptr);
    waitpid(process_, &status_, 0);
    isThere_ = WIFSTOPPED(status_);
    if (!isThere_) return;
    if (WSTOPSIG(status_) != (SIGTRAP | 0x80)) continue;
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, process_, sizeof(info), &info);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY && isCounted(info.entry.nr)) --at;
  }
}

void Tool::letGo() {
  if (!isThere_) return;
  ptrace(PTRACE_DETACH, process_, nullptr, nullptr);
  isThere_ = false;
  isFree_ = true;
}

int Tool::finish() {
  letGo();
  if (isFree_) waitpid(process_, &status_, 0);
  isFree_ = false;
  return WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
}

void Tool::die() {
  if (!isThere_ && !isFree_) return;
  kill(process_, SIGKILL);
  waitpid(process_, &status_, 0);
  isThere_ = isFree_ = false;
}

}  // namespace cachefaults
