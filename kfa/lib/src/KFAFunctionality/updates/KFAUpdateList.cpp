// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/updates/KFAUpdateList.h>

#include <KFLMessage/KFLRecordDerivedFields.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include <KFAFunctionality/updates/KFAUpdate.h>

namespace KFA {

static const KFLRecordRegistration<KFAUpdateList> recordKFAUpdateList("KFAUpdateList");

const KFLFieldTable& KFAUpdateList::fields() {
  static constexpr KFLField rows[] = {derivedList<KFAUpdateList, KFAUpdate>("update")};
  static constexpr KFLFieldTable table{"KFAUpdateList", kUp2dateURI, "", rows};
  return table;
}

}  // namespace KFA
