// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/resources/KFAQuota.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

namespace {

const KFLRecordRegistration<KFAUGIDQuotaLimit::QuotaLimit> recordQuotaLimit("KFAUGIDQuotaLimit::QuotaLimit");
const KFLRecordRegistration<KFAUGIDQuotaLimit> recordUGIDQuotaLimit("KFAUGIDQuotaLimit");
const KFLRecordRegistration<KFAUGIDQuotaGracePeriod> recordUGIDQuotaGracePeriod("KFAUGIDQuotaGracePeriod");
const KFLRecordRegistration<KFAUGIDQuotaInfo> recordUGIDQuotaInfo("KFAUGIDQuotaInfo");
const KFLRecordRegistration<KFAQuotaInfo> recordQuotaInfo("KFAQuotaInfo");
const KFLRecordRegistration<KFAQuotaStats> recordQuotaStats("KFAQuotaStats");
const KFLRecordRegistration<KFAUbc> recordUbc("KFAUbc");
const KFLRecordRegistration<KFAVeCPULoad> recordVeCPULoad("KFAVeCPULoad");

}  // namespace

const KFLFieldTable& KFAUGIDQuotaLimit::QuotaLimit::fields() {
  using R = QuotaLimit;
  static constexpr KFLField rows[] = {
      field<R, &R::current_>(1065).mustWrite(),
      field<R, &R::soft_>(1066).required().mustWrite(),
      field<R, &R::hard_>(1067).required().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFAUGIDQuotaLimit::QuotaLimit", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFAUGIDQuotaLimit::fields() {
  using R = KFAUGIDQuotaLimit;
  static constexpr KFLField id = field<R, &R::id_>(1010).required().mustWrite();
  static constexpr KFLField space = field<R, &R::space_>(1232).required().mustWrite();
  static constexpr KFLField inodes = field<R, &R::inodes_>(1231).required().mustWrite();
  static constexpr KFLField rows[] = {id, inodes, space};
  static constexpr KFLField readRows[] = {id, space, inodes};
  static constexpr KFLFieldTable table{"KFAUGIDQuotaLimit", kTypesURI, "", rows, readRows};
  return table;
}

const KFLFieldTable& KFAUGIDQuotaGracePeriod::fields() {
  using R = KFAUGIDQuotaGracePeriod;
  static constexpr KFLField rows[] = {
      field<R, &R::inodes_>(1301).required().mustWrite(),
      field<R, &R::space_>(1582).required().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFAUGIDQuotaGracePeriod", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFAUGIDQuotaInfo::fields() {
  using R = KFAUGIDQuotaInfo;
  static constexpr KFLField rows[] = {
      field<R, &R::id_>(1007).required().mustWrite(),
      container<R, &R::limits_>(1538, 1377).mustWrite(),
      field<R, &R::grace_>(1573).mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFAUGIDQuotaInfo", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFAQuotaInfo::fields() {
  using R = KFAQuotaInfo;
  static constexpr KFLField rows[] = {
      field<R, &R::current_>(1065).required(),    field<R, &R::soft_>(1066).required(),
      field<R, &R::hard_>(1067).required(),       field<R, &R::count_>(1004).required(),
      field<R, &R::expire_>("expire").required(),
  };
  static constexpr KFLFieldTable table{"KFAQuotaInfo", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFAQuotaStats::fields() {
  using R = KFAQuotaStats;
  static constexpr KFLField rows[] = {
      field<R, &R::space_>("disk_space").required(),
      field<R, &R::inodes_>("diks_inodes")
          .required(),  // the name that agents exchange; it is not to be corrected
      field<R, &R::ugids_>(1579).required(),
  };
  static constexpr KFLFieldTable table{"KFAQuotaStats", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFAUbc::fields() {
  using R = KFAUbc;
  static constexpr KFLField rows[] = {
      field<R, &R::name_>(1010).required(),
      field<R, &R::value_>(1065).required(),
  };
  static constexpr KFLFieldTable table{"KFAUbc", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFAVeCPULoad::fields() {
  using R = KFAVeCPULoad;
  // Whatever becomes of the base part, the rest is written.
  static constexpr KFLField basePart = [] {
    KFLField row = base<R, KFLCPULoad>();
    row.failsWrite = false;
    return row;
  }();
  static constexpr KFLField rows[] = {
      basePart,
      field<R, &R::idleTime_>(1586).required(),
  };
  static constexpr KFLFieldTable table{"KFAVeCPULoad", kTypesURI, "", rows};
  return table;
}

}  // namespace KFA
