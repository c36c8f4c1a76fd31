// SPDX-License-Identifier: Apache-2.0
// Managers that stand in this process for those of another agent: each operation becomes a message that a channel
// carries there, and the answer is put where a local manager would put it.
//
// For the authors of transports: derive a channel, and let an agent factory hand out makeManagerStub of it.
// KFAManagerOperations.h is the other end.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAMANAGERSTUB_H
#define KFAFUNCTIONALITY_ACCESS_KFAMANAGERSTUB_H

#include <string>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFAFunctionality/access/KFAManagerOperations.h>

namespace KFA {

// The way to another agent. Called from any thread, by several at a time.
class KFAManagerChannel {
 public:
  virtual ~KFAManagerChannel();
  // Carries a call there and hands each part of the result to the sink, in their order and either form; a sink that gives anything but
  // 0 wants no more. The other agent's code with its error text; KFAManagerUnreachable with the reason when it did not
  // answer.
  virtual int call(const KFAManagerOperation& operation, const std::string& arguments,
                   const KFAPartSink& sink) = 0;

 protected:
  KFAManagerChannel() = default;
  KFAManagerChannel(const KFAManagerChannel&) = default;
  KFAManagerChannel& operator=(const KFAManagerChannel&) = default;
};

// A manager of each kind whose operations go through the channel; its own operations may be called from any thread.
// Results as KFAManagerResult.h has them. An argument without a message form is KFAManagerFailed, and nothing is sent;
// an answer that cannot be read is KFAManagerUnreachable.
template <class Manager>
boost::shared_ptr<Manager> makeManagerStub(const boost::shared_ptr<KFAManagerChannel>& channel);

}  // namespace KFA

#endif
