// SPDX-License-Identifier: Apache-2.0
// Keeps a forked child away from gRPC, whose threads and locks it has not got and whose sockets it shares. Not
// installed.
#ifndef KFAREMOTE_KFAREMOTEFORK_H
#define KFAREMOTE_KFAREMOTEFORK_H

#pragma GCC visibility push(hidden)

namespace KFA {

class KFARemoteFork {
 public:
  // Before gRPC is used: 0, or -1 with an error text in a child of a process that had used it before.
  static int enter();
  // Whether this is such a child: what uses gRPC is left as it is, and not destroyed.
  static bool isCutOff();
};

// For std::shared_ptr.
struct KFARemoteDelete {
  template <class T>
  void operator()(T* object) const {
    if (!KFARemoteFork::isCutOff()) delete object;
  }
};

}  // namespace KFA

#pragma GCC visibility pop

#endif
