// SPDX-License-Identifier: Apache-2.0
// Every system call of a save and of a folder's listing: it fails, stops half way, the process dies or forks there, or
// another program touches the file. KFA_FAULTS_COUNT is how many writers are killed in the long form.
#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
#include <span>
#include <system_error>
#include <thread>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFAConfigFolder.h>
#include <KFAFunctionality/node/KFANodeSelection.h>

#include "FilesTest.h"
#include "KFLCommon/KFLSystemFaults.h"

namespace {

using KFA::KFAConfigFile;
using KFA::KFAReplaceOptions;
using Point = KFLSystemFaults::Point;
using Plan = KFLSystemFaults::Plan;
namespace fs = std::filesystem;

const KFA::KFARawConfigRules kRules;
const std::string kContent = "A=1\n# kept\n";

KFAReplaceOptions quickly(int milliseconds = 20) {
  return {false, "", milliseconds};
}

int setA(const TemporaryFolder& folder, const KFAReplaceOptions& how) {
  return KFAConfigFile(folder / "a").set(kRules, {{"A", "2"}}, {}, how);
}

int copyAToB(const TemporaryFolder& folder, const KFAReplaceOptions& how) {
  return KFAConfigFile(folder / "a").copyTo(folder / "b", addB, how);
}

int makeNew(const TemporaryFolder& folder, const KFAReplaceOptions& how) {
  return KFAConfigFile(folder / "new").replace("N=1\n", how, 0640);
}

void giveAttributes(const fs::path& path) {
  chmod(path.c_str(), 0640);
  EXPECT_TRUE(geteuid() != 0 || chown(path.c_str(), 12345, 23456) == 0);
  static const char acl[] =
      "\2\0\0\0\1\0\6\0\377\377\377\377\2\0\4\0\376\377\0\0\4\0\4\0\377\377\377\377\20\0\4\0\377\377\377"
      "\377\40\0\0\0\377\377\377\377";
  setxattr(path.c_str(), "system.posix_acl_access", acl, sizeof(acl) - 1, 0);
  setxattr(path.c_str(), "user.origin", "sample", 6, 0);
}

// A way to save: what is there before, and the call that changes it. The file that is meant is `target`.
struct Save {
  const char* name;
  const char* target;
  // With their contents; behind "->" what a symbolic link leads to, behind "==" whose second name it is.
  std::vector<std::pair<const char*, std::string>> files;
  int (*act)(const TemporaryFolder&, const KFAReplaceOptions&);
  KFAReplaceOptions options = {};
  // A call that this file system does not know.
  const char* missing = "";
  void (*mark)(const fs::path& target) = [](const fs::path&) {};
};

std::ostream& operator<<(std::ostream& out, const Save& save) {
  return out << save.name;
}

const Save kSaves[] = {
    {"plain", "a", {{"a", kContent}}, setA},
    {"newline", "a", {{"a", "# no end\nA=1"}}, setA},
    {"backup", "a", {{"a", kContent}, {"a~", "older"}}, setA, {false, "~"}},
    {"output", "b", {{"a", kContent}, {"b", "older"}}, copyAToB},
    {"symlink", "real", {{"real", "A=1\n"}, {"a", "->real"}}, setA},
    {"hardlinks", "a", {{"a", kContent}, {"b", "==a"}}, setA, {true, ""}},
    {"attributes", "a", {{"a", kContent}}, setA, {}, "", giveAttributes},
    {"new", "new", {{"a", kContent}}, makeNew},
    {"newbylink", "new", {{"a", kContent}}, makeNew, {}, "renameat2"},
};

const Save& saveOf(const std::string& name) {
  return *std::ranges::find(kSaves, name, &Save::name);
}

class SaveFaults : public testing::TestWithParam<Save> {};

std::string nameOf(const testing::TestParamInfo<Save>& save) {
  return save.param.name;
}

INSTANTIATE_TEST_SUITE_P(Kinds, SaveFaults, testing::ValuesIn(kSaves), nameOf);

using States = std::map<std::string, std::string>;

// All of a file that a save keeps or changes.
std::string stateOf(const fs::path& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return "none";
  if (S_ISLNK(status.st_mode)) return "link to " + fs::read_symlink(path).string();
  std::ostringstream out;
  out << std::oct << status.st_mode << ' ' << std::dec << status.st_uid << ' ' << status.st_gid;
  std::string names(1024, '\0');
  std::string value(1024, '\0');
  const ssize_t size = listxattr(path.c_str(), names.data(), names.size());
  States attributes;
  for (ssize_t at = 0; at < size; at += static_cast<ssize_t>(std::strlen(&names[at])) + 1) {
    const ssize_t length = getxattr(path.c_str(), &names[at], value.data(), value.size());
    attributes[&names[at]] = value.substr(0, static_cast<std::size_t>(length));
  }
  // What a writer notes for the case that it dies.
  attributes.erase("user.kfa.replaces");
  for (const auto& [name, attribute] : attributes)
    out << ' ' << name << '=' << attribute;
  return out.str() + '\n' + contentOf(path);
}

// What a save finds and leaves, and how many calls it makes.
struct Outcome {
  std::size_t calls = 0;
  States before;
  States after;
};

// A folder for one save.
class Scene {
 public:
  explicit Scene(const Save& save) : save_(save) {
    for (const auto& [file, content] : save.files) {
      if (content.starts_with("->"))
        fs::create_symlink(content.substr(2), folder / file);
      else if (content.starts_with("=="))
        fs::create_hard_link(folder / content.substr(2), folder / file);
      else
        makeFile(folder / file, content);
    }
    save.mark(target());
  }

  fs::path target() const { return folder / save_.target; }

  // Saves by a plan, and notes how many calls that took and which one failed.
  int run(const Plan& plan = {}, KFAReplaceOptions how = quickly()) {
    how.hardLinks = save_.options.hardLinks;
    how.backupSuffix = save_.options.backupSuffix;
    const KFLSystemFaults faults(plan.without(save_.missing, EINVAL));
    const int result = save_.act(folder, how);
    calls = faults.count();
    failed = faults.failed();
    return result;
  }

  States states() const {
    States states;
    for (const std::string& name : folder.names())
      states[name] = stateOf(folder / name);
    return states;
  }

  void expectUnlocked() const {
    for (const std::string& name : folder.names()) {
      const int file = open((folder / name).c_str(), O_RDONLY | O_CLOEXEC);
      EXPECT_EQ(flock(file, LOCK_EX | LOCK_NB), 0) << name;
      close(file);
    }
  }

  // Each file is as before or as after, whole; what a dead run left has its own name.
  void expectWhole(const Outcome& outcome) const {
    States now = states();
    States before = outcome.before;
    for (const char* name : {".new.kfa-new", ".a.kfa-new", ".a.kfa-backup", ".b.kfa-new", ".real.kfa-new"})
      now.erase(name);
    for (const auto& [name, state] : outcome.after) {
      EXPECT_TRUE(now[name] == state || now[name] == before[name]) << name << ": " << now[name];
      now.erase(name);
    }
    EXPECT_TRUE(now.empty()) << now.begin()->first;
  }

  // Whatever happened, the same save then does all of it, and nothing is left.
  void expectSavedAgain(const Outcome& outcome) {
    EXPECT_EQ(run({}, quickly(0)), 0) << KFL::getErrorMessage();
    EXPECT_EQ(states(), outcome.after);
  }

  void expectToldWhat(int error) const {
    const std::string text = KFL::getErrorMessage();
    EXPECT_TRUE(text.starts_with((folder.path() / "").string())) << text;
    const bool isWaiting = error == EAGAIN && has(text, "keeps it locked");
    EXPECT_TRUE(isWaiting || text.ends_with(": " + std::generic_category().message(error))) << text;
    EXPECT_TRUE(has(text, " cannot be ") || has(text, "is replaced, but")) << text;
  }

  const TemporaryFolder folder;
  std::size_t calls = 0;
  std::string failed;

 private:
  const Save& save_;
};

Outcome withoutFault(const Save& save, bool isShort = false) {
  Scene scene(save);
  Outcome outcome{0, scene.states(), {}};
  EXPECT_EQ(scene.run({{}, {}, isShort}), 0) << KFL::getErrorMessage();
  outcome.calls = scene.calls;
  outcome.after = scene.states();
  EXPECT_LT(getxattr(scene.target().c_str(), "user.kfa.replaces", nullptr, 0), 0);
  // Mode, owner, ACL and attributes are kept, on the file and on its backup.
  const auto metadataOf = [](const std::string& state) { return state.substr(0, state.find('\n')); };
  for (const auto& [name, state] : outcome.after)
    if (outcome.before.contains(save.target) && (name == save.target || name.ends_with('~'))) {
      EXPECT_EQ(metadataOf(state), metadataOf(outcome.before[save.target])) << name;
    }
  return outcome;
}

struct Fault {
  int error;
  bool onwards = false;
  bool isShort = false;  // what is written before it is written in parts, as on a disk that fills up
};

// One call fails, or all from there on do. Gives the result, and whether what failed ends any save.
std::pair<int, bool> failAt(const Save& save, const Outcome& outcome, std::size_t number,
                            const Fault& fault) {
  Scene scene(save);
  const std::size_t descriptors = KFLSystemFaults::countDescriptors();
  bool isNoted = false;
  bool isRenamed = false;
  KFAReplaceOptions how = quickly();
  how.note = [&](const std::string&) { isNoted = true; };
  const auto failing = [&](const Point& point) {
    isRenamed = isRenamed || (point.call.starts_with("rename") && point.number < number);
    return point.number == number || (fault.onwards && point.number > number) ? fault.error : 0;
  };
  const int result = scene.run({failing, {}, fault.isShort}, how);
  const std::string call = scene.failed;
  SCOPED_TRACE(call);
  if (fault.error == EINTR || call.starts_with("close")) {
    EXPECT_TRUE(result == 0 || fault.onwards) << KFL::getErrorMessage();
  }
  if (result != 0) scene.expectToldWhat(fault.error);
  EXPECT_EQ(KFLSystemFaults::countDescriptors(), descriptors);
  scene.expectUnlocked();
  if (isNoted) return {result, true};
  scene.expectWhole(outcome);
  EXPECT_TRUE(result != 0 || stateOf(scene.target()) == outcome.after.at(save.target));
  scene.expectSavedAgain(outcome);
  const bool isOfThePath = call == "statfs" || call == "readlink" || call == "lstat" || call == "stat";
  return {result, isRenamed || isOfThePath};
}

TEST_P(SaveFaults, EachCallFails) {
  const Save& save = GetParam();
  const Outcome outcome = withoutFault(save);
  std::size_t points = 0;
  for (const int error : {EIO, ENOSPC, EINTR, EAGAIN, EMFILE, ENOMEM, EDQUOT, EROFS, EACCES}) {
    for (const bool onwards : {false, true}) {
      // A call that is cut short for ever is made for ever.
      if (error == EINTR && onwards) continue;
      const bool isShort = error == ENOSPC;
      const std::size_t calls = isShort ? withoutFault(save, true).calls : outcome.calls;
      for (std::size_t number = 0; number < calls && !HasFailure(); ++number, ++points) {
        SCOPED_TRACE(std::to_string(number) + (onwards ? " and on: " : ": ") + std::strerror(error));
        failAt(save, outcome, number, {error, onwards, isShort});
      }
    }
  }
  std::cout << save.name << ": " << points << " failed calls\n";
}

// Over a network, what another machine has replaced cannot be used as it was opened, and is opened anew; only a path that
// cannot be followed, and a folder that cannot be brought to disk behind it all, end a save.
TEST_P(SaveFaults, BeginsAnewWhereAnotherMachineHasReplacedTheFile) {
  const Outcome outcome = withoutFault(GetParam());
  std::size_t refusals = 0;
  for (std::size_t number = 0; number < outcome.calls && !HasFailure(); ++number) {
    SCOPED_TRACE(number);
    const auto [result, isExcused] = failAt(GetParam(), outcome, number, {ESTALE});
    EXPECT_TRUE(result == 0 || isExcused || !outcome.before.contains(GetParam().target));
    refusals += result != 0 ? 1 : 0;
  }
  EXPECT_LT(refusals, outcome.calls / 2);
}

TEST_P(SaveFaults, ShortReadsAndWrites) {
  const Outcome whole = withoutFault(GetParam());
  const Outcome inParts = withoutFault(GetParam(), true);
  EXPECT_GT(inParts.calls, whole.calls);
  EXPECT_EQ(inParts.after, whole.after);
}

// All of the new file is on disk before it has the name, and the name before the save says that it is done.
TEST_P(SaveFaults, BringsToDiskBeforeItRenames) {
  Scene scene(GetParam());
  std::size_t renamings = 0;
  bool isOnDisk = true;
  bool isNameOnDisk = true;
  const auto watch = [&](const Point& point) {
    const std::string_view call = point.call;
    if (call == "write" || call == "fchmod" || call == "fchown" || call == "fsetxattr") isOnDisk = false;
    if (call == "rename" || call == "renameat2" || call == "link") {
      EXPECT_TRUE(isOnDisk) << point.number;
      isNameOnDisk = false;
      ++renamings;
    }
    if (call == "fsync") (isOnDisk ? isNameOnDisk : isOnDisk) = true;
    return 0;
  };
  EXPECT_EQ(scene.run({watch}), 0) << KFL::getErrorMessage();
  EXPECT_TRUE(isNameOnDisk);
  EXPECT_GT(renamings, 0U);
}

// Right before and right behind each call of a save, in a scene of its own: acts by the plan that it makes of what is to
// be done there. Then each file is whole, and the save can be made all the same.
using Planner = std::function<Plan(const std::function<void()>&)>;
void atEachCall(const char* what, const Save& save,
                const std::function<void(Scene&, const Outcome&, const Planner&)>& act) {
  const Outcome outcome = withoutFault(save);
  for (std::size_t point = 0; point < 2 * outcome.calls && !testing::Test::HasFailure(); ++point) {
    SCOPED_TRACE(point);
    Scene scene(save);
    act(scene, outcome,
        [point](const std::function<void()>& then) { return Plan::at(point / 2, point % 2 != 0, then); });
    scene.expectWhole(outcome);
    scene.expectSavedAgain(outcome);
  }
  std::cout << save.name << ": " << 2 * outcome.calls << what << "\n";
}

TEST_P(SaveFaults, TheProcessDiesAtEachCall) {
  const auto die = [](Scene& scene, const Outcome&, const Planner& plan) {
    const auto work = [&] { return scene.run(plan([] { kill(getpid(), SIGKILL); })); };
    EXPECT_TRUE(WIFSIGNALED(statusOfChild(work)));
  };
  atEachCall(" deaths", GetParam(), die);
}

void end(pid_t child) {
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

// A writer's child that is made at each call lives on, and has no part in the lock; the writer goes on or is killed there.
void forkAtEachCall(const char* what, const Save& save, pid_t (*make)(), bool goesOn) {
  const auto forkThere = [&](Scene& scene, const Outcome& outcome, const Planner& plan) {
    int told[2];
    ASSERT_EQ(pipe(told), 0);
    const pid_t writer = fork();
    if (writer == 0) {
      _exit(scene.run(plan([&] {
        const pid_t self = make() == 0 ? getpid() : 0;
        if (self != 0 && ::write(told[1], &self, sizeof(self)) != sizeof(self)) _exit(1);
        while (self != 0 || !goesOn)
          pause();
      })));
    }
    pid_t child = 0;
    EXPECT_EQ(::read(told[0], &child, sizeof(child)), static_cast<ssize_t>(sizeof(child)));
    int status = 0;
    if (!goesOn) kill(writer, SIGKILL);
    EXPECT_EQ(waitpid(writer, &status, 0), writer);
    EXPECT_EQ(status, goesOn ? 0 : SIGKILL);
    scene.expectUnlocked();
    scene.expectSavedAgain(outcome);
    kill(child, SIGKILL);
    close(told[0]);
    close(told[1]);
  };
  atEachCall(what, save, forkThere);
}

TEST_P(SaveFaults, AChildOfEachCallKeepsNoLock) {
  forkAtEachCall(" forks", GetParam(), &fork, true);
  forkAtEachCall(" _Forks", GetParam(), &_Fork, true);
}

// Whoever makes it by fork().
TEST_P(SaveFaults, AChildOfAWriterThatDiesKeepsNoLock) {
  forkAtEachCall(" deaths behind a fork", GetParam(), &fork, false);
}

// What another program, which takes no lock, does to the files at a call.
struct Meddling {
  const char* name;
  void (*act)(const fs::path& target);
  // What the file has afterwards, whether the save took place or was refused; and what it never has.
  const char* kept;
  const char* never = "nothing";
};

void appendTo(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::app) << text;
}

void putInPlace(const fs::path& path, const std::string& content) {
  makeFile(path.string() + ".theirs", content);
  fs::rename(path.string() + ".theirs", path);
}

void replaceBy(const fs::path& path, const std::string& more) {
  putInPlace(path, contentOf(path) + more);
}

fs::path temporaryOf(const fs::path& target) {
  return target.parent_path() / ("." + target.filename().string() + ".kfa-new");
}

// No size and no time shows it.
void writeSecretly(const fs::path& path) {
  struct stat before {};
  stat(path.c_str(), &before);
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(static_cast<std::streamoff>(contentOf(path).find("kept")));
  file << "KEPT";
  file.close();
  const timespec times[] = {before.st_atim, before.st_mtim};
  utimensat(AT_FDCWD, path.c_str(), times, 0);
}

const Meddling kMeddlings[] = {
    {"appends", [](const fs::path& target) { appendTo(target, "X=9\n"); }, "X=9\n"},
    {"overwrites", writeSecretly, "KEPT"},
    {"replaces", [](const fs::path& target) { replaceBy(target, "X=9\n"); }, "X=9\n"},
    {"closes", [](const fs::path& target) { chmod(target.c_str(), 0400); }, "100400"},
    {"marks", [](const fs::path& target) { setxattr(target.c_str(), "user.origin", "theirs", 6, 0); },
     "user.origin=theirs"},
    {"takesTheTemporary", [](const fs::path& target) { fs::remove(temporaryOf(target)); }, ""},
    {"putsATemporary", [](const fs::path& target) { putInPlace(temporaryOf(target), "theirs"); }, "",
     "theirs"},
};

// Its change stays, at whatever call of the save it comes, and ours is made or refused.
TEST(SaveAmongOthers, LosesNoChangeOfAProgramWithoutTheLock) {
  std::size_t points = 0;
  for (const std::string kind : {"plain", "backup", "attributes"}) {
    const std::size_t calls = withoutFault(saveOf(kind)).calls;
    for (const Meddling& other : kMeddlings) {
      for (std::size_t point = 0; point < calls && !HasFailure(); ++point, ++points) {
        SCOPED_TRACE(kind + " " + other.name + " " + std::to_string(point));
        Scene scene(saveOf(kind));
        bool isRenamed = false;
        const int result = scene.run({[&](const Point& now) {
          // From then on, what has the name is the old file, or else another program's that was there for it.
          isRenamed = isRenamed || now.call == "renameat2";
          const bool isLate = isRenamed && other.name == std::string("putsATemporary");
          if (now.number == point && !isLate) other.act(scene.target());
          return 0;
        }});
        const std::string state = stateOf(scene.target());
        EXPECT_TRUE(has(state, other.kept) && !has(state, other.never)) << state;
        EXPECT_TRUE(has(state, result == 0 ? "A=\"2\"" : "A=1")) << state;
        EXPECT_TRUE(result == 0 || has(KFL::getErrorMessage(), "another program")) << KFL::getErrorMessage();
      }
    }
  }
  std::cout << points << " meddlings\n";
}

// A link that is another one by the time of the exchange, or none, is followed anew: ours is where the path leads, or the
// save is refused.
TEST(SaveAmongOthers, SavesWhereTheLinkLeads) {
  for (const std::string link : {"file", "other", "folder", "none"}) {
    bool isExchanged = false;
    for (std::size_t number = 0; !isExchanged; ++number) {
      SCOPED_TRACE(link + " " + std::to_string(number));
      Scene scene(saveOf("symlink"));
      const fs::path path = scene.folder / "a";
      makeFile(scene.folder / "other", "A=1\nX=9\n");
      const int result = scene.run({[&](const Point& point) {
        if (point.number != number) return 0;
        isExchanged = point.call == "renameat2";
        fs::remove(path);
        if (link == "file") makeFile(path, "A=1\nX=9\n");
        if (link == "other") fs::create_symlink("other", path);
        if (link == "folder") fs::create_directory(path);
        return 0;
      }});
      const bool isFile = fs::is_regular_file(path);
      EXPECT_EQ(result, isFile ? 0 : -1) << KFL::getErrorMessage();
      EXPECT_EQ(contentOf(scene.folder / "real"), "A=1\n");
      EXPECT_TRUE(!isFile || contentOf(path) == "A=\"2\"\nX=9\n");
    }
  }
}

// Two changes, one on each side of the exchange, behind which the process goes on, dies or can rename no more: each stands in
// the file, or in one that a text names and no save removes.
void changeAroundTheExchange(const std::array<decltype(&appendTo), 2>& changes, const std::string& end) {
  Scene scene(saveOf("plain"));
  const fs::path path = scene.target();
  const std::string kept = scene.folder / ".a.kfa-kept";
  int renamings = 0;
  const auto before = [&](const Point& point) {
    if (point.call != "renameat2") return 0;
    if (++renamings == 1) changes[0](path, "X=8\n");
    return renamings == 2 && end == "renames no more" ? EIO : 0;
  };
  const auto after = [&](const Point& point) {
    if (point.call != "renameat2" || renamings != 1) return;
    changes[1](path, "Y=9\n");
    if (end == "dies") kill(getpid(), SIGKILL);
  };
  const auto work = [&] { return refused(scene.run({before, after}), kept) ? 2 : 1; };
  const int status = statusOfChild(work);
  EXPECT_EQ(WIFSIGNALED(status) ? 0 : WEXITSTATUS(status), end == "dies" ? 0 : 2);
  if (end == "dies") {
    EXPECT_TRUE(refused(KFAConfigFile(path).set(kRules, {{"A", "3"}}, {}, {}), kept));
  }
  EXPECT_EQ(scene.run(), 0) << KFL::getErrorMessage();
  EXPECT_TRUE(has(contentOf(path), "Y=9\n") && has(contentOf(path), "A=\"2\""));
  EXPECT_TRUE(has(contentOf(kept), "X=8\n"));
  EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{".a.kfa-kept", "a"}));
}

TEST(SaveAmongOthers, LosesNoneOfTwoChangesAroundTheExchange) {
  for (const auto first : {appendTo, replaceBy}) {
    for (const auto second : {appendTo, replaceBy}) {
      for (const std::string end : {"goes on", "dies", "renames no more"}) {
        SCOPED_TRACE(end);
        // Who replaces the new file takes away what it says of the old one.
        if (end != "dies" || second != replaceBy) changeAroundTheExchange({first, second}, end);
      }
    }
  }
}

TEST(SaveAmongOthers, OverwritesNoFileThatIsMadeMeanwhile) {
  for (const std::string missing : {"", "renameat2", "renameat2 link"}) {
    std::size_t refusals = 0;
    std::size_t calls = 1;
    for (std::size_t number = 0; number < calls; ++number) {
      SCOPED_TRACE(missing + std::to_string(number));
      Scene scene(saveOf("new"));
      bool written = false;
      bool made = false;
      const int result = scene.run({[&](const Point& point) {
        const std::string call(point.call);
        // Without both calls, there is no way to see it at the very last moment.
        if (point.number == number && call != "rename" && !fs::exists(scene.target())) {
          made = written;
          makeFile(scene.target(), "theirs");
        }
        written = written || call == "write";
        const bool isKnown = (call != "renameat2" && call != "link") || !has(missing, call);
        return isKnown ? 0 : ENOSYS;
      }});
      calls = scene.calls;
      EXPECT_TRUE(result == 0 ? !made : refused(result, "another program has made it meanwhile"));
      EXPECT_EQ(contentOf(scene.target()), result == 0 ? "N=1\n" : "theirs");
      EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"a", "new"}));
      refusals += result != 0 ? 1 : 0;
    }
    EXPECT_GT(refusals, 1U) << missing;
  }
}

// A program that never rests is not waited for.
TEST(SaveAmongOthers, GivesUpWhenTheFileChangesAgainAndAgain) {
  Scene scene(saveOf("plain"));
  const auto meddle = [&](const Point& point) {
    if (point.call == "fsync") appendTo(scene.target(), "X=9\n");
    return 0;
  };
  EXPECT_TRUE(refused(scene.run({meddle}), "another program has changed it meanwhile"));
  EXPECT_EQ(scene.folder.names(), (std::vector<std::string>{"a"}));
}

// Over NFS, only those who may write to a file lock it for themselves.
TEST(SaveAmongOthers, LocksWhereALockWantsTheRightToWrite) {
  Scene scene(saveOf("plain"));
  bool isReadOnly = false;
  bool isWritable = false;
  const auto before = [&](const Point& point) {
    if (point.call == "flock" && !isWritable) return EBADF;
    if (point.call == "open" && isReadOnly) isWritable = true;
    return 0;
  };
  const auto after = [&](const Point& point) { isReadOnly = point.call == "flock" || isReadOnly; };
  EXPECT_EQ(scene.run({before, after}), 0) << KFL::getErrorMessage();
  const auto never = [](const Point& point) { return point.call == "flock" ? EBADF : 0; };
  EXPECT_TRUE(refused(scene.run({never}), "cannot be locked"));
}

// Nothing that another thread prints gets into a file, where the standard streams are closed. What was opened leaves their
// places by the very next calls, at which nobody prints here.
TEST_P(SaveFaults, NobodyPrintsIntoTheFiles) {
  Scene scene(GetParam());
  const auto print = [](const Point& point) {
    for (const int stream : {0, 1, 2})
      if (point.call != "fcntl" && point.call != "close") static_cast<void>(::write(stream, "noise", 5) < 0);
    return 0;
  };
  const auto work = [&] {
    for (const int stream : {0, 1, 2})
      close(stream);
    return scene.run({print});
  };
  EXPECT_EQ(statusOfChild(work), 0);
  EXPECT_EQ(scene.states(), withoutFault(GetParam()).after);
}

// Over NFS, a file that others have open has no name for a moment while it is replaced; and a name that is out of date
// stands for a file that has none any more.
TEST(SaveAmongOthers, WaitsForANameThatIsGoneForAMoment) {
  for (const std::string back : {"flock", "lstat", "never"}) {
    Scene scene(saveOf("plain"));
    const fs::path away = scene.folder / ".nfs1";
    int held = -1;
    const int result = scene.run({[&](const Point& point) {
      if (point.number == 0) {
        fs::rename(scene.target(), away);
        held = open(temporaryOf(scene.target()).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (back != "lstat") flock(held, LOCK_EX);
      } else if (held >= 0 && point.call == back) {
        fs::rename(away, scene.target());
        fs::remove(temporaryOf(scene.target()));
        close(std::exchange(held, -1));
      }
      return 0;
    }});
    EXPECT_TRUE(back == "never" ? refused(result, "keeps it locked") : result == 0) << back;
    EXPECT_EQ(contentOf(back == "never" ? away : scene.target()),
              back == "never" ? kContent : "A=\"2\"\n# kept\n");
    close(held);
  }
  Scene scene(saveOf("plain"));
  static int nameless = 2;
  const auto own = std::exchange(KFL::KFLSystem::calls.fstat, [](int file, struct stat* status) {
    const int result = fstat(file, status);
    if (nameless-- > 0) status->st_nlink = 0;
    return result;
  });
  EXPECT_EQ(setA(scene.folder, {}), 0) << KFL::getErrorMessage();
  KFL::KFLSystem::calls.fstat = own;
}

// The change that a process made before it forked is its own to commit.
TEST(SaveAmongOthers, AForkedChildCommitsNothing) {
  const Scene scene(saveOf("plain"));
  pid_t child = 1;
  const auto edit = [&](const std::string& before, std::string& after) {
    if (child == 1) child = fork();
    return addB(before, after);
  };
  const int result = KFAConfigFile(scene.target()).update(edit, {});
  if (child == 0) _exit(refused(result, "before this process was forked") ? 0 : 1);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(contentOf(scene.target()), kContent + "B=2\n");
}

// Runs a part of a test as a process of its own, and gives its status; its failures are printed.
int inProcess(const std::function<void()>& part) {
  return statusOfChild([&] {
    part();
    std::cout << std::flush;
    return testing::Test::HasFailure() ? 1 : 0;
  });
}

constexpr const char* kSmall = "size=64k,mode=0700";

// A file system of 64 KiB in a folder, which only this process sees.
bool mountSmall(const fs::path& path) {
  const std::string ids = "0 " + std::to_string(geteuid()) + " 1";
  if (unshare((geteuid() == 0 ? 0 : CLONE_NEWUSER) | CLONE_NEWNS) != 0) return false;
  if (ids != "0 0 1") makeFile("/proc/self/uid_map", ids);
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("tmpfs", path.c_str(), "tmpfs", 0, kSmall) == 0;
}

constexpr int kNotPermitted = 77;

// The part with a small file system for its files; skips the test where that may not be mounted.
void onASmallDisk(const std::function<void(const fs::path& disk)>& part) {
  const TemporaryFolder disk;
  const int status = inProcess([&] {
    if (!mountSmall(disk.path())) _exit(kNotPermitted);
    setenv("TMPDIR", disk.path().c_str(), 1);
    part(disk.path());
    umount(disk.path().c_str());
  });
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNotPermitted)
    GTEST_SKIP() << "no file system may be mounted here";
  EXPECT_EQ(status, 0);
}

// Troubles that come over the disk or the folder before a call, for which a save may be refused: those from 1 on; 0 ends
// one of them.
void saveInTrouble(const char* what, const Save& save, int troubles, const std::string& reason,
                   const std::function<void(const fs::path& folder, int trouble)>& make) {
  std::size_t refusals = 0;
  for (int trouble = 1; trouble <= troubles; ++trouble) {
    const auto meet = [&](Scene& scene, const Outcome&, const Planner& plan) {
      const int result = scene.run(plan([&] { make(scene.folder.path(), trouble); }));
      EXPECT_TRUE(result == 0 || refused(result, reason)) << KFL::getErrorMessage();
      refusals += result == 0 ? 0 : 1;
      make(scene.folder.path(), 0);
    };
    atEachCall(what, save, meet);
  }
  EXPECT_GT(refusals, 0U);
}

// As many pages as fit are taken, but for some.
TEST_P(SaveFaults, TheDiskIsFullAtEachCall) {
  onASmallDisk([&](const fs::path& disk) {
    const auto fill = [&](const fs::path&, int trouble) {
      const fs::path filler = disk / "filler";
      if (trouble == 0 && fs::remove(filler)) return;
      makeFile(filler, std::string(1 << 17, 'x'));
      fs::resize_file(filler, fs::file_size(filler) - static_cast<std::size_t>(trouble - 1) * 4096);
    };
    saveInTrouble(" full disks", GetParam(), 3, "No space left on device", fill);
  });
}

TEST_P(SaveFaults, TheDiskIsMadeReadOnlyAtEachCall) {
  onASmallDisk([&](const fs::path& disk) {
    // It is not while something is being written.
    const auto remount = [&](const fs::path&, int trouble) {
      const unsigned long flags = trouble == 0 ? 0 : MS_RDONLY;
      EXPECT_TRUE(mount("none", disk.c_str(), nullptr, MS_REMOUNT | flags, kSmall) == 0 || trouble != 0);
    };
    saveInTrouble(" read-only disks", GetParam(), 1, "Read-only file system", remount);
  });
}

// As a user to whom permissions matter.
TEST_P(SaveFaults, TheFolderLosesItsPermissionsAtEachCall) {
  if (std::string(GetParam().name) == "attributes") GTEST_SKIP() << "another's file";
  const auto part = [&] {
    ASSERT_TRUE(geteuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0));
    saveInTrouble(
        " closed folders", GetParam(), 4, "Permission denied", [](const fs::path& folder, int trouble) {
          chmod(folder.c_str(), std::array{0700, 0000, 0500, 0600, 0100}[static_cast<std::size_t>(trouble)]);
        });
  };
  EXPECT_EQ(inProcess(part), 0);
}

TEST(FolderFaults, EachCallFails) {
  const TemporaryFolder folder;
  for (const char* name : {"9.conf", "10.conf", "x"})
    makeFile(folder / name, "HOSTNAME=h\n");
  std::size_t points = 0;
  for (const int error : {0, EIO, EINTR, EAGAIN, EMFILE, ENOMEM, EACCES}) {
    std::size_t calls = 1;
    for (std::size_t number = 0; number < calls; ++number, ++points) {
      SCOPED_TRACE(std::to_string(number) + std::strerror(error));
      const std::size_t descriptors = KFLSystemFaults::countDescriptors();
      {
        std::vector<int> veids;
        KFA::KFAEnvConfig record;
        KFA::KFAConfigFolder reader(folder.path(), envParser());
        KFA::KFANodeSelection selection(folder.path(), [] { return envParser(); });
        const KFLSystemFaults faults(
            {[&](const Point& point) { return point.number == number ? error : 0; }, {}, error == 0});
        bool isRefused = false;
        const auto again = [&](const std::function<int()>& call, const std::string& text) {
          const int result = call();
          if (result == 0) return;
          isRefused = true;
          EXPECT_TRUE(refused(result, text) && refused(result, std::strerror(error)));
          EXPECT_EQ(call(), 0);
        };
        const auto list = [&] {
          const int result = reader.list(veids);
          EXPECT_EQ(veids, result == 0 ? std::vector<int>({9, 10}) : std::vector<int>());
          return result;
        };
        again(list, folder.path().string() + ": cannot be ");
        again([&] { return reader.read(9, record); }, (folder / "9.conf: cannot be ").string());
        // Those who select environments have the same law.
        const auto select = [&] {
          const int result = selection.add("9-10");
          EXPECT_EQ(selection.getFiles().size(), result == 0 ? 2U : 0U);
          return result;
        };
        again(select, "");
        calls = std::max(calls, faults.count());
        const bool isOfAPath = !has(std::string(faults.failed()), "dir");
        const bool isHarmless = error == 0 || (error == EINTR && isOfAPath);
        EXPECT_TRUE(!isHarmless || !isRefused);
      }
      EXPECT_EQ(KFLSystemFaults::countDescriptors(), descriptors);
    }
  }
  std::cout << points << " failed calls of a folder\n";
}

// One of the writers of a file, with a key of its own, in memory that all of them share.
struct Writer {
  using Clock = std::chrono::steady_clock;
  pid_t process;
  std::atomic<int> begun, done, refused;
  std::atomic<std::int64_t> longest;
  std::atomic<Clock::time_point> since;

  // When a save has come to its end, or the writer to its.
  void noteWait() {
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since.load());
    longest = std::max<std::int64_t>(longest, wait.count());
  }

  [[noreturn]] void write(const fs::path& path, std::size_t i) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;; noteWait()) {
      const int number = ++begun;
      since = Clock::now();
      const KFA::KFAConfigChanges change = {{"w" + std::to_string(i), std::to_string(number)}};
      if (KFAConfigFile(path).set(kRules, change, {}, {false, i % 8 == 0 ? "~" : ""}) == 0) {
        done = number;
      } else {
        ++refused;
        std::cerr << KFL::getErrorMessage() << "\n";
      }
    }
  }

  void start(const fs::path& path, std::size_t i) {
    since = Clock::now();
    const pid_t child = fork();
    if (child == 0) write(path, i);
    process = child;
  }
};

// Whether each writer's last save that was told to be done is there, and nothing that none of them wrote.
void expectKept(const fs::path& path, const std::span<Writer>& writers) {
  std::vector<int> done;
  for (const Writer& writer : writers)
    done.push_back(writer.done);
  const std::string content = contentOf(path);
  EXPECT_TRUE(content.starts_with("# kept\n")) << content;
  std::map<std::string, std::string> values = valuesOf(content);
  for (std::size_t i = 0; i < writers.size(); ++i) {
    const int value = std::atoi(values["w" + std::to_string(i)].c_str());
    EXPECT_TRUE(value >= done[i] && value <= writers[i].begun)
        << i << ": " << done[i] << " " << value << " " << writers[i].begun;
  }
  EXPECT_LE(values.size(), writers.size()) << content;
}

// One after the other is killed at any instruction.
TEST(SaveKills, NoneOf64WritersLosesASave) {
  const char* const wanted = std::getenv("KFA_FAULTS_COUNT");
  const int count = wanted != nullptr ? std::atoi(wanted) : 300;
  const TemporaryFolder folder;
  const fs::path path = folder / "a";
  makeFile(path, "# kept\n");
  void* const memory =
      mmap(nullptr, 64 * sizeof(Writer), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  const std::span<Writer> writers(static_cast<Writer*>(memory), 64);
  for (std::size_t i = 0; i < writers.size(); ++i)
    writers[i].start(path, i);
  std::mt19937 random(12345);
  for (int kills = 0; kills < count && !HasFailure(); ++kills) {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
    const std::size_t i = random() % writers.size();
    end(writers[i].process);
    writers[i].noteWait();
    expectKept(path, writers);
    writers[i].start(path, i);
  }
  std::int64_t tries = 0;
  std::int64_t longest = 0;
  for (const Writer& writer : writers) {
    end(writer.process);
    tries += writer.begun;
    longest = std::max<std::int64_t>(longest, writer.longest);
    EXPECT_EQ(writer.refused, 0);
  }
  std::cout << "64 writers: " << tries << " tries, " << count << " kills, "
            << (HasFailure() ? "some" : "none") << " lost, longest wait " << longest << " ms\n";
  EXPECT_LT(longest, 10000);
  munmap(memory, writers.size_bytes());
  EXPECT_EQ(setA(folder, quickly(0)), 0) << KFL::getErrorMessage();
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"a", "a~"}));
}

}  // namespace
