// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLDevMountInfo.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLDevMountInfo> recordKFLDevMountInfo("KFLDevMountInfo");

const KFLFieldTable& KFLDevMountInfo::fields() {
  using R = KFLDevMountInfo;
  static constexpr KFLField rows[] = {
      field<R, &R::device_>("device").required().mustWrite(),
      field<R, &R::mountPoint_>("mount_point").required().mustWrite(),
      field<R, &R::fileSystem_>("file_system").mustWrite(),
      field<R, &R::readOnly_>("read_only").mustWrite(),
      field<R, &R::automatic_>("auto_mount").mustWrite(),
      field<R, &R::size_>(1024).mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFLDevMountInfo", kTypesNamespaceURI, "", rows};
  return table;
}

}  // namespace KFL
