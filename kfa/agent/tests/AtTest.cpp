// SPDX-License-Identifier: Apache-2.0
// kfactl --at: each command prints, gives and leaves what the same one does on the node itself.
#include "KfadTestBase.h"

namespace {

namespace fs = std::filesystem;

struct Result {
  std::string out, err;
  int status = -1;
  std::map<std::string, std::string> files;  // of the node afterwards

  bool operator==(const Result&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Result& result) {
  return out << result.out << "--- standard error, status " << result.status << "\n" << result.err;
}

std::map<std::string, std::string> filesOf(const fs::path& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_symlink() || entry.is_directory()) continue;
    const std::string mode = std::to_string(static_cast<unsigned>(entry.status().permissions()));
    files[entry.path().string()] = mode + " " + contentOf(entry.path());
  }
  return files;
}

class AtTest : public KfadTestBase {
 protected:
  void SetUp() override {
    const auto write = [this](int veid, const std::string& text) {
      std::ofstream(folder.conf(veid)) << text;
    };
    write(30, std::string("NAME=a\0b\nONBOOT=yes\n", 20));
    write(31, "NAME=\"\xff\xfe\"\r\nONBOOT: yes\nONBOOT = no\n");
    write(32, "");
    write(33, "OSTEMPLATE=\"debian-11\"\nORIGIN_SAMPLE=\"gone\"\nVE_TYPE=\"repair 999\"\nCPUUNITS=x\n");
    fs::create_directory(folder.conf(34));
    fs::create_symlink("nowhere", folder.conf(35));
    fs::create_symlink("7.conf", folder.conf(36));
    fs::create_directory(folder / "conf/samples");
    fs::permissions(folder.conf(7), fs::perms(0640));
    std::ofstream(folder / "conf/samples/small.conf") << "NUMPROC=\"10:20\"\n";
    std::ofstream(folder / "conf/foreign-keys") << "COLOUR\n";
    fs::copy(folder / "conf", folder / "kept", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    setenv("KFA_NODE", (folder / "conf").c_str(), 1);
    setenv("KFA_VOCABULARY", KFA_SOURCE_DIR "/data/vocabulary.xml", 1);
    setenv("KFA_UPLOADS_DIR", (folder / "uploads").c_str(), 1);
    setenv("KFA_CERTIFICATE", (folder / "pki/client.pem").c_str(), 1);
    setenv("KFA_KEY", (folder / "pki/client.key").c_str(), 1);
    setenv("KFA_CA", (folder / "pki/ca.pem").c_str(), 1);
    KfadTestBase::SetUp();
  }

  // The node as it was at first.
  void restore() const {
    fs::remove_all(folder / "conf");
    fs::copy(folder / "kept", folder / "conf", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }

  Result runCommand(const std::string& at, const std::string& command) const {
    restore();
    std::ofstream(folder / "command") << "kfactl() { " KFACTL_PROGRAM " " << at << " \"$@\"; }\n"
                                      << command << "\n";
    const std::string base = folder / "";
    const std::string line =
        "cd " + base + "conf && exec bash " + base + "command >" + base + "out 2>" + base + "err </dev/null";
    Result done;
    const int status = std::system(line.c_str());
    done.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    done.out = contentOf(folder / "out");
    done.err = contentOf(folder / "err");
    done.files = filesOf(folder / "conf");
    return done;
  }
};

TEST_F(AtTest, CommandsDoWhatTheyDoOnTheNodeItself) {
  const char* const commands[] = {
      "kfactl config list",
      "kfactl --json config list 101-104 onboot=yes",
      "kfactl config list .",
      "kfactl --format xml config list 1*",
      "kfactl config get 101 ONBOOT",
      "kfactl config get 101.conf ./102.conf HOSTNAME NUMPROC",
      "kfactl config get '*' ONBOOT NAME --columns",
      "kfactl config get 9 NAME",
      "kfactl config get 999 NAME",
      "kfactl config get 34 35 36 NAME",
      "kfactl config get ostemplate=debian* NAME",
      "kfactl config get 200-300 NAME",
      "kfactl config get 101 NOSUCHKEY",
      "kfactl config show 101",
      "kfactl --json config show",
      "kfactl --format xml config show --veid 5 - <101.conf",
      "kfactl config check",
      "kfactl check --level error 101-110 9 31",
      "kfactl --json config check --memory 1G",
      "kfactl --format sarif config check",
      "kfactl config check --strict 33.conf",
      "kfactl config explain 101 NETIF",
      "kfactl config fix",
      "kfactl config fix 31 --apply",
      "kfactl qos check",
      "kfactl qos check 101",
      "kfactl --json qos check 33",
      "kfactl qos advise 101",
      "kfactl message from-config 101",
      "kfactl message from-config 31.conf",
      "kfactl config set 101 ONBOOT=no",
      "kfactl config set 36 ONBOOT=yes",
      "kfactl config set 101 ONBOOT=maybe",
      "kfactl config set 101 --dry-run ONBOOT=no NAME=x",
      "kfactl config set 101-110 NAMESERVER=192.0.2.1",
      "kfactl config set '*' NAMESERVER=192.0.2.1",
      "kfactl config set '*' --keep-going NAMESERVER=192.0.2.1",
      "kfactl --json config set 7 8 NAME=both",
      "kfactl config set 7 'NAME=$(reboot)'",
      "kfactl config set 7 --allow-unsafe 'NAME=$(reboot)'",
      "kfactl config set 9 --force NAME=closed",
      "kfactl config set 7 --backup .old NAME=x",
      "kfactl config set 7 -o - NAME=x",
      "kfactl config set 300 --create --from small NAME=new",
      "kfactl config set 7 --create NAME=new",
      "kfactl config unset 7 8 NAME",
      "printf 'ONBOOT=\"no\"\\nunset NAME\\n' | kfactl config set 7 -",
      "printf '# FILE 7.conf\\nNAME=\"a\"\\n# FILE 8.conf\\nNAME=\"b\"\\n' | kfactl config set -",
      "kfactl config set 7 8 NAME=x; ln 7.conf 7.link; kfactl config set 7 NAME=y; kfactl config set 7 "
      "--hard-links NAME=z",
  };
  for (const std::string command : commands) {
    const Result here = runCommand("", command);
    EXPECT_EQ(runCommand("--at " + address, command), here) << command;
  }
}

TEST_F(AtTest, WhatIsNotOfTheNodeIsRefused) {
  std::ofstream(folder / "access") << "client change\n";
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  std::ofstream(folder / "nodes") << "b\na:0\n";
  const std::pair<const char*, const char*> rows[] = {
      {"kfactl config get /etc/passwd NAME", "not one of the files that this agent serves"},
      {"kfactl config get ../global.conf NAME", "not one of the files that this agent serves"},
      {"kfactl config set ../access --create NAME=x", "not one of the files that this agent serves"},
      {"kfactl config diff 101 102", "works on this machine alone"},
      {"kfactl --node /etc/kfa/conf config list", "leave --node or --at out"},
      {"kfactl config set 7 --allow-unsafe 'NAME=$(reboot)'", "may not call files.changeFreely"},
      {"kfactl --ca /nonexistent config list", "/nonexistent: cannot be opened"},
      {"kfactl --at 127.0.0.1:1 config list", "the agent at 127.0.0.1:1: "},
      {"kfactl --ca $KFA_CERTIFICATE config list", "the agent at 127.0.0.1:"},
      {"kfactl --at 127.0.0.1:72970 config list", "has the port '72970'; a number from 1 to 65535"},
      {"kfactl --at @../nodes config list", "nodes:2: the address a:0 has the port '0'"},
      {"unset KFA_KEY; HOME= XDG_CONFIG_HOME=$PWD kfactl config list", "no key is known"},
  };
  for (const auto& [command, text] : rows) {
    const Result done = runCommand("--at " + address, command);
    EXPECT_EQ(done.status, 2) << command;
    EXPECT_NE(done.err.find(text), std::string::npos) << command << ": " << done.err;
    EXPECT_EQ(std::count(done.err.begin(), done.err.end(), '\n'), 1) << done.err;
    restore();
    EXPECT_EQ(done.files, filesOf(folder / "conf")) << command;
  }
}

TEST_F(AtTest, SeveralNodesMakeOneTable) {
  std::ofstream(folder / "nodes") << "# nodes\n"
                                  << NodeFolder::kNode << " " << address << "\n127.0.0.1:1 # dead\n";
  const std::string at = "--at @" + (folder / "nodes");
  const std::string mark = address + ": ";
  const Result here = runCommand("", "kfactl config list 101-103");
  Result there = runCommand(at, "kfactl config list 101-103");
  EXPECT_EQ(there.status, 2);
  EXPECT_TRUE(there.err.starts_with("kfactl: the agent at 127.0.0.1:1: ")) << there.err;
  EXPECT_EQ(std::count(there.err.begin(), there.err.end(), '\n'), 1) << there.err;
  EXPECT_TRUE(there.out.starts_with("NODE")) << there.out;
  EXPECT_EQ(std::count(there.out.begin(), there.out.end(), '\n'),
            std::count(here.out.begin(), here.out.end(), '\n'));
  there = runCommand(at, "kfactl config get 101 ONBOOT");
  EXPECT_EQ(there.out, mark + runCommand("", "kfactl config get 101 ONBOOT").out);
  there = runCommand(at, "kfactl --json config get 101 ONBOOT");
  for (const char* const part : {"\"status\": 0", "\"status\": 2", "\"errors\": [", "\"onboot\": \""})
    EXPECT_NE(there.out.find(part), std::string::npos) << there.out;
  std::ofstream(folder / "nodes") << address << "\n";
  EXPECT_EQ(runCommand(at, "kfactl config set 101 ONBOOT=no").files,
            runCommand("", "kfactl config set 101 ONBOOT=no").files);
}

}  // namespace
