// SPDX-License-Identifier: Apache-2.0
// The operations of all managers as data: how their arguments and results stand in messages, and how a call that came
// as a message is done here. What an agent's transport is built on; KFAManagerStub.h is the caller's half.
//
//   arguments   <arguments xmlns="..."> with one element for each argument, in their order, named as in the table
//   result      a sequence of parts, each <result xmlns="..."> with one value, record or object; a list is one part
//               for each item, so that no message has to hold all of it
//
// A list among the arguments is one element that holds an <item> each. The table is constant; any thread.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAMANAGEROPERATIONS_H
#define KFAFUNCTIONALITY_ACCESS_KFAMANAGEROPERATIONS_H

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include <boost/function.hpp>

#include <KFAFunctionality/access/KFALibFunctionality.h>
#include <KFAFunctionality/access/KFAManagerResult.h>

namespace KFL {
class KFLMessage;
}

namespace KFA {

// What a caller must be trusted with. Each includes the ones before it.
enum class KFAOperationKind {
  Read,    // leaves everything as it is
  Change,  // changes what can be changed back
  All,     // runs programs, installs software, or takes away what does not come back
};

// How a part of a result is handed on: as the text of its message, or in the packed form (KFLMessage.h), for a transport
// that carries it to a caller who has said that he reads that.
enum class KFAPartForm { Text, Packed };

// Takes one part of a result, in either form: 0, or anything else when no more are wanted.
using KFAPartSink = boost::function<int(const std::string& part)>;

struct KFAManagerOperation {
  static constexpr std::size_t kMaxParameters = 3;
  using Answer = int (*)(const KFAManagerOperation& operation, const KFALibFunctionality& managers,
                         const KFLAccessProviderSP& ap, const std::string& implementation,
                         const KFLMessage& arguments, const KFAPartSink& sink, KFAPartForm form);

  const char* manager;  // such as "environments"
  const char* name;     // as the member function is called
  KFAOperationKind kind;
  std::array<const char*, kMaxParameters> parameters;  // their names; the result is the last
  std::size_t argumentCount;
  bool hasResult;
  bool isList;              // any number of parts; a result that is no list is one part
  bool isAboutEnvironment;  // the first argument is the id of an environment
  Answer answer;
};

// Those of an implementation's managers, those of one manager together.
std::span<const KFAManagerOperation> listManagerOperations();
// One of them, or of the node's files (KFAFilesM.h). Null when there is none.
const KFAManagerOperation* findManagerOperation(std::string_view manager, std::string_view name);

// The environment that a call is about: 0, or -1 with an error text when the argument is not there or no id; an
// invalid id for an operation that is about the node.
int getEnvironmentOfCall(const KFAManagerOperation& operation, const KFLMessage& arguments, KFLEID& eid);

// Does a call with the local manager of this implementation, never with another agent's. The result goes to the sink
// when the manager is done; a part or argument that has no message form makes it fail. Gives the manager's code, with
// the error text as it left it; KFAManagerUnreachable when what was done cannot be told.
int answerManagerCall(const KFAManagerOperation& operation, const KFALibFunctionality& managers,
                      const KFLAccessProviderSP& ap, const std::string& implementation,
                      const KFLMessage& arguments, const KFAPartSink& sink, KFAPartForm form);
// The same, with texts.
int answerManagerCall(const KFAManagerOperation& operation, const KFALibFunctionality& managers,
                      const KFLAccessProviderSP& ap, const std::string& implementation,
                      const KFLMessage& arguments, const KFAPartSink& sink);

}  // namespace KFA

#endif
