// SPDX-License-Identifier: Apache-2.0
// Managers through another agent beside a bare gRPC call with the same bytes over the same TLS, both on the loopback
// interface: one caller, 32 at once, a long list, and a command at 200 nodes of which each needs a while.
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <grpcpp/grpcpp.h>
#include <boost/make_shared.hpp>

#include <KFAFunctionality/access/KFAMemoryNode.h>
#include <KFARemote/KFARemoteConnection.h>
#include <KFARemote/KFARemoteServer.h>
#include <KFLMessage/KFLMessage.h>

#include "../kfa/lib/tests/access/ManagerScript.h"
#include "../kfa/remote/tests/TestCertificates.h"
#include "RemoteBench/bare.grpc.pb.h"

namespace {

using namespace KFA;
namespace wire = kfa::bench;

constexpr int kEnvironments = 10000;
// Of a bare call, as each of ours has one.
constexpr auto kDeadline = std::chrono::seconds(60);

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

struct BareService : wire::Bare::Service {
  grpc::Status Get(grpc::ServerContext*, const wire::Question*, wire::Answer* to) override {
    to->set_bytes(answer);
    return grpc::Status::OK;
  }
  std::string answer;
};

// Both servers, for the whole run.
class Servers {
 public:
  static Servers& get() {
    static Servers servers;
    return servers;
  }
  boost::shared_ptr<KFAEnvM> reach(const std::string& implementation) const {
    KFARemoteConnectionOptions options;
    options.identity = client_;
    const KFARemoteConnectionSP connection(new KFARemoteConnection(options));
    return makeManagerStub<KFAEnvM>(connection->getChannel(address_, KFLEID(), implementation));
  }
  std::unique_ptr<wire::Bare::Stub> reachBare() const {
    grpc::SslCredentialsOptions tls;
    tls.pem_root_certs = readFile(client_.authority);
    tls.pem_cert_chain = readFile(client_.certificate);
    tls.pem_private_key = readFile(client_.key);
    return wire::Bare::NewStub(
        grpc::CreateChannel("127.0.0.1:" + std::to_string(barePort_), grpc::SslCredentials(tls)));
  }
  const std::string& question() const { return question_; }

 private:
  Servers() {
    std::ofstream(folder_ / "access") << "client all\n";
    small_.registerManagers(managers_, kTechnology);
    KFAMemoryNode::Content many;
    const auto config = exampleOf<KFAEnvConfig>("venvconfig.xml");
    for (int veid = 101; veid < 101 + kEnvironments; ++veid) {
      KFAEnvConfig own(config);
      own.setVeid(veid);
      many.environments[KFLEID::generate()] = {own};
    }
    large_ = std::make_unique<KFAMemoryNode>(many);
    large_->registerManagers(managers_, "many");
    KFARemoteServerOptions options;
    options.addresses = {"127.0.0.1:0"};
    options.identity = identity_;
    options.accessFile = folder_ / "access";
    options.maxCallsOfCaller = options.maxCalls;
    server_ = std::make_unique<KFARemoteServer>(managers_, options);
    if (server_->start() == 0) address_ = "127.0.0.1:" + std::to_string(server_->getPorts().front());
    startBare(config);
  }
  void startBare(const KFAEnvConfig& config) {
    forms::printResult(config, bare_.answer, KFAPartForm::Packed);
    question_ = std::string(200, 'q');
    grpc::SslServerCredentialsOptions tls(GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
    tls.pem_root_certs = readFile(identity_.authority);
    tls.pem_key_cert_pairs.push_back({readFile(identity_.key), readFile(identity_.certificate)});
    grpc::ServerBuilder builder;
    builder.AddListeningPort("127.0.0.1:0", grpc::SslServerCredentials(tls), &barePort_);
    builder.RegisterService(&bare_);
    bareServer_ = builder.BuildAndStart();
  }

  const TestFolder folder_;
  const TestAuthority authority_{folder_, "authority"};
  const KFARemoteIdentity identity_ = authority_.issue("server");
  const KFARemoteIdentity client_ = authority_.issue("client");
  const KFAMemoryNode small_{exampleNode()};
  std::unique_ptr<KFAMemoryNode> large_;
  KFALibFunctionality managers_;
  std::unique_ptr<KFARemoteServer> server_;
  std::string address_;
  BareService bare_;
  std::unique_ptr<grpc::Server> bareServer_;
  int barePort_ = 0;
  std::string question_;
};

void GetConfigOurs(benchmark::State& state) {
  const auto manager = Servers::get().reach(kTechnology);
  KFAEnvConfig config;
  for (auto unused : state) {
    if (manager->getConfig(kFirst, config) != KFAManagerDone) {
      state.SkipWithError(KFL::getErrorMessage().c_str());
      break;
    }
  }
}

void GetConfigBareGrpc(benchmark::State& state) {
  const auto stub = Servers::get().reachBare();
  wire::Question question;
  question.set_bytes(Servers::get().question());
  for (auto unused : state) {
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + kDeadline);
    wire::Answer answer;
    if (!stub->Get(&context, question, &answer).ok()) {
      state.SkipWithError("the bare server did not answer");
      break;
    }
  }
}

// What the same call costs in one process, from record to record.
void GetConfigWithoutLink(benchmark::State& state, KFAPartForm form) {
  const auto config = exampleOf<KFAEnvConfig>("venvconfig.xml");
  std::string part;
  for (auto unused : state) {
    KFAEnvConfig read;
    forms::printResult(config, part, form);
    forms::parseResult(part, read);
    benchmark::DoNotOptimize(read);
  }
}

void ListOurs(benchmark::State& state) {
  const auto manager = Servers::get().reach("many");
  for (auto unused : state) {
    std::vector<KFAEnvM::EnvSP> envs;
    if (manager->list(envs) != KFAManagerDone || envs.size() != kEnvironments) {
      state.SkipWithError(KFL::getErrorMessage().c_str());
      break;
    }
  }
}

// --- Many nodes --------------------------------------------------------------------------------------------

constexpr auto kSlowness = std::chrono::milliseconds(500);

// The files of a node that takes its time.
class SlowFiles : public KFAFilesM {
 public:
  int list(const std::string& folder, std::vector<KFAFileNames>& parts) override {
    std::this_thread::sleep_for(kSlowness);
    return files_->list(folder, parts);
  }
  int read(const std::vector<std::string>& paths, std::vector<KFAFileText>& texts) override {
    return files_->read(paths, texts);
  }
  int change(const KFAFilesChange& change, std::vector<KFAFileOutcome>& outcomes) override {
    return files_->change(change, outcomes);
  }
  int changeFreely(const KFAFilesChange& change, std::vector<KFAFileOutcome>& outcomes) override {
    return files_->changeFreely(change, outcomes);
  }
  int getHoldings(KFANodeHoldings& holdings) override { return files_->getHoldings(holdings); }

 private:
  const boost::shared_ptr<KFAFilesM> files_ =
      makeFolderFiles(std::string(KFA_SOURCE_DIR) + "/examples/node/conf");
};

// kfactl --at @FILE of this many nodes; the slowness of one is told beside it.
void CommandAtNodesOurs(benchmark::State& state) {
  const TestFolder folder;
  const TestAuthority authority(folder, "authority");
  const KFALibFunctionality managers;
  std::ofstream(folder / "access") << "client all\n";
  KFARemoteServerOptions options;
  options.addresses = {"127.0.0.1:0"};
  options.identity = authority.issue("server");
  options.accessFile = folder / "access";
  options.files = boost::make_shared<SlowFiles>();
  std::vector<std::unique_ptr<KFARemoteServer>> servers;
  std::ofstream nodes(folder / "nodes");
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    servers.push_back(std::make_unique<KFARemoteServer>(managers, options));
    if (servers.back()->start() != 0) state.SkipWithError(KFL::getErrorMessage().c_str());
    nodes << "127.0.0.1:" << servers.back()->getPorts().front() << "\n" << std::flush;
  }
  const KFARemoteIdentity client = authority.issue("client");
  const std::string command =
      std::string(KFACTL_PROGRAM) + " --at @" + (folder / "nodes") + " --certificate " + client.certificate +
      " --key " + client.key + " --ca " + client.authority +
      " --vocabulary " KFA_SOURCE_DIR "/data/vocabulary.xml config list 101-103 >/dev/null";
  for (auto unused : state)
    if (std::system(command.c_str()) != 0) state.SkipWithError("a node did not answer");
  state.counters["slowest_ms"] = static_cast<double>(kSlowness.count());
}

BENCHMARK(CommandAtNodesOurs)->Arg(1)->Arg(200)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(GetConfigOurs)->Arg(1)->UseRealTime();
BENCHMARK(GetConfigBareGrpc)->Arg(1)->UseRealTime();
BENCHMARK_CAPTURE(GetConfigWithoutLink, Packed, KFAPartForm::Packed)->Arg(1);
BENCHMARK_CAPTURE(GetConfigWithoutLink, Text, KFAPartForm::Text)->Arg(1);
BENCHMARK(GetConfigOurs)->Name("GetConfigAtOnceOurs")->Arg(32)->Threads(32)->UseRealTime();
BENCHMARK(GetConfigBareGrpc)->Name("GetConfigAtOnceBareGrpc")->Arg(32)->Threads(32)->UseRealTime();
BENCHMARK(ListOurs)->Arg(kEnvironments)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
