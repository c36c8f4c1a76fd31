// SPDX-License-Identifier: Apache-2.0
// A service of the service environment that serves other environments: what is asked of one of them under the
// port is redirected there. A plain value.
#ifndef KFAFUNCTIONALITY_ENVIRONMENT_KFAREDIRECTSERVICE_H
#define KFAFUNCTIONALITY_ENVIRONMENT_KFAREDIRECTSERVICE_H

#include <string>

#include <KFLFunctionality/KFLIPAddress.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFARedirectService {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFARedirectService>;
  // Fails without a name, a port or an address.
  using Reader = KFLRecordReader<KFARedirectService>;

  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  int getPort() const { return port_; }
  void setPort(int port) { port_ = port; }
  const KFLIPAddress& getAddress() const { return address_; }
  void setAddress(const KFLIPAddress& address) { address_ = address; }
  // Whether new environments are served from the start.
  bool getDefault() const { return default_; }
  void setDefault(bool isDefault) { default_ = isDefault; }

 private:
  std::string name_;
  int port_ = 0;
  KFLIPAddress address_;
  bool default_ = false;
};

}  // namespace KFA

#endif
