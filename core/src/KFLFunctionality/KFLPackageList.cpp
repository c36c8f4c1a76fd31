// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLPackageList.h>

#include <KFLMessage/KFLRecordDerivedFields.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLPackageList> recordKFLPackageList("KFLPackageList");

const KFLFieldTable& KFLPackageList::fields() {
  static constexpr KFLField rows[] = {
      derivedList<KFLPackageList, KFLPackage>(1511),
  };
  static constexpr KFLFieldTable table{"KFLPackageList", kTypesNamespaceURI, "", rows};
  return table;
}

}  // namespace KFL
