// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/support/KFAProblemReportData.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAProblemReportData> recordKFAProblemReportData("KFAProblemReportData");

const KFLFieldTable& KFAProblemReportData::fields() {
  using R = KFAProblemReportData;
  static constexpr KFLField rows[] = {
      field<R, &R::name_>(1026).required(),    field<R, &R::email_>(1315).required(),
      field<R, &R::report_>(1099).required(),  field<R, &R::subject_>(1347).required(),
      field<R, &R::contact_>(1813).required(), field<R, &R::attachment_>(1632),
  };
  static constexpr KFLFieldTable table{"KFAProblemReportData", kTypesURI, "", rows};
  return table;
}

}  // namespace KFA
