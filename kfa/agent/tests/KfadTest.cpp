// SPDX-License-Identifier: Apache-2.0
// The program kfad, with certificates from scripts/certificates.sh and a socket as systemd hands it over: it answers as
// the managers of its files do, and ends when it is told to.
#include <fcntl.h>

#include <algorithm>
#include <regex>

#include "KfadTestBase.h"

namespace {

using KfadTest = KfadTestBase;

// The paths of a folder and the ids that were made anew, made the same for all.
std::string plain(std::string text, const NodeFolder& folder) {
  for (std::size_t at = 0; (at = text.find(folder / "")) != std::string::npos;)
    text.replace(at, (folder / "").size(), "NODE/");
  const std::regex guid("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}");
  std::string result;
  std::size_t last = 0;
  for (std::sregex_iterator found(text.begin(), text.end(), guid), end; found != end; ++found) {
    const bool isKnown = found->str().starts_with("11111111") || found->str().starts_with("99999999");
    result += text.substr(last, static_cast<std::size_t>(found->position()) - last) +
              (isKnown ? found->str() : "ID");
    last = static_cast<std::size_t>(found->position() + found->length());
  }
  return result + text.substr(last);
}

TEST_F(KfadTest, AnswersAsTheManagersOfItsFilesDo) {
  const ScriptFolder twin;
  setenv("KFA_UPLOADS_DIR", (twin / "uploads").c_str(), 1);
  std::filesystem::create_directory(twin / "uploads");
  std::filesystem::create_directory(folder / "uploads");
  KFALibFunctionality direct, far;
  kfad::registerNodeManagers(direct, twin.files());
  const KFARemoteConnectionSP connection(new KFARemoteConnection(clientOptions()));
  const auto stub = [&]<class Manager>() {
    const bool isOffered = direct.multiplexer<Manager>().getLocal(nullptr, kTechnology) != nullptr;
    const auto made = makeManagerStub<Manager>(connection->getChannel(address, KFLEID(), kTechnology));
    return isOffered ? made : nullptr;
  };
  const std::string answer = plain(ManagerScript::run(managersBy(stub)), folder);
  EXPECT_EQ(answer, plain(ManagerScript::run(localManagers(direct, kTechnology)), twin));
  EXPECT_NE(answer.find("getConfig: 0"), std::string::npos) << answer;
  EXPECT_NE(answer.find("setConfig: 0"), std::string::npos) << answer;

  std::vector<KFAProcess> none;
  EXPECT_TRUE(refused(reach<KFAProcessM>()->list(kFirst, none), "not offered by this agent"));
}

TEST_F(KfadTest, EndsInOrderAndServesAgainAfterADeath) {
  const auto samples = reach<KFASampleM>();
  const auto expectAnswer = [&](const std::string& name) {
    std::vector<std::string> names;
    EXPECT_EQ(samples->set(name, KFAEnvConfig()), KFAManagerDone) << KFL::getErrorMessage();
    EXPECT_EQ(samples->list(names), KFAManagerDone) << KFL::getErrorMessage();
    EXPECT_NE(std::ranges::find(names, name), names.end());
  };
  expectAnswer("first");
  // Also while somebody keeps the lock of the cache that it has open.
  std::filesystem::create_directory(folder / "uploads");
  std::vector<KFATEM::PackageSP> templates;
  EXPECT_EQ(reach<KFATEM>()->list(templates), KFAManagerDone) << KFL::getErrorMessage();
  const int cache = open((folder / "uploads/template.cache").c_str(), O_RDWR | O_CLOEXEC);
  struct flock word {
    F_WRLCK, SEEK_SET, 24, 4, 0
  };
  EXPECT_EQ(fcntl(cache, F_OFD_SETLK, &word), 0);
  EXPECT_EQ(end(SIGTERM), 0);
  close(cache);
  start();
  expectAnswer("second");
  end(SIGKILL);
  // The socket is systemd's: what is asked for while nobody serves it waits there.
  start();
  expectAnswer("third");
}

TEST_F(KfadTest, LibraryBringsAManager) {
  end(SIGTERM);
  libraries = {KFAD_PROCESSES};
  start();
  const auto processes = reach<KFAProcessM>();
  KFAProcess process;
  ASSERT_EQ(processes->get(kFirst, child, process), KFAManagerDone) << KFL::getErrorMessage();
  EXPECT_EQ(process.command.substr(0, process.command.find('\0')), KFAD_PROGRAM);
  EXPECT_EQ(process.parentPid, getpid());
  EXPECT_GT(process.residentBytes, 1 << 20);
  EXPECT_EQ(processes->get(kNobody, child, process), KFAManagerNotFound);
  std::vector<std::string> names;
  EXPECT_EQ(reach<KFASampleM>()->list(names), KFAManagerDone) << KFL::getErrorMessage();
}

TEST_F(KfadTest, ClientOfTheProtoAloneIsServed) {
  if (std::system("/usr/bin/python3 -c 'import grpc, google.protobuf' 2>/dev/null && protoc --version "
                  ">/dev/null 2>&1") != 0)
    GTEST_SKIP() << "python3-grpcio, python3-protobuf or protoc is not installed";
  const std::string source = KFA_SOURCE_DIR;
  const std::string pki = folder / "pki";
  EXPECT_EQ(std::system(("/usr/bin/python3 " + source + "/kfa/agent/tests/client.py " + source +
                         "/kfa/remote/src/KFARemote/agent.proto " + address + " " + pki + "/client.pem " +
                         pki + "/client.key " + pki + "/ca.pem")
                            .c_str()),
            0);
  EXPECT_LT(peakMemory(), limit(300L << 20)) << "a request that is too long must not be kept";
}

// Their texts alone are 25 MB, their messages 65 MB.
TEST_F(KfadTest, LongListIsHeldByNeitherEnd) {
  constexpr int kCount = 10000;
  for (int i = 0; i < kCount; ++i)
    std::filesystem::copy_file(folder.conf(110), folder.conf(20000 + i));
  const auto environments = reach<KFAEnvM>();
  const auto count = [&](int most) {
    int seen = 0;
    EXPECT_EQ(environments->each([&](const KFAEnvM::EnvSP&) { return ++seen == most ? 1 : 0; }),
              KFAManagerDone)
        << KFL::getErrorMessage();
    return seen;
  };
  EXPECT_EQ(count(10), 10);
  const long there = peakMemory();
  const long here = peakMemory("self");
  EXPECT_GE(count(-1), kCount);
  EXPECT_LT(peakMemory() - there, limit(64L << 20));
  EXPECT_LT(peakMemory("self") - here, limit(64L << 20));
}

TEST_F(KfadTest, PortThatCannotBeHadIsOneLine) {
  const std::string pki = folder / "pki/";
  const std::pair<std::string, std::string> rows[] = {
      {address, "cannot listen on " + address},
      {"127.0.0.1:73535", "the address 127.0.0.1:73535 has the port"}};
  for (const auto& [taken, text] : rows) {
    const std::string command =
        KFAD_PROGRAM " --node " + pki + " --access " + (folder / "access") + " --certificate " + pki +
        "127.0.0.1.pem --key " + pki + "127.0.0.1.key --ca " + pki + "ca.pem --id " + NodeFolder::kNode +
        " --vocabulary " KFA_SOURCE_DIR "/data/vocabulary.xml --listen " + taken + " 2>" + (folder / "err");
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 2);
    const std::string said = contentOf(folder / "err");
    EXPECT_TRUE(said.starts_with("kfad: " + text)) << said;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
  }
}

TEST_F(KfadTest, KilledAgentHasMadeWhatItConfirmed) {
  const auto samples = reach<KFASampleM>();
  int confirmed = 0;
  for (int round = 0; round < 12; ++round) {
    const std::string name = "round" + std::to_string(round);
    std::thread killing([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(round));
      end(SIGKILL);
      start();
    });
    const int code = samples->set(name, KFAEnvConfig());
    killing.join();
    KFAEnvConfig read;
    const int found = samples->get(name, read);
    EXPECT_TRUE(code == KFAManagerDone || code == KFAManagerUnreachable) << code << KFL::getErrorMessage();
    EXPECT_TRUE(found == KFAManagerDone || (found == KFAManagerNotFound && code != KFAManagerDone))
        << found << KFL::getErrorMessage();
    confirmed += code == KFAManagerDone ? 1 : 0;
  }
  EXPECT_GT(confirmed, 0);
}

// Only new connections ask for the time, since certificates hold for a while; those that were made before go on.
TEST_F(KfadTest, ClockThatJumpsStopsNoConnection) {
#ifdef KFA_SANITIZED
  GTEST_SKIP() << "a sanitizer wants to be loaded first";
#endif
  end(SIGTERM);
  const auto shiftBy = [&](long seconds) {
    std::ofstream(folder / "shift", std::ios::in | std::ios::out)
        .write(reinterpret_cast<const char*>(&seconds), sizeof seconds);
  };
  std::ofstream(folder / "shift") << std::string(sizeof(long), '\0');
  setenv("CLOCK_SHIFT", (folder / "shift").c_str(), 1);
  preloaded = CLOCK_SHIFT_LIBRARY;
  start();
  const auto kept = reach<KFASampleM>();
  std::vector<std::string> names;
  ASSERT_EQ(kept->list(names), KFAManagerDone) << KFL::getErrorMessage();
  constexpr long kHour = 3600, kYear = 24 * 365 * kHour;
  const struct {
    long shift;
    int code;  // of a new connection
  } rows[] = {{kHour, KFAManagerDone},
              {-kHour, KFAManagerUnreachable},
              {20 * kYear, KFAManagerUnreachable},
              {0, KFAManagerDone}};
  for (const auto& [shift, code] : rows) {
    shiftBy(shift);
    const std::string name = "at" + std::to_string(shift);
    EXPECT_EQ(kept->set(name, KFAEnvConfig()), KFAManagerDone) << shift << KFL::getErrorMessage();
    EXPECT_EQ(kept->list(names), KFAManagerDone) << shift << KFL::getErrorMessage();
    EXPECT_NE(std::ranges::find(names, name), names.end());
    EXPECT_EQ(reach<KFASampleM>()->list(names), code) << shift << KFL::getErrorMessage();
  }
}

TEST(KfadUnit, ServiceIsSoundAndShutIn) {
  if (std::system("systemd-analyze --version >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "systemd is not installed";
  // The paths of the installed system are not those of this machine: the program stands for them.
  const TemporaryFolder folder;
  const std::string unit = std::string(KFA_SOURCE_DIR) + "/kfa/agent/kfad.";
  std::string service = contentOf(unit + "service");
  service.replace(service.find("/usr/sbin/kfad"), 14, KFAD_PROGRAM);
  std::ofstream(folder / "kfad.service") << service;
  std::ofstream(folder / "kfad.socket") << contentOf(unit + "socket");
  const std::string at = folder / "";
  EXPECT_EQ(
      std::system(("systemd-analyze verify --man=no " + at + "kfad.service " + at + "kfad.socket").c_str()),
      0);
  EXPECT_EQ(std::system(("systemd-analyze security --offline=yes --threshold=30 --no-pager " + at +
                         "kfad.service >" + at + "exposure 2>&1")
                            .c_str()),
            0)
      << contentOf(folder / "exposure");
}

}  // namespace
