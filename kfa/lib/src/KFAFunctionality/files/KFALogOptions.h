// SPDX-License-Identifier: Apache-2.0
// What the container technology logs. A plain value.
#ifndef KFAFUNCTIONALITY_FILES_KFALOGOPTIONS_H
#define KFAFUNCTIONALITY_FILES_KFALOGOPTIONS_H

#include <KFLFunctionality/KFLLogOptions.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFALogOptions : public KFLLogOptions {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFALogOptions>;
  // The result of the base part; a kind that is absent is 0.
  using Reader = KFLRecordReader<KFALogOptions>;

  KFALogOptions() = default;
  KFALogOptions(const KFALogOptions&) = default;
  KFALogOptions(KFALogOptions&&) = default;
  KFALogOptions& operator=(const KFALogOptions&) = default;
  KFALogOptions& operator=(KFALogOptions&&) = default;
  ~KFALogOptions() override;

  // Which of the technology's logs it is; 0 for the tools' own.
  int getKind() const { return kind_; }
  void setKind(int kind) { kind_ = kind; }

 private:
  int kind_ = 0;
};

}  // namespace KFA

#endif
