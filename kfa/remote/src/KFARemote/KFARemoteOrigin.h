// SPDX-License-Identifier: Apache-2.0
// Whether this thread works on a call that came from another agent, so that it is not passed on. Not installed.
#ifndef KFAREMOTE_KFAREMOTEORIGIN_H
#define KFAREMOTE_KFAREMOTEORIGIN_H

#pragma GCC visibility push(hidden)

namespace KFA {

class KFARemoteOrigin {
 public:
  // From here to its end the thread works on such a call.
  KFARemoteOrigin() { ++depth(); }
  KFARemoteOrigin(const KFARemoteOrigin&) = delete;
  KFARemoteOrigin& operator=(const KFARemoteOrigin&) = delete;
  ~KFARemoteOrigin() { --depth(); }

  static bool isRemote() { return depth() > 0; }

 private:
  static int& depth();
};

}  // namespace KFA

#pragma GCC visibility pop

#endif
