// SPDX-License-Identifier: Apache-2.0
// Disk quotas and usage counters of one environment, as they travel in messages. Plain values.
#ifndef KFAFUNCTIONALITY_RESOURCES_KFAQUOTA_H
#define KFAFUNCTIONALITY_RESOURCES_KFAQUOTA_H

#include <string>
#include <vector>

#include <KFLCommon/KFLProperty.h>
#include <KFLFunctionality/KFLCPULoad.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

// The limits of one user or group, for space and for inodes.
class KFAUGIDQuotaLimit {
 public:
  // What is used and what may be used.
  class QuotaLimit {
   public:
    static const KFLFieldTable& fields();
    using Writer = KFLRecordWriter<QuotaLimit>;
    using Reader = KFLRecordReader<QuotaLimit>;

    // 0 where a message does not tell it.
    long long getCurrent() const { return current_; }
    void setCurrent(long long current) { current_ = current; }
    long long getSoft() const { return soft_; }
    void setSoft(long long soft) { soft_ = soft; }
    long long getHard() const { return hard_; }
    void setHard(long long hard) { hard_ = hard; }

   private:
    long long current_ = 0;
    long long soft_ = 0;
    long long hard_ = 0;
  };

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAUGIDQuotaLimit>;
  using Reader = KFLRecordReader<KFAUGIDQuotaLimit>;

  // The user's or group's number.
  int getID() const { return id_; }
  void setID(int id) { id_ = id; }
  const QuotaLimit& getSpace() const { return space_; }
  void setSpace(const QuotaLimit& space) { space_ = space; }
  const QuotaLimit& getInodes() const { return inodes_; }
  void setInodes(const QuotaLimit& inodes) { inodes_ = inodes; }

 private:
  int id_ = 0;
  QuotaLimit space_;
  QuotaLimit inodes_;
};

// How long, in seconds, a soft limit may be passed.
class KFAUGIDQuotaGracePeriod {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAUGIDQuotaGracePeriod>;
  using Reader = KFLRecordReader<KFAUGIDQuotaGracePeriod>;

  int getInodes() const { return inodes_; }
  void setInodes(int inodes) { inodes_ = inodes; }
  int getSpace() const { return space_; }
  void setSpace(int space) { space_ = space; }

 private:
  int inodes_ = 0;
  int space_ = 0;
};

// The quotas of the users or of the groups of one environment.
class KFAUGIDQuotaInfo {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAUGIDQuotaInfo>;
  using Reader = KFLRecordReader<KFAUGIDQuotaInfo>;

  // Tells the quotas of users from those of groups.
  int getID() const { return id_; }
  void setID(int id) { id_ = id; }
  const KFLOptionalProperty<std::vector<KFAUGIDQuotaLimit>>& getLimits() const { return limits_; }
  void setLimits(const KFLOptionalProperty<std::vector<KFAUGIDQuotaLimit>>& limits) { limits_ = limits; }
  const KFLOptionalProperty<KFAUGIDQuotaGracePeriod>& getGrace() const { return grace_; }
  void setGrace(const KFLOptionalProperty<KFAUGIDQuotaGracePeriod>& grace) { grace_ = grace; }

 private:
  int id_ = 0;
  KFLOptionalProperty<std::vector<KFAUGIDQuotaLimit>> limits_;
  KFLOptionalProperty<KFAUGIDQuotaGracePeriod> grace_;
};

// One kind of usage with its limits.
class KFAQuotaInfo {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAQuotaInfo>;
  using Reader = KFLRecordReader<KFAQuotaInfo>;

  long long getCurrent() const { return current_; }
  void setCurrent(long long current) { current_ = current; }
  long long getSoft() const { return soft_; }
  void setSoft(long long soft) { soft_ = soft; }
  long long getHard() const { return hard_; }
  void setHard(long long hard) { hard_ = hard; }
  int getCount() const { return count_; }
  void setCount(int count) { count_ = count; }
  // When the grace period ends.
  int getExpire() const { return expire_; }
  void setExpire(int expire) { expire_ = expire; }

 private:
  long long current_ = 0;
  long long soft_ = 0;
  long long hard_ = 0;
  int count_ = 0;
  int expire_ = 0;
};

// The disk usage of one environment.
class KFAQuotaStats {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAQuotaStats>;
  using Reader = KFLRecordReader<KFAQuotaStats>;

  const KFAQuotaInfo& getSpace() const { return space_; }
  void setSpace(const KFAQuotaInfo& space) { space_ = space; }
  const KFAQuotaInfo& getInodes() const { return inodes_; }
  void setInodes(const KFAQuotaInfo& inodes) { inodes_ = inodes; }
  // Users and groups with quotas.
  const KFAQuotaInfo& getUGIDs() const { return ugids_; }
  void setUGIDs(const KFAQuotaInfo& ugids) { ugids_ = ugids; }

 private:
  KFAQuotaInfo space_;
  KFAQuotaInfo inodes_;
  KFAQuotaInfo ugids_;
};

// One resource counter.
class KFAUbc {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAUbc>;
  using Reader = KFLRecordReader<KFAUbc>;

  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  long long getValue() const { return value_; }
  void setValue(long long value) { value_ = value; }

 private:
  std::string name_;
  long long value_ = 0;
};

// The processor load of one environment.
class KFAVeCPULoad : public KFLCPULoad {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAVeCPULoad>;
  using Reader = KFLRecordReader<KFAVeCPULoad>;

  long long getIdleTime() const { return idleTime_; }
  void setIdleTime(long long idleTime) { idleTime_ = idleTime; }

 private:
  long long idleTime_ = 0;
};

}  // namespace KFA

#endif
