// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/access/KFAProcessM.h>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLRecordBytesFields.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAProcess> recordKFAProcess("KFAProcess");
static const KFLRecordRegistration<KFACommandResult> recordKFACommandResult("KFACommandResult");

namespace {

int putState(KFLMessageIterator& it, const KFAProcess& process, const KFLField& row) {
  return it.putValue(std::string(1, process.state), row.id);
}

int getState(const KFLMessageIterator& it, KFAProcess& process, const KFLField& row) {
  process.state = KFAProcess().state;
  std::string text;
  if (it.getValue(text, row.id) != 0) return 0;
  if (text.size() != 1) {
    setErrorMessage("'%s' is no state of a process; one character such as R would be right", text.c_str());
    return -1;
  }
  process.state = text.front();
  return 0;
}

}  // namespace

const KFLFieldTable& KFAProcess::fields() {
  using R = KFAProcess;
  static constexpr KFLField rows[] = {
      field<R, &R::pid>("pid").required(),
      field<R, &R::parentPid>("parent_pid"),
      field<R, &R::user>("user"),
      bytes<R, &R::command>("command").required(),
      special<R, std::string, &putState, &getState>("state").required(),
      field<R, &R::residentBytes>("resident_bytes"),
      field<R, &R::cpuMilliseconds>("cpu_milliseconds"),
  };
  static constexpr KFLFieldTable table{"KFAProcess", kTypesURI, "processType", rows};
  return table;
}

const KFLFieldTable& KFACommandResult::fields() {
  using R = KFACommandResult;
  static constexpr KFLField rows[] = {
      field<R, &R::status>("status").required(),
      bytes<R, &R::output>("output").required(),
      bytes<R, &R::errors>("errors").required(),
  };
  static constexpr KFLFieldTable table{"KFACommandResult", kTypesURI, "command_resultType", rows};
  return table;
}

}  // namespace KFA
