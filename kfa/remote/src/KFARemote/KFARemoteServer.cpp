// SPDX-License-Identifier: Apache-2.0
#include <KFARemote/KFARemoteServer.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <map>
#include <thread>
#include <utility>

#include <grpcpp/ext/proto_server_reflection_plugin.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/resource_quota.h>
#include <grpcpp/security/tls_credentials_options.h>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFAFunctionality/access/KFAManagerOperations.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLMessage.h>

#include <KFARemote/KFARemoteAccess.h>
#include <KFARemote/KFARemoteChanges.h>
#include <KFARemote/KFARemoteFork.h>
#include <KFARemote/KFARemoteHealth.h>
#include <KFARemote/KFARemoteOrigin.h>
#include <KFARemote/agent.grpc.pb.h>

namespace KFA {

namespace {

namespace wire = kfa::remote::v4;
using Names = std::vector<std::string>;

// A reply is sent when it holds this much.
constexpr std::size_t kReplyBytes = std::size_t{64} << 10;

// The names in the caller's certificate, those that it is for before its common name.
Names namesOf(const grpc::ServerContext& context) {
  Names names;
  for (const char* const property : {GRPC_X509_SAN_PROPERTY_NAME, GRPC_X509_CN_PROPERTY_NAME}) {
    for (const grpc::string_ref& name : context.auth_context()->FindPropertyValues(property))
      names.emplace_back(name.data(), name.size());
  }
  if (names.empty()) names.emplace_back("(a certificate without a name)");
  return names;
}

// The text as the engine takes it, which refuses a whole reply for a byte that is not UTF-8.
std::string plainOf(std::string_view text) {
  std::string plain;
  for (std::size_t bad = 0; !KFL::isUtf8(text, &bad);) {
    char escape[5];
    std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(text[bad]));
    plain.append(text.substr(0, bad)).append(escape);
    text.remove_prefix(bad + 1);
  }
  return plain.append(text);
}

// Gathers the parts of a result into replies.
class Replies {
 public:
  explicit Replies(grpc::ServerWriter<wire::CallReply>& writer) : writer_(writer) {}

  // One part, in pieces: whether the caller is still there.
  bool add(std::string_view part) {
    do {
      const std::string_view piece = part.substr(0, kReplyBytes);
      part.remove_prefix(piece.size());
      reply_.add_pieces(piece.data(), piece.size());
      bytes_ += piece.size() + 8;
      reply_.set_goes_on(!part.empty());
      if (bytes_ >= kReplyBytes && !send()) return false;
    } while (!part.empty());
    return true;
  }
  void end(int code, const std::string& text, bool otherInstance = false) {
    wire::Outcome* const outcome = reply_.mutable_outcome();
    outcome->set_code(code);
    outcome->set_text(plainOf(text));
    outcome->set_other_instance(otherInstance);
    // Goes out with the end of the stream, in one write.
    writer_.WriteLast(reply_, grpc::WriteOptions());
  }
  void refuse(int code, const std::string& text) {
    reply_.mutable_outcome()->set_refused(true);
    end(code, text);
  }

 private:
  bool send() {
    const bool isThere = writer_.Write(reply_);
    reply_.Clear();
    bytes_ = 0;
    return isThere;
  }

  grpc::ServerWriter<wire::CallReply>& writer_;
  wire::CallReply reply_;
  std::size_t bytes_ = 0;
};

// How many calls are at work, in all and of each caller.
class Load {
 public:
  Load(int most, int mostOfOne) : most_(most), mostOfOne_(mostOfOne) {}

  // 0, or -1 with an error text.
  int enter(const std::string& caller) KFL_EXCLUDES(lock_) {
    const KFLLockGuard guard(lock_);
    const auto found = ofCallers_.find(caller);
    const int own = found == ofCallers_.end() ? 0 : found->second;
    if (all_ >= most_ || own >= mostOfOne_) {
      setErrorMessage("the agent is at work on %d calls, %d of them yours; ask again later", all_, own);
      return -1;
    }
    ++all_;
    ++ofCallers_[caller];
    return 0;
  }
  void leave(const std::string& caller) KFL_EXCLUDES(lock_) {
    const KFLLockGuard guard(lock_);
    --all_;
    if (--ofCallers_[caller] == 0) ofCallers_.erase(caller);
  }

 private:
  const int most_;
  const int mostOfOne_;
  KFLLock lock_;
  int all_ KFL_GUARDED_BY(lock_) = 0;
  std::map<std::string, int> ofCallers_ KFL_GUARDED_BY(lock_);
};

// The text belongs to the code: a manager that is done may have left the text of something earlier.
std::string textOf(int code) {
  return code < 0 ? getErrorMessage() : std::string();
}

}  // namespace

int& KFARemoteOrigin::depth() {
  static thread_local int depth = 0;
  return depth;
}

class KFL_HIDDEN KFARemoteServer::Implementation final : public wire::Agent::Service {
 public:
  Implementation(const KFALibFunctionality& managers, const KFARemoteServerOptions& options)
      : managers_(managers),
        options_(options),
        access_(options.accessFile),
        load_(options.maxCalls, options.maxCallsOfCaller),
        instance_(KFLEID::generate().toString()) {}
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;
  ~Implementation() override { stop(std::chrono::milliseconds(0)); }

  int start();
  void stop(std::chrono::milliseconds grace);
  const std::vector<int>& getPorts() const { return ports_; }

  grpc::Status Describe(grpc::ServerContext* context, const wire::DescribeRequest* request,
                        wire::Description* description) override;
  grpc::Status Call(grpc::ServerContext* context, const wire::CallRequest* message,
                    grpc::ServerWriter<wire::CallReply>* writer) override;

 private:
  struct Request {
    const wire::CallRequest& message;
    const KFAManagerOperation* operation = nullptr;
    KFLMessage arguments;
    KFLEID environment;
    Names callers;
  };

  std::shared_ptr<grpc::ServerCredentials> makeCredentials() const;
  void configure(grpc::ServerBuilder& builder) const;
  void acceptConnections();

  int read(Request& request) const;
  int admit(const Request& request);
  int checkAbout(const std::string& about) const;
  void answer(const Request& request, Replies& replies);
  void answerChange(const Request& request, const grpc::ServerContext& context, Replies& replies);
  void repeatAnswer(const std::string& key, const grpc::ServerContext& context, Replies& replies);
  int doCall(const Request& request, const KFAPartSink& sink) const;

  const KFALibFunctionality& managers_;
  const KFARemoteServerOptions options_;
  KFARemoteAccess access_;
  KFARemoteChanges changes_;
  Load load_;
  const std::string instance_;
  std::vector<int> ports_;
  KFARemoteHealth health_{wire::Agent::service_full_name()};
  std::unique_ptr<grpc::experimental::ExternalConnectionAcceptor> acceptor_;
  std::unique_ptr<grpc::Server> server_;
  int wake_ = -1;  // tells the thread below to end
  std::thread accepting_;
};

// --- Starting and stopping ---------------------------------------------------------------------------------

std::shared_ptr<grpc::ServerCredentials> KFARemoteServer::Implementation::makeCredentials() const {
  const KFARemoteIdentity& identity = options_.identity;
  const auto provider = std::make_shared<grpc::experimental::FileWatcherCertificateProvider>(
      identity.key, identity.certificate, identity.authority,
      static_cast<unsigned int>(std::max(1, identity.reloadSeconds)));
  grpc::experimental::TlsServerCredentialsOptions options(provider);
  options.watch_root_certs();
  options.watch_identity_key_cert_pairs();
  options.set_cert_request_type(GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
  return grpc::experimental::TlsServerCredentials(options);
}

void KFARemoteServer::Implementation::configure(grpc::ServerBuilder& builder) const {
  constexpr int kHour = 3600 * 1000;
  builder.SetMaxReceiveMessageSize(static_cast<int>(options_.maxRequestBytes));
  builder.AddChannelArgument(GRPC_ARG_SERVER_HANDSHAKE_TIMEOUT_MS, options_.handshakeSeconds * 1000);
  builder.AddChannelArgument(GRPC_ARG_MAX_CONNECTION_IDLE_MS, kHour / 6);
  // A certificate that has expired, or a name that was taken back, is of no use for longer than this.
  builder.AddChannelArgument(GRPC_ARG_MAX_CONNECTION_AGE_MS, kHour);
  builder.AddChannelArgument(GRPC_ARG_MAX_CONCURRENT_STREAMS, options_.maxCalls);
  builder.AddChannelArgument(GRPC_ARG_ALLOW_REUSEPORT, 0);
  grpc::ResourceQuota quota("kfa-remote");
  // The limit of a request holds when all of it has come; until then this one does.
  quota.Resize(options_.maxReceivedBytes);
  quota.SetMaxThreads(2 * options_.maxCalls + 16);
  builder.SetResourceQuota(quota);
}

int KFARemoteServer::Implementation::start() {
  for (const std::string& address : options_.addresses)
    if (checkRemoteAddress(address, 0) != 0) return -1;
  if (options_.identity.check() != 0 || access_.load() != 0 || KFARemoteFork::enter() != 0) return -1;
  grpc::reflection::InitProtoReflectionServerBuilderPlugin();
  grpc::ServerBuilder builder;
  configure(builder);
  const auto credentials = makeCredentials();
  ports_.assign(options_.addresses.size(), 0);
  for (std::size_t i = 0; i < ports_.size(); ++i)
    builder.AddListeningPort(options_.addresses[i], credentials, &ports_[i]);
  if (!options_.listening.empty())
    acceptor_ = builder.experimental().AddExternalConnectionAcceptor(
        grpc::ServerBuilder::experimental_type::ExternalConnectionType::FROM_FD, credentials);
  builder.RegisterService(this);
  builder.RegisterService(&health_);
  server_ = builder.BuildAndStart();
  for (std::size_t i = 0; i < ports_.size(); ++i) {
    if (server_ && ports_[i] != 0) continue;
    setErrorMessage("cannot listen on %s; a free port of an address of this machine would be right",
                    options_.addresses[i].c_str());
    server_.reset();
    return -1;
  }
  if (!server_) {
    setErrorMessage("the server cannot be started");
    return -1;
  }
  if (acceptor_) {
    wake_ = eventfd(0, EFD_CLOEXEC);
    accepting_ = std::thread([this] { acceptConnections(); });
  }
  return 0;
}

void KFARemoteServer::Implementation::acceptConnections() {
  std::vector<pollfd> waited{{wake_, POLLIN, 0}};
  for (const int descriptor : options_.listening)
    waited.push_back({descriptor, POLLIN, 0});
  for (;;) {
    if (poll(waited.data(), waited.size(), -1) < 0 && errno != EINTR) return;
    if (waited.front().revents != 0) return;
    for (const pollfd& one : waited) {
      if (one.revents == 0) continue;
      const int connection = accept4(one.fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (connection < 0) {
        // Without descriptors the connection stays where it is; asking for it without a pause would not help.
        if (errno == EMFILE || errno == ENFILE) usleep(100000);
        continue;
      }
      grpc::experimental::ExternalConnectionAcceptor::NewConnectionParameters parameters;
      parameters.listener_fd = one.fd;
      parameters.fd = connection;
      acceptor_->HandleNewConnection(&parameters);
    }
  }
}

void KFARemoteServer::Implementation::stop(std::chrono::milliseconds grace) {
  if (!server_ || KFARemoteFork::isCutOff()) return;
  health_.end();
  if (accepting_.joinable()) {
    const std::uint64_t one = 1;
    if (write(wake_, &one, sizeof one) == sizeof one) accepting_.join();
    close(wake_);
    for (const int descriptor : options_.listening)
      close(descriptor);
  }
  server_->Shutdown(std::chrono::system_clock::now() + grace);
  server_->Wait();
  server_.reset();
}

// --- Calls -------------------------------------------------------------------------------------------------

grpc::Status KFARemoteServer::Implementation::Describe(grpc::ServerContext*, const wire::DescribeRequest*,
                                                       wire::Description* description) {
  description->set_version(KFA_VERSION);
  description->set_instance(instance_);
  description->set_node(options_.node.toString());
  return grpc::Status::OK;
}

grpc::Status KFARemoteServer::Implementation::Call(grpc::ServerContext* context,
                                                   const wire::CallRequest* message,
                                                   grpc::ServerWriter<wire::CallReply>* writer) {
  Replies replies(*writer);
  Request request{*message, nullptr, KFLMessage(), KFLEID(), namesOf(*context)};
  int code = read(request);
  if (code == KFAManagerDone) code = admit(request);
  if (code == KFAManagerDone && load_.enter(request.callers.front()) != 0) code = KFAManagerBusy;
  if (code != KFAManagerDone) {
    const std::string text = getErrorMessage();
    KFL_LOG(kRemoteModule, kLogWarning, "[%s] refused %s.%s to %s: %s", __func__, message->manager().c_str(),
            message->operation().c_str(), request.callers.front().c_str(), text.c_str());
    replies.refuse(code, text);
    return grpc::Status::OK;
  }
  if (request.operation->kind == KFAOperationKind::Read)
    answer(request, replies);
  else
    answerChange(request, *context, replies);
  load_.leave(request.callers.front());
  return grpc::Status::OK;
}

// What the request says: 0, or a code with an error text.
int KFARemoteServer::Implementation::read(Request& request) const {
  const wire::CallRequest& message = request.message;
  request.operation = findManagerOperation(message.manager(), message.operation());
  if (request.operation == nullptr) {
    setErrorMessage("there is no operation %s.%s at this agent", message.manager().c_str(),
                    message.operation().c_str());
    return KFAManagerFailed;
  }
  if (request.arguments.parse(message.arguments()) != 0) {
    const std::string reason = getErrorMessage();
    setErrorMessage("the arguments of %s.%s cannot be read: %s", message.manager().c_str(),
                    message.operation().c_str(), reason.c_str());
    return KFAManagerFailed;
  }
  return getEnvironmentOfCall(*request.operation, request.arguments, request.environment);
}

// Whether the caller may do it, here: 0, or a code with an error text.
int KFARemoteServer::Implementation::admit(const Request& request) {
  const KFAManagerOperation& operation = *request.operation;
  if (!access_.allow(request.callers, operation, request.environment)) {
    setErrorMessage("%s may not call %s.%s of %s", request.callers.front().c_str(), operation.manager,
                    operation.name,
                    request.environment.isValid() ? request.environment.toString().c_str() : "this node");
    return KFAManagerDenied;
  }
  KFLEID id;
  if (operation.kind != KFAOperationKind::Read && id.fromString(request.message.change_id()) != 0) {
    setErrorMessage("%s.%s has the change id '%s'; a GUID would be right", operation.manager, operation.name,
                    request.message.change_id().c_str());
    return KFAManagerFailed;
  }
  return checkAbout(request.message.about());
}

int KFARemoteServer::Implementation::checkAbout(const std::string& about) const {
  KFLEID eid;
  if (about.empty()) return KFAManagerDone;
  if (eid.fromString(about) != 0) return KFAManagerFailed;
  if (!eid.isValid() || eid == options_.node || !options_.serves || options_.serves(eid))
    return KFAManagerDone;
  setErrorMessage("%s is not served by this agent; its node is %s", about.c_str(),
                  options_.node.toString().c_str());
  return KFAManagerNotFound;
}

// A manager is other people's code: what it throws ends the call and not the agent.
int KFARemoteServer::Implementation::doCall(const Request& request, const KFAPartSink& sink) const {
  const KFARemoteOrigin origin;
  const KFLAccessProviderSP caller(new KFARemoteCaller(request.callers.front()));
  const KFAPartForm form = request.message.packed() ? KFAPartForm::Packed : KFAPartForm::Text;
  std::string reason = "an exception that is not known";
  try {
    if (options_.files && request.message.manager() == kFilesManager)
      return answerFilesCall(*request.operation, *options_.files, request.arguments, sink, form);
    return answerManagerCall(*request.operation, managers_, caller, request.message.implementation(),
                             request.arguments, sink, form);
  } catch (const std::exception& error) {
    reason = error.what();
  } catch (...) {
  }
  const bool isRead = request.operation->kind == KFAOperationKind::Read;
  setErrorMessage("%s.%s ended without a result: %s%s", request.operation->manager, request.operation->name,
                  reason.c_str(), isRead ? "" : "; whether the change was made is not known");
  KFL_LOG(kRemoteModule, kLogError, "[%s] %s", __func__, getErrorMessage().c_str());
  return KFAManagerUnreachable;
}

// That the caller has gone is seen when a reply is sent; to ask for it at each part would cost as much as the part.
void KFARemoteServer::Implementation::answer(const Request& request, Replies& replies) {
  const int code = doCall(request, [&](const std::string& part) { return replies.add(part) ? 0 : -1; });
  replies.end(code, textOf(code));
}

// Once begun, a change goes on to its end whether or not the caller still listens.
void KFARemoteServer::Implementation::answerChange(const Request& request, const grpc::ServerContext& context,
                                                   Replies& replies) {
  const wire::CallRequest& message = request.message;
  if (message.instance() != instance_) {
    replies.end(KFAManagerUnreachable, "the agent is not the one that was meant: it was started anew", true);
    return;
  }
  const std::string& caller = request.callers.front();
  const std::string key = message.change_id() + caller;
  const std::string name = message.manager() + "." + message.operation();
  const char* const form = message.packed() ? "\npacked\n" : "\n";
  switch (changes_.begin(key, name + "\n" + message.implementation() + form + message.arguments())) {
    case KFARemoteChanges::Admission::Repeated:
      repeatAnswer(key, context, replies);
      return;
    case KFARemoteChanges::Admission::Foreign:
      replies.end(KFAManagerFailed, "the change id was given to another change");
      return;
    case KFARemoteChanges::Admission::Full:
      replies.end(KFAManagerBusy, "too many changes were asked for; ask again later");
      return;
    case KFARemoteChanges::Admission::New:
      break;
  }
  KFARemoteAnswer answer;
  answer.code = doCall(request, [&](const std::string& part) {
    answer.parts.push_back(part);
    return 0;
  });
  answer.text = textOf(answer.code);
  KFL_LOG(kRemoteModule, kLogInfo, "[%s] %s called %s of %s: %d %s", __func__, caller.c_str(), name.c_str(),
          request.environment.isValid() ? request.environment.toString().c_str() : "the node", answer.code,
          answer.text.c_str());
  // A caller that takes its answer slowly keeps no repeat waiting.
  changes_.end(key, answer);
  for (const std::string& part : answer.parts)
    replies.add(part);
  replies.end(answer.code, answer.text);
}

void KFARemoteServer::Implementation::repeatAnswer(const std::string& key, const grpc::ServerContext& context,
                                                   Replies& replies) {
  const auto answer = changes_.wait(key, [&] { return context.IsCancelled(); });
  if (!answer) {
    replies.end(KFAManagerUnreachable, "the change has not ended yet");
    return;
  }
  if (!answer->partsAreKept) {
    replies.end(KFAManagerUnreachable, "the change was made, but its result is not kept");
    return;
  }
  for (const std::string& part : answer->parts)
    replies.add(part);
  replies.end(answer->code, answer->text);
}

// --- The server --------------------------------------------------------------------------------------------

KFARemoteServer::KFARemoteServer(const KFALibFunctionality& managers, const KFARemoteServerOptions& options)
    : implementation_(std::make_unique<Implementation>(managers, options)) {}

KFARemoteServer::~KFARemoteServer() {
  if (KFARemoteFork::isCutOff()) static_cast<void>(implementation_.release());
}

int KFARemoteServer::start() {
  return implementation_->start();
}
const std::vector<int>& KFARemoteServer::getPorts() const {
  return implementation_->getPorts();
}
void KFARemoteServer::stop(std::chrono::milliseconds grace) {
  implementation_->stop(grace);
}

}  // namespace KFA
