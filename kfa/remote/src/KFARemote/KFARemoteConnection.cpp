// SPDX-License-Identifier: Apache-2.0
#include <KFARemote/KFARemoteConnection.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <random>
#include <utility>

#include <grpcpp/grpcpp.h>
#include <grpcpp/security/tls_credentials_options.h>
#include <boost/smart_ptr/make_shared.hpp>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFARemote/KFARemoteFork.h>
#include <KFARemote/KFARemoteOrigin.h>
#include <KFARemote/agent.grpc.pb.h>

namespace KFA {

namespace {

namespace wire = kfa::remote::v4;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// The colon before the port; npos when there is none.
std::size_t findPort(const std::string& address) {
  const std::size_t colon = address.rfind(':');
  const bool hasPort =
      colon != std::string::npos && (address.find(':') == colon || (colon > 0 && address[colon - 1] == ']'));
  return hasPort ? colon : std::string::npos;
}

std::string withPort(const std::string& address) {
  if (findPort(address) != std::string::npos) return address;
  const bool isV6 = address.find(':') != std::string::npos && !address.starts_with('[');
  return (isV6 ? "[" + address + "]" : address) + ":" + std::to_string(kRemotePort);
}

// One agent: what all calls to it share.
struct Peer {
  std::string address;
  std::shared_ptr<grpc::Channel> channel;
  std::unique_ptr<wire::Agent::Stub> stub;
};

// How one sending of a call ended.
struct Sent {
  grpc::Status status;
  wire::Outcome outcome;
  bool hasOutcome = false;
  bool isRefused = false;  // the sink wanted no more
};

int unreachable(const Peer& peer, const std::string& reason) {
  setErrorMessage("the agent at %s: %s", peer.address.c_str(), reason.c_str());
  return KFAManagerUnreachable;
}

std::string reasonOf(const grpc::Status& status, bool isOver) {
  if (isOver || status.error_code() == grpc::StatusCode::DEADLINE_EXCEEDED)
    return "it did not answer in time";
  if (status.error_code() == grpc::StatusCode::UNIMPLEMENTED)
    return "it speaks another version: " + status.error_message();
  return status.ok() ? "its answer was cut short" : status.error_message();
}

// Hands on the parts of an answer, behind those that an earlier sending has brought.
class Parts {
 public:
  explicit Parts(const KFAPartSink& sink) : sink_(sink) {}

  void beginAnew() {
    seen_ = 0;
    part_.clear();
  }
  bool hasDelivered() const { return delivered_ > 0; }
  // False when no more are wanted.
  bool add(const wire::CallReply& reply) {
    for (int i = 0; i < reply.pieces_size(); ++i) {
      part_ += reply.pieces(i);
      if (reply.goes_on() && i + 1 == reply.pieces_size()) return true;
      if (seen_++ == delivered_) {
        ++delivered_;
        if (sink_(part_) != 0) return false;
      }
      part_.clear();
    }
    return true;
  }

 private:
  const KFAPartSink& sink_;
  std::string part_;
  std::size_t seen_ = 0;
  std::size_t delivered_ = 0;
};

}  // namespace

int checkRemoteAddress(const std::string& address, int lowestPort) {
  const std::size_t colon = findPort(address);
  if (colon == std::string::npos) return 0;
  const std::string text = address.substr(colon + 1);
  const char* const end = text.data() + text.size();
  int port = 0;
  const auto [at, error] = std::from_chars(text.data(), end, port);
  if (error == std::errc() && at == end && port >= lowestPort && port <= 65535) return 0;
  setErrorMessage("the address %s has the port '%s'; a number from %d to 65535 would be right",
                  address.c_str(), text.c_str(), lowestPort);
  return -1;
}

class KFL_HIDDEN KFARemoteConnection::Implementation {
 public:
  explicit Implementation(const KFARemoteConnectionOptions& with) : options(with) {}

  // Null with an error text where gRPC cannot be used, or the port is none.
  std::shared_ptr<Peer> getPeer(const std::string& given) KFL_EXCLUDES(lock_) {
    if (checkRemoteAddress(given) != 0 || KFARemoteFork::enter() != 0) return {};
    const std::string address = withPort(given);
    const KFLLockGuard guard(lock_);
    std::shared_ptr<Peer>& peer = peers_[address];
    if (!peer) {
      peer = std::shared_ptr<Peer>(new Peer, KFARemoteDelete());
      peer->address = address;
      peer->channel = makeChannel(address);
      peer->stub = wire::Agent::NewStub(peer->channel);
    }
    return peer;
  }

  const KFARemoteConnectionOptions options;

 private:
  std::shared_ptr<grpc::ChannelCredentials> makeCredentials() const;
  std::shared_ptr<grpc::Channel> makeChannel(const std::string& address) KFL_REQUIRES(lock_);

  KFLLock lock_;
  std::map<std::string, std::shared_ptr<Peer>> peers_ KFL_GUARDED_BY(lock_);
};

// Each channel has a provider of its own: of two that wait for the first certificates of one, the later may try to
// connect before it has them, and fail.
std::shared_ptr<grpc::ChannelCredentials> KFARemoteConnection::Implementation::makeCredentials() const {
  const KFARemoteIdentity& identity = options.identity;
  grpc::experimental::TlsChannelCredentialsOptions tls;
  tls.set_certificate_provider(std::make_shared<grpc::experimental::FileWatcherCertificateProvider>(
      identity.key, identity.certificate, identity.authority,
      static_cast<unsigned int>(std::max(1, identity.reloadSeconds))));
  tls.watch_root_certs();
  tls.watch_identity_key_cert_pairs();
  return grpc::experimental::TlsCredentials(tls);
}

std::shared_ptr<grpc::Channel> KFARemoteConnection::Implementation::makeChannel(const std::string& address) {
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 100);
  arguments.SetInt(GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 5000);
  arguments.SetInt(GRPC_ARG_MAX_RECONNECT_BACKOFF_MS, 10000);
  arguments.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, 30000);
  arguments.SetInt(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, 10000);
  // What is sent again is decided here, where it is known what may be.
  arguments.SetInt(GRPC_ARG_ENABLE_RETRIES, 0);
  if (!options.expectedName.empty()) arguments.SetSslTargetNameOverride(options.expectedName);
  return grpc::CreateCustomChannel(address, makeCredentials(), arguments);
}

namespace {

void setDeadline(grpc::ClientContext& context, Clock::time_point deadline) {
  context.set_deadline(std::chrono::system_clock::now() + (deadline - Clock::now()));
}

// Asks the agent who it is.
grpc::Status describe(const Peer& peer, Clock::time_point deadline, wire::Description& description) {
  grpc::ClientContext context;
  setDeadline(context, deadline);
  return peer.stub->Describe(&context, wire::DescribeRequest(), &description);
}

// One call, from its first sending to its last.
class Call {
 public:
  Call(Peer& peer, const KFARemoteConnectionOptions& options, const KFAManagerOperation& operation,
       const KFAPartSink& sink)
      : peer_(peer),
        options_(options),
        isChange_(operation.kind != KFAOperationKind::Read),
        deadline_(Clock::now() + (isChange_ ? options.changeTimeout : options.readTimeout)),
        parts_(sink) {
    request_.set_manager(operation.manager);
    request_.set_operation(operation.name);
    if (isChange_) request_.set_change_id(KFLEID::generate().toString());
  }
  wire::CallRequest& request() { return request_; }

  int run() {
    const int code = attemptAll();
    return isChange_ && isLost_ ? tellThatItIsLost() : code;
  }

 private:
  int attemptAll() {
    for (int attempt = 1;; ++attempt) {
      const int code = isChange_ && learnInstance() != 0 ? KFAManagerUnreachable : attemptOnce();
      if (!again_) return code;
      if (attempt >= options_.attempts || !pause(attempt)) return code;
      again_ = false;
    }
  }
  static int tellThatItIsLost() {
    const std::string reason = getErrorMessage();
    setErrorMessage("%s; whether the change was made is not known", reason.c_str());
    return KFAManagerUnreachable;
  }
  bool isOver() const { return Clock::now() >= deadline_; }

  // Which run of the agent the change is for: 0, or another value with an error text. Asking is also the proof that the
  // link lives, so that a change is not sent on one that died long ago.
  int learnInstance() {
    if (!request_.instance().empty()) return 0;
    wire::Description description;
    const grpc::Status status = describe(peer_, deadline_, description);
    if (!status.ok()) {
      again_ = mayTryAgain(status);
      return unreachable(peer_, reasonOf(status, isOver()));
    }
    request_.set_instance(description.instance());
    return 0;
  }

  int attemptOnce() {
    const bool wasLost = isLost_;
    isLost_ = true;
    const Sent sent = send();
    if (sent.isRefused) return KFAManagerUnreachable;
    if (sent.hasOutcome) return take(sent.outcome, wasLost);
    if (const int code = refusalOf(sent.status); code != KFAManagerDone) {
      isLost_ = wasLost;
      return code;
    }
    again_ = mayTryAgain(sent.status) && (isChange_ || !parts_.hasDelivered());
    return unreachable(peer_, reasonOf(sent.status, isOver()));
  }

  // Of what never came to a manager: a code with an error text; else 0. The engine has no codes of its own for
  // these; with other texts, an exhausted resource may have ended a call that was at work.
  int refusalOf(const grpc::Status& status) const {
    const auto says = [&](const char* text) {
      return status.error_code() == grpc::StatusCode::RESOURCE_EXHAUSTED &&
             status.error_message().find(text) != std::string::npos;
    };
    const bool isTooLong = says("larger than max");
    if (status.error_code() == grpc::StatusCode::UNIMPLEMENTED)
      return unreachable(peer_, reasonOf(status, false));
    if (!isTooLong && !says("Threadpool Exhausted")) return KFAManagerDone;
    unreachable(peer_, "it refused the call: " + status.error_message());
    return isTooLong ? KFAManagerFailed : KFAManagerBusy;
  }

  Sent send() {
    Sent sent;
    grpc::ClientContext context;
    setDeadline(context, deadline_);
    parts_.beginAnew();
    const auto reader = peer_.stub->Call(&context, request_);
    // The reply with the outcome is the last: there is no need to ask for another.
    for (wire::CallReply reply; !sent.isRefused && !sent.hasOutcome && reader->Read(&reply);) {
      sent.isRefused = !parts_.add(reply);
      if (!reply.has_outcome()) continue;
      sent.hasOutcome = true;
      sent.outcome = reply.outcome();
    }
    if (sent.isRefused) context.TryCancel();
    sent.status = reader->Finish();
    return sent;
  }

  // What became of the call. One that is refused before the agent looks for its id may have been made when it was sent
  // before; so may one that meets another run of the agent, which does not do it unless it was sent only now.
  int take(const wire::Outcome& outcome, bool wasLost) {
    const bool isOther = outcome.other_instance();
    isLost_ = wasLost && (isOther || outcome.refused());
    if (isOther) {
      again_ = !wasLost;
      if (!wasLost) request_.clear_instance();
      return unreachable(peer_, "it was started anew");
    }
    if (isLost_) {
      again_ = outcome.code() == KFAManagerBusy && !isOver();
      return unreachable(peer_, outcome.text());
    }
    if (outcome.code() < 0) setErrorMessage("%s", outcome.text().c_str());
    return outcome.code();
  }

  // A link that is cut or spoilt ends calls with any of these.
  bool mayTryAgain(const grpc::Status& status) const {
    switch (status.error_code()) {
      case grpc::StatusCode::OK:
      case grpc::StatusCode::UNAVAILABLE:
      case grpc::StatusCode::UNKNOWN:
      case grpc::StatusCode::CANCELLED:
      case grpc::StatusCode::INTERNAL:
        return !isOver();
      default:
        return false;
    }
  }
  // Waits before the next sending, at most until there is a new connection; false when there is no time left for it. A
  // channel learns that its connection has ended a little later than the calls on it, which all fail meanwhile. One whose
  // calls fail makes no way by itself: it connects while somebody waits for it, and after several failures it would put
  // that off for longer than this.
  bool pause(int attempt) const {
    thread_local std::minstd_rand random(std::random_device{}());
    const Milliseconds wait((100 << std::min(2 * (attempt - 1), 4)) + static_cast<int>(random() % 50));
    if (Clock::now() + wait >= deadline_) return false;
    const auto end = std::chrono::system_clock::now() + wait;
    peer_.channel->WaitForStateChange(GRPC_CHANNEL_READY, end);
    grpc::experimental::ChannelResetConnectionBackoff(peer_.channel.get());
    peer_.channel->WaitForConnected(end);
    return true;
  }

  Peer& peer_;
  const KFARemoteConnectionOptions& options_;
  const bool isChange_;
  const Clock::time_point deadline_;
  wire::CallRequest request_;
  Parts parts_;
  bool isLost_ = false;  // the agent may have it, and has not said what became of it
  bool again_ = false;
};

// --- Channels ----------------------------------------------------------------------------------------------

class RemoteChannel : public KFAManagerChannel {
 public:
  RemoteChannel(std::shared_ptr<Peer> peer, const KFLEID& about, const std::string& implementation,
                const KFARemoteConnectionOptions& options)
      : peer_(std::move(peer)), about_(about), implementation_(implementation), options_(options) {}

  int call(const KFAManagerOperation& operation, const std::string& arguments,
           const KFAPartSink& sink) override {
    if (KFARemoteOrigin::isRemote()) {
      setErrorMessage("%s.%s came from another agent and is not passed on to %s; ask that agent itself",
                      operation.manager, operation.name, peer_->address.c_str());
      return KFAManagerFailed;
    }
    if (KFARemoteFork::enter() != 0) return KFAManagerUnreachable;
    Call call(*peer_, options_, operation, sink);
    wire::CallRequest& request = call.request();
    request.set_implementation(implementation_);
    if (about_.isValid()) request.set_about(about_.toString());
    request.set_arguments(arguments);
    request.set_packed(true);
    return call.run();
  }

 private:
  const std::shared_ptr<Peer> peer_;
  const KFLEID about_;
  const std::string implementation_;
  const KFARemoteConnectionOptions options_;
};

// Says of every call why there is no way.
class NoChannel : public KFAManagerChannel {
 public:
  explicit NoChannel(const std::string& reason) : reason_(reason) {}
  int call(const KFAManagerOperation&, const std::string&, const KFAPartSink&) override {
    setErrorMessage("%s", reason_.c_str());
    return KFAManagerUnreachable;
  }

 private:
  const std::string reason_;
};

template <class Manager>
class Factory : public KFLAgentFactory<boost::shared_ptr<Manager>> {
 public:
  Factory(const KFARemoteConnectionSP& connection, const std::string& implementation)
      : connection_(connection), implementation_(implementation) {}
  boost::shared_ptr<Manager> create(const KFLEID& eid, const KFLAccessProviderSP&,
                                    const std::string& address) override {
    return makeManagerStub<Manager>(connection_->getChannel(address, eid, implementation_));
  }
  boost::shared_ptr<Manager> create(const KFLEID& eid, const KFLAccessProviderSP&) override {
    return makeManagerStub<Manager>(connection_->findChannel(eid, implementation_));
  }

 private:
  const KFARemoteConnectionSP connection_;
  const std::string implementation_;
};

template <class... Managers>
int registerEach(KFALibFunctionality& managers, const KFARemoteConnectionSP& connection,
                 const std::string& implementation) {
  const bool areIn =
      (... && (managers.multiplexer<Managers>().registerAgent(
                   implementation, boost::make_shared<Factory<Managers>>(connection, implementation)) == 0));
  return areIn ? 0 : -1;
}

}  // namespace

// --- The connection ----------------------------------------------------------------------------------------

KFARemoteConnection::KFARemoteConnection(const KFARemoteConnectionOptions& options)
    : implementation_(new Implementation(options), KFARemoteDelete()) {}

KFARemoteConnection::~KFARemoteConnection() = default;

int KFARemoteConnection::check() const {
  return implementation_->options.identity.check();
}

int KFARemoteConnection::registerAgents(KFALibFunctionality& managers, const std::string& implementation) {
  return registerEach<KFATEM, KFAEnvM, KFAPkgM, KFAProcessM, KFANetworkM, KFAProcessMonitor, KFAUp2date,
                      KFASupport, KFASampleM>(managers, KFARemoteConnectionSP(this), implementation);
}

boost::shared_ptr<KFAManagerChannel> KFARemoteConnection::getChannel(const std::string& address,
                                                                     const KFLEID& about,
                                                                     const std::string& implementation) {
  const std::shared_ptr<Peer> peer = implementation_->getPeer(address);
  if (!peer) return boost::make_shared<NoChannel>(getErrorMessage());
  return boost::make_shared<RemoteChannel>(peer, about, implementation, implementation_->options);
}

boost::shared_ptr<KFAManagerChannel> KFARemoteConnection::findChannel(const KFLEID& eid,
                                                                      const std::string& implementation) {
  std::string address;
  if (!implementation_->options.findAddress)
    setErrorMessage("no agent is known that serves %s", eid.toString().c_str());
  else if (implementation_->options.findAddress(eid, address) == 0)
    return getChannel(address, eid, implementation);
  return boost::make_shared<NoChannel>(getErrorMessage());
}

int KFARemoteConnection::getNode(const std::string& address, KFLEID& node) {
  const std::shared_ptr<Peer> peer = implementation_->getPeer(address);
  if (!peer) return KFAManagerUnreachable;
  const Clock::time_point deadline = Clock::now() + implementation_->options.readTimeout;
  wire::Description description;
  const grpc::Status status = describe(*peer, deadline, description);
  if (!status.ok()) return unreachable(*peer, reasonOf(status, Clock::now() >= deadline));
  return node.fromString(description.node()) == 0 ? 0 : unreachable(*peer, "its node has no id");
}

// --- The file of nodes -------------------------------------------------------------------------------------

namespace {

using Nodes = std::map<KFLEID, std::string>;

// A line without its comment: 0, or -1 with an error text.
int readNode(const std::string& line, Nodes& nodes) {
  KFL::getToken tokens(line.c_str(), " \t\r");
  std::vector<std::string> words;
  while (const char* const word = tokens.get(nullptr))
    words.emplace_back(word);
  if (words.empty()) return 0;
  KFLEID eid;
  if (words.size() != 2 || eid.fromString(words[0]) != 0) {
    setErrorMessage("'%s' is no node; ID HOST[:PORT] would be right", line.c_str());
    return -1;
  }
  if (checkRemoteAddress(words[1]) != 0) return -1;
  if (nodes.emplace(eid, words[1]).second) return 0;
  setErrorMessage("%s has an address already; one line for each id would be right", words[0].c_str());
  return -1;
}

}  // namespace

std::function<int(const KFLEID& eid, std::string& address)> readRemoteNodes(const std::string& path) {
  std::string text;
  if (KFAConfigFile(path).read(text) != 0) return {};
  const auto nodes = std::make_shared<Nodes>();
  std::size_t row = 1;
  for (std::size_t at = 0; at < text.size(); ++row) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end - at);
    if (readNode(line.substr(0, line.find('#')), *nodes) != 0) {
      const std::string reason = getErrorMessage();
      setErrorMessage("%s:%zu: %s", path.c_str(), row, reason.c_str());
      return {};
    }
    at = end + 1;
  }
  return [nodes, path](const KFLEID& eid, std::string& address) {
    const auto found = nodes->find(eid);
    if (found == nodes->end()) {
      setErrorMessage("%s has no line for %s", path.c_str(), eid.toString().c_str());
      return -1;
    }
    address = found->second;
    return 0;
  };
}

}  // namespace KFA
