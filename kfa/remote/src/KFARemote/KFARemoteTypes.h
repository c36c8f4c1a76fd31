// SPDX-License-Identifier: Apache-2.0
// What both ends of a remote connection share: where a process's own certificate is.
#ifndef KFAREMOTE_KFAREMOTETYPES_H
#define KFAREMOTE_KFAREMOTETYPES_H

#include <string>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

// The module name in log messages.
inline constexpr const char* kRemoteModule = "KFARemote";

// The port of agents.
inline constexpr int kRemotePort = 6434;

// Whether the port in an address, "HOST" or "HOST:PORT", is one from the lowest to 65535: 0, or -1 with an error text.
int checkRemoteAddress(const std::string& address, int lowestPort = 1);

// The files of a process's certificate, in PEM form. They are read again within seconds after they have changed;
// connections that are open stay as they are.
struct KFARemoteIdentity {
  std::string certificate;  // with those between it and the authority behind it
  std::string key;
  std::string authority;   // the certificates of the authorities whose word is taken for the other end
  int reloadSeconds = 10;  // how often the files are looked at; from 1

  // Whether all three files can be read and the certificate belongs to the key: 0, or -1 with an error text.
  int check() const;
};

}  // namespace KFA

#endif
