// SPDX-License-Identifier: Apache-2.0
// Reaches the managers of other agents, over gRPC with certificates on both ends.
//
//   const KFARemoteConnectionSP connection(new KFARemoteConnection(options));
//   connection->registerAgents(managers, kTechnology);
//   managers.getKFAEnvM(eid, ap, kTechnology)->getConfig(eid, config);
//
// Where an id is served is told by the extra data of the implementation's name ("HOST:PORT"), or else by the function
// or the file of nodes in the options. Each address has one channel, which all managers share, and which reconnects by
// itself with growing waits. What is undelivered, or was answered too late, is KFAManagerUnreachable with the reason.
// Something that only reads is sent again while nothing of its answer has come. A change carries an id by which the
// other agent knows it again, so that it is sent again too and still made once; to an agent that was started anew
// meanwhile it is not. The text says so where it is not known whether a change was made.
//
// gRPC does not survive a fork. In a child of a process that had made a channel, or started a server, every call of
// every connection is KFAManagerUnreachable at once with a text that says so, and what the child inherited may be
// destroyed: the parent's links stay as they are. A child that was forked before may use everything.
//
// As a KFLConnection it knows which environments are served in this process: see KFLProcessConnection. Any thread.
#ifndef KFAREMOTE_KFAREMOTECONNECTION_H
#define KFAREMOTE_KFAREMOTECONNECTION_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFAFunctionality/access/KFAManagerStub.h>
#include <KFLConnection/KFLProcessConnection.h>

#include <KFARemote/KFARemoteTypes.h>

namespace KFA {

struct KFARemoteConnectionOptions {
  KFARemoteIdentity identity;
  // The address of the agent that serves a node or an environment: 0, or -1 with an error text.
  std::function<int(const KFLEID& eid, std::string& address)> findAddress;
  // How long a call may take, from its beginning to the last part of its answer.
  std::chrono::milliseconds readTimeout = std::chrono::seconds(60);
  std::chrono::milliseconds changeTimeout = std::chrono::minutes(10);
  // How often a call is sent at most; the waits between grow from 0.1 s to 1.6 s.
  int attempts = 4;
  // The name that the other end's certificate must have instead of the host's; empty: the host's.
  std::string expectedName;
};

// The addresses of a file of nodes, for findAddress: one line for each id, "ID HOST[:PORT]"; # begins a comment. Empty,
// with an error text, when the file cannot be read.
std::function<int(const KFLEID& eid, std::string& address)> readRemoteNodes(const std::string& path);

class KFARemoteConnection : public KFLProcessConnection {
 public:
  explicit KFARemoteConnection(const KFARemoteConnectionOptions& options);

  // Whether the files of the certificate are in order: 0, or -1 with an error text. A connection works without this; its
  // calls then say what the matter is.
  int check() const;

  // Puts agent factories for all managers under this name: 0, or -1 with an error text when one is taken. They keep the
  // connection alive.
  int registerAgents(KFALibFunctionality& managers, const std::string& implementation);

  // The way to the agent at an address ("HOST" or "HOST:PORT"), on behalf of what is asked for an id there; an empty id
  // is that agent's node. Never empty.
  boost::shared_ptr<KFAManagerChannel> getChannel(const std::string& address, const KFLEID& about,
                                                  const std::string& implementation);
  // The same to the agent that serves an id; calls fail when there is none.
  boost::shared_ptr<KFAManagerChannel> findChannel(const KFLEID& eid, const std::string& implementation);

  // The id of the node at an address: 0, or KFAManagerUnreachable with an error text.
  int getNode(const std::string& address, KFLEID& node);

 protected:
  ~KFARemoteConnection() override;

 private:
  class Implementation;
  const std::shared_ptr<Implementation> implementation_;
};

using KFARemoteConnectionSP = boost::intrusive_ptr<KFARemoteConnection>;

}  // namespace KFA

#endif
