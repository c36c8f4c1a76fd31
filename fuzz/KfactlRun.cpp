// SPDX-License-Identifier: Apache-2.0
#include "KfactlRun.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include <KFLCommon/KFLError.h>

#include "terminal/Node.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/common_interface_defs.h>
#define KFA_FUZZ_SANITIZED
#endif
#endif

// The program's main function.
int runKfactl(int argc, char** argv);

namespace kfl_fuzz {

namespace {

namespace fs = std::filesystem;

const std::set<std::string> kFolders = {"conf", "conf/samples", "uploads"};

// An error text that no command may tell: it is of something that was before.
constexpr const char* kFormerError = "the error of another command line";

void requireCall(bool holds) {
  require(holds, "the streams of a run are at hand");
}

// A stream of the process that leads into memory, or comes from there, while this lives.
class Replaced {
 public:
  explicit Replaced(int stream, std::string_view content = {})
      : stream_(stream),
        before_(::fcntl(stream, F_DUPFD_CLOEXEC, 10)),
        memory_(::memfd_create("stream", MFD_CLOEXEC)) {
    const auto length = static_cast<ssize_t>(content.size());
    requireCall(::pwrite(memory_, content.data(), content.size(), 0) == length &&
                ::dup2(memory_, stream_) >= 0);
  }
  Replaced(const Replaced&) = delete;
  Replaced& operator=(const Replaced&) = delete;
  ~Replaced() {
    ::dup2(before_, stream_);
    ::close(before_);
    ::close(memory_);
  }

  int before() const { return before_; }
  std::string text() const {
    std::string text(static_cast<std::size_t>(::lseek(memory_, 0, SEEK_END)), '\0');
    requireCall(::pread(memory_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    return text;
  }

 private:
  const int stream_;
  const int before_;
  const int memory_;
};

// Reports of sanitizers go where standard error led before.
void reportTo([[maybe_unused]] int stream) {
#ifdef KFA_FUZZ_SANITIZED
  __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(stream)));
#endif
}

// What a command does to the signals of the process.
class SignalsKept {
 public:
  SignalsKept() {
    pthread_sigmask(SIG_SETMASK, nullptr, &mask_);
    for (std::size_t i = 0; i < std::size(kSignals); ++i)
      sigaction(kSignals[i], nullptr, &actions_[i]);
  }
  SignalsKept(const SignalsKept&) = delete;
  SignalsKept& operator=(const SignalsKept&) = delete;
  ~SignalsKept() {
    for (std::size_t i = 0; i < std::size(kSignals); ++i)
      sigaction(kSignals[i], &actions_[i], nullptr);
    pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
  }

 private:
  static constexpr int kSignals[] = {SIGINT, SIGTERM};
  sigset_t mask_{};
  struct sigaction actions_[std::size(kSignals)]{};
};

// Interrupts the first watch, as a person would. The program remembers that its end was asked for, so that each later
// watch of this process ends behind what it finds at first.
void interruptWatch(KfactlRun& runs) {
  const SignalsKept kept;
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  sigaction(SIGTERM, &ignored, nullptr);
  std::atomic<bool> hasEnded = false;
  std::thread person([&] {
    while (!hasEnded) {
      ::kill(::getpid(), SIGTERM);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  const Outcome outcome = runs.run({"watch"});
  hasEnded = true;
  person.join();
  require(outcome.status == 0, "a watch ends when it is interrupted", outcome.errors);
}

Files exampleFiles() {
  const fs::path examples = KFA_SOURCE_DIR "/examples/";
  Files files;
  for (const char* const name : {"101.conf", "102.conf", "103.conf"})
    files[std::string("conf/") + name] = contentOf(examples / "node/conf" / name);
  files["conf/104.conf"] = "NAME=\"left open\nONBOOT=\"yes\"\n";
  files["conf/samples/basic.conf"] = "ONBOOT=\"no\"\nNUMPROC=\"100:200\"\n";
  files["conf/notes"] = "nothing of ours\n";
  files["global.conf"] = contentOf(examples / "node/global.conf");
  files["object.xml"] = contentOf(examples / "messages/templateobject.xml");
  files["config.xml"] = contentOf(examples / "messages/venvconfig.xml");
  files["several.xml"] = files["object.xml"] + files["config.xml"];
  files["vocabulary.xml"] =
      "<vocabulary version='1'><category words='kelvarium qos'><parameter id='NUMPROC' kind='2'/>"
      "</category></vocabulary>";
  files["foreign"] = "FOREIGN_KEY\n";
  files["empty"] = "";
  return files;
}

void enter(const fs::path& folder) {
  ::setenv("KFA_VOCABULARY", KFA_SOURCE_DIR "/data/vocabulary.xml", 1);
  ::setenv("KFA_NODE", "conf", 1);
  ::setenv("KFA_UPLOADS_DIR", "uploads", 1);
  fs::create_directory(folder / "run");
  fs::current_path(folder / "run");
  for (const std::string& name : kFolders)
    fs::create_directories(name);
}

// A list of changes names files, too.
std::string listWithin(std::string_view list) {
  constexpr std::string_view kHeading = "# FILE ";
  if (list.find(kHeading) == std::string_view::npos) return std::string(list);
  std::string safe;
  std::istringstream lines{std::string(list)};
  for (std::string line; std::getline(lines, line);)
    safe += line.starts_with(kHeading)
                ? line.substr(0, kHeading.size()) + within(line.substr(kHeading.size())) + "\n"
                : line + "\n";
  return safe;
}

}  // namespace

KfactlRun& KfactlRun::get() {
  static KfactlRun runs;
  return runs;
}

KfactlRun::KfactlRun() : first_(exampleFiles()) {
  enter(folder_.path());
  renew("ONBOOT=\"yes\"\n");
  makeCaches();
  interruptWatch(*this);
}

void KfactlRun::makeCaches() {
  mustPrint({"cache", "create", "cache"});
  mustPrint({"cache", "put", "cache", "object.xml"});
  const std::string sound = content("cache");
  first_["cache"] = first_["uploads/template.cache"] = sound;
  const std::size_t text = sound.find("template_object");
  require(text != std::string::npos, "a cache holds its items as texts");
  first_["damaged.cache"] = first_["cut.cache"] = sound;
  first_["damaged.cache"].replace(text, 3, "<<<");
  first_["cut.cache"].resize(sound.size() / 2);
}

void KfactlRun::renew(const std::string& given) {
  first_["given"] = first_["conf/105.conf"] = given;
  Files now = files();
  for (const auto& [path, content] : first_) {
    if (now.count(path) == 0 || now[path] != content) put(path, content);
    now.erase(path);
  }
  for (const auto& [path, content] : now)
    fs::remove(path);
  removeFolders();
}

// Folders that a command has made.
void KfactlRun::removeFolders() const {
  std::vector<fs::path> made;
  for (const auto& entry : fs::recursive_directory_iterator("."))
    if (entry.is_directory() && kFolders.count(entry.path().lexically_normal().string()) == 0)
      made.push_back(entry.path());
  for (const fs::path& path : made)
    fs::remove_all(path);
}

void KfactlRun::put(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

Outcome KfactlRun::run(const Words& words, std::string_view standardInput) {
  Words given{"kfactl"};
  for (const std::string& word : words)
    given.push_back(within(word));
  std::vector<char*> argv;
  for (std::string& word : given)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  kfactl::atOptions() = {};
  KFL::setErrorMessage("%s", kFormerError);
  Outcome outcome;
  {
    const SignalsKept signals;
    const Replaced in(STDIN_FILENO, listWithin(standardInput));
    const Replaced out(STDOUT_FILENO);
    const Replaced errors(STDERR_FILENO);
    reportTo(errors.before());
    outcome.status = runKfactl(static_cast<int>(given.size()), argv.data());
    outcome.out = out.text();
    outcome.errors = errors.text();
  }
  reportTo(STDERR_FILENO);
  require(outcome.errors.find(kFormerError) == std::string::npos, "a trouble has a text of its own",
          lineOf(words));
  return outcome;
}

std::string KfactlRun::mustPrint(const Words& words, int mostStatus, std::string_view standardInput) {
  const Outcome outcome = run(words, standardInput);
  require(outcome.status <= mostStatus, "a command does what it has to do",
          lineOf(words) + "\n" + outcome.out + outcome.errors);
  return outcome.out;
}

// Beside the folder there is none that a command could find: what it makes there would be seen, too.
Files KfactlRun::files() const {
  const fs::path run = folder_.path() / "run";
  Files files;
  for (const auto& entry : fs::recursive_directory_iterator(folder_.path()))
    if (entry.is_regular_file()) files[entry.path().lexically_relative(run)] = contentOf(entry.path());
  return files;
}

std::string KfactlRun::content(const std::string& path) const {
  return contentOf(path);
}

// A slash stays where no root can be before it: behind a name, in a word or in the value of an option.
std::string within(std::string word) {
  word = word.substr(0, word.find('\0'));
  for (std::size_t at = 0; (at = word.find("..", at)) != std::string::npos;)
    word.erase(at, 1);
  const auto endsName = [&](std::size_t at) {
    if (word.front() != '-') return at > 0;
    const std::size_t sign = word.find('=');
    return sign < at ? at > sign + 1 : word.substr(0, at).ends_with("conf");
  };
  for (std::size_t at = 0; at < word.size(); ++at)
    if (word[at] == '/' && !endsName(at)) word[at] = '_';
  return word;
}

std::string lineOf(const Words& words) {
  std::string line = "kfactl";
  for (const std::string& word : words)
    line += "\t" + word;
  return line;
}

}  // namespace kfl_fuzz
