// SPDX-License-Identifier: Apache-2.0
// Where the time of a processor went, in milliseconds since the start. A plain value.
#ifndef KFLFUNCTIONALITY_KFLCPULOAD_H
#define KFLFUNCTIONALITY_KFLCPULOAD_H

#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLCPULoad {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLCPULoad>;
  using Reader = KFLRecordReader<KFLCPULoad>;

  // In programs of usual priority.
  long long getUser() const { return user_; }
  void setUser(long long user) { user_ = user; }
  // In programs of lowered priority.
  long long getNice() const { return nice_; }
  void setNice(long long nice) { nice_ = nice; }
  // In the kernel.
  long long getSystem() const { return system_; }
  void setSystem(long long system) { system_ = system; }

 private:
  long long user_ = 0;
  long long nice_ = 0;
  long long system_ = 0;
};

}  // namespace KFL

#endif
