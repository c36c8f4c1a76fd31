// SPDX-License-Identifier: Apache-2.0
// A connection to an environment, as the one who made it is told. A plain value.
#ifndef KFAFUNCTIONALITY_ENVIRONMENT_KFACONNECTIONLINKINFO_H
#define KFAFUNCTIONALITY_ENVIRONMENT_KFACONNECTIONLINKINFO_H

#include <string>

#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAConnectionLinkInfo {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAConnectionLinkInfo>;
  // Fails without a link; everything else that is absent is empty, or 0.
  using Reader = KFLRecordReader<KFAConnectionLinkInfo>;

  const std::string& getClientAddress() const { return clientAddress_; }
  void setClientAddress(const std::string& address) { clientAddress_ = address; }
  int getClientPort() const { return clientPort_; }
  void setClientPort(int port) { clientPort_ = port; }
  // Where the client has to go.
  const std::string& getLink() const { return link_; }
  void setLink(const std::string& link) { link_ = link; }
  // The port at the other end.
  int getPort() const { return port_; }
  void setPort(int port) { port_ = port; }

 private:
  std::string clientAddress_;
  int clientPort_ = 0;
  std::string link_;
  int port_ = 0;
};

}  // namespace KFA

#endif
