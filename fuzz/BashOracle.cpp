// SPDX-License-Identifier: Apache-2.0
#include "BashOracle.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

namespace kfl_fuzz {

namespace {

// A parser leaks a little with each refused line.
constexpr std::size_t kLinesOfOneBash = 100000;

[[noreturn]] void give_up(const char* what) {
  std::perror(what);
  std::abort();
}

bool readExactly(int from, char* to, std::size_t size) {
  for (ssize_t n = 0; size > 0; to += n, size -= static_cast<std::size_t>(n)) {
    do
      n = read(from, to, size);
    while (n < 0 && errno == EINTR);
    if (n <= 0) return false;
  }
  return true;
}

bool writeExactly(int to, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = write(to, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

// In the child: nothing is inherited but the two pipes, which stand where the builtin expects them.
[[noreturn]] void becomeBash(int requests, int answers) {
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  const int in = fcntl(requests, F_DUPFD, 10);
  const int out = fcntl(answers, F_DUPFD, 10);
  for (const int standard : {0, 1, 2})
    dup2(nowhere, standard);
  dup2(in, 3);
  dup2(out, 4);
  closefrom(5);
  const char* const arguments[] = {
      "bash", "--norc", "--noprofile", "-c", "enable -f \"$0\" judge && judge", KFA_BASH_JUDGE, nullptr};
  const char* const environment[] = {"PATH=/nonexistent", "LC_ALL=C.UTF-8", nullptr};
  execve("/bin/bash", const_cast<char* const*>(arguments), const_cast<char* const*>(environment));
  _exit(127);
}

}  // namespace

void BashOracle::start() {
  std::signal(SIGPIPE, SIG_IGN);
  std::array<int, 2> requests{}, answers{};
  if (pipe2(requests.data(), O_CLOEXEC) != 0 || pipe2(answers.data(), O_CLOEXEC) != 0) give_up("pipe");
  bash_ = fork();
  if (bash_ < 0) give_up("fork");
  if (bash_ == 0) becomeBash(requests[0], answers[1]);
  close(requests[0]);
  close(answers[1]);
  requests_ = requests[1];
  answers_ = answers[0];
  asked_ = 0;
  std::string answer;
  if (!exchange(std::string_view("A=1\0", 4), answer)) give_up("the bash that judges");
}

void BashOracle::stop() {
  if (bash_ < 0) return;
  close(requests_);
  close(answers_);
  int status = 0;
  waitpid(bash_, &status, 0);
  bash_ = -1;
}

bool BashOracle::exchange(std::string_view question, std::string& answer) const {
  auto size = static_cast<std::uint32_t>(question.size());
  const std::string_view head(reinterpret_cast<const char*>(&size), sizeof size);
  if (!writeExactly(requests_, head) || !writeExactly(requests_, question)) return false;
  if (!readExactly(answers_, reinterpret_cast<char*>(&size), sizeof size)) return false;
  answer.resize(size);
  return readExactly(answers_, answer.data(), size);
}

std::vector<Verdict> BashOracle::ask(const std::vector<std::string>& lines) {
  if (asked_ > kLinesOfOneBash) stop();
  if (bash_ < 0) start();
  asked_ += lines.size();
  std::string question;
  for (const std::string& line : lines)
    (question += line) += '\0';
  std::string answer;
  if (!exchange(question, answer)) {
    stop();
    return {};
  }
  std::vector<Verdict> verdicts(lines.size());
  std::string_view rest = answer;
  for (Verdict& verdict : verdicts)
    verdict.take(rest);
  return verdicts;
}

}  // namespace kfl_fuzz
