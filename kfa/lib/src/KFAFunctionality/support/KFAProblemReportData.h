// SPDX-License-Identifier: Apache-2.0
// A problem report that a person sends to the support. A plain value.
#ifndef KFAFUNCTIONALITY_SUPPORT_KFAPROBLEMREPORTDATA_H
#define KFAFUNCTIONALITY_SUPPORT_KFAPROBLEMREPORTDATA_H

#include <string>

#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAProblemReportData {
 public:
  using Text = KFLOptionalProperty<std::string>;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAProblemReportData>;
  // -1 at the first text that is missing, the attachment aside; what comes after it stays as it was.
  using Reader = KFLRecordReader<KFAProblemReportData>;

  // Who reports the problem.
  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  const std::string& getEmail() const { return email_; }
  void setEmail(const std::string& email) { email_ = email; }
  // What happened, in the person's words.
  const std::string& getReport() const { return report_; }
  void setReport(const std::string& report) { report_ = report; }
  const std::string& getSubject() const { return subject_; }
  void setSubject(const std::string& subject) { subject_ = subject; }
  // Other ways to reach the person.
  const std::string& getContact() const { return contact_; }
  void setContact(const std::string& contact) { contact_ = contact; }
  // The path of a file on the node that is sent along.
  const Text& getAttachment() const { return attachment_; }
  void setAttachment(const Text& attachment) { attachment_ = attachment; }

 private:
  std::string name_;
  std::string email_;
  std::string report_;
  std::string subject_;
  std::string contact_;
  Text attachment_;
};

}  // namespace KFA

#endif
