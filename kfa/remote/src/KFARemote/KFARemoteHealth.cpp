// SPDX-License-Identifier: Apache-2.0
#include <KFARemote/KFARemoteHealth.h>

#include <chrono>
#include <utility>

#include <google/protobuf/message_lite.h>
#include <grpcpp/impl/codegen/proto_utils.h>
#include <grpcpp/support/method_handler.h>

namespace KFA {

namespace {

// Each takes a thread.
constexpr int kMostWatching = 16;
// How soon it is noticed that a watcher has gone.
constexpr auto kLook = std::chrono::seconds(1);

}  // namespace

KFARemoteHealth::KFARemoteHealth(std::string service) : service_(std::move(service)) {
  using grpc::internal::RpcMethod;
  using grpc::internal::RpcServiceMethod;
  AddMethod(new RpcServiceMethod(
      "/grpc.health.v1.Health/Check", RpcMethod::NORMAL_RPC,
      new grpc::internal::RpcMethodHandler<KFARemoteHealth, Request, Response, google::protobuf::MessageLite,
                                           google::protobuf::MessageLite>(
          [](KFARemoteHealth* self, grpc::ServerContext*, const Request* request, Response* response) {
            return self->check(*request, *response);
          },
          this)));
  AddMethod(new RpcServiceMethod(
      "/grpc.health.v1.Health/Watch", RpcMethod::SERVER_STREAMING,
      new grpc::internal::ServerStreamingHandler<KFARemoteHealth, Request, Response>(
          [](KFARemoteHealth* self, grpc::ServerContext* context, const Request* request,
             grpc::ServerWriter<Response>* writer) { return self->watch(*context, *request, *writer); },
          this)));
}

void KFARemoteHealth::end() {
  const std::lock_guard guard(mutex_);
  isOver_ = true;
  ending_.notify_all();
}

bool KFARemoteHealth::isKnown(const Request& request) const {
  return request.service().empty() || request.service() == service_;
}

grpc::Status KFARemoteHealth::check(const Request& request, Response& response) {
  if (!isKnown(request)) return {grpc::StatusCode::NOT_FOUND, "there is no such service"};
  const std::lock_guard guard(mutex_);
  response.set_status(isOver_ ? Response::NOT_SERVING : Response::SERVING);
  return grpc::Status::OK;
}

grpc::Status KFARemoteHealth::watch(const grpc::ServerContext& context, const Request& request,
                                    grpc::ServerWriter<Response>& writer) {
  std::unique_lock lock(mutex_);
  if (watching_ == kMostWatching)
    return {grpc::StatusCode::RESOURCE_EXHAUSTED, "too many watch this server; ask it now and then instead"};
  ++watching_;
  const auto tell = [&] {
    Response response;
    response.set_status(!isKnown(request) ? Response::SERVICE_UNKNOWN
                        : isOver_         ? Response::NOT_SERVING
                                          : Response::SERVING);
    lock.unlock();
    const bool isThere = writer.Write(response);
    lock.lock();
    return isThere;
  };
  const bool wasOver = isOver_;
  bool isThere = tell();
  while (isThere && !isOver_) {
    ending_.wait_for(lock, kLook);
    isThere = !context.IsCancelled();
  }
  if (isThere && !wasOver) tell();
  --watching_;
  return grpc::Status::OK;
}

}  // namespace KFA
