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
#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
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

// A way to save: what is there before, and the call that changes it. The file that is meant is `target`.
struct Save {
  const char* name;
  const char* target;
  std::function<void(const TemporaryFolder&)> prepare;
  std::function<int(const TemporaryFolder&, const KFAReplaceOptions&)> run;
  // A call that this file system does not know.
  const char* missing = "";
};

std::ostream& operator<<(std::ostream& out, const Save& save) {
  return out << save.name;
}

int set(const fs::path& path, KFAReplaceOptions how) {
  return KFAConfigFile(path).set(kRules, {{"A", "2"}}, {}, how);
}

void makeA(const TemporaryFolder& folder) {
  makeFile(folder / "a", "A=1\n# kept\n");
}

int setA(const TemporaryFolder& folder, const KFAReplaceOptions& how) {
  return set(folder / "a", how);
}

int setAWithBackup(const TemporaryFolder& folder, KFAReplaceOptions how) {
  how.backupSuffix = "~";
  return setA(folder, how);
}

int makeNew(const TemporaryFolder& folder, const KFAReplaceOptions& how) {
  return KFAConfigFile(folder / "new").replace("N=1\n", how, 0640);
}

const Save kSaves[] = {
    {"plain", "a", makeA, setA},
    {"newline", "a", [](const TemporaryFolder& folder) { makeFile(folder / "a", "# no end\nA=1"); }, setA},
    {"backup", "a",
     [](const TemporaryFolder& folder) {
       makeA(folder);
       makeFile(folder / "a~", "older");
     },
     setAWithBackup},
    {"output", "b",
     [](const TemporaryFolder& folder) {
       makeA(folder);
       makeFile(folder / "b", "older");
     },
     [](const TemporaryFolder& folder, const KFAReplaceOptions& how) {
       return KFAConfigFile(folder / "a").copyTo(folder / "b", addB, how);
     }},
    {"symlink", "real",
     [](const TemporaryFolder& folder) {
       makeFile(folder / "real", "A=1\n");
       fs::create_symlink("real", folder / "a");
     },
     setA},
    {"hardlinks", "a",
     [](const TemporaryFolder& folder) {
       makeA(folder);
       fs::create_hard_link(folder / "a", folder / "b");
     },
     [](const TemporaryFolder& folder, KFAReplaceOptions how) {
       how.hardLinks = true;
       return setA(folder, how);
     }},
    {"attributes", "a",
     [](const TemporaryFolder& folder) {
       using namespace std::string_literals;
       makeA(folder);
       const auto path = folder / "a";
       chmod(path.c_str(), 0640);
       if (geteuid() == 0) {
         EXPECT_EQ(chown(path.c_str(), 12345, 23456), 0);
       }
       const std::string acl =
           "\2\0\0\0\1\0\6\0\377\377\377\377\2\0\4\0\376\377\0\0\4\0\4\0\377\377\377\377\20\0\4\0\377\377\377"
           "\377\40\0\0\0\377\377\377\377"s;
       setxattr(path.c_str(), "system.posix_acl_access", acl.data(), acl.size(), 0);
       setxattr(path.c_str(), "user.origin", "sample", 6, 0);
     },
     setA},
    {"new", "new", makeA, makeNew},
    {"newbylink", "new", makeA, makeNew, "renameat2"},
};

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

States statesOf(const TemporaryFolder& folder) {
  States states;
  for (const std::string& name : folder.names())
    states[name] = stateOf(folder / name);
  return states;
}

// Each file is as before or as after, whole; what a dead run left has its own name.
void expectWhole(States now, const States& before, const States& after) {
  for (const char* name : {".new.kfa-new", ".a.kfa-new", ".a.kfa-backup", ".b.kfa-new", ".real.kfa-new"})
    now.erase(name);
  const auto in = [](const States& states, const std::string& name) {
    const auto found = states.find(name);
    return found == states.end() ? std::string("none") : found->second;
  };
  for (const auto& [name, state] : after) {
    const std::string found = in(now, name);
    EXPECT_TRUE(found == state || found == in(before, name)) << name << ": " << found;
    now.erase(name);
  }
  EXPECT_TRUE(now.empty()) << now.begin()->first;
}

void expectUnlocked(const TemporaryFolder& folder) {
  for (const std::string& name : folder.names()) {
    const int file = open((folder / name).c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(flock(file, LOCK_EX | LOCK_NB), 0) << name;
    close(file);
  }
}

KFAReplaceOptions quickly(int milliseconds = 20) {
  KFAReplaceOptions how;
  how.lockTimeout = milliseconds;
  return how;
}

Plan onFileSystemOf(const Save& save, const Plan& plan = {}) {
  return plan.without(save.missing, EINVAL);
}

struct Outcome {
  std::size_t calls = 0;
  States before;
  States after;
};

// Mode, owner, ACL and attributes, on the file and on its backup.
void expectKept(const Save& save, const Outcome& outcome) {
  const auto before = outcome.before.find(save.target);
  if (before == outcome.before.end()) return;
  const auto metadataOf = [](const std::string& state) { return state.substr(0, state.find('\n')); };
  for (const char* const suffix : {"", "~"}) {
    const auto after = outcome.after.find(save.target + std::string(suffix));
    if (after == outcome.after.end()) continue;
    EXPECT_EQ(metadataOf(after->second), metadataOf(before->second)) << after->first;
  }
}

Outcome withoutFault(const Save& save, bool isShort = false) {
  const TemporaryFolder folder;
  Outcome outcome;
  save.prepare(folder);
  outcome.before = statesOf(folder);
  {
    const KFLSystemFaults faults(onFileSystemOf(save, {{}, {}, isShort}));
    EXPECT_EQ(save.run(folder, {}), 0) << KFL::getErrorMessage();
    outcome.calls = faults.count();
  }
  outcome.after = statesOf(folder);
  EXPECT_LT(getxattr((folder / save.target).c_str(), "user.kfa.replaces", nullptr, 0), 0);
  expectKept(save, outcome);
  return outcome;
}

// Whatever happened, the same save then does all of it, and nothing is left.
void expectSavedAgain(const Save& save, const TemporaryFolder& folder, const Outcome& outcome) {
  EXPECT_EQ(save.run(folder, quickly(0)), 0) << KFL::getErrorMessage();
  EXPECT_EQ(statesOf(folder), outcome.after);
}

void expectToldWhat(const Save& save, const TemporaryFolder& folder, int error) {
  const std::string text = KFL::getErrorMessage();
  EXPECT_TRUE(text.starts_with((folder.path() / "").string())) << text;
  const bool isWaiting = error == EAGAIN && text.find("keeps it locked") != std::string::npos;
  const std::string reason = ": " + std::generic_category().message(error);
  EXPECT_TRUE(isWaiting || text.ends_with(reason)) << text;
  if (text.find("is replaced, but") != std::string::npos) return;
  EXPECT_NE(text.find(" cannot be "), std::string::npos) << save.name << text;
}

struct Fault {
  int error;
  bool onwards;
  bool isShort;  // what is written before it is written in parts, as on a disk that fills up
};

// One call fails, or all from there on do.
void failAt(const Save& save, const Outcome& outcome, std::size_t number, const Fault& fault) {
  const TemporaryFolder folder;
  save.prepare(folder);
  const std::size_t descriptors = KFLSystemFaults::countDescriptors();
  bool isNoted = false;
  KFAReplaceOptions how = quickly();
  how.note = [&](const std::string&) { isNoted = true; };
  int result = 0;
  {
    const auto failing = [&](const Point& point) {
      return point.number == number || (fault.onwards && point.number > number) ? fault.error : 0;
    };
    const KFLSystemFaults faults(onFileSystemOf(save, {failing, {}, fault.isShort}));
    result = save.run(folder, how);
    SCOPED_TRACE(std::string(faults.failed()));
    if (fault.error == EINTR || faults.failed().starts_with("close")) {
      EXPECT_TRUE(result == 0 || fault.onwards) << KFL::getErrorMessage();
    }
  }
  if (result != 0) expectToldWhat(save, folder, fault.error);
  EXPECT_EQ(KFLSystemFaults::countDescriptors(), descriptors);
  expectUnlocked(folder);
  if (isNoted) return;
  expectWhole(statesOf(folder), outcome.before, outcome.after);
  if (result == 0) {
    EXPECT_EQ(stateOf(folder / save.target), outcome.after.at(save.target));
  }
  expectSavedAgain(save, folder, outcome);
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
      for (std::size_t number = 0; number < calls; ++number, ++points) {
        SCOPED_TRACE(std::to_string(number) + (onwards ? " and on: " : ": ") + std::strerror(error));
        failAt(save, outcome, number, {error, onwards, isShort});
        if (HasFailure()) return;
      }
    }
  }
  RecordProperty("points", std::to_string(points));
  std::cout << save.name << ": " << points << " failed calls\n";
}

TEST_P(SaveFaults, ShortReadsAndWrites) {
  const Outcome whole = withoutFault(GetParam());
  const Outcome inParts = withoutFault(GetParam(), true);
  EXPECT_GT(inParts.calls, whole.calls);
  EXPECT_EQ(inParts.after, whole.after);
}

// All of the new file is on disk before it has the name, and the name before the save says that it is done.
TEST_P(SaveFaults, BringsToDiskBeforeItRenames) {
  const Save& save = GetParam();
  const TemporaryFolder folder;
  save.prepare(folder);
  std::size_t renamings = 0;
  bool isOnDisk = true;
  bool isNameOnDisk = true;
  const KFLSystemFaults faults(
      onFileSystemOf(save, {[&](const Point& point) {
                       const std::string_view call = point.call;
                       if (call == "write" || call == "fchmod" || call == "fchown" || call == "fsetxattr")
                         isOnDisk = false;
                       if (call == "rename" || call == "renameat2" || call == "link") {
                         EXPECT_TRUE(isOnDisk) << point.number;
                         isNameOnDisk = false;
                         ++renamings;
                       }
                       if (call == "fsync") (isOnDisk ? isNameOnDisk : isOnDisk) = true;
                       return 0;
                     }}));
  EXPECT_EQ(save.run(folder, {}), 0) << KFL::getErrorMessage();
  EXPECT_TRUE(isNameOnDisk);
  EXPECT_GT(renamings, 0U);
}

// Right before and right behind each call of a save, in a folder of its own: acts by the plan that it makes of what is to
// be done there. Afterwards the save can be made all the same.
using Planner = std::function<Plan(const std::function<void()>&)>;
void atEachCall(const char* what, const Save& save,
                const std::function<void(const TemporaryFolder&, const Outcome&, const Planner&)>& act) {
  const Outcome outcome = withoutFault(save);
  for (std::size_t point = 0; point < 2 * outcome.calls; ++point) {
    SCOPED_TRACE(point);
    const TemporaryFolder folder;
    save.prepare(folder);
    act(folder, outcome, [&](const std::function<void()>& then) {
      return onFileSystemOf(save, Plan::at(point / 2, point % 2 != 0, then));
    });
    expectSavedAgain(save, folder, outcome);
    if (testing::Test::HasFailure()) return;
  }
  std::cout << save.name << ": " << 2 * outcome.calls << what << "\n";
}

TEST_P(SaveFaults, TheProcessDiesAtEachCall) {
  const auto die = [](const TemporaryFolder& folder, const Outcome& outcome, const Planner& plan) {
    const int status = statusOfChild([&] {
      const KFLSystemFaults faults(plan([] { kill(getpid(), SIGKILL); }));
      return GetParam().run(folder, {});
    });
    ASSERT_TRUE(WIFSIGNALED(status));
    expectWhole(statesOf(folder), outcome.before, outcome.after);
  };
  atEachCall(" deaths", GetParam(), die);
}

// A process that only lives.
pid_t liveOn(pid_t child) {
  if (child != 0) return child;
  for (;;)
    pause();
}

void end(pid_t child) {
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

// Whoever forks, in whatever way, the child has no part in the lock; fork() gives it none even of a parent that dies.
TEST_P(SaveFaults, AChildOfEachCallKeepsNoLock) {
  const Save& save = GetParam();
  for (const auto make : {&fork, &_Fork}) {
    pid_t child = -1;
    const auto forkThere = [&](const TemporaryFolder& folder, const Outcome& outcome, const Planner& plan) {
      {
        const KFLSystemFaults faults(plan([&] { child = liveOn(make()); }));
        EXPECT_EQ(save.run(folder, {}), 0) << KFL::getErrorMessage();
      }
      expectUnlocked(folder);
      expectSavedAgain(save, folder, outcome);
      end(child);
    };
    atEachCall(make == &fork ? " forks" : " _Forks", save, forkThere);
  }
}

TEST_P(SaveFaults, AChildOfAWriterThatDiesKeepsNoLock) {
  const Save& save = GetParam();
  const auto dieBehindAFork = [&](const TemporaryFolder& folder, const Outcome& outcome,
                                  const Planner& plan) {
    int told[2];
    ASSERT_EQ(pipe(told), 0);
    const pid_t writer = fork();
    if (writer == 0) {
      const KFLSystemFaults faults(plan([&] {
        const pid_t self = fork() == 0 ? getpid() : 0;
        if (self != 0 && ::write(told[1], &self, sizeof(self)) != sizeof(self)) _exit(1);
        liveOn(0);
      }));
      save.run(folder, {});
      _exit(1);
    }
    pid_t child = 0;
    EXPECT_EQ(::read(told[0], &child, sizeof(child)), static_cast<ssize_t>(sizeof(child)));
    end(writer);
    expectUnlocked(folder);
    expectSavedAgain(save, folder, outcome);
    kill(child, SIGKILL);
    close(told[0]);
    close(told[1]);
  };
  atEachCall(" deaths behind a fork", save, dieBehindAFork);
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

void replaceBy(const fs::path& path, const std::string& more) {
  makeFile(path.string() + ".theirs", contentOf(path) + more);
  fs::rename(path.string() + ".theirs", path);
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
    {"closes", [](const fs::path& target) { chmod(target.c_str(), 0400); }, ""},
    {"marks", [](const fs::path& target) { setxattr(target.c_str(), "user.origin", "theirs", 6, 0); }, ""},
    {"takesTheTemporary", [](const fs::path& target) { fs::remove(temporaryOf(target)); }, ""},
    {"putsATemporary",
     [](const fs::path& target) {
       makeFile(target.string() + ".theirs", "theirs");
       fs::rename(target.string() + ".theirs", temporaryOf(target));
     },
     "", "theirs"},
};

// Its change stays, at whatever call of the save it comes, and ours is made or refused.
TEST(SaveAmongOthers, LosesNoChangeOfAProgramWithoutTheLock) {
  std::size_t points = 0;
  for (const Save& save : kSaves) {
    const std::string kind = save.name;
    if (kind != "plain" && kind != "backup" && kind != "attributes") continue;
    const Outcome outcome = withoutFault(save);
    for (const Meddling& other : kMeddlings) {
      for (std::size_t point = 0; point < outcome.calls; ++point, ++points) {
        SCOPED_TRACE(kind + " " + other.name + " " + std::to_string(point));
        const TemporaryFolder folder;
        save.prepare(folder);
        int result = 0;
        {
          bool isRenamed = false;
          const KFLSystemFaults faults({[&](const Point& now) {
            // From then on, what has the name is the old file, or else another program's that was there for it.
            isRenamed = isRenamed || now.call == "renameat2";
            const bool isLate = isRenamed && other.name == std::string("putsATemporary");
            if (now.number == point && !isLate) other.act(folder / save.target);
            return 0;
          }});
          result = save.run(folder, quickly());
        }
        const std::string content = contentOf(folder / save.target);
        EXPECT_TRUE(has(content, other.kept) && !has(content, other.never)) << content;
        EXPECT_EQ(has(content, "A=\"2\""), result == 0) << content;
        const std::string name = other.name;
        EXPECT_TRUE(name != "closes" || stateOf(folder / save.target).starts_with("100400"));
        EXPECT_TRUE(name != "marks" || has(stateOf(folder / save.target), "user.origin=theirs"));
        if (result != 0) {
          EXPECT_TRUE(has(KFL::getErrorMessage(), "another program")) << KFL::getErrorMessage();
          EXPECT_TRUE(has(content, "A=1")) << content;
        }
        if (HasFailure()) return;
      }
    }
  }
  std::cout << points << " meddlings\n";
}

// A link that is another one by the time of the exchange, or none, is followed anew: ours is where the path leads, or the
// save is refused.
TEST(SaveAmongOthers, SavesWhereTheLinkLeads) {
  const Save& save = *std::find_if(std::begin(kSaves), std::end(kSaves),
                                   [](const Save& one) { return one.name == std::string("symlink"); });
  using Change = void (*)(const fs::path&);
  const Change changes[] = {[](const fs::path& link) { makeFile(link, "A=1\nX=9\n"); },
                            [](const fs::path& link) { fs::create_symlink("other", link); },
                            [](const fs::path& link) { fs::create_directory(link); }, [](const fs::path&) {}};
  for (const Change change : changes) {
    bool isExchanged = false;
    for (std::size_t number = 0; !isExchanged; ++number) {
      SCOPED_TRACE(std::to_string(&change - &changes[0]) + " " + std::to_string(number));
      const TemporaryFolder folder;
      save.prepare(folder);
      makeFile(folder / "other", "A=1\nX=9\n");
      int result = 0;
      {
        const KFLSystemFaults faults({[&](const Point& point) {
          if (point.number != number) return 0;
          isExchanged = point.call == "renameat2";
          fs::remove(folder / "a");
          change(folder / "a");
          return 0;
        }});
        result = save.run(folder, quickly());
      }
      const bool isFile = fs::is_regular_file(folder / "a");
      EXPECT_EQ(result, isFile ? 0 : -1) << KFL::getErrorMessage();
      EXPECT_EQ(contentOf(folder / "real"), "A=1\n");
      EXPECT_TRUE(!isFile || contentOf(folder / "a") == "A=\"2\"\nX=9\n");
    }
  }
}

// Two changes, one on each side of the exchange, behind which the process goes on, dies or can rename no more: each stands in
// the file, or in one that a text names and no save removes.
TEST(SaveAmongOthers, LosesNoneOfTwoChangesAroundTheExchange) {
  using Change = void (*)(const fs::path&, const std::string&);
  const auto isKeptAside = [](const TemporaryFolder& folder, const char* value) {
    const int result = KFAConfigFile(folder / "a").set(kRules, {{"A", value}}, {}, {});
    return static_cast<bool>(refused(result, (folder / ".a.kfa-kept").string()));
  };
  for (const auto& [first, second, end] : std::initializer_list<std::tuple<Change, Change, std::string>>{
           {appendTo, appendTo, "goes on"},
           {appendTo, replaceBy, "goes on"},
           {replaceBy, appendTo, "goes on"},
           {replaceBy, replaceBy, "goes on"},
           {appendTo, appendTo, "dies"},
           {replaceBy, appendTo, "dies"},
           {appendTo, replaceBy, "renames no more"},
           {replaceBy, appendTo, "renames no more"}}) {
    SCOPED_TRACE(end);
    const TemporaryFolder folder;
    makeA(folder);
    const int status = statusOfChild([&, first = first, second = second, end = end] {
      int renamings = 0;
      const auto before = [&](const Point& point) {
        renamings += point.call == "renameat2" ? 1 : 0;
        if (point.call == "renameat2" && renamings == 1) first(folder / "a", "X=8\n");
        return point.call == "renameat2" && renamings == 2 && end == "renames no more" ? EIO : 0;
      };
      const auto after = [&](const Point& point) {
        if (point.call != "renameat2" || renamings != 1) return;
        second(folder / "a", "Y=9\n");
        if (end == "dies") kill(getpid(), SIGKILL);
      };
      const KFLSystemFaults faults({before, after});
      return isKeptAside(folder, "2") ? 2 : 1;
    });
    EXPECT_EQ(WIFSIGNALED(status) ? 0 : WEXITSTATUS(status), end == "dies" ? 0 : 2);
    EXPECT_EQ(isKeptAside(folder, "3"), end == "dies");
    EXPECT_EQ(setA(folder, {}), 0) << KFL::getErrorMessage();
    EXPECT_TRUE(has(contentOf(folder / "a"), "Y=9\n") && has(contentOf(folder / "a"), "A=\"2\""));
    EXPECT_TRUE(has(contentOf(folder / ".a.kfa-kept"), "X=8\n"));
    EXPECT_EQ(folder.names(), (std::vector<std::string>{".a.kfa-kept", "a"}));
  }
}

TEST(SaveAmongOthers, OverwritesNoFileThatIsMadeMeanwhile) {
  for (const char* missing : {"", "renameat2", "renameat2 link"}) {
    std::size_t refusals = 0;
    std::size_t calls = 1;
    for (std::size_t point = 0; point < calls; ++point) {
      SCOPED_TRACE(missing + std::to_string(point));
      const TemporaryFolder folder;
      bool written = false;
      bool made = false;
      const KFLSystemFaults faults({[&](const Point& now) {
        const std::string call(now.call);
        const bool isKnown =
            *missing == '\0' || (call != "renameat2" && (call != "link" || !has(missing, call)));
        // Without both calls, there is no way to see it at the very last moment.
        if (now.number == point && call != "rename") {
          made = written && !fs::exists(folder / "new");
          if (!fs::exists(folder / "new")) makeFile(folder / "new", "theirs");
        }
        written = written || call == "write";
        return isKnown ? 0 : ENOSYS;
      }});
      const int result = makeNew(folder, quickly());
      calls = faults.count();
      const std::string content = contentOf(folder / "new");
      if (result != 0) {
        EXPECT_TRUE(refused(result, "another program has made it meanwhile"));
      }
      EXPECT_EQ(content, result == 0 ? "N=1\n" : "theirs");
      EXPECT_TRUE(result != 0 || !made);
      refusals += result != 0 ? 1 : 0;
      EXPECT_EQ(folder.names(), (std::vector<std::string>{"new"}));
    }
    EXPECT_GT(refusals, 1U) << missing;
  }
}

// A program that never rests is not waited for.
TEST(SaveAmongOthers, GivesUpWhenTheFileChangesAgainAndAgain) {
  const TemporaryFolder folder;
  makeA(folder);
  const KFLSystemFaults faults({[&](const Point& point) {
    if (point.call == "fsync") appendTo(folder / "a", "X=9\n");
    return 0;
  }});
  EXPECT_TRUE(refused(setA(folder, {}), "another program has changed it meanwhile"));
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"a"}));
}

// Over NFS, only those who may write to a file lock it for themselves.
TEST(SaveAmongOthers, LocksWhereALockWantsTheRightToWrite) {
  const TemporaryFolder folder;
  makeA(folder);
  bool isReadOnly = false;
  bool isWritable = false;
  const Plan plan{[&](const Point& point) {
                    if (point.call == "flock" && !isWritable) return EBADF;
                    if (point.call == "open" && isReadOnly) isWritable = true;
                    return 0;
                  },
                  [&](const Point& point) { isReadOnly = point.call == "flock" || isReadOnly; }};
  {
    const KFLSystemFaults faults(plan);
    EXPECT_EQ(setA(folder, {}), 0) << KFL::getErrorMessage();
  }
  const KFLSystemFaults faults({[&](const Point& point) { return point.call == "flock" ? EBADF : 0; }});
  EXPECT_TRUE(refused(set(folder / "a", {}), "cannot be locked"));
}

// Nothing that another thread prints gets into a file, where the standard streams are closed. What was opened leaves their
// places by the very next calls, at which nobody prints here.
TEST_P(SaveFaults, NobodyPrintsIntoTheFiles) {
  const Outcome outcome = withoutFault(GetParam());
  const TemporaryFolder folder;
  GetParam().prepare(folder);
  const auto print = [](const Point& point) {
    for (const int stream : {0, 1, 2})
      if (point.call != "fcntl" && point.call != "close") static_cast<void>(::write(stream, "noise", 5) < 0);
    return 0;
  };
  const auto work = [&] {
    for (const int stream : {0, 1, 2})
      close(stream);
    const KFLSystemFaults faults(onFileSystemOf(GetParam(), {print, {}}));
    return GetParam().run(folder, {});
  };
  EXPECT_EQ(statusOfChild(work), 0);
  EXPECT_EQ(statesOf(folder), outcome.after);
}

// Over a network, what another machine has replaced cannot be used as it was opened, and is opened anew; only a path that
// cannot be followed, and a folder that cannot be brought to disk behind it all, end a save.
TEST_P(SaveFaults, BeginsAnewWhereAnotherMachineHasReplacedTheFile) {
  const Save& save = GetParam();
  const Outcome outcome = withoutFault(save);
  std::size_t refusals = 0;
  for (std::size_t number = 0; number < outcome.calls; ++number) {
    SCOPED_TRACE(number);
    const TemporaryFolder folder;
    save.prepare(folder);
    bool isRenamed = false;
    const auto before = [&](const Point& point) {
      isRenamed = isRenamed || (point.call.starts_with("rename") && point.number < number);
      return point.number == number ? ESTALE : 0;
    };
    {
      const KFLSystemFaults faults(onFileSystemOf(save, {before, {}}));
      const int result = save.run(folder, quickly());
      const std::string_view call = faults.failed();
      const bool isOfThePath = call == "statfs" || call == "readlink" || call == "lstat" || call == "stat";
      EXPECT_TRUE(result == 0 || isRenamed || isOfThePath || !outcome.before.contains(save.target))
          << call << " " << KFL::getErrorMessage();
      refusals += result != 0 ? 1 : 0;
    }
    expectWhole(statesOf(folder), outcome.before, outcome.after);
    expectSavedAgain(save, folder, outcome);
    if (HasFailure()) return;
  }
  EXPECT_LT(refusals, outcome.calls / 2);
}

// Over NFS, a file that others have open has no name for a moment while it is replaced; and a name that is out of date
// stands for a file that has none any more.
TEST(SaveAmongOthers, WaitsForANameThatIsGoneForAMoment) {
  for (const char* const back : {"flock", "lstat", "never"}) {
    const TemporaryFolder folder;
    makeA(folder);
    int held = -1;
    const KFLSystemFaults faults({[&](const Point& point) {
      if (point.number == 0) {
        fs::rename(folder / "a", folder / ".nfs1");
        held = open((folder / ".a.kfa-new").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (*back != 'l') flock(held, LOCK_EX);
      } else if (held >= 0 && point.call == back) {
        fs::rename(folder / ".nfs1", folder / "a");
        fs::remove(folder / ".a.kfa-new");
        close(std::exchange(held, -1));
      }
      return 0;
    }});
    const int result = setA(folder, quickly());
    EXPECT_EQ(result == 0, held < 0) << back << KFL::getErrorMessage();
    EXPECT_TRUE(held < 0 || has(KFL::getErrorMessage(), "keeps it locked")) << back;
    EXPECT_EQ(contentOf(folder / (held < 0 ? "a" : ".nfs1")),
              held < 0 ? "A=\"2\"\n# kept\n" : "A=1\n# kept\n");
    close(held);
  }
  const TemporaryFolder folder;
  makeA(folder);
  static int nameless = 2;
  const auto own = std::exchange(KFL::KFLSystem::calls.fstat, [](int file, struct stat* status) {
    const int result = fstat(file, status);
    if (nameless-- > 0) status->st_nlink = 0;
    return result;
  });
  EXPECT_EQ(setA(folder, {}), 0) << KFL::getErrorMessage();
  KFL::KFLSystem::calls.fstat = own;
}

// The change that a process made before it forked is its own to commit.
TEST(SaveAmongOthers, AForkedChildCommitsNothing) {
  const TemporaryFolder folder;
  makeA(folder);
  pid_t child = 1;
  const auto edit = [&](const std::string& before, std::string& after) {
    if (child == 1) child = fork();
    return addB(before, after);
  };
  const int result = KFAConfigFile(folder / "a").update(edit, {});
  if (child == 0) _exit(refused(result, "before this process was forked") ? 0 : 1);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(contentOf(folder / "a"), "A=1\n# kept\nB=2\n");
}

// Runs a part of a test as a process of its own, and gives its status; its failures are printed.
int inProcess(const std::function<void()>& part) {
  return statusOfChild([&] {
    part();
    std::cout << std::flush;
    return testing::Test::HasFailure() ? 1 : 0;
  });
}

// A file system of 64 KiB in a folder, which only this process sees.
bool mountSmall(const fs::path& path) {
  if (geteuid() != 0) {
    const std::string ids = "0 " + std::to_string(geteuid()) + " 1";
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    makeFile("/proc/self/uid_map", ids);
  } else if (unshare(CLONE_NEWNS) != 0) {
    return false;
  }
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("tmpfs", path.c_str(), "tmpfs", 0, "size=64k,mode=0700") == 0;
}

constexpr int kNotPermitted = 77;

// The part with a small file system for its files; skips the test where that may not be mounted.
void onASmallDisk(const std::function<void(const fs::path& disk)>& part) {
  const TemporaryFolder outside;
  const fs::path disk = outside / "disk";
  fs::create_directory(disk);
  const int status = inProcess([&] {
    if (!mountSmall(disk)) _exit(kNotPermitted);
    setenv("TMPDIR", disk.c_str(), 1);
    part(disk);
    umount(disk.c_str());
  });
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNotPermitted)
    GTEST_SKIP() << "no file system may be mounted here";
  EXPECT_EQ(status, 0);
}

// What comes over the disk or the folder before a call, for which a save may be refused, and what ends it.
struct Trouble {
  const char* name;
  const char* reason;
  std::function<void(const TemporaryFolder&)> begin;
  std::function<void(const TemporaryFolder&)> end;
};

void saveInTrouble(const Save& save, const std::vector<Trouble>& troubles) {
  std::size_t refusals = 0;
  for (const Trouble& trouble : troubles) {
    const auto meet = [&](const TemporaryFolder& folder, const Outcome& outcome, const Planner& plan) {
      int result = 0;
      {
        const KFLSystemFaults faults(plan([&] { trouble.begin(folder); }));
        result = save.run(folder, quickly());
      }
      EXPECT_TRUE(result == 0 || has(KFL::getErrorMessage(), trouble.reason)) << KFL::getErrorMessage();
      refusals += result == 0 ? 0 : 1;
      trouble.end(folder);
      expectWhole(statesOf(folder), outcome.before, outcome.after);
    };
    atEachCall(trouble.name, save, meet);
  }
  EXPECT_GT(refusals, 0U);
}

// As many pages as fit are taken, but for some.
TEST_P(SaveFaults, TheDiskIsFullAtEachCall) {
  onASmallDisk([&](const fs::path& disk) {
    const fs::path filler = disk / "filler";
    std::vector<Trouble> troubles;
    for (const std::size_t spared : {0U, 1U, 2U}) {
      const auto fill = [=](const TemporaryFolder&) {
        makeFile(filler, std::string(1 << 17, 'x'));
        fs::resize_file(filler, fs::file_size(filler) - spared * 4096);
      };
      troubles.push_back({" full disks", "No space left on device", fill,
                          [=](const TemporaryFolder&) { fs::remove(filler); }});
    }
    saveInTrouble(GetParam(), troubles);
  });
}

TEST_P(SaveFaults, TheDiskIsMadeReadOnlyAtEachCall) {
  onASmallDisk([&](const fs::path& disk) {
    bool isDone = false;
    const auto remount = [&](unsigned long flags) {
      return mount("none", disk.c_str(), nullptr, MS_REMOUNT | flags, "size=64k") == 0;
    };
    saveInTrouble(GetParam(), {{" read-only disks", "Read-only file system",
                                [&](const TemporaryFolder&) { isDone = remount(MS_RDONLY) || isDone; },
                                [&](const TemporaryFolder&) { EXPECT_TRUE(remount(0)); }}});
    EXPECT_TRUE(isDone);
  });
}

// As a user to whom permissions matter.
TEST_P(SaveFaults, TheFolderLosesItsPermissionsAtEachCall) {
  if (std::string(GetParam().name) == "attributes") GTEST_SKIP() << "another's file";
  const auto setMode = [](mode_t mode) {
    return [mode](const TemporaryFolder& folder) { chmod(folder.path().c_str(), mode); };
  };
  const auto part = [&] {
    ASSERT_TRUE(geteuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0));
    std::vector<Trouble> troubles;
    for (const mode_t mode : {0000, 0500, 0600, 0100})
      troubles.push_back({" closed folders", "Permission denied", setMode(mode), setMode(0700)});
    saveInTrouble(GetParam(), troubles);
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
        const KFLSystemFaults faults(
            {[&](const Point& point) { return point.number == number ? error : 0; }, {}, error == 0});
        const int result = reader.list(veids);
        if (result != 0) {
          EXPECT_TRUE(refused(result, folder.path().string() + ": cannot be "));
          EXPECT_TRUE(refused(result, std::strerror(error)));
          EXPECT_TRUE(veids.empty());
          EXPECT_EQ(reader.list(veids), 0);
        }
        EXPECT_EQ(veids, (std::vector<int>{9, 10}));
        const int read = reader.read(9, record);
        if (read != 0) {
          EXPECT_TRUE(refused(read, (folder / "9.conf: cannot be ").string()));
          EXPECT_EQ(reader.read(9, record), 0);
        }
        // Those who select environments have the same law.
        KFA::KFANodeSelection selection(folder.path(), [] { return envParser(); });
        const int selected = selection.add("9-10");
        if (selected != 0) {
          EXPECT_TRUE(refused(selected, std::strerror(error)));
          EXPECT_TRUE(selection.getFiles().empty());
          EXPECT_EQ(selection.add("9-10"), 0);
        }
        EXPECT_EQ(selection.getFiles().size(), 2U);
        calls = std::max(calls, faults.count());
        const bool isOfAPath = !has(std::string(faults.failed()), "dir");
        const bool isHarmless = error == 0 || (error == EINTR && isOfAPath);
        EXPECT_TRUE(!isHarmless || (result == 0 && read == 0));
      }
      EXPECT_EQ(KFLSystemFaults::countDescriptors(), descriptors);
    }
  }
  std::cout << points << " failed calls of a folder\n";
}

// 64 writers of one file, each with a key of its own, of which one after the other is killed at any instruction.
class KilledWriters {
 public:
  static constexpr std::size_t kWriters = 64;

  explicit KilledWriters(const TemporaryFolder& folder) : path_(folder / "a"), board_(newBoard()) {
    makeFile(path_, "# kept\n");
    for (std::size_t i = 0; i < kWriters; ++i)
      start(i);
  }
  KilledWriters(const KilledWriters&) = delete;
  KilledWriters& operator=(const KilledWriters&) = delete;
  ~KilledWriters() {
    for (const Writer& writer : board_->writers)
      end(writer.process);
    munmap(board_, sizeof(*board_));
  }

  void kill(std::size_t i) {
    Writer& writer = board_->writers[i];
    noteWait(writer);
    end(writer.process);
    check();
    start(i);
  }

  // Whether each writer's last save that was told to be done is there, and nothing that none of them wrote.
  void check() {
    std::array<int, kWriters> done{};
    for (std::size_t i = 0; i < kWriters; ++i)
      done[i] = board_->writers[i].done;
    const std::string content = contentOf(path_);
    EXPECT_TRUE(content.starts_with("# kept\n")) << content;
    std::map<std::string, std::string> values = valuesOf(content);
    for (std::size_t i = 0; i < kWriters; ++i) {
      const int value = std::atoi(values[keyOf(i)].c_str());
      const bool isKept = value >= done[i] && value <= board_->writers[i].begun;
      lost_ += isKept ? 0 : 1;
      EXPECT_TRUE(isKept) << keyOf(i) << ": " << done[i] << " " << value << " " << board_->writers[i].begun;
    }
    EXPECT_LE(values.size(), kWriters) << content;
  }

  void report(int kills) const {
    std::int64_t tries = 0;
    for (const Writer& writer : board_->writers)
      tries += writer.begun;
    std::cout << kWriters << " writers: " << tries << " tries, " << kills << " kills, " << lost_
              << " lost, longest wait " << board_->longest << " ms\n";
    EXPECT_EQ(board_->refused, 0);
    EXPECT_EQ(lost_, 0);
    EXPECT_LT(board_->longest, 10000);
  }

 private:
  using Clock = std::chrono::steady_clock;
  struct Writer {
    pid_t process;
    std::atomic<int> begun;
    std::atomic<int> done;
    std::atomic<Clock::time_point> since;
  };
  struct Board {
    std::array<Writer, kWriters> writers;
    std::atomic<std::int64_t> longest;
    std::atomic<int> refused;
  };

  static Board* newBoard() {
    void* const memory =
        mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return new (memory) Board{};
  }

  static std::string keyOf(std::size_t i) { return "w" + std::to_string(i); }

  // Whether it has come to its end, or the writer to its.
  void noteWait(const Writer& writer) {
    const auto wait =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - writer.since.load());
    std::int64_t longest = board_->longest;
    while (wait.count() > longest && !board_->longest.compare_exchange_weak(longest, wait.count())) {
    }
  }

  void start(std::size_t i) {
    Writer& writer = board_->writers[i];
    writer.since = Clock::now();
    const pid_t child = fork();
    if (child == 0) write(i, writer);
    writer.process = child;
  }

  [[noreturn]] void write(std::size_t i, Writer& writer) {
    KFAReplaceOptions how;
    if (i % 8 == 0) how.backupSuffix = "~";
    for (;;) {
      const int number = ++writer.begun;
      writer.since = Clock::now();
      const KFA::KFAConfigChanges change = {{keyOf(i), std::to_string(number)}};
      if (KFAConfigFile(path_).set(kRules, change, {}, how) == 0) {
        writer.done = number;
      } else {
        ++board_->refused;
        std::cerr << KFL::getErrorMessage() << "\n";
      }
      noteWait(writer);
    }
  }

  const fs::path path_;
  Board* const board_;
  int lost_ = 0;
};

TEST(SaveKills, NoneOf64WritersLosesASave) {
  const char* const wanted = std::getenv("KFA_FAULTS_COUNT");
  const int count = wanted != nullptr ? std::atoi(wanted) : 300;
  const TemporaryFolder folder;
  {
    KilledWriters writers(folder);
    std::mt19937 random(12345);
    for (int kills = 0; kills < count && !HasFailure(); ++kills) {
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
      writers.kill(random() % KilledWriters::kWriters);
    }
    writers.report(count);
  }
  EXPECT_EQ(set(folder / "a", quickly(0)), 0) << KFL::getErrorMessage();
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"a", "a~"}));
}

}  // namespace
