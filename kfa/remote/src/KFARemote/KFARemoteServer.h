// SPDX-License-Identifier: Apache-2.0
// Serves the managers of this process to other agents, over gRPC with certificates on both ends.
//
//   KFARemoteServer server(managers, options);
//   if (server.start() != 0) puts(KFL::getErrorMessage().c_str());
//   ...
//   server.stop(std::chrono::seconds(30));
//
// Every call goes to the local managers; a manager that passes a call on to another agent is refused there, so that
// two agents never pass one to and fro. Refusals (as warnings) and changes (as information) are logged with the
// caller's name. The threads that the calls run on are the server's own. The server also answers gRPC's health and
// reflection services, to anybody whose certificate is accepted.
//
// In a child that was forked after the process had begun to use gRPC (KFARemoteConnection.h), no server can be
// started, and stopping or destroying an inherited one does nothing: the sockets stay the parent's, and the child's
// copies of them stay open until it ends or runs another program.
#ifndef KFAREMOTE_KFAREMOTESERVER_H
#define KFAREMOTE_KFAREMOTESERVER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <KFAFunctionality/access/KFAFilesM.h>
#include <KFAFunctionality/access/KFALibFunctionality.h>

#include <KFARemote/KFARemoteTypes.h>

namespace KFA {

struct KFARemoteServerOptions {
  std::vector<std::string> addresses;  // "HOST:PORT" to listen on; port 0 is any free one
  std::vector<int> listening;  // descriptors that listen already; the server closes them when it stops
  KFARemoteIdentity identity;
  std::string accessFile;  // KFARemoteAccess.h has its form
  KFLEID node;             // this node; an empty id means it, too
  // Whether an environment, or another node, is served here. Called from any thread; empty: everything is.
  std::function<bool(const KFLEID&)> serves;
  // The files of the node's environments; empty: they are not offered.
  boost::shared_ptr<KFAFilesM> files;

  std::size_t maxRequestBytes = std::size_t{16} << 20;
  // Of what all connections have received and nobody has taken yet, requests that are too long included; beyond it
  // calls are cut off.
  std::size_t maxReceivedBytes = std::size_t{128} << 20;
  int maxCalls = 64;          // at work at once; a further one is KFAManagerBusy
  int maxCallsOfCaller = 16;  // the same for one name
  int handshakeSeconds = 10;  // a connection that says nothing is closed
};

// On whose behalf a manager is asked for by the server: the caller, by the first name in its certificate.
class KFARemoteCaller : public KFLAccessProviderPrototype {
 public:
  explicit KFARemoteCaller(const std::string& name) : name_(name) {}
  const std::string& getName() const { return name_; }
  // None: all is local.
  KFLConnectionSP getConnection() const override { return {}; }

 protected:
  ~KFARemoteCaller() override = default;

 private:
  std::string name_;
};

class KFARemoteServer {
 public:
  // The managers must outlive the server.
  KFARemoteServer(const KFALibFunctionality& managers, const KFARemoteServerOptions& options);
  KFARemoteServer(const KFARemoteServer&) = delete;
  KFARemoteServer& operator=(const KFARemoteServer&) = delete;
  // Stops at once.
  ~KFARemoteServer();

  // 0, or -1 with an error text: the files, an address, an access line.
  int start();
  // The ports, in the order of the addresses.
  const std::vector<int>& getPorts() const;
  // Takes no more calls, and waits until those at work have ended or the time is over; then they are cut off.
  void stop(std::chrono::milliseconds grace);

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace KFA

#endif
