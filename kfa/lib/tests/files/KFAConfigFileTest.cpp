#include <KFAFunctionality/files/KFAConfigFile.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <map>
#include <thread>

#include <KFLCommon/KFLError.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFAConfigFolder.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

#include "FilesTest.h"

namespace {

using KFA::KFAConfigFile;
using KFA::KFAReplaceOptions;

const KFA::KFARawConfigRules kRules;

int setIn(const std::filesystem::path& path, const std::string& key, const std::string& value,
          const KFAReplaceOptions& how = {}) {
  return KFAConfigFile(path).set(kRules, {{key, value}}, {}, how);
}

// Runs a piece of work in a process of its own: its exit status, or 1000 and the signal that ended it.
int inChild(const std::function<int()>& work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

struct stat statusOf(const std::filesystem::path& path) {
  struct stat status {};
  lstat(path.c_str(), &status);
  return status;
}

TEST(ConfigFile, NamesWhatCannotBeRead) {
  const TemporaryFolder folder;
  const std::map<std::string, std::string> rows = {
      {folder / "none", "cannot be opened: No such file or directory"},
      {folder.path(), "a folder; a file is wanted"},
      {folder / "loop", "cannot be opened: Too many levels of symbolic links"},
      {"/proc/self/mem", "cannot be read: Input/output error"},
  };
  std::filesystem::create_symlink("loop", folder / "loop");
  for (const auto& [path, text] : rows) {
    std::string content = "untouched";
    EXPECT_EQ(KFAConfigFile(path).read(content), -1);
    EXPECT_EQ(KFL::getErrorMessage(), path + ": " + text);
    EXPECT_EQ(content, "untouched");
    if (path.rfind("/proc", 0) == 0) continue;
    EXPECT_EQ(setIn(path, "A", "1"), -1);
    EXPECT_EQ(KFL::getErrorMessage(), path + ": " + text);
  }
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"loop"}));
}

TEST(ConfigFile, NamesTheLineThatCannotBeRead) {
  const TemporaryFolder folder;
  makeFile(folder / "7.conf", "A=1\n# c\n  NAME='open\n");
  KFA::KFAEnvConfig record;
  const std::string expected = (folder / "7.conf").string() + ":3:8: the single quote is not closed";
  EXPECT_EQ(KFAConfigFile(folder / "7.conf").read([&](std::istream& in) {
    return envParser()->getConfig(in, record);
  }),
            -1);
  EXPECT_EQ(KFL::getErrorMessage().substr(0, expected.size()), expected);
  KFA::KFAConfigFolder reader(folder.path(), envParser());
  EXPECT_EQ(reader.read(7, record), -1);
  EXPECT_EQ(KFL::getErrorMessage().substr(0, expected.size()), expected);
}

TEST(ConfigFile, ReadsAPipe) {
  const TemporaryFolder folder;
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  std::string text = "x";
  EXPECT_EQ(KFAConfigFile(folder / "pipe").read(text), 0);  // nobody writes
  EXPECT_EQ(text, "");
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(::write(ends[1], "A=1\n", 4), 4);
    close(ends[1]);
  });
  EXPECT_EQ(KFAConfigFile("/dev/fd/" + std::to_string(ends[0])).read(text), 0);
  writer.join();
  close(ends[0]);
  EXPECT_EQ(text, "A=1\n");
  EXPECT_EQ(setIn(folder / "pipe", "A", "1"), -1);
}

TEST(ConfigFile, KeepsModeOwnerAndAttributes) {
  const TemporaryFolder folder;
  const auto path = folder / "a.conf";
  makeFile(path, "A=1\n");
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  const bool isRoot = geteuid() == 0;
  if (isRoot) {
    ASSERT_EQ(chown(path.c_str(), 12345, 23456), 0);
  }
  const bool attributes = setxattr(path.c_str(), "user.origin", "sample", 6, 0) == 0;
  // An ACL in the form in which the kernel keeps it: version 2; user rw-, uid 65534 r--, group r--, mask r--, other ---.
  const unsigned char acl[] = {2, 0,   0,   0,   1,   0,   6,  0, 255, 255, 255, 255, 2,   0,  4,
                               0, 254, 255, 0,   0,   4,   0,  4, 0,   255, 255, 255, 255, 16, 0,
                               4, 0,   255, 255, 255, 255, 32, 0, 0,   0,   255, 255, 255, 255};
  const bool acls = setxattr(path.c_str(), "system.posix_acl_access", acl, sizeof(acl), 0) == 0;
  const struct stat before = statusOf(path);

  ASSERT_EQ(setIn(path, "A", "2", {false, "~", 1000}), 0) << KFL::getErrorMessage();
  EXPECT_EQ(contentOf(path), "A=\"2\"\n");
  EXPECT_EQ(contentOf(folder / "a.conf~"), "A=1\n");
  for (const char* name : {"a.conf", "a.conf~"}) {
    const struct stat after = statusOf(folder / name);
    EXPECT_EQ(after.st_mode, before.st_mode) << name;
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    char value[64];
    if (attributes) {
      EXPECT_EQ(getxattr((folder / name).c_str(), "user.origin", value, sizeof(value)), 6);
    }
    if (acls) {
      EXPECT_EQ(getxattr((folder / name).c_str(), "system.posix_acl_access", value, sizeof(value)),
                static_cast<ssize_t>(sizeof(acl)));
    }
  }
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"a.conf", "a.conf~"}));
  if (!attributes || !acls || !isRoot) {
    GTEST_SKIP() << "not all of owner, attributes and ACLs could be set here";
  }
}

TEST(ConfigFile, DoesNotTouchAFileThatStaysTheSame) {
  const TemporaryFolder folder;
  const auto path = folder / "a.conf";
  makeFile(path, "A=\"1\"\n");
  const struct stat before = statusOf(path);
  EXPECT_EQ(setIn(path, "A", "1"), 0);
  EXPECT_EQ(statusOf(path).st_ino, before.st_ino);
  EXPECT_EQ(setIn(path, "2", "1"), -1);
  EXPECT_EQ(contentOf(path), "A=\"1\"\n");
}

TEST(ConfigFile, FollowsSymbolicLinks) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder / "real");
  makeFile(folder / "real/a.conf", "A=1\n");
  std::filesystem::create_symlink("real/a.conf", folder / "one");
  std::filesystem::create_symlink(folder / "one", folder / "two");
  std::filesystem::create_symlink("real/new.conf", folder / "dangling");
  EXPECT_EQ(setIn(folder / "two", "A", "2"), 0);
  EXPECT_TRUE(S_ISLNK(statusOf(folder / "two").st_mode));
  EXPECT_TRUE(S_ISLNK(statusOf(folder / "one").st_mode));
  EXPECT_EQ(contentOf(folder / "real/a.conf"), "A=\"2\"\n");
  EXPECT_EQ(setIn(folder / "dangling", "A", "2"), -1);
  EXPECT_EQ(KFAConfigFile(folder / "dangling").replace("B=1\n", {}), 0);
  EXPECT_EQ(contentOf(folder / "real/new.conf"), "B=1\n");
}

TEST(ConfigFile, RefusesHardLinksUnlessAskedTo) {
  const TemporaryFolder folder;
  makeFile(folder / "a", "A=1\n");
  std::filesystem::create_hard_link(folder / "a", folder / "b");
  EXPECT_EQ(setIn(folder / "a", "A", "2"), -1);
  for (const char* part : {"2 hard links", "--hard-links"})
    EXPECT_NE(KFL::getErrorMessage().find(part), std::string::npos) << KFL::getErrorMessage();
  EXPECT_EQ(setIn(folder / "a", "A", "2", {true, "", 1000}), 0);
  EXPECT_EQ(contentOf(folder / "a"), "A=\"2\"\n");
  EXPECT_EQ(contentOf(folder / "b"), "A=1\n");
}

TEST(ConfigFile, WritesToAnotherFile) {
  const TemporaryFolder folder;
  makeFile(folder / "a", "A=1\n");
  ASSERT_EQ(chmod((folder / "a").c_str(), 0600), 0);
  const auto edit = [](const std::string& before, std::string& after) {
    after = before + "B=2\n";
    return 0;
  };
  EXPECT_EQ(KFAConfigFile(folder / "a").copyTo(folder / "b", edit, {}), 0);
  EXPECT_EQ(contentOf(folder / "a"), "A=1\n");
  EXPECT_EQ(contentOf(folder / "b"), "A=1\nB=2\n");
  EXPECT_EQ(statusOf(folder / "b").st_mode & 0777, 0600U);
  EXPECT_EQ(KFAConfigFile(folder / "a").copyTo(folder.path(), edit, {}), -1);
  EXPECT_EQ(KFAConfigFile(folder / "a").copyTo(folder / "none/b", edit, {}), -1);
}

// A copy to the file itself, whatever its name, loses no other writer's change.
TEST(ConfigFile, WritesToItselfUnderTheLock) {
  const TemporaryFolder folder;
  const auto path = folder / "a";
  std::filesystem::create_symlink("a", folder / "link");
  for (const std::string output : {"a", "./a", "link"}) {
    makeFile(path, "");
    std::thread other;
    const auto edit = [&](const std::string& before, std::string& after) {
      if (!other.joinable()) other = std::thread([&] { EXPECT_EQ(setIn(path, "OTHER", "1"), 0); });
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
      after = before + "B=2\n";
      return 0;
    };
    EXPECT_EQ(KFAConfigFile(path).copyTo(folder / output, edit, {}), 0);
    other.join();
    EXPECT_EQ(contentOf(path), "B=2\nOTHER=\"1\"\n") << output;
  }
}

// The file behind an open descriptor has a name of its own.
TEST(ConfigFile, RefusesWhatStandsForAnOpenFile) {
  const TemporaryFolder folder;
  makeFile(folder / "a", "A=1\n");
  const int open = ::open((folder / "a").c_str(), O_RDWR | O_CLOEXEC);
  const std::string number = std::to_string(open);
  std::filesystem::create_symlink("/dev/fd/" + number, folder / "link");
  for (const std::string& path : {"/dev/fd/" + number, "/proc/self/fd/" + number,
                                  "/dev/../proc/self/./fd/" + number, (folder / "link").string()}) {
    EXPECT_EQ(KFAConfigFile(path).replace("B=1\n", {}), -1) << path;
    EXPECT_NE(KFL::getErrorMessage().find("- for standard output"), std::string::npos);
  }
  close(open);
  EXPECT_EQ(contentOf(folder / "a"), "A=1\n");
}

// What an earlier run left, or somebody else put there, is taken out of the way.
TEST(ConfigFile, ClearsAStaleTemporaryFile) {
  const TemporaryFolder folder;
  makeFile(folder / "victim", "precious");
  for (const int kind : {0, 1, 2}) {
    makeFile(folder / "a.conf", "A=1\n");
    if (kind == 0) makeFile(folder / ".a.conf.new", std::string(10000, 'x'));
    if (kind == 1) std::filesystem::create_symlink(folder / "victim", folder / ".a.conf.new");
    if (kind == 2) std::filesystem::create_hard_link(folder / "victim", folder / ".a.conf.new");
    EXPECT_EQ(setIn(folder / "a.conf", "A", "2"), 0) << KFL::getErrorMessage();
    EXPECT_EQ(contentOf(folder / "a.conf"), "A=\"2\"\n");
    EXPECT_EQ(contentOf(folder / "victim"), "precious");
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"a.conf", "victim"}));
  }
}

// Also by a run that does not come to write.
TEST(ConfigFile, EveryRunClearsStaleTemporaryFiles) {
  struct Run {
    const char* name;
    const char* key;
    const char* value;
    KFAReplaceOptions how;
    int result;
  };
  const Run rows[] = {
      {"a", "A", "1", {}, 0},             // nothing to change
      {"a", "A", "$(id)", {}, -1},        // refused
      {"linked", "A", "2", {}, -1},       // hard links
      {"none", "A", "2", {}, -1},         // no such file
      {"a", "A", "2", {}, 0},             // without a backup
      {"a", "A", "3", {false, "~"}, 0},   // with one
      {"a", "A", "4", {false, "~~"}, 0},  // with another one
  };
  const TemporaryFolder folder;
  makeFile(folder / "a", "A=\"1\"\n");
  makeFile(folder / "linked", "A=1\n");
  std::filesystem::create_hard_link(folder / "linked", folder / "other");
  for (const Run& row : rows) {
    for (const char* suffix : {".new", ".backup.new"})
      makeFile(folder / ("." + std::string(row.name) + suffix), "left");
    EXPECT_EQ(setIn(folder / row.name, row.key, row.value, row.how), row.result) << KFL::getErrorMessage();
    for (const std::string& name : folder.names())
      EXPECT_NE(name.front(), '.') << row.name << " " << row.value << ": " << name;
  }
  // One that is being written is let alone.
  makeFile(folder / ".a.new", "half");
  const int held = open((folder / ".a.new").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  EXPECT_EQ(setIn(folder / "a", "A", "4"), 0);
  EXPECT_EQ(contentOf(folder / ".a.new"), "half");
  close(held);
}

TEST(ConfigFile, RefusesABackupThatLeadsElsewhere) {
  const TemporaryFolder folder;
  makeFile(folder / "a", "A=1\n");
  makeFile(folder / "b", "precious");
  std::filesystem::create_symlink("b", folder / "a.old");
  EXPECT_EQ(setIn(folder / "a", "A", "2", {false, ".old"}), -1);
  EXPECT_NE(KFL::getErrorMessage().find("symbolic link"), std::string::npos);
  EXPECT_EQ(contentOf(folder / "a"), "A=1\n");
  EXPECT_EQ(contentOf(folder / "b"), "precious");
}

// The time to wait is for one turn of another writer, and not for all of them.
TEST(ConfigFile, WaitsAsLongAsOthersGetOn) {
  constexpr int kWriters = 25;
  const TemporaryFolder folder;
  makeFile(folder / "a", "");
  const auto slowly = [](const std::string& before, std::string& after) {
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    after = before + "x";
    return 0;
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < kWriters; ++i) {
    threads.emplace_back([&] {
      EXPECT_EQ(KFAConfigFile(folder / "a").update(slowly, {false, "", 1000}), 0) << KFL::getErrorMessage();
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(contentOf(folder / "a"), std::string(kWriters, 'x'));
}

TEST(ConfigFile, WaitsForALockAndGivesUp) {
  const TemporaryFolder folder;
  const auto path = folder / "a";
  makeFile(path, "A=1\n");
  const int held = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  EXPECT_EQ(setIn(path, "A", "2", {false, "", 30}), -1);
  EXPECT_NE(KFL::getErrorMessage().find("keeps it locked"), std::string::npos);
  std::thread release([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    close(held);
  });
  EXPECT_EQ(setIn(path, "A", "2"), 0);
  release.join();
  EXPECT_EQ(setIn(path, "A", "3", {false, "/../x", 30}), -1);
}

TEST(ConfigFile, LeavesTheOldFileWhenTheNewOneDoesNotFit) {
  const TemporaryFolder folder;
  const auto path = folder / "a";
  const std::string content = "A=1\n#" + std::string(8000, 'x') + "\n";
  makeFile(path, content);
  const int status = inChild([&] {
    const rlimit limit{4096, 4096};
    setrlimit(RLIMIT_FSIZE, &limit);
    if (setIn(path, "A", "2") != -1) return 1;
    return KFL::getErrorMessage().find("File too large") == std::string::npos ? 2 : 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(contentOf(path), content);
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"a"}));
}

TEST(ROOT_ConfigFile, LeavesTheOldFileInAFolderThatCannotBeWritten) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to become somebody else";
  const TemporaryFolder folder;
  const auto path = folder / "a";
  makeFile(path, "A=1\n");
  chmod(folder.path().c_str(), 0755);
  chmod(path.c_str(), 0666);
  const int status = inChild([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 1;
    if (setIn(path, "A", "2") != -1) return 2;
    return KFL::getErrorMessage().find("Permission denied") == std::string::npos ? 3 : 0;
  });
  EXPECT_EQ(status, 0);
  chmod(folder.path().c_str(), 0777);
  // A folder that may be written, but a file whose owner could not be kept.
  EXPECT_EQ(inChild([&] {
              if (setgid(65534) != 0 || setuid(65534) != 0) return 1;
              if (setIn(path, "A", "2") != -1) return 2;
              return KFL::getErrorMessage().find("owner") == std::string::npos ? 3 : 0;
            }),
            0);
  EXPECT_EQ(contentOf(path), "A=1\n");
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"a"}));
}

TEST(ConfigFile, AllWritersTakeEffect) {
  constexpr int kSets = 200;
  const TemporaryFolder folder;
  const auto path = folder / "a.conf";
  makeFile(path, "# kept\nA=none\n");
  std::vector<pid_t> children;
  for (const char* key : {"A", "B", "C"}) {
    children.push_back(fork());
    if (children.back() != 0) continue;
    int failed = 0;
    for (int i = 1; i <= kSets; ++i) {
      const std::string own = key + std::to_string(i % 10);
      failed |= setIn(path, key, std::to_string(i)) | setIn(path, own, std::to_string(i));
    }
    _exit(failed == 0 ? 0 : 1);
  }
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  std::map<std::string, std::string> values;
  ASSERT_EQ(KFAConfigFile(path).read([&](std::istream& in) {
    return KFA::KFARawConfigBashParser::getInstance()->getConfig(in, values);
  }),
            0);
  EXPECT_EQ(values.size(), 33U);
  for (const char* key : {"a", "b", "c"}) {
    EXPECT_EQ(values[key], std::to_string(kSets));
    for (int i = 0; i < 10; ++i)
      EXPECT_EQ(values[key + std::to_string(i)], std::to_string(i == 0 ? kSets : kSets - 10 + i));
  }
  EXPECT_EQ(contentOf(path).substr(0, 7), "# kept\n");
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"a.conf"}));
}

TEST(ConfigFile, ThreadsTakeTurns) {
  const TemporaryFolder folder;
  const auto path = folder / "a.conf";
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 20; ++i) {
        const auto add = [&](const std::string& before, std::string& after) {
          after = before + "T" + std::to_string(t) + "=" + std::to_string(i) + "\n";
          return 0;
        };
        // Whoever comes first makes the file.
        while (KFAConfigFile(path).update(add, {}) != 0)
          EXPECT_EQ(KFAConfigFile(path).replace("", {}), 0);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_FALSE(contentOf(path).empty());
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"a.conf"}));
}

// A writer that is killed leaves the old file or the new one, and nothing behind after the next run.
TEST(ConfigFile, AKilledWriterLeavesAWholeFile) {
  const TemporaryFolder folder;
  const auto path = folder / "a.conf";
  const std::string rest = "#" + std::string(20000, 'r') + "\n";
  makeFile(path, "A=\"0\"\n" + rest);
  int killed = 0;
  for (int round = 0; round < 60; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      for (int i = 0;; ++i)
        setIn(path, "A", std::to_string(i), {false, ".bak", 60000});
    }
    std::this_thread::sleep_for(std::chrono::microseconds(500 + 137 * round));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    killed += WIFSIGNALED(status) ? 1 : 0;
    const std::string content = contentOf(path);
    ASSERT_EQ(content.substr(content.find('\n') + 1), rest);
    ASSERT_EQ(content.substr(0, 3), "A=\"");
  }
  EXPECT_EQ(killed, 60);
  EXPECT_EQ(setIn(path, "A", "last"), 0);
  EXPECT_EQ(contentOf(path), "A=\"last\"\n" + rest);
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"a.conf", "a.conf.bak"}));
}

TEST(ConfigFolder, ListsFilesNamedAfterANumber) {
  const TemporaryFolder folder;
  for (const char* name : {"10.conf", "9.conf", "0.conf", "007.conf", "x.conf", "5.conf.bak", ".conf",
                           "-1.conf", "2147483647.conf", "2147483648.conf", "9.CONF"})
    makeFile(folder / name, "HOSTNAME=h\n");
  KFA::KFAConfigFolder reader(folder.path(), envParser());
  std::vector<int> veids;
  ASSERT_EQ(reader.list(veids), 0);
  EXPECT_EQ(veids, (std::vector<int>{0, 9, 10, 2147483647}));
  KFA::KFAEnvConfig record;
  EXPECT_EQ(reader.read(9, record), 0);
  int veid = 0;
  EXPECT_EQ(record.getVeid(veid), 0);
  EXPECT_EQ(veid, 9);
  EXPECT_EQ(reader.read(11, record), -1);
  EXPECT_EQ(KFL::getErrorMessage(),
            (folder / "11.conf").string() + ": cannot be opened: No such file or directory");
  std::filesystem::create_directory(folder / "12.conf");
  EXPECT_EQ(reader.read(12, record), -1);
  EXPECT_EQ(KFA::KFAConfigFolder(folder / "9.conf", envParser()).list(veids), -1);
  EXPECT_EQ(KFA::KFAConfigFolder(folder / "none", envParser()).list(veids), -1);
  EXPECT_EQ(KFA::getVeidOfPath("/etc/kfa/101.conf", veid), 0);
  EXPECT_EQ(veid, 101);
  EXPECT_EQ(KFA::getVeidOfPath("/etc/kfa/web.conf", veid), -1);
}

}  // namespace
