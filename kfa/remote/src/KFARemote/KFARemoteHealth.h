// SPDX-License-Identifier: Apache-2.0
// Not installed: gRPC's health checking protocol, grpc.health.v1.
//
// The engine has a service for it, but on threads of its own, which take the events of all other calls, too, and hand
// them on: each call would wait for one thread more.
#ifndef KFAREMOTE_KFAREMOTEHEALTH_H
#define KFAREMOTE_KFAREMOTEHEALTH_H

#include <condition_variable>
#include <mutex>
#include <string>

#include <grpcpp/grpcpp.h>
#include <grpcpp/impl/service_type.h>

#include <KFARemote/health.pb.h>

#pragma GCC visibility push(hidden)

namespace KFA {

// Of the whole server and of one service of it, which serve from the beginning to the end. Any thread.
class KFARemoteHealth final : public grpc::Service {
 public:
  explicit KFARemoteHealth(std::string service);

  // Who watches is told that nothing is served any more, and let go.
  void end();

 private:
  using Request = kfa::remote::health::CheckRequest;
  using Response = kfa::remote::health::CheckResponse;

  bool isKnown(const Request& request) const;
  grpc::Status check(const Request& request, Response& response);
  grpc::Status watch(const grpc::ServerContext& context, const Request& request,
                     grpc::ServerWriter<Response>& writer);

  const std::string service_;
  std::mutex mutex_;
  std::condition_variable ending_;
  bool isOver_ = false;
  int watching_ = 0;
};

}  // namespace KFA

#pragma GCC visibility pop

#endif
