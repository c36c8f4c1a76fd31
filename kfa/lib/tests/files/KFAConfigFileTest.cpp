// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAConfigFile.h>

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <chrono>
#include <thread>
#include <tuple>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFAConfigFolder.h>
#include <KFLCommon/KFLThreads.h>

#include "FilesTest.h"

namespace {

using KFA::KFAConfigFile;
using KFA::KFAReplaceOptions;

const KFA::KFARawConfigRules kRules;
using Names = std::vector<std::string>;

// A folder with one file, a.
class ConfigFile : public testing::Test {
 protected:
  ConfigFile() { makeFile(path, "A=1\n"); }

  const TemporaryFolder folder;
  const std::filesystem::path path = folder / "a";
};

int setIn(const std::filesystem::path& path, const std::string& key, const std::string& value,
          const KFAReplaceOptions& how = {}) {
  return KFAConfigFile(path).set(kRules, {{key, value}}, {}, how);
}

void sleepFor(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

struct stat statusOf(const std::filesystem::path& path) {
  struct stat status {};
  lstat(path.c_str(), &status);
  return status;
}

TEST_F(ConfigFile, NamesWhatCannotBeRead) {
  const std::map<std::string, std::string> rows = {
      {folder / "none", "cannot be opened: No such file or directory"},
      {folder.path(), "a folder; a file is wanted"},
      {folder / "loop", "cannot be opened: Too many levels of symbolic links"},
      {"/proc/self/mem", "cannot be read: Input/output error"},
      {folder / "long", "longer than 1 GiB, so it cannot be read: File too large"},
  };
  makeFile(folder / "long", "A=1\n");
  std::filesystem::resize_file(folder / "long", std::uintmax_t{1} << 40);
  std::filesystem::create_symlink("loop", folder / "loop");
  for (const auto& [name, text] : rows) {
    std::string content = "untouched";
    EXPECT_TRUE(refused(KFAConfigFile(name).read(content), name + ": " + text));
    EXPECT_EQ(content, "untouched");
    if (name.rfind("/proc", 0) != 0) {
      EXPECT_TRUE(refused(setIn(name, "A", "1"), name + ": " + text));
    }
  }
  EXPECT_EQ(folder.names(), (Names{"a", "long", "loop"}));
}

TEST_F(ConfigFile, ReadsAPipe) {
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  std::string text = "x";
  EXPECT_EQ(KFAConfigFile(folder / "pipe").read(text), 0);  // nobody writes
  EXPECT_EQ(text, "");
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::thread writer([&] {
    sleepFor(20);
    ASSERT_EQ(::write(ends[1], "A=1\n", 4), 4);
    close(ends[1]);
  });
  EXPECT_EQ(KFAConfigFile("/dev/fd/" + std::to_string(ends[0])).read(text), 0);
  writer.join();
  close(ends[0]);
  EXPECT_EQ(text, "A=1\n");
  EXPECT_EQ(setIn(folder / "pipe", "A", "1"), -1);
}

TEST_F(ConfigFile, DoesNotTouchAFileThatStaysTheSame) {
  makeFile(path, "A=\"1\"\n");
  const struct stat before = statusOf(path);
  EXPECT_EQ(setIn(path, "A", "1"), 0);
  EXPECT_EQ(statusOf(path).st_ino, before.st_ino);
  EXPECT_EQ(setIn(path, "2", "1"), -1);
  EXPECT_EQ(contentOf(path), "A=\"1\"\n");
}

TEST_F(ConfigFile, FollowsSymbolicLinks) {
  std::filesystem::create_directory(folder / "real");
  makeFile(folder / "real/b", "A=1\n");
  std::filesystem::create_symlink("real/b", folder / "one");
  std::filesystem::create_symlink(folder / "one", folder / "two");
  std::filesystem::create_symlink("real/new", folder / "dangling");
  EXPECT_EQ(setIn(folder / "two", "A", "2"), 0);
  EXPECT_TRUE(S_ISLNK(statusOf(folder / "two").st_mode) && S_ISLNK(statusOf(folder / "one").st_mode));
  EXPECT_EQ(contentOf(folder / "real/b"), "A=\"2\"\n");
  EXPECT_EQ(setIn(folder / "dangling", "A", "2"), -1);
  EXPECT_EQ(KFAConfigFile(folder / "dangling").replace("B=1\n", {}), 0);
  EXPECT_EQ(contentOf(folder / "real/new"), "B=1\n");
}

TEST_F(ConfigFile, WritesToAnotherFile) {
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  EXPECT_EQ(KFAConfigFile(path).copyTo(folder / "b", addB, {}), 0);
  EXPECT_EQ(contentOf(path), "A=1\n");
  EXPECT_EQ(contentOf(folder / "b"), "A=1\nB=2\n");
  EXPECT_EQ(statusOf(folder / "b").st_mode & 0777, 0600U);
  EXPECT_EQ(KFAConfigFile(path).copyTo(folder.path(), addB, {}), -1);
  EXPECT_EQ(KFAConfigFile(path).copyTo(folder / "none/b", addB, {}), -1);
}

// A copy to the file itself, whatever its name, loses no other writer's change.
TEST_F(ConfigFile, WritesToItselfUnderTheLock) {
  std::filesystem::create_symlink("a", folder / "link");
  for (const std::string output : {"a", "./a", "link"}) {
    makeFile(path, "");
    std::thread other;
    const auto edit = [&](const std::string& before, std::string& after) {
      if (!other.joinable()) other = std::thread([&] { EXPECT_EQ(setIn(path, "OTHER", "1"), 0); });
      sleepFor(30);
      return addB(before, after);
    };
    EXPECT_EQ(KFAConfigFile(path).copyTo(folder / output, edit, {}), 0);
    other.join();
    EXPECT_EQ(contentOf(path), "B=2\nOTHER=\"1\"\n") << output;
  }
}

// The file behind an open descriptor has a name of its own.
TEST_F(ConfigFile, RefusesWhatStandsForAnOpenFile) {
  const int open = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  const std::string number = std::to_string(open);
  std::filesystem::create_symlink("/dev/fd/" + number, folder / "link");
  for (const std::string& name : {"/dev/fd/" + number, "/proc/self/fd/" + number,
                                  "/dev/../proc/self/./fd/" + number, (folder / "link").string()})
    EXPECT_TRUE(refused(KFAConfigFile(name).replace("B=1\n", {}), "- for standard output")) << name;
  close(open);
  EXPECT_EQ(contentOf(path), "A=1\n");
}

// What an earlier run left is taken out of the way; what no run leaves is not, and named.
TEST_F(ConfigFile, ClearsAStaleTemporaryFile) {
  const auto stale = folder / ".a.kfa-new";
  makeFile(folder / "victim", "precious");
  makeFile(stale, std::string(10000, 'x'));
  EXPECT_EQ(setIn(path, "A", "2"), 0) << KFL::getErrorMessage();
  EXPECT_EQ(folder.names(), (Names{"a", "victim"}));
  for (const int kind : {0, 1, 2}) {
    if (kind == 0) std::filesystem::create_symlink("victim", stale);
    if (kind == 1) std::filesystem::create_hard_link(folder / "victim", stale);
    if (kind == 2) std::filesystem::create_directory(stale);
    EXPECT_TRUE(refused(setIn(path, "A", "3"), stale.string() + " is in the way and was not left"));
    EXPECT_EQ(contentOf(path), "A=\"2\"\n");
    EXPECT_EQ(contentOf(folder / "victim"), "precious");
    EXPECT_EQ(folder.names(), (Names{stale.filename(), "a", "victim"}));
    std::filesystem::remove(stale);
  }
}

// Also by a run that does not come to write; one that is refused changes nothing.
TEST_F(ConfigFile, ClearsStaleTemporaryFilesUnlessItIsRefused) {
  const std::tuple<std::string, const char*, KFAReplaceOptions, int> rows[] = {
      {"a", "1", {}, 0},             // nothing to change
      {"a", "$(id)", {}, -1},        // refused
      {"linked", "2", {}, -1},       // hard links
      {"none", "2", {}, -1},         // no such file
      {"a", "2", {}, 0},             // without a backup
      {"a", "3", {false, "~"}, 0},   // with one
      {"a", "4", {false, "~~"}, 0},  // with another one
  };
  makeFile(path, "A=\"1\"\n");
  makeFile(folder / "linked", "A=1\n");
  std::filesystem::create_hard_link(folder / "linked", folder / "other");
  for (const auto& [name, value, how, result] : rows) {
    for (const char* suffix : {"new", "backup"})
      makeFile(folder / ("." + name + ".kfa-" + suffix), "left");
    EXPECT_EQ(setIn(folder / name, "A", value, how), result) << KFL::getErrorMessage();
    for (const char* suffix : {"new", "backup"})
      EXPECT_EQ(std::filesystem::remove(folder / ("." + name + ".kfa-" + suffix)), result != 0)
          << name << value;
  }
  // One that is being written is let alone.
  makeFile(folder / ".a.kfa-backup", "half");
  const int held = open((folder / ".a.kfa-backup").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  EXPECT_EQ(setIn(path, "A", "5"), 0);
  EXPECT_EQ(contentOf(folder / ".a.kfa-backup"), "half");
  close(held);
}

TEST_F(ConfigFile, RefusesABackupThatLeadsElsewhere) {
  makeFile(folder / "b", "precious");
  std::filesystem::create_symlink("b", folder / "a.old");
  std::filesystem::create_hard_link(path, folder / "a.same");
  const std::pair<std::string, const char*> rows[] = {{".old", "is a symbolic link"},
                                                      {".same", "is the file itself"},
                                                      {"/../x", "has a slash"},
                                                      {std::string(".\0x", 3), "has a NUL"}};
  for (const auto& [suffix, text] : rows)
    EXPECT_TRUE(refused(setIn(path, "A", "2", {true, suffix}), text));
  EXPECT_EQ(contentOf(path), "A=1\n");
  EXPECT_EQ(contentOf(folder / "b"), "precious");
}

// The time to wait is for one turn of another writer, and not for all of them; whoever comes first makes the file.
TEST_F(ConfigFile, WaitsAsLongAsOthersGetOn) {
  constexpr int kWriters = 25;
  const auto slowly = [](const std::string& before, std::string& after) {
    sleepFor(60);
    after = before + "x";
    return 0;
  };
  makeFile(path, "");
  KFL::runInThreads(kWriters, kWriters, [&](std::size_t) {
    EXPECT_EQ(KFAConfigFile(path).update(slowly, {false, "", 1000}), 0) << KFL::getErrorMessage();
    EXPECT_EQ(KFAConfigFile(folder / "new").replace("N=1\n", {}), 0) << KFL::getErrorMessage();
  });
  EXPECT_EQ(contentOf(path), std::string(kWriters, 'x'));
  EXPECT_EQ(contentOf(folder / "new"), "N=1\n");
  EXPECT_EQ(folder.names(), (Names{"a", "new"}));
}

// Who has a lease on a file, as file servers do, is asked for it, and then the file is read and replaced.
TEST_F(ConfigFile, WaitsForALease) {
  const auto holdALease = [&] {
    const int leased = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    sigset_t asked;
    sigemptyset(&asked);
    sigaddset(&asked, SIGIO);
    sigprocmask(SIG_BLOCK, &asked, nullptr);
    const bool isLeased = fcntl(leased, F_SETLEASE, F_WRLCK) == 0;
    makeFile(folder / (isLeased ? "leased" : "refused"), "");
    if (isLeased) sigwaitinfo(&asked, nullptr);
    sleepFor(20);
    _exit(0);
  };
  for (const bool writes : {false, true}) {
    const pid_t child = fork();
    if (child == 0) holdALease();
    while (folder.names().size() < 2)
      sleepFor(1);
    std::string text;
    EXPECT_EQ(writes ? setIn(path, "A", "2") : KFAConfigFile(path).read(text), 0) << KFL::getErrorMessage();
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    if (std::filesystem::remove(folder / "refused")) GTEST_SKIP() << "this file system has no leases";
    EXPECT_TRUE(std::filesystem::remove(folder / "leased"));
  }
  EXPECT_EQ(contentOf(path), "A=\"2\"\n");
}

constexpr uid_t kWriter = 65534;

// Of entries such as u6g4m6o0; U and G are another user and group, W is the writer.
std::string aclOf(const std::string& entries) {
  std::string acl("\2\0\0\0", 4);
  for (std::size_t i = 0; i < entries.size(); i += 2) {
    const std::map<char, char> tags = {{'u', 1}, {'U', 2},  {'W', 2}, {'g', 4},
                                       {'G', 8}, {'m', 16}, {'o', 32}};
    const std::uint32_t id = entries[i] == 'W' ? kWriter : std::isupper(entries[i]) != 0 ? 5555 : ~0U;
    acl += {tags.at(entries[i]), 0, static_cast<char>(entries[i + 1] - '0'), 0};
    acl.append(reinterpret_cast<const char*>(&id), sizeof(id));
  }
  return acl;
}

using ROOT_ConfigFile = ConfigFile;
// What somebody may write to who does not own it is changed, with as much of its owner, group and mode as he may keep;
// nobody gets a right that he did not have.
TEST_F(ROOT_ConfigFile, ChangesTheFilesOfOthersInASharedFolder) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to become somebody else";
  constexpr uid_t kOwner = 12345;
  constexpr gid_t kShared = 23456;
  struct Case {
    gid_t group;
    mode_t before;
    mode_t after;
    std::string acl = {};
    std::string aclAfter = {};
  };
  const Case cases[] = {
      {kShared, 0664, 0664},
      {kShared, 0660, 0660},
      {kShared, 06770, 02770},
      {kOwner, 0666, 0666},
      {kOwner, 0646, 0644},
      {kOwner, 02676, 0666},
      {kOwner, 0606, 0600},
      {kShared, 0, 0660, "u6U6W6g4m6o0", "u6U6W6g4m6o0"},
      {kOwner, 0, 0660, "u6U6W6g4m6o0", "u6U6W6g0m6o0"},
      {kOwner, 0, 0664, "u6W6g6G6m6o4", "u6W6g4G6m6o4"},
      {kOwner, 0, 0664, "u6W6g6G2m6o4", "u6W6g0G2m6o4"},
      {kOwner, 0, 0660, "u6W6g2m6o4", "u6W6g0m6o0"},
  };
  chmod(folder.path().c_str(), 0777);
  for (const Case& row : cases) {
    makeFile(path, "A=1\n");
    ASSERT_EQ(chown(path.c_str(), kOwner, row.group), 0);
    ASSERT_EQ(chmod(path.c_str(), row.before), 0);
    const std::string acl = aclOf(row.acl);
    if (!row.acl.empty()) {
      ASSERT_EQ(setxattr(path.c_str(), "system.posix_acl_access", acl.data(), acl.size(), 0), 0);
    }
    const auto work = [&] {
      std::string note;
      KFAReplaceOptions how;
      how.note = [&](const std::string& text) { note = text; };
      const gid_t groups[] = {kShared};
      if (setgroups(1, groups) != 0 || setgid(kWriter) != 0 || setuid(kWriter) != 0) return 1;
      if (setIn(path, "A", "2", how) != 0) return 2;
      const char* const lost = row.group == kShared ? ": its owner" : ": its owner, group";
      return note == path.string() + lost + " cannot be kept" ? 0 : 3;
    };
    EXPECT_EQ(statusOfChild(work), 0) << std::oct << row.before;
    const struct stat after = statusOf(path);
    EXPECT_EQ(std::pair(after.st_uid, after.st_gid),
              std::pair(kWriter, row.group == kShared ? kShared : kWriter));
    EXPECT_EQ(after.st_mode & 07777, row.after) << std::oct << row.before;
    std::string aclAfter(100, '\0');
    const ssize_t size = getxattr(path.c_str(), "system.posix_acl_access", aclAfter.data(), aclAfter.size());
    EXPECT_EQ(aclAfter.substr(0, size < 0 ? 0 : static_cast<std::size_t>(size)),
              row.acl.empty() ? "" : aclOf(row.aclAfter))
        << row.acl;
    EXPECT_EQ(contentOf(path), "A=\"2\"\n");
    std::filesystem::remove(path);
  }
}

TEST(ConfigFolder, ListsFilesNamedAfterANumber) {
  const TemporaryFolder folder;
  for (const char* name : {"10.conf", "9.conf", "0.conf", "007.conf", "x.conf", "5.conf.bak", ".conf",
                           "-1.conf", "2147483647.conf", "2147483648.conf", "9.CONF"})
    makeFile(folder / name, "HOSTNAME=h\n");
  KFA::KFAConfigFolder reader(folder.path(), envParser());
  std::vector<int> veids{77};
  ASSERT_EQ(reader.list(veids), 0);
  EXPECT_EQ(veids, (std::vector<int>{0, 9, 10, 2147483647}));
  EXPECT_EQ(KFA::KFAConfigFolder(folder / "9.conf", envParser()).list(veids), -1);
  EXPECT_EQ(KFA::KFAConfigFolder(folder / "none", envParser()).list(veids), -1);
}

TEST(ConfigFolder, ReadsTheFileOfANumberOrNamesWhatIsWrong) {
  const TemporaryFolder folder;
  makeFile(folder / "9.conf", "HOSTNAME=h\n");
  makeFile(folder / "7.conf", "A=1\n# c\n  NAME='open\n");
  std::filesystem::create_directory(folder / "12.conf");
  KFA::KFAConfigFolder reader(folder.path(), envParser());
  KFA::KFAEnvConfig record;
  int veid = 0;
  EXPECT_EQ(reader.read(9, record), 0);
  EXPECT_EQ(record.getVeid(veid), 0);
  EXPECT_EQ(veid, 9);
  EXPECT_TRUE(refused(reader.read(7, record), folder / "7.conf:3:8: the single quote is not closed"));
  EXPECT_TRUE(refused(reader.read(11, record), folder / "11.conf: cannot be opened: No such file"));
  EXPECT_TRUE(refused(reader.read(12, record), "a file is wanted"));
  EXPECT_EQ(KFA::getVeidOfPath("/etc/kfa/101.conf", veid), 0);
  EXPECT_EQ(veid, 101);
  EXPECT_EQ(KFA::getVeidOfPath("/etc/kfa/web.conf", veid), -1);
}

}  // namespace
