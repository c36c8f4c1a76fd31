// SPDX-License-Identifier: Apache-2.0
// The manager of processes: those of an environment, and running a command in it. Results and threads:
// KFAManagerResult.h.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAPROCESSM_H
#define KFAFUNCTIONALITY_ACCESS_KFAPROCESSM_H

#include <cstdint>
#include <string>
#include <vector>

#include <KFLFunctionality/KFLEID.h>
#include <KFLFunctionalityCore/KFLFunctional.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/access/KFAManagerResult.h>

namespace KFA {

// One process of an environment, as it was when it was looked at. A plain value.
struct KFAProcess {
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAProcess>;
  // -1 without a pid, and for a state that is not one character.
  using Reader = KFLRecordReader<KFAProcess>;

  int pid = 0;  // in the environment's own numbering
  int parentPid = 0;
  std::string user;
  std::string command;               // with its arguments, as they were given to it: any bytes
  char state = '?';                  // as in /proc: R running, S sleeping, D waiting, Z ended, T stopped
  std::int64_t residentBytes = 0;    // memory in use
  std::int64_t cpuMilliseconds = 0;  // user and system time together
};

// How a command ended. A plain value.
struct KFACommandResult {
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFACommandResult>;
  // -1 at anything that is absent.
  using Reader = KFLRecordReader<KFACommandResult>;

  int status = 0;  // its exit status; 128 and the signal's number when a signal ended it
  // What it printed: any bytes.
  std::string output;
  std::string errors;
};

class KFAProcessM : public KFLFunctional {
 public:
  // The processes of an environment, by pid. Empty for one that is not running.
  virtual int list(const KFLEID& eid, std::vector<KFAProcess>& processes) = 0;
  virtual int get(const KFLEID& eid, int pid, KFAProcess& process) = 0;
  // Sends a signal, by its number on the node.
  virtual int signal(const KFLEID& eid, int pid, int number) = 0;
  // Runs a program in a running environment, without a shell, and waits for its end; the first argument is its
  // path. Done however the program ended.
  virtual int execute(const KFLEID& eid, const std::vector<std::string>& arguments,
                      KFACommandResult& result) = 0;
};

}  // namespace KFA

#endif
