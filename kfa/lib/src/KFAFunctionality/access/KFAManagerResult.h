// SPDX-License-Identifier: Apache-2.0
// What the operations of every manager have in common: their results, and what the results mean.
//
// A manager is an interface that the agent's own libraries implement, once for this process and once for talking
// to another agent; callers obtain one through KFALibFunctionality and cannot tell which it is. An operation
// returns one of the codes below; before a negative one it leaves an error text with the calling thread
// (KFL::getErrorMessage) that says what was wrong, where, and what would be right. Results are put into the last
// argument, which is untouched unless the operation is done; lists are replaced, never appended to. A manager may
// be called from any thread.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAMANAGERRESULT_H
#define KFAFUNCTIONALITY_ACCESS_KFAMANAGERRESULT_H

#include <KFLCommon/KFLLanguage.h>

namespace KFA {

enum KFAManagerResult : int {
  KFAManagerDone = 0,
  KFAManagerFailed = -1,       // the arguments are refused, or the work failed; nothing has changed
  KFAManagerNotFound = -2,     // there is no such environment, template, process, ...
  KFAManagerDenied = -3,       // the one on whose behalf the manager was asked for may not do this
  KFAManagerBusy = -4,         // another change of the same thing is under way; later it may work
  KFAManagerUnreachable = -5,  // the other agent did not answer; whether it did the work is not known
};

}  // namespace KFA

#endif
