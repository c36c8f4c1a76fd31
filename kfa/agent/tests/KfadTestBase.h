// SPDX-License-Identifier: Apache-2.0
// The program kfad on a node in a folder of its own, with certificates from scripts/certificates.sh and a socket as
// systemd hands it over.
#ifndef KFAD_TESTS_KFADTESTBASE_H
#define KFAD_TESTS_KFADTESTBASE_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <thread>

#include <KFARemote/KFARemoteConnection.h>

#include "../../lib/tests/access/ManagerScript.h"
#include "NodeFolder.h"

using namespace KFA;

// A node of whose environments two have the ids of the script.
struct ScriptFolder : NodeFolder {
  ScriptFolder() {
    for (const auto& [veid, eid] : {std::pair{20, kFirst}, std::pair{21, kSecond}})
      std::ofstream(conf(veid)) << "UUID=\"" << eid.toString()
                                << "\"\nHOSTNAME=\"a\"\nVE_ROOT=/\nNUMPROC=\"1:2\"\n"
                                << "NETIF=\"ifname=eth0,mac=00:11:22:33:44:55,nettype=bridged,dhcp=no,\"\n"
                                << "TEMPLATES=\"web/1 mail\"\n";
  }
};

class KfadTestBase : public testing::Test {
 protected:
  void SetUp() override {
    if (std::system("openssl version >/dev/null 2>&1") != 0) GTEST_SKIP() << "openssl is not installed";
    const std::string made =
        std::string(KFA_SOURCE_DIR) + "/scripts/certificates.sh '" + folder / "pki" + "' 127.0.0.1 client";
    ASSERT_EQ(std::system(made.c_str()), 0);
    std::ofstream(folder / "access") << "client all\n";
    listening = listenOn(address);
    start();
  }
  void TearDown() override {
    if (child > 0) end(SIGKILL);
    if (listening >= 0) close(listening);
  }

  static int listenOn(std::string& address) {
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof at;
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(made, reinterpret_cast<sockaddr*>(&at), size), 0);
    EXPECT_EQ(listen(made, 64), 0);
    EXPECT_EQ(getsockname(made, reinterpret_cast<sockaddr*>(&at), &size), 0);
    address = "127.0.0.1:" + std::to_string(ntohs(at.sin_port));
    return made;
  }

  // Runs the program as systemd would, and waits until it says that it is ready.
  void start() {
    const std::string path = folder / "notify";
    unlink(path.c_str());
    sockaddr_un at{};
    at.sun_family = AF_UNIX;
    path.copy(at.sun_path, sizeof at.sun_path - 1);
    const int notified = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(notified, reinterpret_cast<sockaddr*>(&at), sizeof at), 0);
    child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) run(path);
    pollfd waited{notified, POLLIN, 0};
    ASSERT_EQ(poll(&waited, 1, 30000), 1) << "kfad is not ready";
    char text[64] = {};
    EXPECT_GT(recv(notified, text, sizeof text - 1, 0), 0);
    EXPECT_EQ(std::string(text), "READY=1");
    close(notified);
  }
  template <class Manager>
  boost::shared_ptr<Manager> reach() const {
    const KFARemoteConnectionSP connection(new KFARemoteConnection(clientOptions()));
    return makeManagerStub<Manager>(connection->getChannel(address, KFLEID(), kTechnology));
  }
  [[noreturn]] void run(const std::string& notify) const {
    const std::string vocabulary = std::string(KFA_SOURCE_DIR) + "/data/vocabulary.xml";
    std::vector<std::string> words{KFAD_PROGRAM, "--id", NodeFolder::kNode, "--vocabulary", vocabulary};
    for (const auto& [option, name] : {std::pair("--node", "conf"),
                                       {"--global", "global.conf"},
                                       {"--samples", "samples"},
                                       {"--shaping", "shaping.xml"},
                                       {"--updates", "updates.xml"},
                                       {"--access", "access"},
                                       {"--certificate", "pki/127.0.0.1.pem"},
                                       {"--key", "pki/127.0.0.1.key"},
                                       {"--ca", "pki/ca.pem"}})
      words.insert(words.end(), {option, folder / name});
    for (const std::string& library : libraries)
      words.insert(words.end(), {"--load", library});
    std::vector<char*> arguments;
    for (std::string& word : words)
      arguments.push_back(word.data());
    arguments.push_back(nullptr);
    setenv("NOTIFY_SOCKET", notify.c_str(), 1);
    setenv("LISTEN_FDS", "1", 1);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    setenv("KFA_UPLOADS_DIR", (folder / "uploads").c_str(), 1);
    setenv("KFA_LOG_LEVEL", "error", 1);
    if (!preloaded.empty()) setenv("LD_PRELOAD", preloaded.c_str(), 1);
    if (listening == 3)
      fcntl(3, F_SETFD, 0);
    else
      dup2(listening, 3);
    execv(KFAD_PROGRAM, arguments.data());
    _exit(127);
  }
  // Its exit status.
  int end(int signal) {
    int status = 0;
    kill(child, signal);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    child = 0;
    return status;
  }

  // The most memory that the program has had, in bytes; or another process.
  long peakMemory() const { return peakMemory(std::to_string(child)); }
  static long peakMemory(const std::string& process) {
    std::ifstream in("/proc/" + process + "/status");
    for (std::string line; std::getline(in, line);)
      if (line.starts_with("VmHWM:")) return std::atol(line.c_str() + 6) * 1024;
    return 0;
  }

  // A sanitizer's own memory is not counted.
  static constexpr long limit([[maybe_unused]] long bytes) {
#ifdef KFA_SANITIZED
    return std::numeric_limits<long>::max();
#else
    return bytes;
#endif
  }

  KFARemoteConnectionOptions clientOptions() const {
    KFARemoteConnectionOptions options;
    options.identity.certificate = folder / "pki/client.pem";
    options.identity.key = folder / "pki/client.key";
    options.identity.authority = folder / "pki/ca.pem";
    options.readTimeout = options.changeTimeout = std::chrono::minutes(10);  // slow builds, busy machines
    return options;
  }

  const ScriptFolder folder;
  std::vector<std::string> libraries;
  std::string preloaded;
  std::string address;
  int listening = -1;
  pid_t child = 0;
};

#endif
