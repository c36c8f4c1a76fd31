// SPDX-License-Identifier: Apache-2.0
// Managers through another agent, on the loopback interface with TLS: the same answers as in one process, changes that
// are made once whatever becomes of the link, and what is refused.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <future>
#include <limits>
#include <mutex>
#include <set>
#include <thread>

#include <grpcpp/generic/async_generic_service.h>
#include <grpcpp/server_builder.h>

#include <KFARemote/KFARemoteConnection.h>
#include <KFARemote/KFARemoteServer.h>

#include "../../lib/tests/access/ManagerScript.h"
#include "TestCertificates.h"

namespace {

using namespace KFA;
using namespace std::chrono_literals;

constexpr const char* kNotKnown = "; whether the change was made is not known";

bool saysNotKnown() {
  return KFL::getErrorMessage().ends_with(kNotKnown);
}

// A manager that waits until it is let go.
struct WaitingSamples : KFASampleM {
  int list(std::vector<std::string>&) override { return wait(); }
  int get(const std::string&, KFAEnvConfig&) override { return wait(); }
  int set(const std::string&, const KFAEnvConfig&) override { return wait(); }
  int remove(const std::string& name) override {
    if (name == "odd") throw 1;
    if (name == "bytes") throw std::runtime_error("a\xff");
    throw std::runtime_error("no samples");
  }
  int check(const KFAEnvConfig&, KFAQoSValidationList&) override { return wait(); }

  int wait() {
    std::unique_lock<std::mutex> guard(lock);
    ++entered;
    changed.notify_all();
    changed.wait_for(guard, 20s, [&] { return isOpen; });
    return KFAManagerDone;
  }
  void waitForCalls(int count) {
    std::unique_lock<std::mutex> guard(lock);
    EXPECT_TRUE(changed.wait_for(guard, 10s, [&] { return entered >= count; }));
  }
  void open() {
    const std::lock_guard<std::mutex> guard(lock);
    isOpen = true;
    changed.notify_all();
  }
  std::mutex lock;
  std::condition_variable changed;
  int entered = 0;
  bool isOpen = false;
};

template <class Manager>
struct Handing : KFLLocalFactory<boost::shared_ptr<Manager>> {
  explicit Handing(const boost::shared_ptr<Manager>& that) : manager(that) {}
  boost::shared_ptr<Manager> create(const KFLAccessProviderSP&) override { return manager; }
  const boost::shared_ptr<Manager> manager;
};

// Authorities, an access file, a node in memory and one that waits, and the server of both.
class KFARemoteTest : public testing::Test {
 protected:
  KFARemoteTest() {
    std::ofstream(folder / "access") << "client all\nreader read\n";
    options.addresses = {"127.0.0.1:0"};
    options.identity = authority.issue("server");
    options.accessFile = folder / "access";
    options.node = kThird;
    EXPECT_EQ(node.registerManagers(managers, kTechnology), 0);
    EXPECT_EQ(managers.multiplexer<KFASampleM>().registerLocal(
                  "waiting", boost::make_shared<Handing<KFASampleM>>(waiting)),
              0);
  }
  ~KFARemoteTest() override { waiting->open(); }

  void SetUp() override { start(); }
  void start() {
    server = std::make_unique<KFARemoteServer>(managers, options);
    ASSERT_EQ(server->start(), 0) << KFL::getErrorMessage();
    options.addresses = {"127.0.0.1:" + std::to_string(server->getPorts().front())};
  }
  std::string address() const { return options.addresses.front(); }

  KFARemoteConnectionOptions clientOptions(const std::string& name = "client") const {
    KFARemoteConnectionOptions made;
    made.identity = authority.issue(name);
    made.readTimeout = 10s;
    made.changeTimeout = 10s;
    return made;
  }
  template <class Manager>
  static boost::shared_ptr<Manager> reach(const KFARemoteConnectionOptions& how, const std::string& address,
                                          const std::string& implementation = kTechnology,
                                          const KFLEID& about = {}) {
    const KFARemoteConnectionSP connection(new KFARemoteConnection(how));
    return makeManagerStub<Manager>(connection->getChannel(address, about, implementation));
  }
  std::size_t countReports() const {
    std::vector<std::string> ids;
    EXPECT_EQ(managers.getKFASupportLocal(nullptr, kTechnology)->list(ids), KFAManagerDone);
    return ids.size();
  }

  const TemporaryFolder folder;
  const TestAuthority authority{folder, "authority"};
  const TestAuthority foreign{folder, "foreign"};
  const KFAMemoryNode node{exampleNode()};
  const boost::shared_ptr<WaitingSamples> waiting = boost::make_shared<WaitingSamples>();
  KFALibFunctionality managers;
  KFARemoteServerOptions options;
  std::unique_ptr<KFARemoteServer> server;
};

TEST_F(KFARemoteTest, NoMessageIsTooLongForAResult) {
  const auto samples = managers.getKFASampleMLocal(nullptr, kTechnology);
  KFAEnvConfig big;
  big.setDescription(std::string(9'000'000, 'd'));
  ASSERT_EQ(samples->set("big", big), KFAManagerDone);
  const auto far = reach<KFASampleM>(clientOptions(), address());
  KFAEnvConfig read;
  ASSERT_EQ(far->get("big", read), KFAManagerDone) << KFL::getErrorMessage();
  KFAEnvConfig::Text text;
  EXPECT_EQ(read.getDescription(text), 0);
  EXPECT_EQ(text.getValue(), std::string(9'000'000, 'd'));
  for (int i = 0; i < 3000; ++i)
    ASSERT_EQ(samples->set(std::to_string(i) + std::string(40, 'n'), {}), KFAManagerDone);
  std::vector<std::string> names, direct;
  ASSERT_EQ(far->list(names), KFAManagerDone) << KFL::getErrorMessage();
  ASSERT_EQ(samples->list(direct), KFAManagerDone);
  EXPECT_EQ(names, direct);
  // A request has a limit, and the agent goes on.
  big.setDescription(std::string(17 << 20, 'd'));
  EXPECT_EQ(far->set("bigger", big), KFAManagerFailed);
  EXPECT_EQ(far->remove("bigger"), KFAManagerNotFound) << KFL::getErrorMessage();
}

TEST_F(KFARemoteTest, OnlyWhoIsTrustedIsHeard) {
  struct Row {
    const char* what;
    KFARemoteConnectionOptions how;
    int read;
    int change;
  };
  auto rows = std::vector<Row>{{"all", clientOptions(), KFAManagerDone, KFAManagerDone},
                               {"reader", clientOptions("reader"), KFAManagerDone, KFAManagerDenied},
                               {"no rights", clientOptions("nobody"), KFAManagerDenied, KFAManagerDenied}};
  for (const char* const what : {"expired", "foreign", "to a foreign server", "to another name"})
    rows.push_back({what, clientOptions(), KFAManagerUnreachable, KFAManagerUnreachable});
  rows[3].how.identity = authority.issueAs("expired", "client", -7200, -3600);
  rows[4].how.identity = foreign.issue("client");
  rows[4].how.identity.authority = options.identity.authority;
  rows[5].how.identity.authority = foreign.issue("client").authority;
  rows[6].how.expectedName = "elsewhere";
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const auto before = countReports();
    const auto support = reach<KFASupport>(row.how, address());
    std::vector<std::string> ids;
    std::string id;
    KFL::setErrorMessage("%s", "");
    EXPECT_EQ(support->list(ids), row.read) << KFL::getErrorMessage();
    EXPECT_EQ(support->send({}, id), row.change) << KFL::getErrorMessage();
    EXPECT_EQ(KFL::getErrorMessage().empty(), row.change == KFAManagerDone);
    EXPECT_EQ(countReports(), before + (row.change == KFAManagerDone ? 1 : 0));
  }
}

TEST_F(KFARemoteTest, WhatIsNotServedHereIsRefused) {
  options.serves = [](const KFLEID& eid) { return eid == kFirst; };
  server.reset();
  start();
  const std::pair<KFLEID, int> rows[] = {{{}, KFAManagerDone},
                                         {kThird, KFAManagerDone},
                                         {kFirst, KFAManagerDone},
                                         {kNobody, KFAManagerNotFound}};
  std::vector<std::string> names;
  for (const auto& [about, code] : rows)
    EXPECT_EQ(reach<KFASampleM>(clientOptions(), address(), kTechnology, about)->list(names), code);
  EXPECT_EQ(reach<KFASampleM>(clientOptions(), address(), "other")->list(names), KFAManagerFailed);
  const auto throwing = reach<KFASampleM>(clientOptions(), address(), "waiting");
  for (const auto& [name, text] :
       {std::pair{"x", "no samples"}, std::pair{"odd", "an exception"}, std::pair{"bytes", "a\\xff"}}) {
    EXPECT_EQ(throwing->remove(name), KFAManagerUnreachable);
    EXPECT_NE(KFL::getErrorMessage().find(text), std::string::npos) << KFL::getErrorMessage();
    EXPECT_TRUE(saysNotKnown()) << KFL::getErrorMessage();
  }
}

TEST_F(KFARemoteTest, CallOfAnAgentIsNotPassedOn) {
  const auto next = boost::make_shared<Handing<KFASampleM>>(reach<KFASampleM>(clientOptions(), address()));
  ASSERT_EQ(managers.multiplexer<KFASampleM>().registerLocal("next", next), 0);
  std::vector<std::string> names;
  EXPECT_EQ(next->manager->list(names), KFAManagerDone);
  EXPECT_EQ(reach<KFASampleM>(clientOptions(), address(), "next")->list(names), KFAManagerFailed);
  EXPECT_NE(KFL::getErrorMessage().find("not passed on"), std::string::npos) << KFL::getErrorMessage();
}

TEST_F(KFARemoteTest, LateAndMissingAnswersAreUnreachable) {
  auto how = clientOptions();
  how.readTimeout = 300ms;
  std::vector<std::string> names{"kept"};
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(reach<KFASampleM>(how, address(), "waiting")->list(names), KFAManagerUnreachable);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
  EXPECT_NE(KFL::getErrorMessage().find("in time"), std::string::npos) << KFL::getErrorMessage();
  waiting->open();
  server->stop(1s);
  how.attempts = 2;
  EXPECT_EQ(reach<KFASampleM>(how, address())->list(names), KFAManagerUnreachable);
  EXPECT_EQ(names, std::vector<std::string>{"kept"});
}

// An agent that says who it is, and answers every call with one status.
class Unhelpful : public grpc::CallbackGenericService {
 public:
  explicit Unhelpful(const KFARemoteIdentity& identity) {
    grpc::SslServerCredentialsOptions tls;
    tls.pem_key_cert_pairs = {{contentOf(identity.key), contentOf(identity.certificate)}};
    grpc::ServerBuilder builder;
    builder.RegisterCallbackGenericService(this);
    builder.AddListeningPort("127.0.0.1:0", grpc::SslServerCredentials(tls), &port);
    server_ = builder.BuildAndStart();
  }
  ~Unhelpful() { server_->Shutdown(std::chrono::system_clock::now()); }
  std::string address() const { return "127.0.0.1:" + std::to_string(port); }

  grpc::Status status;
  std::atomic<int> calls = 0;

 private:
  struct Reply : grpc::ServerGenericBidiReactor {
    explicit Reply(const grpc::Status& status) { Finish(status); }
    explicit Reply(const grpc::Slice& text) : buffer(&text, 1) {
      StartWriteAndFinish(&buffer, grpc::WriteOptions(), grpc::Status::OK);
    }
    void OnDone() override { delete this; }
    grpc::ByteBuffer buffer;
  };
  grpc::ServerGenericBidiReactor* CreateReactor(grpc::GenericCallbackServerContext* context) override {
    if (context->method().ends_with("Describe")) return new Reply(grpc::Slice("\x12\3run"));
    ++calls;
    return new Reply(status);
  }

  int port = 0;
  std::unique_ptr<grpc::Server> server_;
};

// Calls that fail on a link that stands, or seems to, are not all sent at once.
TEST_F(KFARemoteTest, SendingAgainWaitsLongerEachTime) {
  Unhelpful agent(authority.issue("unhelpful"));
  agent.status = {grpc::StatusCode::UNAVAILABLE, "not yet"};
  auto how = clientOptions();
  how.attempts = 3;
  std::vector<std::string> names;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(reach<KFASampleM>(how, agent.address())->list(names), KFAManagerUnreachable);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 500ms);
  EXPECT_TRUE(KFL::getErrorMessage().ends_with("not yet")) << KFL::getErrorMessage();
  EXPECT_EQ(agent.calls, 3);
}

// Whatever status ends the last sending: only of a change that no manager was given it is known that it was not made.
TEST_F(KFARemoteTest, CallerIsToldWhenItIsNotKnownWhetherAChangeWasMade) {
  using enum grpc::StatusCode;
  const struct {
    grpc::Status status;
    int calls;
    int code;
    bool isKnown;
  } rows[] = {
      {{UNAVAILABLE, "Socket closed"}, 2, KFAManagerUnreachable, false},
      {{UNKNOWN, "Stream removed"}, 2, KFAManagerUnreachable, false},
      {{INTERNAL, "RST_STREAM"}, 2, KFAManagerUnreachable, false},
      {{CANCELLED, ""}, 2, KFAManagerUnreachable, false},
      {grpc::Status::OK, 2, KFAManagerUnreachable, false},
      {{DEADLINE_EXCEEDED, ""}, 1, KFAManagerUnreachable, false},
      {{RESOURCE_EXHAUSTED, "memory"}, 1, KFAManagerUnreachable, false},
      {{PERMISSION_DENIED, ""}, 1, KFAManagerUnreachable, false},
      {{RESOURCE_EXHAUSTED, "Server Threadpool Exhausted"}, 1, KFAManagerBusy, true},
      {{RESOURCE_EXHAUSTED, "Received message larger than max (2 vs. 1)"}, 1, KFAManagerFailed, true},
      {{UNIMPLEMENTED, ""}, 1, KFAManagerUnreachable, true},
  };
  Unhelpful agent(authority.issue("unhelpful"));
  auto how = clientOptions();
  how.attempts = 2;
  const auto far = reach<KFASampleM>(how, agent.address());
  std::vector<std::string> names;
  for (const auto& [status, calls, code, isKnown] : rows) {
    agent.status = status;
    agent.calls = 0;
    EXPECT_EQ(far->set("x", {}), code) << KFL::getErrorMessage();
    EXPECT_EQ(agent.calls, calls) << KFL::getErrorMessage();
    EXPECT_NE(saysNotKnown(), isKnown) << KFL::getErrorMessage();
    EXPECT_NE(far->list(names), KFAManagerDone);
    EXPECT_FALSE(saysNotKnown()) << KFL::getErrorMessage();
  }
}

// Whether the work is done and comes out true in a forked child, in time.
bool holdsInChild(const std::function<bool()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(30);
    _exit(work() ? 0 : 1);
  }
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

// Forked while other threads are in calls or not: what a child does is refused, and its parent does not notice.
TEST_F(KFARemoteTest, ForkedChildUsesNothingThatItsParentHasBegun) {
  auto how = clientOptions();
  how.attempts = 1;  // a link that was cut shows
  KFARemoteConnectionSP connection(new KFARemoteConnection(how));
  auto far = makeManagerStub<KFASampleM>(connection->getChannel(address(), {}, kTechnology));
  std::vector<std::string> names;
  const auto isRefused = [](int code, int wanted = KFAManagerUnreachable) {
    return code == wanted && KFL::getErrorMessage().starts_with("this process was forked");
  };
  const std::pair<const char*, std::function<bool()>> rows[] = {
      {"an inherited manager", [&] { return isRefused(far->list(names)) && isRefused(far->set("x", {})); }},
      {"an inherited connection",
       [&] {
         KFLEID id;
         const auto other = makeManagerStub<KFASampleM>(connection->getChannel(address(), {}, kTechnology));
         return isRefused(connection->getNode(address(), id)) && isRefused(other->list(names));
       }},
      {"one of its own",
       [&] { return isRefused(reach<KFASampleM>(clientOptions(), address())->list(names)); }},
      {"a server", [&] { return isRefused(KFARemoteServer(managers, options).start(), -1); }},
      {"the end of all",
       [&] {
         far.reset();
         connection.reset();
         server->stop(10s);
         server.reset();
         return true;
       }},
      {"a child of its own", [&] { return holdsInChild([&] { return isRefused(far->list(names)); }); }},
  };
  std::atomic<bool> isOver = false;
  std::vector<std::future<int>> calls;
#ifdef __SANITIZE_ADDRESS__
  constexpr int kThreads =
      0;  // that allocator's locks stay taken in a child that is forked while a thread has one
#else
  constexpr int kThreads = 3;
#endif
  for (const int threads : {0, kThreads}) {
    for (int i = 0; i < threads; ++i)
      calls.push_back(std::async(std::launch::async, [&] {
        int failed = 0;
        for (std::vector<std::string> own; !isOver;)
          failed += far->list(own) == KFAManagerDone ? 0 : 1;
        return failed;
      }));
    for (const auto& [what, work] : rows) {
      EXPECT_TRUE(holdsInChild(work)) << what;
      EXPECT_EQ(far->set("x", {}), KFAManagerDone) << what << ": " << KFL::getErrorMessage();
    }
  }
  isOver = true;
  for (auto& call : calls)
    EXPECT_EQ(call.get(), 0);
}

struct KFARemoteForkTest : KFARemoteTest {
  void SetUp() override {}
};

// In a process of its own, since others of these tests have used gRPC in this one.
TEST_F(KFARemoteForkTest, ChildForkedBeforeTheFirstUseMayUseEverything) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto serves = [&] {
    std::vector<std::string> names;
    start();
    return server && reach<KFASampleM>(clientOptions(), address())->list(names) == KFAManagerDone;
  };
  const auto work = [&] {
    const KFARemoteConnectionSP connection(new KFARemoteConnection(clientOptions()));
    // The second child comes too late.
    const bool holds = holdsInChild(serves) && serves() && !holdsInChild(serves);
    server.reset();
    std::filesystem::remove_all(folder / "");
    return holds;
  };
  EXPECT_EXIT(_exit(work() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(KFARemoteTest, StopLetsCallsFinish) {
  const auto far = reach<KFASampleM>(clientOptions(), address(), "waiting");
  auto call = std::async(std::launch::async, [&] { return far->set("x", {}); });
  waiting->waitForCalls(1);
  auto stopping = std::async(std::launch::async, [&] { server->stop(10s); });
  std::this_thread::sleep_for(200ms);
  waiting->open();
  EXPECT_EQ(call.get(), KFAManagerDone) << KFL::getErrorMessage();
  stopping.get();
}

// The first run of the agent is cut off while it makes the change; the next one does not make it again.
TEST_F(KFARemoteTest, ChangeIsNotRepeatedToAnAgentThatWasStartedAnew) {
  auto how = clientOptions();
  how.attempts = 10;
  const auto far = reach<KFASampleM>(how, address(), "waiting");
  std::string reason;
  auto call = std::async(std::launch::async, [&] {
    const int code = far->set("x", {});
    reason = KFL::getErrorMessage();
    return code;
  });
  waiting->waitForCalls(1);
  auto stopping = std::async(std::launch::async, [&] { server->stop(0ms); });
  std::this_thread::sleep_for(200ms);
  waiting->open();
  stopping.get();
  start();
  EXPECT_EQ(call.get(), KFAManagerUnreachable);
  EXPECT_TRUE(reason.ends_with(std::string("started anew") + kNotKnown)) << reason;
  EXPECT_EQ(waiting->entered, 1);
  // What is asked for now goes to the new run.
  EXPECT_EQ(far->set("x", {}), KFAManagerDone) << KFL::getErrorMessage();
}

TEST_F(KFARemoteTest, TooManyCallsOfOneCallerAreBusy) {
  options.maxCallsOfCaller = 2;
  server.reset();
  start();
  const auto far = reach<KFASampleM>(clientOptions(), address(), "waiting");
  std::vector<std::future<int>> calls;
  for (int i = 0; i < 2; ++i)
    calls.push_back(std::async(std::launch::async, [&] { return far->set("x", {}); }));
  waiting->waitForCalls(2);
  EXPECT_EQ(far->set("x", {}), KFAManagerBusy);
  std::vector<std::string> names;
  EXPECT_EQ(reach<KFASampleM>(clientOptions("reader"), address())->list(names), KFAManagerDone);
  waiting->open();
  for (auto& call : calls)
    EXPECT_EQ(call.get(), KFAManagerDone);
  EXPECT_EQ(far->set("x", {}), KFAManagerDone);
}

int connectTo(int port) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<std::uint16_t>(port));
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(connect(made, reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
  return made;
}

TEST_F(KFARemoteTest, SilenceAndGarbageHurtNobody) {
  options.handshakeSeconds = 1;
  server.reset();
  start();
  // As many as there may be; this process has both ends of each.
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  const rlim_t count = std::min<rlim_t>(10000, (limit.rlim_cur - 300) / 2);
  std::vector<int> silent;
  for (rlim_t i = 0; i < count; ++i)
    silent.push_back(connectTo(server->getPorts().front()));
  for (std::size_t i = 0; i < silent.size(); i += 2) {
    const std::string garbage = i % 4 == 0 ? std::string(5000, '\x16') : "GET / HTTP/1.1\r\n\r\n";
    EXPECT_GT(send(silent[i], garbage.data(), garbage.size(), MSG_NOSIGNAL), 0);
  }
  std::vector<std::string> names;
  EXPECT_EQ(reach<KFASampleM>(clientOptions(), address())->list(names), KFAManagerDone)
      << KFL::getErrorMessage();
  for (const int one : silent) {
    pollfd waited{one, POLLIN, 0};
    EXPECT_EQ(poll(&waited, 1, 10000), 1) << "a connection that says nothing is kept";
    close(one);
  }
}

TEST_F(KFARemoteTest, CertificatesAreReadAgain) {
  auto how = clientOptions();
  how.expectedName = "renewed";
  how.attempts = 1;
  std::vector<std::string> names;
  EXPECT_EQ(reach<KFASampleM>(how, address())->list(names), KFAManagerUnreachable);
  authority.issueAs("server", "renewed");
  int code = KFAManagerUnreachable;
  for (int i = 0; i < 100 && code != KFAManagerDone; ++i) {
    std::this_thread::sleep_for(100ms);
    code = reach<KFASampleM>(how, address())->list(names);
  }
  EXPECT_EQ(code, KFAManagerDone) << KFL::getErrorMessage();
}

TEST_F(KFARemoteTest, IdentityIsCheckedBeforeItIsUsed) {
  const KFARemoteIdentity good = options.identity;
  const std::pair<std::function<void(KFARemoteIdentity&)>, const char*> rows[] = {
      {[&](auto& one) { one.certificate = folder / "none"; }, "none"},
      {[&](auto& one) { one.certificate = one.key; }, "no certificate"},
      {[&](auto& one) { one.key = one.certificate; }, "no private key"},
      {[&](auto& one) { one.key = authority.issue("client").key; }, "is not the key"},
      {[&](auto& one) { one = authority.issue("old", -7200, -3600); }, "expired"},
      {[&](auto& one) { one = authority.issue("new", 3600, 7200); }, "not valid yet"},
      {[&](auto& one) { one.authority = one.key; }, "no certificate"},
  };
  EXPECT_EQ(good.check(), 0) << KFL::getErrorMessage();
  for (const auto& [spoil, text] : rows) {
    options.identity = good;
    spoil(options.identity);
    EXPECT_EQ(KFARemoteServer(managers, options).start(), -1) << text;
    EXPECT_NE(KFL::getErrorMessage().find(text), std::string::npos) << KFL::getErrorMessage();
  }
}

TEST(KFARemoteNodes, PortIsANumberThatPortsHave) {
  for (const char* const good : {"a", "a:1", "a:65535", "[::1]", "[::1]:06434", "::1", "::70000"})
    EXPECT_EQ(checkRemoteAddress(good), 0) << KFL::getErrorMessage();
  EXPECT_EQ(checkRemoteAddress("a:0", 0), 0) << KFL::getErrorMessage();
  const KFARemoteConnectionSP connection(new KFARemoteConnection({}));
  KFARemoteServerOptions options;
  for (const std::string bad :
       {"a:65536", "a:72970", "[::1]:4294973730", "a:", "a:-1", "a:+1", "a:1x", "a: 1"}) {
    KFLEID id;
    std::vector<std::string> names;
    const auto channel = connection->getChannel(bad, {}, kTechnology);
    options.addresses = {bad};
    KFALibFunctionality managers;
    const std::function<int()> calls[] = {[&] { return connection->getNode(bad, id); },
                                          [&] { return makeManagerStub<KFASampleM>(channel)->list(names); },
                                          [&] { return KFARemoteServer(managers, options).start(); }};
    for (const auto& call : calls) {
      KFL::setErrorMessage("%s", "");
      EXPECT_LT(call(), 0) << bad;
      EXPECT_TRUE(KFL::getErrorMessage().starts_with("the address " + bad)) << KFL::getErrorMessage();
      EXPECT_NE(KFL::getErrorMessage().find("to 65535"), std::string::npos) << KFL::getErrorMessage();
    }
  }
  EXPECT_EQ(checkRemoteAddress("a:0"), -1);
}

TEST(KFARemoteNodes, FileTellsTheAddress) {
  const TemporaryFolder folder;
  const std::string path = folder / "nodes";
  const auto read = [&](const std::string& text) {
    std::ofstream(path) << text;
    return readRemoteNodes(path);
  };
  using Lines = std::vector<std::string>;
  const std::string one = kFirst.toString(), other = kSecond.toString();
  const auto find = read("# nodes\n" + one + " a.example # first\r\n\n" + other + "\t[::1]:7\n");
  ASSERT_TRUE(find) << KFL::getErrorMessage();
  std::string address;
  EXPECT_EQ(find(kFirst, address), 0);
  EXPECT_EQ(address, "a.example");
  EXPECT_EQ(find(kSecond, address), 0);
  EXPECT_EQ(address, "[::1]:7");
  EXPECT_EQ(find(kThird, address), -1);
  for (const std::string& line : Lines{one, one + " a b", "a b", one + " a\n" + one + " b", one + " a:0"}) {
    EXPECT_FALSE(read("\n" + line)) << line;
    EXPECT_TRUE(KFL::getErrorMessage().starts_with(path + ":")) << KFL::getErrorMessage();
  }
}

// What becomes of a link: it is cut once, or again and again, or so that nobody comes through any more, or one bit of
// what it carries is changed.
enum class Harm { Cut, CutAgain, CutForGood, Spoilt };

// Passes bytes on between a client and the server, and does harm when so many blocks have passed.
class CuttingLink {
 public:
  CuttingLink(int port, int blocks, Harm harm = Harm::Cut)
      : port_(port), blocks_(blocks), harm_(harm), left_(blocks) {
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof at;
    EXPECT_EQ(bind(listening_, reinterpret_cast<sockaddr*>(&at), size), 0);
    EXPECT_EQ(listen(listening_, 16), 0);
    EXPECT_EQ(getsockname(listening_, reinterpret_cast<sockaddr*>(&at), &size), 0);
    ownPort_ = ntohs(at.sin_port);
    accepting_ = std::thread([this] { accept(); });
  }
  CuttingLink(const CuttingLink&) = delete;
  CuttingLink& operator=(const CuttingLink&) = delete;
  ~CuttingLink() {
    shutdown(listening_, SHUT_RDWR);
    accepting_.join();
    close(listening_);
  }
  int port() const { return ownPort_; }
  int countCuts() const { return cuts_; }
  // Now, once.
  void cut() { shutdown(client_, SHUT_RDWR); }

 private:
  // One connection after the other: the client makes a new one when the former is cut.
  void accept() {
    for (int client = 0; (client = ::accept(listening_, nullptr, nullptr)) >= 0;) {
      if (harm_ == Harm::CutForGood && cuts_ > 0) {
        close(client);
        continue;
      }
      client_ = client;
      const int server = connectTo(port_);
      const int isOn = 1;  // a block does not wait for the one before to be acknowledged
      for (const int end : {client, server})
        setsockopt(end, IPPROTO_TCP, TCP_NODELAY, &isOn, sizeof isOn);
      while (passOn(client, server)) {
      }
      close(client);
      close(server);
    }
  }
  bool passOn(int client, int server) {
    pollfd both[] = {{client, POLLIN, 0}, {server, POLLIN, 0}, {listening_, POLLHUP, 0}};
    if (poll(both, 3, 20000) <= 0 || (both[2].revents & POLLHUP) != 0) return false;
    for (int from = 0; from < 2; ++from) {
      if (both[from].revents == 0) continue;
      char block[16384];
      const ssize_t length = recv(both[from].fd, block, sizeof block, 0);
      if (length <= 0) return false;
      if (left_-- == 0) {
        ++cuts_;
        if (harm_ == Harm::CutAgain) left_ = blocks_;
        if (harm_ != Harm::Spoilt) return false;
        block[length - 1] = static_cast<char>(block[length - 1] ^ 1);
      }
      if (send(both[1 - from].fd, block, static_cast<std::size_t>(length), MSG_NOSIGNAL) != length)
        return false;
    }
    return true;
  }

  const int port_;
  const int blocks_;
  const Harm harm_;
  std::atomic<int> client_ = -1;
  std::atomic<int> left_;
  std::atomic<int> cuts_ = 0;
  const int listening_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int ownPort_ = 0;
  std::thread accepting_;
};

// The link is harmed at each block in turn, until a call needs fewer: a change is made once, and said to be; where nobody
// comes through any more the caller is told that this is not known, unless it was not sent yet.
TEST_F(KFARemoteTest, CutLinkMakesNoChangeTwice) {
  for (const Harm harm : {Harm::Cut, Harm::CutForGood, Harm::Spoilt}) {
    bool wasCut = true;
    int cuts = 0, lost = 0, unsent = 0;
    for (int blocks = 0; wasCut && blocks < 60; ++blocks) {
      SCOPED_TRACE(blocks);
      CuttingLink link(server->getPorts().front(), blocks, harm);
      const auto before = countReports();
      std::string id;
      auto how = clientOptions();
      if (harm == Harm::CutForGood) how.attempts = 2;
      const auto far = reach<KFASupport>(how, "127.0.0.1:" + std::to_string(link.port()));
      const int code = far->send({}, id);
      wasCut = link.countCuts() > 0;
      cuts += wasCut ? 1 : 0;
      if (harm == Harm::CutForGood && code != KFAManagerDone) {
        ASSERT_EQ(code, KFAManagerUnreachable);
        ASSERT_TRUE(saysNotKnown() || countReports() == before) << KFL::getErrorMessage();
        (saysNotKnown() ? lost : unsent) += 1;
        continue;
      }
      ASSERT_EQ(code, KFAManagerDone) << KFL::getErrorMessage();
      ASSERT_EQ(countReports(), before + 1);
      ASSERT_EQ(id, "report-" + std::to_string(before + 1));
    }
    EXPECT_FALSE(wasCut);
    EXPECT_GT(cuts, 5);
    EXPECT_EQ(lost > 0 && unsent > 3, harm == Harm::CutForGood) << lost << " " << unsent;
  }
}

// The first sending is still at work, and leaves no room for the one that asks what became of it.
TEST_F(KFARemoteTest, RefusedRepeatSaysNothingOfTheFirst) {
  options.maxCallsOfCaller = 1;
  server.reset();
  start();
  CuttingLink link(server->getPorts().front(), 1000);
  auto how = clientOptions();
  how.attempts = 2;
  auto call = std::async(std::launch::async, [&] {
    const int code =
        reach<KFASampleM>(how, "127.0.0.1:" + std::to_string(link.port()), "waiting")->set("x", {});
    return std::pair(code, KFL::getErrorMessage());
  });
  waiting->waitForCalls(1);
  link.cut();
  const auto [code, reason] = call.get();
  EXPECT_EQ(code, KFAManagerUnreachable);
  EXPECT_NE(reason.find("ask again later" + std::string(kNotKnown)), std::string::npos) << reason;
  EXPECT_EQ(waiting->entered, 1);
}

constexpr int kNeverCut = std::numeric_limits<int>::max();

// Every operation, on a link that is whole, and on one that is cut again and again: each change is made once, and said to
// be.
TEST_F(KFARemoteTest, AnswersAreThoseOfThisProcessOnAnyLink) {
  for (const int blocks : {kNeverCut, 25, 15}) {
    KFALibFunctionality direct, served, far;
    const KFAMemoryNode one(exampleNode()), twin(exampleNode());
    ASSERT_EQ(one.registerManagers(direct, kTechnology), 0);
    ASSERT_EQ(twin.registerManagers(served, kTechnology), 0);
    KFARemoteServerOptions own = options;
    own.addresses = {"127.0.0.1:0"};
    KFARemoteServer agent(served, own);
    ASSERT_EQ(agent.start(), 0) << KFL::getErrorMessage();
    CuttingLink link(agent.getPorts().front(), blocks, Harm::CutAgain);
    auto how = clientOptions();
    how.attempts = 20;
    const KFARemoteConnectionSP connection(new KFARemoteConnection(how));
    ASSERT_EQ(connection->registerAgents(far, kTechnology), 0);
    const std::string by = "127.0.0.1:" + std::to_string(link.port());
    const Managers stubs = managersBy([&]<class Manager>() {
      far.multiplexer<Manager>().setExtraData(kTechnology, by);
      return far.multiplexer<Manager>().getAgent(kThird, nullptr, kTechnology);
    });
    EXPECT_EQ(ManagerScript::run(stubs), ManagerScript::run(localManagers(direct, kTechnology)));
    EXPECT_EQ(link.countCuts() > 10, blocks != kNeverCut) << blocks;
    KFLEID id;
    EXPECT_EQ(connection->getNode(address(), id), 0) << KFL::getErrorMessage();
    EXPECT_EQ(id, kThird);
  }
}

}  // namespace
